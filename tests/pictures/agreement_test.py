"""The figures of a page are the program's own, on the same tags."""

import os
import unittest

import numpy as np

import plots
from plots import Agreement, merged, page_of, played, scripted, tags_of, wishes_of

SECOND_PS = 10**12
# With and without the side windows, with a half bin at the end, of one bin, of none,
# and so wide that most bins are empty.
WINDOWS_PS = (1000, 3333, 3400, 996, 100_003, 3, 4, 0, -5, 20_000_000)


def rising(times_ps):
    """A channel's times always rise, and none lies before the start."""
    return np.unique(np.asarray(times_ps, np.int64).clip(0))


def random_times(draw, count, length_ps=SECOND_PS):
    return rising(draw.integers(0, length_ps, count))


class Agree(Agreement):
    def compare(self, tags, *arguments):
        self.assertAgree(played(tags, *arguments), page_of(tags, **wishes_of(arguments)),
                         f"{len(tags)} tags, {arguments}")


class Played(Agree):
    def pairs(self, seed, delay_ps=120, jitter_ps=60, noise=3000):
        draw = np.random.default_rng(seed)
        first = random_times(draw, 5000)
        second = first + delay_ps + np.rint(draw.normal(0, jitter_ps, len(first))).astype(np.int64)
        return merged(rising(np.append(first, random_times(draw, noise))),
                      rising(np.append(second, random_times(draw, noise))),
                      random_times(draw, 50), [])

    def test_pairs_of_any_seed(self):
        for seed in range(4):
            self.compare(self.pairs(seed))

    def test_pairs_in_any_window(self):
        tags = self.pairs(10)
        for window_ps in WINDOWS_PS:
            self.compare(tags, f"coincidence_window_ps={window_ps}")

    def test_pairs_with_any_delay(self):
        for delay_ps in (-700, -3333, 3333, 40_000, -1_000_000):
            tags = self.pairs(20, delay_ps)
            self.compare(tags)
            self.compare(tags, "coincidence_window_ps=5000")
            self.compare(tags, "coincidence_window_ps=5000", "channel_a=1", "channel_b=0")

    def test_every_pair_of_channels(self):
        tags = self.pairs(30)
        for arguments in plots.product(channel_a=range(4), channel_b=range(4)):
            if arguments[0][-1] != arguments[1][-1]:
                self.compare(tags, *arguments, "coincidence_window_ps=2000000")

    def test_noise(self):
        for seed in range(3):
            draw = np.random.default_rng(seed)
            lists = [random_times(draw, count) for count in (20_000, 30_000, 700, 1)]
            self.compare(merged(*lists), "coincidence_window_ps=500000")

    def test_dense_tags_in_wide_windows(self):
        draw = np.random.default_rng(7)
        lists = [random_times(draw, 2000, 10**8) for _ in range(2)]
        for window_ps in (1000, 100_000, 10**7, 16_777_216, 16_777_300, 10**12):
            self.compare(merged(*lists), f"coincidence_window_ps={window_ps}")

    def test_windows_beyond_every_tag(self):
        tags = self.pairs(40, noise=0)[:200]
        for window_ps in (1 << 61, 1 << 62, (1 << 62) + 1, (1 << 63) - 1, -(1 << 63)):
            self.compare(tags, f"coincidence_window_ps={window_ps}")

    def test_ties(self):
        times_ps = np.arange(1, 5000) * 3333 * 7
        self.compare(merged(times_ps, times_ps, times_ps[::3], times_ps[::5]))
        self.compare(merged(times_ps, times_ps), "coincidence_window_ps=0")
        self.compare(merged(times_ps[::2], times_ps + 4), "coincidence_window_ps=8")

    def test_steps_at_the_limits(self):
        steps = [9999, 10_000, 10_001, 99_999, 100_000, 499_999, 500_000, 899_999, 900_000, 1]
        times_ps = np.cumsum(steps * 3)
        self.compare(merged(times_ps, times_ps + 5))

    def test_few_tags(self):
        self.compare(tags_of([]))
        self.compare(tags_of([(2, 5)]))
        self.compare(tags_of([(0, 5), (1, 5)]))
        self.compare(tags_of([(1, 5), (0, 6)]))
        self.compare(tags_of([(0, 0), (0, 3333), (0, 6666)]))
        self.compare(tags_of([(1, 95), (0, 100), (1, 105)]))
        self.compare(tags_of([(c, 1000 * i + 7) for i in range(5) for c in (0, 1)]))

    def test_the_offset_among_as_many_tags_as_it_looks_at(self):
        # The program looks at every tag up to 7999 of them, and stops at 4000 neighbours.
        draw = np.random.default_rng(50)
        for count in (3999, 4000, 4001, 7999, 8000, 12_001):
            first = np.arange(1, count + 1) * 10_000
            second = first + draw.integers(-900, 900, count)
            self.compare(merged(first, rising(second)))


class Scripted(Agree):
    """Times in any order, as damaged streams have them."""

    def compare(self, tags, *arguments):
        self.assertAgree(scripted(tags, *arguments), page_of(tags, **wishes_of(arguments)),
                         f"{len(tags)} tags, {arguments}")

    def test_times_in_any_order(self):
        for seed in range(4):
            draw = np.random.default_rng(seed)
            rows = [(int(draw.integers(0, 4)), int(time_ps))
                    for time_ps in draw.integers(0, 2_000_000, 600)]
            for window_ps in (1000, 5000, 3, 0, -1, 20_000_000):
                self.compare(tags_of(rows), f"coincidence_window_ps={window_ps}")

    def test_a_few_times_out_of_order(self):
        for seed in range(4):
            draw = np.random.default_rng(100 + seed)
            times_ps = np.sort(draw.integers(0, 50_000_000, 2000))
            for i in draw.integers(1, 2000, 20):
                times_ps[i] = draw.integers(0, 50_000_000)
            rows = list(zip((i % 2 for i in range(2000)), times_ps))
            self.compare(tags_of(rows), "coincidence_window_ps=20000")
            self.compare(tags_of(rows), "channel_a=1", "channel_b=0")

    def test_equal_times_on_one_channel(self):
        self.compare(tags_of([(0, 500)] * 7 + [(1, 500), (1, 500), (0, 499), (1, 499)]))


@unittest.skipUnless(os.environ.get("ZELK_MEASURED_TAGS"), "needs measured arrival times")
class Measured(Agree):
    def test_arrival_times(self):
        rows = np.loadtxt(os.environ["ZELK_MEASURED_TAGS"], np.int64, delimiter=",", skiprows=1)
        tags = np.zeros(len(rows), plots.TAG)
        tags["channel"], tags["timestamp_ps"] = rows[:, 0], rows[:, 1]
        for window_ps in (1000, 100_000, 3333):
            self.compare(tags, f"coincidence_window_ps={window_ps}")
            self.compare(tags, "channel_a=1", "channel_b=0", f"coincidence_window_ps={window_ps}")


if __name__ == "__main__":
    plots.main()
