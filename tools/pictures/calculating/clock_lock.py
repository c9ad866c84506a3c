"""Whether a signal is locked to the unit's clock.

Of a signal that is not, every position in the clock period sees equally many tags. What
it shows instead is the delay line: a wide code answers for more positions than a narrow
one. That unevenness goes from code to code. A locked signal has its tags where its
phase is, which shows over many codes at once, or leaves whole stretches empty. Three
tests tell them apart.

* Lines in the spectrum of the density. For each of the first 16 harmonics of the clock
  period, take the length of the mean of exp(2 pi i h t / 3333 ps) over the tags. It is
  1 for tags at one place (or at h evenly spaced ones) and 0 for tags spread evenly. A
  line of 180 codes whose widths vary by 60 % gives 0.026 (rms), one of 100 % 0.043. That
  any of the 16 exceeds 0.15 by itself has a chance of 0.0001 even for the latter. A
  locked signal exceeds it unless its jitter is above 0.3 clock periods (rms); then it
  spreads the tags evenly to within 30 %. Structure finer than 208 ps, such as that of
  groups of codes, is left to the line.
* Empty stretches longer than 100 ps, five codes, which no line has.
* The parts of the run must agree. The phase of a signal that is nearly locked walks
  slowly through the period, so that its density changes from part to part. Chance is
  judged by chi squared, 16 sectors of the period by 8 parts of the run; a change below
  1 % (rms) does not matter.

What none of them sees is a locked signal whose jitter is that of a wide, even bell.
"""

import math
from dataclasses import dataclass

import numpy as np

from ..figures import CLOCK_PERIOD_PS

HARMONICS = 16
LINE_LIMIT = 0.15
EMPTY_LIMIT_PS = 100
CHANCE = 1e-6
SECTORS = 16
SMALL_CHANGE = 0.01
FEWEST_TAGS = 20  # below, nothing can be said
CLOCK_EDGE_SHARE = 0.5  # of the tags


@dataclass(frozen=True)
class Lock:
    coherence: float | None  # the largest of the harmonics
    reason: str | None  # None: not locked, as far as can be seen


def harmonics(counts):
    spectrum = np.abs(np.fft.rfft(counts))
    return spectrum[1:HARMONICS + 1] / spectrum[0]


def line_limit(tags):
    """Random tags exceed sqrt(ln(1 / p) / n) with the chance p."""
    return max(LINE_LIMIT, math.sqrt(math.log(HARMONICS / CHANCE) / tags))


def longest_empty(counts):
    """(length, start) of the longest run of empty positions; the period is a circle."""
    filled = np.flatnonzero(counts)
    steps = np.diff(np.append(filled, filled[0] + CLOCK_PERIOD_PS))
    longest = int(np.argmax(steps))
    return int(steps[longest]) - 1, (int(filled[longest]) + 1) % CLOCK_PERIOD_PS


def empty_limit_ps(tags):
    """Random tags leave a longer stretch empty with that chance."""
    return max(EMPTY_LIMIT_PS, CLOCK_PERIOD_PS * math.log(tags / CHANCE) / tags)


def chi_squared_limit(freedom):
    """Exceeded by chance once in a million, after Wilson and Hilferty."""
    deviations = 4.75
    spread = 2 / (9 * freedom)
    return freedom * (1 - spread + deviations * math.sqrt(spread)) ** 3


def changes(parts):
    """Whether the density changes in the course of the run. `parts`: one row of counts
    for each part of the run."""
    edges = [CLOCK_PERIOD_PS * i // SECTORS for i in range(SECTORS)]
    table = np.add.reduceat(parts, edges, axis=1)
    table = table[table.sum(axis=1) > 0][:, table.sum(axis=0) > 0]
    tags = table.sum()
    expected = np.outer(table.sum(axis=1), table.sum(axis=0)) / tags
    freedom = (table.shape[0] - 1) * (table.shape[1] - 1)
    if freedom < 1 or expected.min() < 5:
        return False
    chi_squared = float(((table - expected) ** 2 / expected).sum())
    return (chi_squared > chi_squared_limit(freedom)
            and (chi_squared - freedom) / tags > SMALL_CHANGE ** 2)


def judge_lock(parts):
    counts = parts.sum(axis=0)
    tags = int(counts.sum())
    if tags < FEWEST_TAGS:
        return Lock(None, None)
    coherence = float(harmonics(counts).max())
    if counts[0] > CLOCK_EDGE_SHARE * tags:
        return Lock(coherence, f"{counts[0]} of {tags} tags lie exactly on a clock edge: the fine "
                               "time is missing, or the signal is locked to the clock")
    if coherence > line_limit(tags):
        return Lock(coherence, "the signal is locked to the clock: its tags keep to the same "
                               "places in the clock period")
    empty_ps, start_ps = longest_empty(counts)
    if empty_ps > empty_limit_ps(tags):
        return Lock(coherence, f"no tag lies within {empty_ps} ps of the clock period, from "
                               f"{start_ps} ps on: the signal is locked to the clock")
    if changes(parts):
        return Lock(coherence, "the places of the tags in the clock period change in the course "
                               "of the run: the signal is nearly locked to the clock")
    return Lock(coherence, None)
