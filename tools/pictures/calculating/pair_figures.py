"""Coincidences and offset of the pair, as the program counts them.

A is the list of channel_a and B that of channel_b. The program walks along both lists;
here whole stretches of them are worked on at once, with the same results, also for
lists out of order and for windows that leave the 64-bit range.
"""

import itertools
from dataclasses import dataclass

import numpy as np

from .chunks import in_parallel, pieces
from .wrapping import INT64_MAX, INT64_MIN, magnitude

# Up to this window a bound outside the range wraps around, and the window holds
# nothing. A wider window's bounds are cut off at the ends of the range.
WIDEST_WRAPPING_PS = 1 << 62
MOST_DIFFERENCES = 4000


@dataclass(frozen=True)
class SortedPair:
    """Both lists as they arrived and in ascending order; the same where they are."""
    stored_a: np.ndarray
    stored_b: np.ndarray
    a: np.ndarray
    b: np.ndarray


def sorted_pair(walked_a, walked_b):
    def ascending(walked):
        return walked.times_ps if walked.in_order else np.sort(walked.times_ps)
    return SortedPair(walked_a.times_ps, walked_b.times_ps, ascending(walked_a),
                      ascending(walked_b))


def window_low(times_ps, window_ps):
    low = times_ps - np.int64(window_ps)
    return np.where(low > times_ps, INT64_MIN, low) if window_ps > WIDEST_WRAPPING_PS else low


def window_high(times_ps, window_ps):
    high = times_ps + np.int64(window_ps)
    return np.where(high < times_ps, INT64_MAX, high) if window_ps > WIDEST_WRAPPING_PS else high


def first_not_below(ascending, bounds):
    """For each bound the first place whose entry is not below it. Where the bounds ascend,
    only the part of the list that they reach is searched, which stays in the cache."""
    if len(bounds) == 0 or bounds[0] > bounds[-1]:
        return np.searchsorted(ascending, bounds)
    first = int(np.searchsorted(ascending, bounds[0]))
    end = int(np.searchsorted(ascending, bounds[-1]))
    if np.all(bounds[1:] >= bounds[:-1]):
        return first + np.searchsorted(ascending[first:end], bounds)
    return np.searchsorted(ascending, bounds)


def ascends(times_ps):
    return bool(np.all(times_ps[1:] >= times_ps[:-1]))


def cursor_bounds(a, window_ps):
    """For each piece of A (start, stop, largest lower bound before it)."""
    ranges = pieces(0, len(a))
    if ascends(a) and int(a[0]) - window_ps >= INT64_MIN:
        return [(start, stop, INT64_MIN) for start, stop in ranges]  # so do the bounds
    lows = in_parallel(lambda p: int(window_low(a[p[0]:p[1]], window_ps).max()), ranges)
    before = [INT64_MIN, *itertools.accumulate(lows, max)]
    return [(start, stop, low) for (start, stop), low in zip(ranges, before)]


def count_coincidences(a, b, window_ps):
    """Tags of A with a partner in B, in one pass over both as they arrived: the cursor
    into B goes forwards only, past all that is below the window of the present tag.

    What the cursor has passed is below the largest lower bound so far. So it stands at
    the first entry of B that is not below that bound. That is also the first one at
    which the largest entry of B so far is not below it.
    """
    if window_ps < 0 or len(a) == 0 or len(b) == 0:
        return 0
    largest_b = b if ascends(b) else np.maximum.accumulate(b)

    def count(item):
        start, stop, before = item
        times_ps = a[start:stop]
        bounds = np.maximum.accumulate(np.maximum(window_low(times_ps, window_ps), before))
        places = first_not_below(largest_b, bounds)
        end = int(np.searchsorted(places, len(b)))
        return int(np.count_nonzero(b[places[:end]] <= window_high(times_ps[:end], window_ps)))
    return sum(in_parallel(count, cursor_bounds(a, window_ps)))


def estimate_offset(a, b, window_ps):
    """(offset, whether there is one): the median of B - A over nearest partners within the
    window, of at most 4000 tags of A. Both lists ascend."""
    if len(a) == 0 or len(b) == 0 or window_ps < 0:
        return 0, False
    times_ps = a[::max(len(a) // MOST_DIFFERENCES, 1)]
    places = np.searchsorted(b, times_ps)
    # At either end of the list the only neighbour is both of them.
    to_next = b[np.minimum(places, len(b) - 1)] - times_ps
    to_previous = b[np.maximum(places - 1, 0)] - times_ps
    nearest = np.where(magnitude(to_next) <= magnitude(to_previous), to_next, to_previous)
    kept = nearest[magnitude(nearest) <= np.uint64(window_ps)][:MOST_DIFFERENCES]
    if len(kept) == 0:
        return 0, False
    return int(np.sort(kept)[len(kept) // 2]), True
