"""The quantum of the times, where no document says it: times of packed_delta are
multiples of a power of two."""

import numpy as np

from .wrapping import magnitude

LARGEST_PS = 1024
FEWEST_STEPS = 32  # half of all random steps are even
SAMPLE = 1 << 16  # tags of a channel


def quantum_seen(lists_ps):
    """In ps; None: too few tags, or multiples of something else."""
    common = np.uint64(0)
    steps = 0
    for times_ps in lists_ps:
        some = np.diff(times_ps[:SAMPLE])
        some = magnitude(some[some != 0])
        if len(some) > 0:
            steps += len(some)
            common = np.gcd(common, np.gcd.reduce(some))
    common = int(common)
    is_power = common > 0 and common & (common - 1) == 0
    return common if steps >= FEWEST_STEPS and is_power and common <= LARGEST_PS else None
