"""Intervals from tag to tag of one channel, in bins that widen with them."""

import numpy as np

from ..figures import Intervals
from .octaves import bins_of


def median_of(edges_ps, counts):
    """The middle one, as if those of its bin were spread evenly."""
    below = np.cumsum(counts)
    half = below[-1] / 2
    i = int(np.searchsorted(below, half))
    inside = (half - (below[i] - counts[i])) / counts[i]
    return float(edges_ps[i] + inside * (edges_ps[i + 1] - edges_ps[i]))


def interval_figures(walked):
    edges_ps, counts = bins_of(walked.octaves)
    reason = None
    if len(walked.times_ps) < 2:
        reason = "an interval takes two tags"
    elif len(counts) == 0:
        reason = "no tag is later than the one before"
    return Intervals(
        reason=reason, edges_ps=edges_ps, counts=counts, zero=walked.zero,
        negative=walked.violations, shortest_ps=walked.shortest_ps,
        median_ps=None if reason else float(np.clip(median_of(edges_ps, counts),
                                                    walked.shortest_ps, walked.max_gap_ps)),
        longest_ps=None if reason else walked.max_gap_ps)
