"""The differences B - A of all pairs within a window, in pieces that fit into memory."""

import numpy as np

from .pair_figures import first_not_below

PIECE = 1 << 20  # pairs at a time


def bounds_of(a, b, low_ps, high_ps):
    """For each tag of A where its partners in B begin and end. The bounds per tag are
    given; where they changed places, as they do when one wraps around, nothing is inside."""
    first = first_not_below(b, low_ps)
    # Whole numbers: not above the high bound is below the next number.
    highest = np.iinfo(np.int64).max
    past = np.where(high_ps == highest, len(b),
                    first_not_below(b, high_ps + (high_ps < highest)))
    return first, np.maximum(past, first)


def differences(a, b, first, past):
    """Yields the differences b - a, modulo 2^64, of all pairs, some of them at a time."""
    ends = np.cumsum(past - first)
    total = int(ends[-1]) if len(ends) else 0
    for start in range(0, total, PIECE):
        stop = min(start + PIECE, total)
        # The tags of A that own these pairs, the outer ones perhaps in part.
        i = int(np.searchsorted(ends, start, "right"))
        j = int(np.searchsorted(ends, stop, "left")) + 1
        numbers = past[i:j] - first[i:j]
        offsets = ends[i:j] - numbers  # number of each one's first pair
        skipped = np.maximum(start - offsets, 0)
        taken = np.minimum(ends[i:j], stop) - np.maximum(offsets, start)
        begins = np.cumsum(taken) - taken
        places = np.repeat(first[i:j] + skipped - begins, taken) + np.arange(stop - start)
        yield b[places] - np.repeat(a[i:j], taken)
