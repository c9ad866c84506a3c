"""Makes tags, runs the smoke test on them, and has their pictures calculated."""

import argparse
import itertools
import os
import pathlib
import subprocess
import sys
import tempfile
import unittest

import numpy as np

TOOLS = pathlib.Path(__file__).resolve().parents[2] / "tools"
sys.path.insert(0, str(TOOLS))

from pictures.calculating.page import Wishes, make_page  # noqa: E402

PROGRAM = ""
SCRIPTED_LIBRARY = ""  # the directory of the library that answers from a script
# A run that hangs for longer has failed.
LONGEST_S = 60
SCRATCH = tempfile.TemporaryDirectory()
# The layout of TimeTag in memory, padding declared.
TAG = np.dtype([("channel", "u1"), ("timestamp_ps", "<i8")], align=True)


def main():
    """Takes --NAME=VALUE for the places from the command line."""
    global PROGRAM, SCRIPTED_LIBRARY
    parser = argparse.ArgumentParser(add_help=False, allow_abbrev=False)
    parser.add_argument("--program", default=PROGRAM)
    parser.add_argument("--scripted-library", default=SCRIPTED_LIBRARY)
    places, rest = parser.parse_known_args()
    PROGRAM, SCRIPTED_LIBRARY = places.program, places.scripted_library
    try:
        unittest.main(argv=[sys.argv[0], *rest])
    finally:
        SCRATCH.cleanup()


def fresh(name):
    """A path of this name in a directory of its own."""
    return pathlib.Path(tempfile.mkdtemp(dir=SCRATCH.name)) / name


def tags_of(rows):
    """An array of tags from (channel, time in ps)."""
    tags = np.zeros(len(rows), TAG)
    for i, (channel, time_ps) in enumerate(rows):
        tags[i] = (channel, time_ps)
    return tags


def merged(*lists_ps):
    """The tags of channels 0, 1, ... in order of time; of a tie the lower channel first."""
    channels = np.concatenate([np.full(len(t), c, np.uint8) for c, t in enumerate(lists_ps)])
    times_ps = np.concatenate([np.asarray(t, np.int64) for t in lists_ps])
    order = np.lexsort((channels, times_ps))
    tags = np.zeros(len(times_ps), TAG)
    tags["channel"] = channels[order]
    tags["timestamp_ps"] = times_ps[order]
    return tags


def saved(tags, name="run.npy"):
    path = fresh(name)
    np.save(path, tags)
    return path


def page_of(tags, **wishes):
    """The figures of an array of tags."""
    return make_page(str(saved(tags)), None, Wishes(**wishes))


class Run:
    """One run of the program, that has ended with its report. `script`: lines for the
    scripted library; None: the simulated one."""

    def __init__(self, arguments, script=None):
        self.path = fresh("report").parent
        environment = {"HOME": "/home/operator"}
        for name in ("ASAN_OPTIONS", "LSAN_OPTIONS", "TSAN_OPTIONS", "UBSAN_OPTIONS"):
            if name in os.environ:
                environment[name] = os.environ[name]
        if script is not None:
            (self.path / "device.script").write_text("".join(line + "\n" for line in script))
            environment["LD_LIBRARY_PATH"] = SCRIPTED_LIBRARY
            environment["ZELK_SCRIPT"] = str(self.path / "device.script")
            environment["ZELK_SCRIPT_LOG"] = str(self.path / "calls.log")
        done = subprocess.run(
            [PROGRAM, *arguments, "json=run.json"], cwd=self.path, env=environment, text=True,
            stdin=subprocess.DEVNULL, capture_output=True, timeout=LONGEST_S, check=False)
        self.status = done.returncode
        self.error = done.stderr
        self.report = dict(line.split("=", 1) for line in done.stdout.splitlines()
                           if "=" in line and not line.startswith("bin "))
        self.json = self.path / "run.json"


def played(tags, *arguments):
    """The program's run on the tags, by the simulated unit."""
    file = fresh("tags.csv")
    np.savetxt(file, np.column_stack([tags["channel"], tags["timestamp_ps"]]), fmt="%d",
               delimiter=",", header="channel,timestamp_ps", comments="")
    end = [f"stop_tags={len(tags)}", "capture_s=50"] if len(tags) > 0 else ["capture_s=0.1"]
    return Run([f"port=sim://tags?pace=max&file={file}", "mode=external", "format=raw64",
                "channel_mask=0x0f", "queue_limit=1000000000", *end, *arguments])


def scripted(tags, *arguments):
    """The same, with tags in any order; times from 0 to 2^43."""
    words = b"".join((int(c) << 61 | int(t)).to_bytes(8, "big") for c, t in tags)
    reads = [f"read status=0 delay_ms=0 bytes={words[i:i + 4096].hex()}"
             for i in range(0, len(words), 4096)]
    return Run(["format=raw64", "mode=external", "capture_s=50", f"stop_tags={len(tags)}",
                *arguments], reads)


def ranking(pairs):
    return ",".join(f"{value}:{count}" for value, count in pairs)


def per_channel(values):
    return ",".join(str(value) for value in values)


def report_of(page):
    """The lines of the report that the figures of a page would make."""
    pair, channels = page.correlation, page.channels
    lines = {
        "tags_total": page.tags,
        **{f"ch{channel.number}": channel.tags for channel in channels},
        "coincidences": pair.coincidences,
        "xcorr_offset_ps": pair.offset_ps,
        "xcorr_peak_count": pair.peak_count,
        "xcorr_peak_center_ps": pair.peak_center_ps,
        "xcorr_rms_ps": f"{pair.rms_ps:.3f}",
        "xcorr_fwhm_est_ps": f"{pair.fwhm_ps:.3f}",
        "xcorr_minus3333_window_pm40ps": pair.minus_period_window,
        "xcorr_plus3333_window_pm40ps": pair.plus_period_window,
        "xcorr_top_bins": ranking(pair.top_bins),
        "monotonic_violations": per_channel(c.monotonic_violations for c in channels),
        "max_gap_ms": per_channel(f"{c.steps.max_gap_ps / 1e9:.3f}" for c in channels),
        "min_dt_ps": per_channel(c.steps.min_dt_ps for c in channels),
    }
    for i, limit in enumerate(("10", "100", "500", "900")):
        lines[f"dt_lt_{limit}ns"] = per_channel(c.steps.below[i] for c in channels)
    for channel in channels:
        start = f"ch{channel.number}_mod3333_"
        lines[start + "unique"] = channel.residues.unique
        lines[start + "exact_zero"] = channel.residues.exact_zero
        lines[start + "top"] = ranking(channel.residues.top)
    return {key: str(value) for key, value in lines.items()}


class Agreement(unittest.TestCase):
    def assertAgree(self, run, page, text=""):
        """Every figure of the page is the program's own."""
        self.assertEqual(run.error, "", text)
        ours = report_of(page)
        theirs = {key: run.report.get(key) for key in ours}
        self.assertEqual(ours, theirs, text)
        # What is drawn adds up to the figures.
        pair = page.correlation
        if pair.reason is None and pair.merged == 1:
            drawn = sorted(zip(pair.centers_ps, pair.counts), key=lambda bin: (-bin[1], bin[0]))
            top = [(int(center_ps), int(count)) for center_ps, count in drawn[:10]]
            self.assertEqual(ranking(top), theirs["xcorr_top_bins"], text)
        if pair.reason is None:
            self.assertEqual(int(pair.counts.sum()), pair.pairs, text)


def wishes_of(arguments):
    """The arguments of zelk_plot that say what those of the program say."""
    names = {"channel_a": "channel_a", "channel_b": "channel_b",
             "coincidence_window_ps": "window_ps"}
    given = dict(argument.split("=") for argument in arguments)
    return {names[key]: int(value) for key, value in given.items() if key in names}


def product(**lists):
    """All combinations, as arguments."""
    return [[f"{key}={value}" for key, value in zip(lists, values)]
            for values in itertools.product(*lists.values())]
