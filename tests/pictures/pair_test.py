"""Figures of the pair: by hand, and against slow and plain code of the same rules, also
where times leave the 64-bit range."""

import unittest

import numpy as np

import plots
from plots import merged, page_of, tags_of
from pictures.calculating import histogram, pairs, wide_view
from pictures.calculating.channel_figures import walk
from pictures.calculating.chunks import CHUNK
from pictures.calculating.correlation import merged_bins
from pictures.calculating.pair_figures import count_coincidences, estimate_offset, sorted_pair

LARGEST = 2**63 - 1
SMALLEST = -2**63


def wrap(number):
    return (number + 2**63) % 2**64 - 2**63


def literal_bounds(x, window):
    """Up to half of the range a bound wraps around; a wider window's is cut off."""
    if window <= 2**62:
        return wrap(x - window), wrap(x + window)
    return max(x - window, SMALLEST), min(x + window, LARGEST)


def literal_coincidences(a, b, window):
    count, j = 0, 0
    for x in a:
        low, high = literal_bounds(x, window)
        while j < len(b) and b[j] < low:
            j += 1
        count += window >= 0 and j < len(b) and b[j] <= high
    return count


def literal_offset(a, b, window):
    a, b = sorted(a), sorted(b)
    kept = []
    for x in a[::max(len(a) // 4000, 1)]:
        after = [y for y in b if y >= x]
        before = [y for y in b if y < x]
        to_next = wrap((after[0] if after else b[-1]) - x)
        to_previous = wrap((before[-1] if before else b[0]) - x)
        nearest = to_next if abs(to_next) <= abs(to_previous) else to_previous
        if abs(nearest) <= window and len(kept) < 4000:
            kept.append(nearest)
    return (sorted(kept)[len(kept) // 2], True) if kept else (0, False)


def literal_histogram(a, b, window, offset):
    """Counts by bin number; nothing that leaves the range."""
    half = (-(-2 * window // 8) | 1) // 2
    counts = {}
    for x in a:
        for y in b:
            d = y - x - offset
            center = wrap(x + offset)
            if window <= 2**62 and not SMALLEST <= center - window <= center + window <= LARGEST:
                continue
            if abs(d) <= window:
                number = (d + 4) // 8 if d >= 0 else -((4 - d) // 8)
                if abs(number) <= half:
                    counts[number] = counts.get(number, 0) + 1
    return counts


def lists_of(a, b):
    return sorted_pair(walk(np.array(a, np.int64)), walk(np.array(b, np.int64)))


class Coincidences(unittest.TestCase):
    def count(self, a, b, window):
        found = count_coincidences(np.array(a, np.int64), np.array(b, np.int64), window)
        self.assertEqual(found, literal_coincidences(a, b, window), (a, b, window))
        return found

    def test_are_tags_of_a_with_a_partner_both_ends_included(self):
        self.assertEqual(self.count([100], [90], 10), 1)
        self.assertEqual(self.count([100], [110], 10), 1)
        self.assertEqual(self.count([100], [89, 111], 10), 0)
        self.assertEqual(self.count([100, 101, 102], [101], 5), 3)
        self.assertEqual(self.count([100], [98, 99, 100, 101], 5), 1)
        self.assertEqual(self.count([100, 100], [100], 0), 2)
        self.assertEqual(self.count([100], [100], -1), 0)

    def test_miss_partners_behind_a_tag_out_of_order(self):
        self.assertEqual(self.count([1000, 10, 20], [10, 20, 1000], 0), 1)
        self.assertEqual(self.count([10, 20], [1000, 10, 20], 0), 0)

    def test_in_any_order_are_those_of_a_cursor_that_goes_forwards(self):
        draw = np.random.default_rng(2)
        for _ in range(300):
            a, b = (list(map(int, draw.integers(0, 40, draw.integers(0, 12)))) for _ in range(2))
            self.count(a, b, int(draw.integers(-1, 6)))

    def test_at_the_ends_of_time(self):
        draw = np.random.default_rng(3)
        edges = [SMALLEST, SMALLEST + 1, SMALLEST + 5, -1, 0, 1, LARGEST - 5, LARGEST - 1, LARGEST]
        for _ in range(400):
            a, b = ([edges[i] for i in draw.integers(0, 9, draw.integers(1, 6))] for _ in range(2))
            for window in (0, 4, 2**62, 2**62 + 1, LARGEST):
                self.count(a, b, window)

    def test_a_bound_that_wraps_around_sends_the_cursor_to_the_end(self):
        times_ps = np.arange(3 * CHUNK) * 100
        self.assertEqual(count_coincidences(times_ps, times_ps, 10), 3 * CHUNK)
        first = np.append([SMALLEST], times_ps)
        self.assertEqual(count_coincidences(first, times_ps, 10), 0)

    def test_do_not_depend_on_where_lists_are_cut(self):
        draw = np.random.default_rng(4)
        a = draw.integers(0, 10**9, 200_000)
        b = np.sort(draw.integers(0, 10**9, 150_000))
        expected = int((np.minimum(*(abs(b[np.clip(np.searchsorted(b, a) + k, 0, len(b) - 1)] - a)
                                     for k in (-1, 0))) <= 900).sum())
        self.assertEqual(count_coincidences(np.sort(a), b, 900), expected)
        # Nearly in order: a few go astray, the others are found all the same.
        ordered = np.sort(a)
        ordered[70_000] = 10**9
        self.assertEqual(count_coincidences(ordered, b, 900),
                         literal_coincidences(ordered.tolist(), b.tolist(), 900))


class Offset(unittest.TestCase):
    def estimate(self, a, b, window):
        found = estimate_offset(np.sort(np.array(a, np.int64)), np.sort(np.array(b, np.int64)),
                                window)
        if a and b:
            self.assertEqual(found, literal_offset(a, b, window), (a, b, window))
        return found

    def test_is_the_upper_median_of_the_nearest(self):
        self.assertEqual(self.estimate([0, 1000, 2000], [7, 1009, 2008], 50), (8, True))
        self.assertEqual(self.estimate([0, 1000], [7, 1009], 50), (9, True))
        self.assertEqual(self.estimate([0], [-7], 50), (-7, True))
        self.assertEqual(self.estimate([0], [5, -5], 50), (5, True))  # a tie: the later one

    def test_is_not_there_without_a_partner(self):
        self.assertEqual(self.estimate([0], [51], 50), (0, False))
        self.assertEqual(self.estimate([0], [0], -1), (0, False))
        self.assertEqual(self.estimate([], [0], 50), (0, False))
        self.assertEqual(self.estimate([0], [], 50), (0, False))

    def test_of_random_tags_and_at_the_ends_of_time(self):
        draw = np.random.default_rng(5)
        for _ in range(200):
            a, b = (list(map(int, draw.integers(-50, 50, draw.integers(1, 9)))) for _ in range(2))
            self.estimate(a, b, int(draw.integers(0, 40)))
        self.estimate([SMALLEST, 0, LARGEST], [SMALLEST + 3, LARGEST - 2], 10)
        self.estimate([SMALLEST], [LARGEST], 10)
        self.estimate([SMALLEST, LARGEST], [0], LARGEST)


class Histogram(unittest.TestCase):
    def bins(self, a, b, window, offset=0):
        found = histogram.histogram(lists_of(a, b), window, offset)
        counts = {int(n): int(c) for n, c in zip(found.numbers, found.counts) if c > 0}
        self.assertEqual(counts, literal_histogram(a, b, window, offset), (a, b, window, offset))
        return found

    def test_rounds_half_a_bin_away_from_0(self):
        found = self.bins([0], [-12, -5, -4, -3, 0, 3, 4, 11, 12], 20)
        self.assertEqual(list(found.numbers), [-2, -1, 0, 1, 2])
        self.assertEqual(list(found.counts), [1, 2, 3, 2, 1])

    def test_has_the_programs_number_of_bins(self):
        # Twice the window over 8 ps, rounded up, and one more if that is even.
        for window, bins in ((1000, 251), (4, 1), (5, 3), (1, 1), (12, 3), (13, 5), (0, 1),
                             (-9, 1)):
            self.assertEqual(2 * histogram.half_bins(window) + 1, bins, window)

    def test_drops_what_rounds_to_no_bin(self):
        self.assertEqual(int(self.bins([0], [4, -4, 3, -3], 4).counts.sum()), 2)

    def test_of_random_tags_dense_and_thin(self):
        draw = np.random.default_rng(6)
        for _ in range(40):
            a, b = (draw.integers(0, 3000, draw.integers(1, 90)).tolist() for _ in range(2))
            self.bins(a, b, int(draw.integers(1, 3000)), int(draw.integers(-500, 500)))
            self.bins(a, b, 20_000_000, int(draw.integers(-500, 500)))

    def test_at_the_ends_of_time(self):
        near = [SMALLEST, SMALLEST + 9, SMALLEST + 30, LARGEST - 30, LARGEST - 9, LARGEST]
        for window in (10, 20_000_000, 2**62, 2**62 + 1, LARGEST):
            self.bins(near, near, window)
            self.bins(near, [0, 5, -7], window)

    def test_keeps_all_bins_or_the_filled_ones_alike(self):
        draw = np.random.default_rng(7)
        lists = lists_of(draw.integers(0, 10**8, 500), draw.integers(0, 10**8, 500))
        every = histogram.histogram(lists, 16_000_000, 100)
        self.assertLessEqual(2 * every.half + 1, histogram.MOST_COUNTED_BINS)
        most, histogram.MOST_COUNTED_BINS = histogram.MOST_COUNTED_BINS, 1
        try:
            filled = histogram.histogram(lists, 16_000_000, 100)
        finally:
            histogram.MOST_COUNTED_BINS = most
        self.assertLess(len(filled.numbers), len(every.numbers))
        for figure in (histogram.peak_of, histogram.rms_ps, histogram.top_bins,
                       lambda found: histogram.pairs_near(found, 3333)):
            self.assertEqual(figure(every), figure(filled))

    def test_takes_many_partners_in_pieces(self):
        count = pairs.PIECE // 100
        self.assertGreater(count, pairs.ROUNDS)
        found = histogram.histogram(lists_of(np.arange(300), np.arange(count)), 500_000, 0)
        self.assertEqual(int(found.counts.sum()), 300 * count)
        expected = np.zeros(len(found.counts), np.int64)
        for x in range(300):
            distances = np.arange(count) - x
            places = np.where(distances >= 0, (distances + 4) // 8, -((4 - distances) // 8))
            expected += np.bincount(places + found.half, minlength=len(expected))
        self.assertTrue(np.array_equal(found.counts, expected))

    def test_of_too_many_pairs_is_that_of_a_part_of_a(self):
        most, histogram.MOST_PAIRS = histogram.MOST_PAIRS, 100_000
        try:
            page = page_of(merged(np.arange(5000) * 10, np.arange(5000) * 10 + 3), window_ps=1000)
        finally:
            histogram.MOST_PAIRS = most
        pair = page.correlation
        # About 200 partners each, a million pairs; so at most a tenth of A is used.
        self.assertTrue(0.08 < pair.sampled <= 0.1, pair.sampled)
        self.assertAlmostEqual(pair.pairs, pair.sampled * 1_000_000, delta=20_000)
        self.assertEqual(pair.coincidences, 5000)
        self.assertTrue(any("% of the tags of A" in note for note in page.notes), page.notes)


class Figures(unittest.TestCase):
    def test_of_four_pairs_by_hand(self):
        # Differences 8, 8, 16, 3349 ps; the median is the upper one of 8 and 16.
        rows = [(0, 0), (1, 8), (0, 10**6), (1, 10**6 + 8), (0, 2 * 10**6), (1, 2 * 10**6 + 16),
                (0, 3 * 10**6), (1, 3 * 10**6 + 3349)]
        pair = page_of(tags_of(rows), window_ps=4000).correlation
        self.assertEqual((pair.coincidences, pair.offset_ps, pair.offset_valid), (4, 16, True))
        # About 16: -8 twice, 0 and 3333, whose bin is that of 3336.
        self.assertEqual((pair.peak_count, pair.peak_center_ps), (2, -8))
        self.assertEqual(pair.top_bins[:3], ((-8, 2), (0, 1), (3336, 1)))
        self.assertEqual((pair.minus_period_window, pair.plus_period_window), (0, 1))
        self.assertTrue(pair.window_covers_sides)
        # The mean is 830; (838^2 * 2 + 830^2 + 2506^2) / 4 = 2 093 356.
        self.assertAlmostEqual(pair.rms_ps, 2_093_356 ** 0.5, places=9)
        self.assertAlmostEqual(pair.fwhm_ps, 2_093_356 ** 0.5 * 2.355, places=9)
        self.assertEqual((pair.bins, pair.pairs, pair.merged), (1001, 4, 1))

    def test_without_pairs_say_why(self):
        def reason(rows, **wishes):
            pair = page_of(tags_of(rows), **wishes).correlation
            self.assertEqual(len(pair.counts), 0)
            return pair.reason
        self.assertEqual(reason([]), "channels 0 and 1 saw no tags")
        self.assertEqual(reason([(0, 1)]), "channel 1 saw no tags")
        self.assertEqual(reason([(0, 1), (1, 1002)]),
                         "no tags of the pair lie within 1000 ps of each other")
        self.assertEqual(reason([(0, 1), (1, 1)], window_ps=0),
                         "a window of 0 ps holds no histogram")

    def test_side_windows_are_40_ps_to_either_side_of_a_period(self):
        pair = page_of(tags_of([(0, 5), (1, 5)]), window_ps=3367).correlation
        self.assertEqual(pair.side_windows_ps, ((-3373, -3293), (3293, 3373)))
        # The last centre within them is 3368.
        self.assertTrue(pair.window_covers_sides)
        self.assertFalse(page_of(tags_of([(0, 5), (1, 5)]),
                                 window_ps=3363).correlation.window_covers_sides)

    def test_too_many_bins_are_drawn_together(self):
        for window in (16_003, 16_100, 100_000, 16_000_000, 10**12):
            found = histogram.histogram(lists_of([0, 0, 0], [-window + 9, 0, 20]), window, 0)
            merged_count, centers_ps, counts = merged_bins(found)
            self.assertLessEqual(len(counts), 4001)
            self.assertEqual(merged_count % 2, 1)
            self.assertEqual(int(counts.sum()), 9)
            middle = len(counts) // 2
            self.assertEqual(centers_ps[middle], 0)
            self.assertEqual(centers_ps[middle + 1], 8 * merged_count)
            self.assertEqual(int(counts[:middle].sum()), 3)
            self.assertLessEqual(abs(centers_ps[np.flatnonzero(counts)[0]] + window - 9),
                                 4 * merged_count)


class WideView(unittest.TestCase):
    def test_shows_a_delay_of_many_windows(self):
        times_ps = np.arange(1, 3000) * 10**7
        view = page_of(merged(times_ps, times_ps + 44_000)).wide
        self.assertEqual((view.range_ps, view.tags_used, view.tags_total), (100_000, 2999, 2999))
        self.assertEqual(view.pairs, 2999)
        self.assertLessEqual(abs(view.peak_ps - 44_000), view.bin_width_ps / 2)
        self.assertEqual(int(view.counts.sum()), 2999)
        i = int(np.argmax(view.counts))
        self.assertLessEqual(view.edges_ps[i], 44_000)
        self.assertLess(44_000, view.edges_ps[i + 1])
        self.assertEqual(view.peak_ps, (view.edges_ps[i] + view.edges_ps[i + 1]) / 2)
        self.assertEqual(view.edges_ps[0], -view.edges_ps[-1])

    def test_is_bounded_whatever_the_input(self):
        times_ps = np.arange(300_000) * 100
        view = wide_view.wide_view(lists_of(times_ps, times_ps), (0, 1), 10**6, 1)
        self.assertLessEqual(len(view.counts), 2003)
        self.assertLess(view.tags_used, 300_000)
        # Each tag has all others within reach.
        self.assertLess(view.pairs, 3 * wide_view.MOST_PAIRS)
        for window in (1, 3, 10**15, LARGEST):
            view = page_of(tags_of([(0, 5), (1, 6)]), window_ps=window).wide
            self.assertLessEqual(len(view.counts), 2003, window)
            self.assertEqual(view.pairs, 1, window)

    def test_has_bins_of_whole_quanta(self):
        for quantum in (1, 8, 64, 1024):
            self.assertEqual(wide_view.bin_width_ps(100_000, quantum) % quantum, 0)
            self.assertEqual(wide_view.bin_width_ps(100_000, quantum) % 8, 0)

    def test_says_why_it_is_not_there(self):
        self.assertEqual(page_of(tags_of([])).wide.reason, "channels 0 and 1 saw no tags")
        self.assertEqual(page_of(tags_of([(0, 0), (1, 10**6)])).wide.reason,
                         "no tags of the pair lie within 100000 ps of each other")


if __name__ == "__main__":
    plots.main()
