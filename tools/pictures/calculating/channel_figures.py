"""The figures of one channel that the report has, and what other pictures of the
channel need from the same walk along its times."""

from dataclasses import dataclass

import numpy as np

from ..figures import CLOCK_PERIOD_PS, STEP_LIMITS_PS, Channel, Residues, Steps
from .chunks import in_parallel, pieces
from .octaves import RAW_BINS, raw_bin
from .wrapping import INT64_MAX, distance_ps

TOP_RESIDUES = 8
# The run is looked at in so many parts of equally many tags.
PARTS = 8


@dataclass
class Walk:
    """What one walk along the times of a channel brings. A step is wrapped to 64 bits."""
    times_ps: np.ndarray
    in_order: bool = True
    violations: int = 0
    min_dt_ps: int = INT64_MAX
    max_gap_ps: int = 0
    shortest_ps: int | None = None  # of the steps above 0
    zero: int = 0  # steps of 0
    earliest_ps: int | None = None
    latest_ps: int | None = None
    below: np.ndarray | None = None
    octaves: np.ndarray | None = None  # steps above 0, per bin of octaves.py
    parts: np.ndarray | None = None  # times per residue, for each part of the run

    @property
    def residues(self):
        return self.parts.sum(axis=0)


def residues_of(times_ps):
    """Modulo the clock period, 0 to 3332, also for times below 0."""
    # By far faster than the remainder. What wraps around in one step comes back in the next.
    return times_ps - times_ps // CLOCK_PERIOD_PS * CLOCK_PERIOD_PS


def look_at(times_ps, start, stop):
    """The walk from start to before stop, with the step that leads to start."""
    part = Walk(times_ps)
    own = times_ps[start:stop]
    part.earliest_ps, part.latest_ps = int(own.min()), int(own.max())
    part.parts = np.bincount(residues_of(own), minlength=CLOCK_PERIOD_PS)
    window = times_ps[max(start - 1, 0):stop]
    steps = np.diff(window)
    part.below = np.zeros(len(STEP_LIMITS_PS), np.int64)
    part.octaves = np.zeros(RAW_BINS, np.int64)
    if len(steps) == 0:
        return part
    part.min_dt_ps = int(steps.min())
    part.violations = int(np.count_nonzero(steps < 0))
    part.in_order = bool(np.all(window[1:] >= window[:-1]))
    unsigned = steps.view(np.uint64)  # a negative step is above every limit
    part.below = np.array([np.count_nonzero(unsigned < limit) for limit in STEP_LIMITS_PS])
    part.max_gap_ps = max(0, int(steps.max()))
    forwards = steps[steps > 0] if part.min_dt_ps <= 0 else steps
    part.zero = len(steps) - len(forwards) - part.violations
    if len(forwards) > 0:
        part.shortest_ps = int(forwards.min())
        part.octaves = np.bincount(raw_bin(forwards), minlength=RAW_BINS)
    return part


def smallest(*numbers):
    known = [number for number in numbers if number is not None]
    return min(known, default=None)


def largest(*numbers):
    known = [number for number in numbers if number is not None]
    return max(known, default=None)


def walk(times_ps):
    total = Walk(times_ps, below=np.zeros(len(STEP_LIMITS_PS), np.int64),
                 octaves=np.zeros(RAW_BINS, np.int64),
                 parts=np.zeros((PARTS, CLOCK_PERIOD_PS), np.int64))
    count = len(times_ps)
    ends = [count * i // PARTS for i in range(PARTS + 1)]
    ranges = [(i, piece) for i in range(PARTS) for piece in pieces(ends[i], ends[i + 1])]
    for (i, _), part in zip(ranges, in_parallel(lambda item: look_at(times_ps, *item[1]), ranges)):
        total.in_order = total.in_order and part.in_order
        total.violations += part.violations
        total.min_dt_ps = min(total.min_dt_ps, part.min_dt_ps)
        total.max_gap_ps = max(total.max_gap_ps, part.max_gap_ps)
        total.shortest_ps = smallest(total.shortest_ps, part.shortest_ps)
        total.zero += part.zero
        total.earliest_ps = smallest(total.earliest_ps, part.earliest_ps)
        total.latest_ps = largest(total.latest_ps, part.latest_ps)
        total.below += part.below
        total.octaves += part.octaves
        total.parts[i] += part.parts
    # There was no step, or every step was the largest number.
    if total.min_dt_ps == INT64_MAX:
        total.min_dt_ps = 0
    return total


def ranked(values, counts, most):
    """The fullest (value, count) first, of equals the smaller value; values ascend."""
    order = np.argsort(-counts, kind="stable")[:most]
    return tuple((int(values[i]), int(counts[i])) for i in order)


def residue_figures(counts):
    seen = np.flatnonzero(counts)
    return Residues(unique=len(seen), exact_zero=int(counts[0]),
                    top=ranked(seen, counts[seen], TOP_RESIDUES))


def rate_hz(times_ps):
    if len(times_ps) < 2 or times_ps[-1] <= times_ps[0]:
        return None
    return (len(times_ps) - 1) / float(distance_ps(times_ps[-1], times_ps[0])) * 1e12


def channel_figures(number, walked, channel_mask):
    times_ps = walked.times_ps
    some = len(times_ps) > 0
    return Channel(
        number=number,
        streamed=None if channel_mask is None else bool(channel_mask >> number & 1),
        tags=len(times_ps),
        first_ps=int(times_ps[0]) if some else None,
        last_ps=int(times_ps[-1]) if some else None,
        rate_hz=rate_hz(times_ps),
        monotonic_violations=walked.violations,
        steps=Steps(walked.min_dt_ps, walked.max_gap_ps, tuple(int(n) for n in walked.below)),
        residues=residue_figures(walked.residues))
