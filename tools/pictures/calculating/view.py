"""The stretch of time that the plots over time show.

Damaged tags may lie hours away from all others. A view that held them would show
nothing else, so tags at the very ends count only where they are not far off.
"""

from dataclasses import dataclass

import numpy as np

from .chunks import in_parallel, pieces
from .wrapping import INT64_MAX, INT64_MIN, distance_ps

SAMPLE = 20_000  # tags of a channel that tell where most of them lie
END_SHARE = 200  # one tag of so many may be far off, at either end
NEAR = 4  # times the length of the others
FEW = 1000  # a channel with less than one tag of so many tells nothing, unless it was asked for


@dataclass(frozen=True)
class View:
    """Both ends belong to it."""
    start_ps: int
    end_ps: int

    @property
    def length_ps(self):
        return self.end_ps - self.start_ps

    def seconds(self, time_ps):
        return distance_ps(time_ps, self.start_ps) / 1e12


def ends_within(times_ps, low, high):
    """The earliest and the latest time from low to high, where there are some."""
    def look(piece):
        some = times_ps[piece[0]:piece[1]]
        some = some[(some >= low) & (some <= high)]
        return (int(some.min()), int(some.max())) if len(some) > 0 else None
    found = [ends for ends in in_parallel(look, pieces(0, len(times_ps))) if ends]
    return min(start for start, _ in found), max(end for _, end in found)


def ends_of(walked):
    """(start, end) of the stretch of one channel."""
    times_ps = walked.times_ps
    sample = np.sort(times_ps[::max(1, len(times_ps) // SAMPLE)])
    off = len(sample) // END_SHARE
    low, high = int(sample[off]), int(sample[len(sample) - 1 - off])
    near = NEAR * (high - low)
    if walked.earliest_ps >= low - near and walked.latest_ps <= high + near:
        return walked.earliest_ps, walked.latest_ps
    return ends_within(times_ps, max(low - near, INT64_MIN), min(high + near, INT64_MAX))


def view_of(walks, channel_mask):
    """None without a tag."""
    total = sum(len(walked.times_ps) for walked in walks)
    ends = []
    for c, walked in enumerate(walks):
        streamed = channel_mask is not None and channel_mask >> c & 1
        if len(walked.times_ps) > 0 and (streamed or len(walked.times_ps) * FEW >= total):
            ends.append(ends_of(walked))
    if not ends:
        return None
    return View(min(start for start, _ in ends), max(end for _, end in ends))
