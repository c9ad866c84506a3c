"""Figures of single channels, and those over time, with values worked out by hand."""

import unittest

import numpy as np

import plots
from plots import merged, page_of, tags_of
from pictures.calculating.channel_figures import PARTS, walk
from pictures.calculating.chunks import CHUNK
from pictures.calculating.octaves import RAW_BINS, bins_of, raw_bin, raw_edges

LARGEST = 2**63 - 1
SMALLEST = -2**63


def only(times_ps, channel=0):
    return page_of(tags_of([(channel, t) for t in times_ps])).channels[channel]


class Steps(unittest.TestCase):
    def test_are_counted_below_every_limit_above_them(self):
        # 9999, 10 000, 99 999, 100 000, 500 000, 900 000, 0
        times_ps = np.cumsum([0, 9999, 10_000, 99_999, 100_000, 500_000, 900_000, 0])
        steps = only(times_ps).steps
        self.assertEqual(steps.below, (2, 4, 5, 6))
        self.assertEqual((steps.min_dt_ps, steps.max_gap_ps), (0, 900_000))

    def test_of_fewer_than_two_tags_are_none(self):
        for times_ps in ([], [-5]):
            steps = only(times_ps).steps
            self.assertEqual((steps.min_dt_ps, steps.max_gap_ps, steps.below), (0, 0, (0,) * 4))

    def test_backwards_are_the_smallest_and_below_no_limit(self):
        channel = only([100, 50, 60, 60])
        self.assertEqual(channel.monotonic_violations, 1)
        self.assertEqual((channel.steps.min_dt_ps, channel.steps.max_gap_ps), (-50, 10))
        self.assertEqual(channel.steps.below, (2, 2, 2, 2))

    def test_wrap_around_at_the_ends_of_time(self):
        # From the largest number to the smallest one it is one step, modulo 2^64.
        channel = only([LARGEST, SMALLEST])
        self.assertEqual((channel.monotonic_violations, channel.steps.min_dt_ps), (0, 1))
        channel = only([SMALLEST, LARGEST])
        self.assertEqual((channel.monotonic_violations, channel.steps.min_dt_ps), (1, -1))
        channel = only([0, LARGEST])
        self.assertEqual((channel.steps.min_dt_ps, channel.steps.max_gap_ps), (0, LARGEST))

    def test_do_not_depend_on_where_a_list_is_cut(self):
        draw = np.random.default_rng(1)
        times_ps = draw.integers(-10**7, 10**7, 3 * CHUNK + 17)
        walked = walk(times_ps)
        steps = [int(b) - int(a) for a, b in zip(times_ps, times_ps[1:])]
        self.assertEqual(walked.violations, sum(step < 0 for step in steps))
        self.assertEqual(walked.zero, sum(step == 0 for step in steps))
        self.assertEqual(walked.min_dt_ps, min(steps))
        self.assertEqual(walked.max_gap_ps, max(steps))
        self.assertEqual(walked.shortest_ps, min(step for step in steps if step > 0))
        self.assertEqual(list(walked.below), [sum(0 <= step < limit for step in steps)
                                              for limit in (10_000, 100_000, 500_000, 900_000)])
        self.assertEqual(int(walked.octaves.sum()), sum(step > 0 for step in steps))
        self.assertEqual(walked.parts.shape, (PARTS, 3333))
        self.assertEqual(int(walked.parts.sum()), len(times_ps))
        self.assertFalse(walked.in_order)
        self.assertTrue(walk(np.sort(times_ps)).in_order)


class Residues(unittest.TestCase):
    def test_of_negative_times_are_lifted_into_range(self):
        residues = only([-1, -3333, 3333, 3334, 0, SMALLEST, LARGEST]).residues
        # 2^63 is 2615 above a multiple of 3333: 2^63 - 1 leaves 2614, and -2^63 718.
        self.assertEqual(2**63 % 3333, 2615)
        self.assertEqual(residues.unique, 5)
        self.assertEqual(residues.exact_zero, 3)
        self.assertEqual(residues.top, ((0, 3), (1, 1), (718, 1), (2614, 1), (3332, 1)))

    def test_rank_by_count_and_then_by_place(self):
        times_ps = [5, 3338, 9, 9 + 3333, 9 + 6666] + list(range(20, 27))
        self.assertEqual(only(sorted(times_ps)).residues.top,
                         ((9, 3), (5, 2), (20, 1), (21, 1), (22, 1), (23, 1), (24, 1), (25, 1)))


class Rates(unittest.TestCase):
    def test_are_steps_over_the_time_between(self):
        self.assertEqual(only([0, 10**12, 4 * 10**12]).rate_hz, 0.5)
        self.assertIsNone(only([7]).rate_hz)
        self.assertIsNone(only([7, 7]).rate_hz)
        self.assertIsNone(only([7, 6]).rate_hz)

    def test_over_time_count_every_tag_in_its_bin(self):
        # 100 tags make 20 bins; the first half of the time has 90 of them.
        early = np.arange(90) * 5_000_000_000  # to 0.445 s
        late = 450_000_000_000 + np.arange(1, 11) * 50_000_000_000  # to 0.95 s
        plot = page_of(merged(np.append(early, late))).rates
        self.assertIsNone(plot.reason)
        self.assertEqual((plot.origin_ps, len(plot.edges_s)), (0, 21))
        width_s = plot.edges_s[1]
        self.assertAlmostEqual(plot.edges_s[-1], 0.95, places=9)
        counts = plot.rates_hz_per_channel[0] * width_s
        # Bins of 47.5 ms and a little more, which hold nine or ten of the steps of 5 ms. The
        # tags at 95, 190, 285 and 380 ms lie just before an edge.
        self.assertEqual([round(n) for n in counts],
                         [10, 10, 9, 10, 9, 10, 9, 10, 9, 4] + [1] * 10)

    def test_have_no_plot_without_different_times(self):
        self.assertEqual(page_of(tags_of([])).rates.reason, "there are no tags")
        for rows in ([(0, 5)], [(0, 5), (1, 5)]):
            plot = page_of(tags_of(rows)).rates
            self.assertEqual(plot.reason, "all tags have the same time")
            self.assertEqual(plot.origin_ps, 5)

    def test_of_the_widest_times_fit(self):
        plot = page_of(tags_of([(0, SMALLEST), (1, 0), (1, LARGEST)])).rates
        self.assertAlmostEqual(plot.end_s, (2**64 - 1) / 1e12)
        counts = [rates * plot.edges_s[1] for rates in plot.rates_hz_per_channel]
        # Two bins, of 2^63 ps each.
        self.assertEqual([[round(n) for n in some] for some in counts],
                         [[1, 0], [0, 2], [0, 0], [0, 0]])

    def test_leave_out_what_is_far_off(self):
        times_ps = np.append(np.arange(2000) * 10**9, [10**17])
        for rows, inside_ps in ((times_ps, 500), (-times_ps, -500)):
            plot = page_of(merged(np.sort(rows), [inside_ps])).rates
            self.assertAlmostEqual(plot.end_s, 1.999, places=8)
            self.assertEqual(plot.outside_per_channel, (1, 0, 0, 0))

    def test_keep_a_channel_with_few_tags(self):
        plot = page_of(merged(np.arange(1000) * 10**6, [0, 10**13])).rates
        self.assertAlmostEqual(plot.end_s, 10)
        self.assertEqual(plot.outside_per_channel, (0, 0, 0, 0))


class Gaps(unittest.TestCase):
    def test_are_the_pauses_that_chance_does_not_make(self):
        # 1000 tags in each of two stretches of 1 s, with 0.5 s between.
        steady = np.arange(1000) * 10**9
        times_ps = np.append(steady, steady + 1_499_000_000_000)
        plot = page_of(merged(times_ps, np.arange(2500) * 10**9)).rates
        self.assertEqual(plot.gaps_total_per_channel, (1, 0, 0, 0))
        gap, = plot.gaps_per_channel[0]
        self.assertEqual((gap.start_s, gap.end_s), (0.999, 1.499))
        self.assertAlmostEqual(plot.gaps_length_s_per_channel[0], 0.5)

    def test_include_the_silence_of_a_channel_at_either_end(self):
        others = np.arange(4000) * 10**9
        plot = page_of(merged(others, others[1000:3000])).rates
        gaps = [(gap.start_s, gap.end_s) for gap in plot.gaps_per_channel[1]]
        self.assertEqual(gaps, [(0, 1), (2.999, 3.999)])
        self.assertEqual(plot.gaps_total_per_channel, (0, 2, 0, 0))

    def test_are_none_in_random_tags(self):
        for seed in range(20):
            draw = np.random.default_rng(seed)
            times_ps = np.cumsum(draw.exponential(1e9, 3000)).astype(np.int64)
            self.assertEqual(page_of(merged(times_ps)).rates.gaps_total_per_channel[0], 0, seed)

    def test_are_bounded_and_their_number_is_told(self):
        # Bursts of a thousand tags 1 ns apart, 10 ms from one to the next.
        bursts = (np.arange(300) * 10**10)[:, None] + np.arange(1000) * 1000
        plot = page_of(merged(bursts.ravel())).rates
        self.assertEqual(plot.gaps_total_per_channel[0], 299)
        self.assertEqual(len(plot.gaps_per_channel[0]), 100)
        starts = [gap.start_s for gap in plot.gaps_per_channel[0]]
        self.assertEqual(starts, sorted(starts))
        self.assertAlmostEqual(plot.gaps_length_s_per_channel[0], 299 * (0.01 - 999e-9))


class Backwards(unittest.TestCase):
    def test_tags_are_named_with_their_row(self):
        rows = [(0, 10**12), (1, 5 * 10**11), (0, 9 * 10**11), (1, 6 * 10**11), (0, 2 * 10**12),
                (1, 10**11)]
        plot = page_of(tags_of(rows)).rates
        first, = plot.backwards_per_channel[0]
        self.assertEqual((first.row, first.step_ps, first.time_s), (2, -10**11, 0.8))
        second, = plot.backwards_per_channel[1]
        self.assertEqual((second.row, second.step_ps, second.time_s), (5, -5 * 10**11, 0.0))
        self.assertEqual(plot.backwards_total_per_channel, (1, 1, 0, 0))

    def test_tags_are_bounded_and_their_number_is_told(self):
        times_ps = np.arange(1000) * 10**6
        times_ps[::2] += 3 * 10**6
        plot = page_of(tags_of([(2, t) for t in times_ps])).rates
        self.assertEqual(plot.backwards_total_per_channel[2], 500)
        self.assertEqual([b.row for b in plot.backwards_per_channel[2]],
                         list(range(1, 200, 2)))


class Intervals(unittest.TestCase):
    def test_below_eight_have_bins_of_their_own(self):
        self.assertEqual(raw_edges()[0], 1)
        edges, counts = bins_of(np.bincount(raw_bin(np.arange(1, 17)), minlength=RAW_BINS))
        self.assertEqual(list(edges), list(range(1, 17)) + [18])
        self.assertEqual(list(counts), [1] * 16)

    def test_lie_in_eighths_of_octaves(self):
        numbers = np.array([16, 17, 18, 1000, 1023, 1024, 2**40 - 1, 2**40, LARGEST >> 11])
        edges = raw_edges()
        for number, place in zip(numbers, raw_bin(numbers)):
            self.assertLessEqual(edges[place], number)
            self.assertLess(number, edges[place + 1])

    def test_are_counted_and_named(self):
        # Steps 1000, 1000, 3000, 0, -10
        page = page_of(tags_of([(0, t) for t in (0, 1000, 2000, 5000, 5000, 4990)]))
        plot = page.intervals_per_channel[0]
        self.assertIsNone(plot.reason)
        self.assertEqual((plot.shortest_ps, plot.longest_ps), (1000, 3000))
        self.assertEqual((plot.zero, plot.negative), (1, 1))
        # 1000 lies in [960, 1024), 3000 in [2816, 3072).
        self.assertEqual((plot.edges_ps[0], plot.edges_ps[1]), (960, 1024))
        self.assertEqual((plot.edges_ps[-2], plot.edges_ps[-1]), (2816, 3072))
        self.assertEqual((plot.counts[0], plot.counts[-1], plot.counts.sum()), (2, 1, 3))
        # One and a half of the two in the first bin.
        self.assertEqual(plot.median_ps, 960 + 0.75 * 64)
        # The middle of the bin is 2944, which no interval reaches.
        plot = page_of(tags_of([(0, 0), (0, 2900)])).intervals_per_channel[0]
        self.assertEqual(plot.median_ps, 2900)

    def test_have_no_plot_without_a_step_forwards(self):
        for times_ps in ([], [3], [3, 3], [3, 2]):
            plot = page_of(tags_of([(0, t) for t in times_ps])).intervals_per_channel[0]
            self.assertIsNotNone(plot.reason)
            self.assertEqual(len(plot.counts), 0)


if __name__ == "__main__":
    plots.main()
