"""Code density and nonlinearity of a channel's delay line.

Tags that know nothing of the clock come at every moment of its period alike. So a code
of the delay line gets them in proportion to its width. A code is a position in the
clock period at which tags occur, or, in between, one that lies where the even spacing of
the others expects one and got none.
"""

import math

import numpy as np

from ..figures import CLOCK_PERIOD_PS, CodeDensity
from .clock_lock import chi_squared_limit, judge_lock

FEWEST_PER_CODE = 16
SPACING_TOLERANCE_PS = 1  # nominal places are rounded to whole ps
EMPTY = np.empty(0)


def with_missing(codes):
    """The codes, and those that are missing from their even spacing. Positions count
    backwards from the clock edge, as the delay line does; there they begin with 0."""
    before_edge = np.sort(-codes % CLOCK_PERIOD_PS)
    if len(codes) < 3:
        return codes
    steps = np.diff(before_edge)
    multiples = np.maximum(1, np.rint(steps / np.median(steps))).astype(np.int64)
    spacing = steps.sum() / multiples.sum()
    if np.abs(steps - multiples * spacing).max() > SPACING_TOLERANCE_PS:
        return codes
    places = np.repeat(before_edge[:-1], multiples)
    number = np.arange(len(places)) - np.repeat(np.cumsum(multiples) - multiples, multiples)
    places = places + np.floor(number * spacing + 0.5).astype(np.int64)
    return np.sort(-np.append(places, before_edge[-1]) % CLOCK_PERIOD_PS)


def not_shown(counts, coherence, reason):
    return CodeDensity(
        density_reason=None if counts.any() else "the channel saw no tags",
        counts=counts if counts.any() else np.empty(0, np.int64), reason=reason,
        coherence=coherence, codes_ps=np.empty(0, np.int64), dnl=EMPTY, inl=EMPTY,
        tags_per_code=None, code_width_ps=None, dnl_sigma=None, inl_sigma=EMPTY, dnl_rms=None,
        dnl_rms_beyond_chance=None, dnl_min=None, dnl_max=None, inl_min=None, inl_max=None,
        even=None)


def why_not(parts, mode, quantum_ps):
    """(coherence, reason why there is no nonlinearity)."""
    counts = parts.sum(axis=0)
    tags = int(counts.sum())
    if tags == 0:
        return None, "the channel saw no tags"
    lock = judge_lock(parts)
    if mode == "internal":
        return lock.coherence, ("the calibration pulses are made from the unit's own clock, so "
                                "that they are locked to it")
    if quantum_ps is not None and quantum_ps != 1:
        return lock.coherence, (f"the times are rounded to {quantum_ps} ps, which hides the "
                                "codes of the delay line")
    if lock.reason:
        return lock.coherence, lock.reason
    codes = np.count_nonzero(counts)
    if tags < FEWEST_PER_CODE * codes:
        return lock.coherence, (f"{tags} tags at {codes} positions are too few: it takes "
                                f"{FEWEST_PER_CODE} per code")
    return lock.coherence, None


def code_density(parts, mode, quantum_ps):
    """`parts`: tags per position in the clock period, one row for each part of the run."""
    counts = parts.sum(axis=0)
    coherence, reason = why_not(parts, mode, quantum_ps)
    if reason:
        return not_shown(counts, coherence, reason)
    codes = with_missing(np.flatnonzero(counts))
    per_code = counts[codes]
    mean = per_code.sum() / len(codes)
    dnl = per_code / mean - 1
    inl = np.cumsum(dnl)
    sigma = math.sqrt((1 - 1 / len(codes)) / mean)
    share = np.arange(1, len(codes) + 1) / len(codes)
    inl_sigma = np.sqrt(per_code.sum() * share * (1 - share)) / mean
    rms = math.sqrt(float(np.mean(dnl ** 2)))
    chi_squared = float((dnl ** 2).sum() * mean)
    even = len(codes) < 2 or chi_squared <= chi_squared_limit(len(codes) - 1)
    return CodeDensity(
        density_reason=None, counts=counts, reason=None, coherence=coherence, codes_ps=codes,
        dnl=dnl, inl=inl, tags_per_code=float(mean), code_width_ps=CLOCK_PERIOD_PS / len(codes),
        dnl_sigma=sigma, inl_sigma=inl_sigma, dnl_rms=rms,
        dnl_rms_beyond_chance=math.sqrt(max(0.0, rms ** 2 - sigma ** 2)),
        dnl_min=float(dnl.min()), dnl_max=float(dnl.max()), inl_min=float(inl.min()),
        inl_max=float(inl.max()), even=even)
