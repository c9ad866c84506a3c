"""Rates over time, and where a channel paused or went backwards."""

import math

import numpy as np

from ..figures import CHANNELS, Backwards, Gap, RatePlot
from .chunks import in_parallel, pieces
from .wrapping import INT64_MAX, unsigned_from

MOST_BINS = 500
MOST_GAPS = 100  # per channel
MOST_BACKWARDS = 100
# Of a channel with random tags, one in a million has a gap by chance.
CHANCE = 1e-6
# By the host's clock a capture varies by some 20 ms.
SHORTEST_TAIL_S = 0.05


def bin_count(tags, length_ps):
    """So many that a bin holds about as many tags as there are bins, and ever more."""
    return max(1, min(MOST_BINS, 2 * math.isqrt(tags), length_ps))


def counts_in(times_ps, view, width_ps, bins):
    """Tags per bin, and how many are in none."""
    def count(piece):
        since = unsigned_from(times_ps[piece[0]:piece[1]], view.start_ps)
        # What is before the start is larger than the length, too.
        since = np.minimum(since // np.uint64(width_ps), np.uint64(bins))
        return np.bincount(since.astype(np.int64), minlength=bins + 1)
    total = np.zeros(bins + 1, np.int64)
    for counts in in_parallel(count, pieces(0, len(times_ps))):
        total += counts
    return total[:bins], int(total[bins])


def gap_length_ps(tags, length_ps):
    """Above this, a step is no chance in a run of random tags of this mean rate. Real light
    fluctuates more than that; what its pauses leave out is too short for the view."""
    chance_ps = length_ps / max(tags - 1, 1) * (math.log(max(tags, 2)) - math.log(CHANCE))
    return max(chance_ps, length_ps / (2 * MOST_BINS))


def find_gaps(walked, view):
    """(indices of the tags that end a gap, lengths in ps), in order of arrival."""
    times_ps = walked.times_ps
    limit = min(gap_length_ps(len(times_ps), view.length_ps), float(INT64_MAX))
    if len(times_ps) < 2 or walked.max_gap_ps <= limit:
        return np.empty(0, np.int64), np.empty(0, np.int64)

    def find(piece):
        steps = np.diff(times_ps[piece[0] - 1:piece[1]])
        places = np.flatnonzero(steps > limit)
        # A gap that leads out of the view says that a tag is damaged, not that none came.
        ends = times_ps[piece[0] + places]
        starts = times_ps[piece[0] - 1 + places]
        # A step that wraps around is none.
        kept = (starts >= view.start_ps) & (ends <= view.end_ps) & (starts < ends)
        return piece[0] + places[kept], steps[places[kept]]
    found = in_parallel(find, pieces(1, len(times_ps)))
    return (np.concatenate([indices for indices, _ in found]),
            np.concatenate([lengths for _, lengths in found]))


def silent_ends(walked, view):
    """The gaps before a channel's first tag and after its last one, in the view."""
    limit = gap_length_ps(len(walked.times_ps), view.length_ps)
    first = max(walked.earliest_ps, view.start_ps)
    last = min(walked.latest_ps, view.end_ps)
    ends = [(view.start_ps, first), (last, view.end_ps)]
    return [(start, end) for start, end in ends if end - start > limit]


def gap_figures(walked, view):
    """(the longest gaps, number of all, length of all in s)."""
    indices, lengths_ps = find_gaps(walked, view)
    longest = np.sort(np.argsort(-lengths_ps, kind="stable")[:MOST_GAPS])
    stretches = [(int(walked.times_ps[i - 1]), int(walked.times_ps[i])) for i in indices[longest]]
    ends = silent_ends(walked, view) if len(walked.times_ps) > 0 else []
    stretches = sorted(stretches + ends)
    gaps = tuple(Gap(view.seconds(start), view.seconds(end)) for start, end in stretches)
    length_ps = float(lengths_ps.sum(dtype=np.float64)) + sum(end - start for start, end in ends)
    return gaps, len(indices) + len(ends), length_ps / 1e12


def backwards(walked, view, rows_of):
    """The first tags in the view that are earlier than the one before."""
    if walked.violations == 0:
        return ()
    times_ps = walked.times_ps
    found = []
    for start, stop in pieces(1, len(times_ps)):
        steps = np.diff(times_ps[start - 1:stop])
        for place in np.flatnonzero(steps < 0)[:MOST_BACKWARDS]:
            if view.start_ps <= times_ps[start + place] <= view.end_ps:
                found.append((start + int(place), int(steps[place])))
        if len(found) >= MOST_BACKWARDS:
            break
    found = found[:MOST_BACKWARDS]
    rows = rows_of([i for i, _ in found])
    return tuple(Backwards(view.seconds(times_ps[i]), step, row)
                 for (i, step), row in zip(found, rows))


def no_rates(reason, walks, origin_ps):
    empty = np.empty(0)
    return RatePlot(
        reason=reason, origin_ps=origin_ps, end_s=0.0, edges_s=empty,
        rates_hz_per_channel=(empty,) * CHANNELS, gaps_per_channel=((),) * CHANNELS,
        gaps_total_per_channel=(0,) * CHANNELS, gaps_length_s_per_channel=(0.0,) * CHANNELS,
        backwards_per_channel=((),) * CHANNELS,
        backwards_total_per_channel=tuple(walked.violations for walked in walks),
        outside_per_channel=(0,) * CHANNELS, silent_tail_s=0.0)


def rate_figures(walks, view, tail_s, rows_of):
    """`tail_s`: time of the capture after the last tag; `rows_of(channel, indices)`: the
    rows of tags in the file."""
    if view is None:
        return no_rates("there are no tags", walks, 0)
    tail_s = tail_s if tail_s >= SHORTEST_TAIL_S else 0.0
    whole = type(view)(view.start_ps, view.end_ps + round(tail_s * 1e12))
    if whole.length_ps == 0:
        return no_rates("all tags have the same time", walks, view.start_ps)
    tags = sum(len(walked.times_ps) for walked in walks)
    bins = bin_count(tags, whole.length_ps)
    width_ps = -(-(whole.length_ps + 1) // bins)
    bins = -(-(whole.length_ps + 1) // width_ps)
    counted = [counts_in(walked.times_ps, whole, width_ps, bins) for walked in walks]
    gaps = [gap_figures(walked, whole) for walked in walks]
    return RatePlot(
        reason=None,
        origin_ps=whole.start_ps,
        end_s=whole.length_ps / 1e12,
        edges_s=np.arange(bins + 1) * (width_ps / 1e12),
        rates_hz_per_channel=tuple(counts / (width_ps / 1e12) for counts, _ in counted),
        gaps_per_channel=tuple(found for found, _, _ in gaps),
        gaps_total_per_channel=tuple(number for _, number, _ in gaps),
        gaps_length_s_per_channel=tuple(length for _, _, length in gaps),
        backwards_per_channel=tuple(
            backwards(walked, whole, lambda indices, c=c: rows_of(c, indices))
            for c, walked in enumerate(walks)),
        backwards_total_per_channel=tuple(walked.violations for walked in walks),
        outside_per_channel=tuple(outside for _, outside in counted),
        silent_tail_s=tail_s)
