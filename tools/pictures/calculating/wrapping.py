"""Times are any 64-bit numbers, and so two of them may lie further apart than a signed
number says. As unsigned ones they say it: the difference modulo 2^64."""

import numpy as np

INT64_MIN = -(1 << 63)
INT64_MAX = (1 << 63) - 1
MODULUS = 1 << 64


def distance_ps(later, earlier):
    """How much later, exactly, for plain ints."""
    return int(later) - int(earlier)


def unsigned_from(times_ps, origin_ps):
    """Times since an origin that none of them lies before, as unsigned numbers."""
    return times_ps.view(np.uint64) - np.uint64(int(origin_ps) % MODULUS)


def wrapped(number):
    """The signed 64-bit number that a plain int wraps around to."""
    return np.int64((int(number) - INT64_MIN) % MODULUS + INT64_MIN)


def magnitude(differences):
    """Absolute values, as unsigned numbers, in which that of the smallest one fits."""
    bits = differences.view(np.uint64)
    return np.where(differences < 0, np.uint64(0) - bits, bits)
