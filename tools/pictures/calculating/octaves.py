"""Bins that widen with the number: eight per octave, of equal width inside it.

The edges are whole numbers, and the bin of a number is read off the bits of its
floating-point form, which is much faster than a logarithm. Below 8 a number has a bin
of its own. From 2^53 on a number next to an edge may fall on its other side.
"""

import numpy as np

STEPS_PER_OCTAVE = 8
_MANTISSA_BITS = 52
_SHIFT = _MANTISSA_BITS - 3  # three bits of the mantissa say which eighth
_BIAS = 1023 * STEPS_PER_OCTAVE
RAW_BINS = 64 * STEPS_PER_OCTAVE


def raw_bin(numbers):
    """The eighth of an octave in which each number above 0 lies."""
    return (numbers.astype(np.float64).view(np.int64) >> _SHIFT) - _BIAS


def raw_edges():
    """The lower ends of all raw bins, and the end of the last: whole numbers, rounded up.
    A raw bin without any whole number ends where it begins."""
    return [-(-(1 << octave) * (STEPS_PER_OCTAVE + i) // STEPS_PER_OCTAVE)
            for octave in range(64) for i in range(STEPS_PER_OCTAVE)] + [1 << 64]


def bins_of(raw_counts):
    """(edges, counts) from the first to the last bin that is not empty."""
    edges = raw_edges()
    real = [i for i in range(RAW_BINS) if edges[i] < edges[i + 1]]
    counts = np.asarray(raw_counts)[real]
    filled = np.flatnonzero(counts)
    if len(filled) == 0:
        return np.empty(0), np.empty(0, np.int64)
    first, end = int(filled[0]), int(filled[-1]) + 1
    kept = [edges[i] for i in real[first:end]] + [edges[real[end - 1] + 1]]
    return np.array(kept, np.float64), counts[first:end]
