"""The cross-correlation histogram and its figures, as the program has them.

The program's bins are 8 ps wide. As long as there are not too many of them, each has a
count; of a window so wide that most are empty only the others are kept. Both give the
same figures.
"""

import threading
from dataclasses import dataclass

import numpy as np

from ..figures import BIN_WIDTH_PS, CLOCK_PERIOD_PS
from .chunks import in_parallel, pieces
from .pair_figures import window_high, window_low
from .pairs import bounds_of, differences
from .wrapping import INT64_MAX, magnitude, wrapped

MOST_COUNTED_BINS = 1 << 22
MOST_PAIRS = 200_000_000  # as many take some seconds
MOST_SPARSE_PAIRS = 1 << 24  # whose bins are kept and sorted
ESTIMATED_FROM = 5000  # tags of A
BLOCKS = 64  # of neighbouring tags, when only a part of A is used
SIDE_WINDOW_PS = 40
TOP_BINS = 10
FWHM_FACTOR = 2.355


@dataclass(frozen=True)
class Histogram:
    """The bins that are kept: all of them, or all that are not empty."""
    half: int  # bins on either side of the middle one
    numbers: np.ndarray  # ascending; 0 is the middle bin
    counts: np.ndarray
    sampled: float  # share of A's tags whose pairs are in it

    @property
    def centers_ps(self):
        return self.numbers * BIN_WIDTH_PS


def half_bins(window_ps):
    return 0 if window_ps < 1 else (-(-2 * window_ps // BIN_WIDTH_PS) | 1) // 2


def bin_numbers(differences_ps):
    """The nearest bin, a half bin away from 0."""
    numbers = ((magnitude(differences_ps) + np.uint64(BIN_WIDTH_PS // 2))
               // np.uint64(BIN_WIDTH_PS)).view(np.int64)
    return np.where(differences_ps < 0, -numbers, numbers)


def window_bounds(times_ps, window_ps, offset_ps):
    centers_ps = times_ps + wrapped(offset_ps)
    low = window_low(centers_ps, window_ps)
    high = window_high(centers_ps, window_ps)
    # A window that leaves the range, and is not cut off there, holds nothing.
    low = np.where((low > centers_ps) | (high < centers_ps), INT64_MAX, low)
    return low, np.where(low == INT64_MAX, low - 1, high)


def estimated_pairs(a, b, window_ps, offset_ps):
    sample = a[::max(1, len(a) // ESTIMATED_FROM)]
    first, past = bounds_of(b, *window_bounds(sample, window_ps, offset_ps))
    return float((past - first).sum()) / len(sample) * len(a)


def blocks_of(count, share):
    """Ranges of neighbouring tags, evenly spread, that together are the share of all."""
    if share >= 1:
        return pieces(0, count)
    blocks = min(BLOCKS, count)
    size = max(1, int(count * share / blocks))
    starts = [count * i // blocks for i in range(blocks)]
    return [piece for start in starts for piece in pieces(start, min(start + size, count))]


def bin_pieces(a, b, window_ps, offset_ps, piece):
    """Yields the numbers of the bins of the pairs of some of A's tags."""
    half = half_bins(window_ps)
    times_ps = a[piece[0]:piece[1]]
    for difference in differences(times_ps, b, *window_bounds(times_ps, window_ps, offset_ps)):
        numbers = bin_numbers(difference - wrapped(offset_ps))
        # The ends of a window may be half way to bins that are not there.
        halves = window_ps % BIN_WIDTH_PS == BIN_WIDTH_PS // 2
        yield numbers[np.abs(numbers) <= half] if halves else numbers


def count_all(a, b, window_ps, offset_ps, ranges):
    half = half_bins(window_ps)
    total = np.zeros(2 * half + 1, np.int64)
    lock = threading.Lock()

    def count(piece):
        for numbers in bin_pieces(a, b, window_ps, offset_ps, piece):
            # So many counts as bins for each piece would take longer than few pairs.
            if len(total) <= 4 * len(numbers):
                places, counts = slice(None), np.bincount(numbers + half, minlength=len(total))
            else:
                places, counts = np.unique(numbers + half, return_counts=True)
            with lock:
                total[places] += counts
    in_parallel(count, ranges)
    return np.arange(-half, half + 1), total


def count_filled(a, b, window_ps, offset_ps, ranges):
    found = in_parallel(lambda piece: np.concatenate(
        [np.empty(0, np.int64), *bin_pieces(a, b, window_ps, offset_ps, piece)]), ranges)
    return np.unique(np.concatenate([np.empty(0, np.int64), *found]), return_counts=True)


def histogram(pair, window_ps, offset_ps):
    half = half_bins(window_ps)
    counted = 2 * half + 1 <= MOST_COUNTED_BINS
    if window_ps < 1 or len(pair.a) == 0 or len(pair.b) == 0:
        numbers = np.arange(-half, half + 1) if counted else np.empty(0, np.int64)
        return Histogram(half, numbers, np.zeros(len(numbers), np.int64), 1.0)
    most = MOST_PAIRS if counted else MOST_SPARSE_PAIRS
    expected = estimated_pairs(pair.a, pair.b, window_ps, offset_ps)
    ranges = blocks_of(len(pair.a), min(1.0, most / max(expected, 1.0)))
    used = sum(stop - start for start, stop in ranges)
    count = count_all if counted else count_filled
    numbers, counts = count(pair.a, pair.b, window_ps, offset_ps, ranges)
    return Histogram(half, numbers, counts, used / len(pair.a))


def center_of(number):
    """The last bin of the widest windows has its centre at 2^63, which no time has."""
    return min(number * BIN_WIDTH_PS, INT64_MAX)


def peak_of(found):
    """(count, centre) of the fullest bin; of equals the most negative one."""
    if len(found.counts) == 0 or not found.counts.any():
        return 0, center_of(-found.half)
    i = int(np.argmax(found.counts))
    return int(found.counts[i]), center_of(int(found.numbers[i]))


def rms_ps(found):
    """About the weighted mean. In the order of the bins and in extended precision, so that
    no digit differs from the program's."""
    counts = found.counts.astype(np.longdouble)
    total = counts.sum()
    if not total > 0:
        return 0.0
    centers = found.numbers.astype(np.longdouble) * BIN_WIDTH_PS
    mean = np.float64(np.cumsum(counts * centers)[-1] / total)
    distances = centers - np.longdouble(mean)
    return float(np.sqrt(np.cumsum(counts * distances * distances)[-1] / total))


def pairs_near(found, center_ps):
    near = np.abs(found.centers_ps - center_ps) <= SIDE_WINDOW_PS
    return int(found.counts[near].sum())


def side_window_ps(center_ps):
    return center_ps - SIDE_WINDOW_PS, center_ps + SIDE_WINDOW_PS


def side_windows_ps():
    return side_window_ps(-CLOCK_PERIOD_PS), side_window_ps(CLOCK_PERIOD_PS)


def top_bins(found):
    """The fullest ones. Empty bins count too, from the most negative one on."""
    order = np.argsort(-found.counts, kind="stable")[:TOP_BINS]
    top = [(int(found.counts[i]), int(found.numbers[i])) for i in order if found.counts[i] > 0]
    filled = set(int(n) for n in found.numbers[found.counts > 0][:TOP_BINS])
    number = -found.half
    while len(top) < min(TOP_BINS, 2 * found.half + 1):
        if number not in filled:
            top.append((0, number))
        number += 1
    return tuple((center_of(number), count) for count, number in top)
