"""Axes and ticks: the range and the unit that fit what a panel shows."""

import math

from .look import short_count, time_text, time_unit
from .panels import Axis

MOST_TICKS = 9
# Lowest end of a logarithmic axis of counts: a bin with 1 stands out, one with 0 does not.
LOG_FLOOR = 0.7


def widened(low, high):
    """A range of some width, also around a single value."""
    if high > low:
        return low, high
    margin = max(abs(low), 1.0) / 2
    return low - margin, high + margin


def decades(low, high):
    """Powers of ten within the range, at most MOST_TICKS of them."""
    first = math.ceil(math.log10(low) - 1e-9)
    last = math.floor(math.log10(high) + 1e-9)
    step = max(1, -(-(last - first + 1) // MOST_TICKS))
    return [10.0**power for power in range(first, last + 1, step)]


def log_time_axis(label, shortest_ps, longest_ps):
    low, high = shortest_ps / 2, longest_ps * 2
    if high < 100 * low:  # one tick at least stands to either side
        middle = math.sqrt(low * high)
        low, high = middle / 10, middle * 10
    ticks = tuple((ps, time_text(ps)) for ps in decades(low, high))
    return Axis(label, low, high, log=True, ticks=ticks)


def log_count_axis(label, most, least=1.0):
    """`least`: the smallest of the values that are not 0."""
    low, high = LOG_FLOOR * min(1.0, least), max(2.0 * most, 15.0)
    ticks = tuple((count, short_count(count)) for count in decades(low, high))
    return Axis(label, low, high, log=True, counts=True, ticks=ticks)


def count_axis(label, most):
    return Axis(label, 0.0, 1.1 * most if most > 0 else 1.0, counts=True)


def time_axis(label, low_ps, high_ps):
    """The axis, and the picoseconds of one of its units."""
    factor, unit = time_unit(max(abs(low_ps), abs(high_ps)))
    low, high = widened(low_ps / factor, high_ps / factor)
    return Axis(f"{label} ({unit})", low, high), factor


def seconds_axis(label, end_s):
    """From 0 to the end; and the units in a second."""
    axis, factor = time_axis(label, 0.0, end_s * 1e12)
    return Axis(axis.label, 0.0, max(axis.high, 1e-9)), 1e12 / factor
