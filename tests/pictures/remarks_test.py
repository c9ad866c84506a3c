"""What a reader is told to look at first."""

import dataclasses
import unittest

import made_pages
import plots

from pictures.figures import Gap
from pictures.drawing.remarks import remarks_on


def clean():
    """A page on which nothing is to be seen."""
    page = made_pages.full()
    none = (0,) * 4
    return dataclasses.replace(
        page, channels=tuple(dataclasses.replace(c, monotonic_violations=0)
                             for c in page.channels),
        rates=dataclasses.replace(page.rates, gaps_per_channel=((),) * 4,
                                  gaps_total_per_channel=none),
        codes_per_channel=tuple(dataclasses.replace(c, even=True)
                                for c in page.codes_per_channel))


def told(page):
    return [remark.text for remark in remarks_on(page)]


def with_correlation(page, **changes):
    return dataclasses.replace(page, correlation=dataclasses.replace(page.correlation, **changes))


def with_gaps(page, gaps, total, length_s):
    """On channel 2. The view ends at 2 s."""
    return dataclasses.replace(page, rates=dataclasses.replace(
        page.rates, gaps_per_channel=((), (), gaps, ()), gaps_total_per_channel=(0, 0, total, 0),
        gaps_length_s_per_channel=(0.0, 0.0, length_s, 0.0)))


class Remarks(unittest.TestCase):
    def test_clean_run_has_none(self):
        self.assertEqual(told(clean()), [])

    def test_silence_at_the_end_is_not_called_a_pause(self):
        self.assertEqual(told(with_gaps(clean(), (Gap(1.3, 2.0),), 1, 0.7)),
                         ["Channel 2 is silent for the last 700 ms of the run."])

    def test_pauses_are_counted(self):
        gaps = (Gap(0.5, 0.6), Gap(0.7, 0.9))
        self.assertEqual(told(with_gaps(clean(), gaps, 12, 0.45)),
                         ["Channel 2 pauses 12 times, for 450 ms in all."])
        self.assertEqual(told(with_gaps(clean(), gaps[:1], 1, 0.1)),
                         ["Channel 2 pauses once, for 100 ms in all."])

    def test_streamed_channel_without_tags(self):
        page = clean()
        for streamed, expected in ((True, ["Channel 3 was streamed, but no tags came."]),
                                   (False, []), (None, [])):
            silent = dataclasses.replace(page.channels[3], tags=0, streamed=streamed)
            self.assertEqual(told(dataclasses.replace(
                page, channels=(*page.channels[:3], silent))), expected)

    def test_time_that_runs_backwards(self):
        page = clean()
        bad = dataclasses.replace(page.channels[0], monotonic_violations=1234)
        self.assertEqual(told(dataclasses.replace(page, channels=(bad, *page.channels[1:]))),
                         ["On channel 0 time runs backwards 1,234 times."])

    def test_peak_that_the_window_cuts(self):
        """The window is 1000 ps, and the spread 58 ps."""
        cut = ["The peak of the pair reaches out of the coincidence window."]
        for offset_ps, expected in ((118, []), (941, []), (943, cut), (-943, cut)):
            self.assertEqual(told(with_correlation(clean(), offset_ps=offset_ps)), expected)

    def test_flat_floor_is_no_peak_that_the_window_cuts(self):
        self.assertEqual(told(with_correlation(clean(), offset_ps=943, rms_ps=577.0)), [])
        self.assertEqual(told(with_correlation(clean(), offset_ps=943, offset_valid=False)), [])

    def test_pairs_a_clock_period_away(self):
        """10,000 pairs in 1000 bins are 100 per window, and 6 sqrt(101) = 60.3."""
        seen = {"window_covers_sides": True, "pairs": 10_000, "bins": 1000}
        for minus, plus, expected in ((160, 160, []), (161, 0, ["161 pairs lie one clock period "
                                                               "before the offset."]),
                                      (0, 5000, ["5,000 pairs lie one clock period after the "
                                                 "offset."])):
            self.assertEqual(told(with_correlation(
                clean(), minus_period_window=minus, plus_period_window=plus, **seen)), expected)

    def test_side_windows_beyond_the_histogram_tell_nothing(self):
        self.assertEqual(told(with_correlation(
            clean(), window_covers_sides=False, minus_period_window=5000)), [])


if __name__ == "__main__":
    plots.main()
