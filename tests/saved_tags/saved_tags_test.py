"""Files that save_tags= left behind, as NumPy and the reader of the page take them."""

import argparse
import os
import pathlib
import random
import re
import signal
import subprocess
import sys
import tempfile
import time
import unittest

import numpy as np

PROGRAM = ""
DOCS = pathlib.Path()
# A run that takes longer has failed.
LONGEST_S = 60
HEADER_BYTES = 192
TAG = np.dtype({"names": ["channel", "timestamp_ps"], "formats": ["u1", "<i8"],
                "offsets": [0, 8], "itemsize": 16})
# Rows that a killed program may have written without telling them.
BATCH = 65536
# As fast as the program reads, and nothing of it is dropped.
UNHURRIED = ["mode=external", "channel_mask=0x0f", "format=raw64", "queue_limit=8388608"]


def start(folder, *arguments):
    environment = {"HOME": "/home/operator"}
    for name in ("ASAN_OPTIONS", "LSAN_OPTIONS", "TSAN_OPTIONS", "UBSAN_OPTIONS"):
        if name in os.environ:
            environment[name] = os.environ[name]
    return subprocess.Popen([PROGRAM, *arguments], cwd=folder, env=environment,
                            stdout=subprocess.PIPE, stderr=subprocess.PIPE)


def finish(process):
    try:
        output, error = process.communicate(timeout=LONGEST_S)
    finally:
        process.kill()
    return output.decode(), error.decode()


def run(folder, *arguments):
    """The report's numbers that stand alone in their line."""
    process = start(folder, *arguments)
    output, error = finish(process)
    if process.returncode not in (0, 3):
        raise RuntimeError(f"status {process.returncode}: {error}")
    return {key: int(value) for key, value in re.findall(r"^(\w+)=(\d+)$", output, re.MULTILINE)}


def snippets():
    """The page's programs, in their order."""
    page = (DOCS / "saved-tags.md").read_text(encoding="utf-8")
    return re.findall(r"```python\n(.*?)```", page, re.DOTALL)


class InAFolder(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name)

    def execute(self, snippet, *then):
        """What a snippet, and lines behind it, print in the folder."""
        text = "\n".join([snippet, *then])
        return subprocess.run([sys.executable, "-c", text], cwd=self.folder, check=True,
                              capture_output=True, text=True, timeout=LONGEST_S).stdout


class SavedTags(InAFolder):
    def test_load_with_and_without_a_map(self):
        report = run(self.folder, "port=sim://pairs?pace=max", *UNHURRIED, "capture_s=30",
                     "stop_tags=50000", "save_tags=t.npy")
        mapped = np.load(self.folder / "t.npy", mmap_mode="r")
        read = np.load(self.folder / "t.npy")
        for tags in (mapped, read):
            self.assertEqual(tags.dtype, TAG)
            self.assertEqual(tags.shape, (50000,))
        self.assertTrue((mapped == read).all())
        for channel in range(4):
            self.assertEqual(np.count_nonzero(read["channel"] == channel), report[f"ch{channel}"])
        self.assertEqual(os.path.getsize(self.folder / "t.npy"), HEADER_BYTES + 50000 * 16)

    def test_have_the_header_that_numpy_gives_them(self):
        run(self.folder, *UNHURRIED, "stop_tags=1000", "capture_s=30", "save_tags=t.npy")
        with open(self.folder / "t.npy", "rb") as file:
            self.assertEqual(np.lib.format.read_magic(file), (1, 0))
            shape, fortran_order, dtype = np.lib.format.read_array_header_1_0(file)
            self.assertEqual(file.tell(), HEADER_BYTES)
            padding = np.fromfile(file, np.uint8).reshape(1000, 16)[:, 1:8]
        self.assertEqual((shape, fortran_order), ((1000,), False))
        text = (self.folder / "t.npy").read_bytes()[10:HEADER_BYTES].decode()
        self.assertIn(f"{{'descr': {np.lib.format.dtype_to_descr(TAG)}, ", text)
        self.assertEqual(dtype, TAG)
        self.assertFalse(padding.any())

    def test_of_an_empty_capture_load(self):
        run(self.folder, "port=sim://silent", *UNHURRIED, "capture_s=0.1", "save_tags=t.npy")
        self.assertEqual(np.load(self.folder / "t.npy", mmap_mode="r").shape, (0,))
        self.assertEqual(np.load(self.folder / "t.npy")["timestamp_ps"].shape, (0,))

    def test_are_the_same_in_both_layouts(self):
        for layout in ("npy", "csv"):
            run(self.folder, "port=sim://random?pace=max", *UNHURRIED, "capture_s=30",
                "stop_tags=30000", f"save_tags=run.{layout}")
        tags = np.load(self.folder / "run.npy")
        text = (self.folder / "run.csv").read_bytes()
        self.assertEqual(text, b"channel,timestamp_ps\n" +
                         b"".join(b"%d,%d\n" % (tag[0], tag[1]) for tag in tags.tolist()))
        # As the page reads it.
        loads = [snippet for snippet in snippets() if "loadtxt" in snippet]
        self.assertEqual(len(loads), 1)
        seen = self.execute(loads[0], "print(len(times_ps), channels.sum(), times_ps.sum())")
        self.assertEqual(seen, f"30000 {tags['channel'].sum()} {tags['timestamp_ps'].sum()}\n")

    def test_are_read_by_the_pages_program(self):
        run(self.folder, "channel_a=2", "channel_b=3", "stop_tags=5001", "capture_s=30",
            "save_tags=run.npy")
        on_channel_2 = np.count_nonzero(np.load(self.folder / "run.npy")["channel"] == 2)
        self.assertEqual(self.execute(snippets()[0]),
                         f"5001 tags, {on_channel_2} of them on channel 2\n")


class EndedRuns(InAFolder):
    """A signal at any moment leaves a file that loads."""

    def start_endless(self):
        """A run whose header tells of tags already, and more to come: the second batch goes
        into the file after the first one was told."""
        file = self.folder / "run.npy"
        file.unlink(missing_ok=True)
        process = start(self.folder, "port=sim://burst?pause_us=0", *UNHURRIED, "capture_s=60",
                        f"save_tags={file.name}")
        end = time.monotonic() + LONGEST_S
        while not file.exists() or file.stat().st_size <= HEADER_BYTES + 16 * BATCH:
            if process.poll() is not None or time.monotonic() > end:
                self.fail(f"no tags were saved: {finish(process)}")
            time.sleep(0.001)
        return process, file

    def expect_tags(self, file):
        """Returns how many of them the header tells."""
        tags = np.load(file, mmap_mode="r")
        self.assertEqual(tags.dtype, TAG)
        self.assertLess(tags["channel"].max(initial=0), 4)
        self.assertTrue((np.diff(tags["timestamp_ps"]) >= 0).all())
        there = (file.stat().st_size - HEADER_BYTES) // 16
        self.assertLessEqual(len(tags), there)
        self.assertLessEqual(there, len(tags) + BATCH)
        return len(tags)

    def test_by_one_signal_hold_what_the_report_counts(self):
        draw = random.Random(130)
        for number in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP):
            process, file = self.start_endless()
            time.sleep(draw.uniform(0, 0.1))
            process.send_signal(number)
            output, _ = finish(process)
            self.assertEqual(process.returncode, 128 + number)
            self.assertIn(f"\ntags_total={self.expect_tags(file)}\n", output)
            self.assertEqual((file.stat().st_size - HEADER_BYTES) % 16, 0)

    def test_by_two_signals_load(self):
        draw = random.Random(2)
        for _ in range(20):
            process, file = self.start_endless()
            time.sleep(draw.uniform(0, 0.05))
            process.send_signal(signal.SIGINT)
            time.sleep(draw.choice((0, 0.0005, draw.uniform(0, 0.02))))
            process.send_signal(signal.SIGINT)
            finish(process)
            # The second one may come after the report, or find nobody any more.
            self.assertIn(process.returncode, (-signal.SIGINT, 128 + signal.SIGINT))
            self.assertGreater(self.expect_tags(file), 0)

    def test_that_were_killed_are_recovered_by_the_pages_program(self):
        recoveries = [snippet for snippet in snippets() if "getsize" in snippet]
        self.assertEqual(len(recoveries), 1)
        draw = random.Random(9)
        for _ in range(10):
            process, file = self.start_endless()
            time.sleep(draw.uniform(0, 0.05))
            process.kill()
            finish(process)
            self.expect_tags(file)
            there = (file.stat().st_size - HEADER_BYTES) // 16
            recovered = self.execute(recoveries[0], "print(len(tags), tags['timestamp_ps'].max())")
            times_ps = np.memmap(file, TAG, "r", HEADER_BYTES, there)["timestamp_ps"]
            self.assertEqual(recovered, f"{there} {times_ps.max()}\n")

    def test_with_a_lost_count_are_recovered_by_the_pages_program(self):
        run(self.folder, "stop_tags=1000", "capture_s=30", "save_tags=run.npy")
        expected = np.load(self.folder / "run.npy")
        recovery = next(snippet for snippet in snippets() if "getsize" in snippet)
        whole = (self.folder / "run.npy").read_bytes()
        for count in (b"0,), }   ", b"9999,), }"):
            # A row that is not whole stands behind them.
            damaged = whole.replace(b"1000,), }".ljust(9), count, 1) + b"\x03\0\0\0\0"
            self.assertNotEqual(damaged[:HEADER_BYTES], whole[:HEADER_BYTES])
            (self.folder / "run.npy").write_bytes(damaged)
            self.execute(recovery, "np.save('whole.npy', tags)")
            repaired = np.load(self.folder / "whole.npy")
            self.assertEqual(repaired.dtype, TAG)
            self.assertTrue((repaired == expected).all())


def main():
    global PROGRAM, DOCS
    parser = argparse.ArgumentParser(add_help=False, allow_abbrev=False)
    parser.add_argument("--program", default=PROGRAM)
    parser.add_argument("--docs", type=pathlib.Path, default=DOCS)
    places, rest = parser.parse_known_args()
    PROGRAM, DOCS = places.program, places.docs
    unittest.main(argv=[sys.argv[0], *rest])


if __name__ == "__main__":
    main()
