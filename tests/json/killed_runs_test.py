"""A run that is killed leaves no half-written document under the final name, and no
older one once the device is opened."""

import random
import subprocess
import time
import unittest

import runs
from runs import Run, raw64

# Bins of a millisecond make a document of 4096 rows, which takes a while to write.
SCRIPT = [raw64([(0, 0), (1, 100), (0, 4_095_999_999_999)])]
ARGUMENTS = ["format=raw64", "mode=external", "capture_s=60", "stop_tags=3",
             "bin_s=0.001", "json=run.json"]
RUNS = 60


class KilledRuns(unittest.TestCase):
    def setUp(self):
        run = Run([*ARGUMENTS, "note=older"], SCRIPT)
        began = time.monotonic()
        self.assertIn(run.result().status, (0, 3))
        self.duration_s = time.monotonic() - began
        self.older = run.file.read_bytes()

    def kill(self, note, moment):
        """Kills a run at the moment that the function waits for; true if it left its
        document."""
        run = Run([*ARGUMENTS, f"note={note}"], SCRIPT)
        run.file.write_bytes(self.older)
        process = run.start(stdout=subprocess.DEVNULL)
        moment(run, process)
        process.kill()
        process.wait()
        process.stderr.close()
        if not run.file.exists():
            return False
        if run.file.read_bytes() == self.older:
            self.assertNotIn("qx_", run.calls(), "an older document beside an opened device")
            return False
        document = runs.read_document(run.file)
        self.assertEqual(document["note"], note)
        self.assertEqual(len(document["lists"]["bins"]), 4096)
        self.assertIn(document["exit_status"], (0, 3))
        return True

    def test_at_any_moment(self):
        draw = random.Random(4096)
        for i in range(RUNS):
            self.kill(f"any {i}", lambda *_: time.sleep(draw.uniform(0, 1.2 * self.duration_s)))
        # While the device is closed it is already there.
        self.assertTrue(self.kill("last", lambda run, _: run.wait_for_call("qx_close")))

    def test_while_they_write(self):
        draw = random.Random(3333)

        # The temporary file is empty until the text goes into it, and then it goes. On a
        # busy machine all of that may pass between two looks, and the run be over.
        def wait_for_the_text(run, process):
            end = time.monotonic() + runs.LONGEST_S
            seen = False
            while process.poll() is None:
                hidden = run.hidden_files()
                try:
                    if seen and (not hidden or (run.path / hidden[0]).stat().st_size > 0):
                        return
                except FileNotFoundError:
                    return
                seen = seen or hidden != []
                self.assertLess(time.monotonic(), end, "the run wrote nothing")

        written = 0
        for i in range(RUNS):
            def moment(run, process):
                wait_for_the_text(run, process)
                time.sleep(draw.choice((0, 0, 0.00005, 0.0002)))
            written += self.kill(f"late {i}", moment)
        self.assertGreater(written, 0)


if __name__ == "__main__":
    runs.main()
