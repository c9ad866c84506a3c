"""The differences B - A of all pairs within a window, in pieces that fit into memory."""

import numpy as np

from .pair_figures import first_not_below
from .wrapping import INT64_MAX

PIECE = 1 << 20  # pairs at a time
# Partners that are taken one by one of each tag. Nearly all windows hold fewer, and for
# these it takes a third of the time.
ROUNDS = 32


def bounds_of(b, low_ps, high_ps):
    """Where in B each window begins and ends. Where its bounds changed places, as they do
    when one wraps around, nothing is inside."""
    first = first_not_below(b, low_ps)
    # Whole numbers: not above the high bound is below the next number.
    past = first_not_below(b, high_ps + (high_ps < INT64_MAX))
    past = np.where(high_ps == INT64_MAX, len(b), past)
    return first, np.maximum(past, first)


def differences(a, b, low_ps, high_ps):
    """Yields the differences b - a, modulo 2^64, of all pairs with b within the window of
    a, some of them at a time. The windows are given; B ascends."""
    first = first_not_below(b, low_ps)
    for _ in range(ROUNDS):
        inside = first < len(b)
        if not inside.all():
            a, high_ps, first = a[inside], high_ps[inside], first[inside]
        if len(a) == 0:
            return
        partners = b[first]
        near = np.flatnonzero(partners <= high_ps)
        a, high_ps = a[near], high_ps[near]
        yield partners[near] - a
        first = first[near] + 1
    if len(a) > 0:
        past = bounds_of(b, high_ps, high_ps)[1]
        yield from of_ranges(a, b, first, np.maximum(past, first))


def of_ranges(a, b, first, past):
    """The same, of partners from first to before past."""
    ends = np.cumsum(past - first)
    total = int(ends[-1])
    for start in range(0, total, PIECE):
        stop = min(start + PIECE, total)
        # The tags of A that own these pairs, the outer ones perhaps in part.
        i = int(np.searchsorted(ends, start, "right"))
        j = int(np.searchsorted(ends, stop, "left")) + 1
        offsets = ends[i:j] - (past[i:j] - first[i:j])  # number of each one's first pair
        skipped = np.maximum(start - offsets, 0)
        taken = np.minimum(ends[i:j], stop) - np.maximum(offsets, start)
        begins = np.cumsum(taken) - taken
        places = np.repeat(first[i:j] + skipped - begins, taken) + np.arange(stop - start)
        yield b[places] - np.repeat(a[i:j], taken)
