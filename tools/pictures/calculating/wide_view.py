"""The pair in a view of a hundred windows on either side, of a sample."""

import math

import numpy as np

from ..figures import BIN_WIDTH_PS, WideView
from .correlation import why_not
from .histogram import estimated_pairs, window_bounds
from .pairs import differences

WINDOWS = 100
MOST_BINS = 2000
MOST_TAGS = 100_000  # of A
MOST_PAIRS = 4_000_000
WIDEST_PS = 1 << 61


def bin_width_ps(range_ps, quantum_ps):
    """A multiple of the quantum: else bins would hold one more of its steps, or one less."""
    step = math.lcm(quantum_ps or 1, BIN_WIDTH_PS) if range_ps > 1000 else quantum_ps or 1
    return -(-2 * range_ps // MOST_BINS // step) * step


def no_view(reason, range_ps, pair):
    return WideView(reason=reason, range_ps=range_ps, bin_width_ps=1, tags_used=0,
                    tags_total=len(pair.a), pairs=0, edges_ps=np.empty(0),
                    counts=np.empty(0, np.int64), peak_ps=None)


def wide_view(pair, channels, window_ps, quantum_ps):
    range_ps = min(WINDOWS * window_ps, WIDEST_PS)
    reason = why_not(channels, (len(pair.a), len(pair.b)), window_ps, 1)
    if reason:
        return no_view(reason, range_ps, pair)
    expected = estimated_pairs(pair.a, pair.b, range_ps, 0)
    share = min(1.0, MOST_TAGS / len(pair.a), MOST_PAIRS / max(expected, 1.0))
    sample = pair.a[::max(1, math.ceil(1 / share))]
    # Bins have whole numbers of ps, the middle one has 0 in its middle.
    width_ps = max(1, bin_width_ps(range_ps, quantum_ps))
    half = -(-range_ps // width_ps)
    low_ps = -half * width_ps - width_ps // 2
    counts = np.zeros(2 * half + 1, np.int64)
    for some in differences(sample, pair.b, *window_bounds(sample, range_ps, 0)):
        counts += np.bincount((some - low_ps) // width_ps, minlength=len(counts))
    if not counts.any():
        return no_view(f"no tags of the pair lie within {range_ps} ps of each other", range_ps,
                       pair)
    edges_ps = low_ps + np.arange(len(counts) + 1) * float(width_ps)
    fullest = int(np.argmax(counts))
    return WideView(reason=None, range_ps=range_ps, bin_width_ps=width_ps, tags_used=len(sample),
                    tags_total=len(pair.a), pairs=int(counts.sum()), edges_ps=edges_ps,
                    counts=counts, peak_ps=float((fullest - half) * width_ps))
