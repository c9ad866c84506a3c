"""The stretch of time that the plots over time show.

Damaged tags may lie hours away from all others. A view that held them would show
nothing else, so tags at the very ends count only where they are not far off.
"""

from dataclasses import dataclass

import numpy as np

from .wrapping import distance_ps

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


def ends_of(walked):
    """(start, end) of the stretch of one channel."""
    times_ps = walked.times_ps
    sample = np.sort(times_ps[::max(1, len(times_ps) // SAMPLE)])
    off = len(sample) // END_SHARE
    low, high = int(sample[off]), int(sample[len(sample) - 1 - off])
    near = NEAR * (high - low)
    start = walked.earliest_ps if low - walked.earliest_ps <= near else low
    end = walked.latest_ps if walked.latest_ps - high <= near else high
    return start, end


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
