"""Measured tags, played by the simulated unit, come out of save_tags= as they went in.
Their file is not part of this repository: ZELK_MEASURED_TAGS names it."""

import os
import unittest

import numpy as np

import saved_tags_test
from saved_tags_test import InAFolder, run

# Two measured tags of a channel never lie in one tick of packed_delta, so each comes out
# as its tick's beginning.
QUANTUM_PS = {"raw64": 1, "delta32": 1, "packed_delta": 8}
RUNS = 10


@unittest.skipUnless("ZELK_MEASURED_TAGS" in os.environ, "ZELK_MEASURED_TAGS names no file")
class MeasuredTags(InAFolder):
    @classmethod
    def setUpClass(cls):
        cls.path = os.environ["ZELK_MEASURED_TAGS"]
        cls.channels, cls.times_ps = np.loadtxt(cls.path, np.int64, delimiter=",", skiprows=1,
                                                unpack=True)

    def play(self, form, file):
        """Plays them all, and returns what was counted."""
        path = os.path.abspath(self.path).replace("%", "%25").replace("&", "%26")
        report = run(self.folder, f"port=sim://tags?pace=max&file={path}", f"format={form}",
                     "mode=external", "channel_mask=3", "queue_limit=8388608", "capture_s=50",
                     f"stop_tags={len(self.times_ps)}", f"save_tags={file}")
        self.assertEqual(report["reader_dropped"], 0)
        return report["tags_total"]

    def expect_measured(self, form, channels, times_ps):
        self.assertEqual(len(channels), len(self.channels))
        self.assertTrue((channels == self.channels).all())
        ticks_ps = self.times_ps - self.times_ps % QUANTUM_PS[form]
        self.assertTrue((times_ps == ticks_ps).all())

    def test_load_as_they_were_measured(self):
        for form in QUANTUM_PS:
            for number in range(RUNS):
                with self.subTest(format=form, run=number):
                    name = f"{form}-{number}.npy"
                    total = self.play(form, name)
                    tags = np.load(self.folder / name, mmap_mode="r")
                    self.assertEqual(len(tags), total)
                    self.expect_measured(form, tags["channel"], tags["timestamp_ps"])
                    os.unlink(self.folder / name)

    def test_are_the_same_text(self):
        self.play("raw64", "tags.csv")
        with open(self.path, "rb") as measured:
            self.assertTrue((self.folder / "tags.csv").read_bytes() == measured.read())

    def test_are_text_in_every_format(self):
        for form in QUANTUM_PS:
            self.play(form, f"{form}.csv")
            channels, times_ps = np.loadtxt(self.folder / f"{form}.csv", np.int64, delimiter=",",
                                            skiprows=1, unpack=True)
            self.expect_measured(form, channels, times_ps)


if __name__ == "__main__":
    saved_tags_test.main()
