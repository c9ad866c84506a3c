"""Everything about the pair within its window."""

import numpy as np

from ..figures import BIN_WIDTH_PS, CLOCK_PERIOD_PS, Correlation
from .histogram import (FWHM_FACTOR, SIDE_WINDOW_PS, center_of, histogram, pairs_near, peak_of,
                        rms_ps, side_windows_ps, top_bins)
from .pair_figures import count_coincidences, estimate_offset

MOST_DRAWN_BINS = 4001


def merged_bins(found):
    """(bins per drawn bin, centres, counts). An odd number of bins goes together, so that
    the middle stays in the middle."""
    bins = 2 * found.half + 1
    merged = -(-bins // MOST_DRAWN_BINS) | 1
    half = -(-(bins - merged) // (2 * merged))
    places = (found.numbers + merged // 2) // merged + half
    counts = np.zeros(2 * half + 1, np.int64)
    np.add.at(counts, places, found.counts)
    centers_ps = np.arange(-half, half + 1) * float(merged * BIN_WIDTH_PS)
    return merged, centers_ps, counts


def why_not(channels, counts, window_ps, pairs):
    silent = [str(c) for c, count in zip(channels, counts) if count == 0]
    if silent:
        return f"channel{'s' if len(silent) > 1 else ''} {' and '.join(silent)} saw no tags"
    if window_ps < 1:
        return f"a window of {window_ps} ps holds no histogram"
    if pairs == 0:
        return f"no tags of the pair lie within {window_ps} ps of each other"
    return None


def correlation_figures(pair, channels, window_ps):
    """`pair`: a SortedPair; `channels`: the numbers of its two."""
    offset_ps, valid = estimate_offset(pair.a, pair.b, window_ps)
    found = histogram(pair, window_ps, offset_ps)
    pairs = int(found.counts.sum())
    reason = why_not(channels, (len(pair.a), len(pair.b)), window_ps, pairs)
    merged, centers_ps, counts = merged_bins(found) if reason is None else (
        1, np.empty(0), np.empty(0, np.int64))
    peak_count, peak_center_ps = peak_of(found)
    width_ps = rms_ps(found)
    return Correlation(
        reason=reason,
        tags_a=len(pair.a), tags_b=len(pair.b),
        coincidences=count_coincidences(pair.stored_a, pair.stored_b, window_ps),
        offset_ps=offset_ps, offset_valid=valid,
        peak_count=peak_count, peak_center_ps=peak_center_ps,
        rms_ps=width_ps, fwhm_ps=width_ps * FWHM_FACTOR,
        minus_period_window=pairs_near(found, -CLOCK_PERIOD_PS),
        plus_period_window=pairs_near(found, CLOCK_PERIOD_PS),
        side_windows_ps=side_windows_ps(),
        window_covers_sides=center_of(found.half) + BIN_WIDTH_PS > CLOCK_PERIOD_PS + SIDE_WINDOW_PS,
        top_bins=top_bins(found), bins=2 * found.half + 1, pairs=pairs, sampled=found.sampled,
        merged=merged, centers_ps=centers_ps, counts=counts)
