"""Time interval error and jitter of a channel whose signal is periodic.

Each tag gets the number of its pulse, which goes on by the number of whole periods in
each step. So lost pulses are counted and do no harm. The time interval error is the
distance of the tags from the straight line that fits best; sums of whole numbers
around an integer period keep it exact however long the run is.
"""

from dataclasses import dataclass, field

import numpy as np

from ..figures import PeriodicTiming
from .chunks import CHUNK

FEWEST_TAGS = 10
SAMPLE = 50_000
NEAR = 0.25  # a step is one period when it differs from the median by less than this share
SHARE_OF_STEPS = 0.9  # of a periodic signal are such steps
MOST_STRETCHES = 1000
MOST_BINS = 201
LARGEST_NUMBER = 2.0 ** 62


@dataclass
class Spread:
    """Number, mean, spread and ends of numbers that come piece by piece."""
    count: int = 0
    mean: float = 0.0
    squares: float = 0.0  # sum of the squared distances from the mean
    low: float = np.inf
    high: float = -np.inf

    def add(self, numbers):
        if len(numbers) == 0:
            return
        mean = float(numbers.mean())
        squares = float(((numbers - mean) ** 2).sum())
        count = self.count + len(numbers)
        change = mean - self.mean
        self.squares += squares + change * change * self.count * len(numbers) / count
        self.mean += change * len(numbers) / count
        self.count = count
        self.low = min(self.low, float(numbers.min()))
        self.high = max(self.high, float(numbers.max()))

    def rms(self):
        return float(np.sqrt(self.squares / self.count)) if self.count else None

    def peak_to_peak(self):
        return self.high - self.low if self.count else None


@dataclass
class Line:
    """The straight line of least squares through (number, distance)."""
    count: int = 0
    x: float = 0.0  # means
    y: float = 0.0
    xx: float = 0.0  # sums of products of distances from the means
    xy: float = 0.0

    def add(self, x, y):
        mean_x, mean_y = float(x.mean()), float(y.mean())
        count = self.count + len(x)
        weight = self.count * len(x) / count
        dx, dy = mean_x - self.x, mean_y - self.y
        self.xx += float(((x - mean_x) ** 2).sum()) + dx * dx * weight
        self.xy += float(((x - mean_x) * (y - mean_y)).sum()) + dx * dy * weight
        self.x += dx * len(x) / count
        self.y += dy * len(x) / count
        self.count = count

    @property
    def slope(self):
        return self.xy / self.xx if self.xx > 0 else 0.0

    def at(self, x):
        return self.y + self.slope * (x - self.x)


@dataclass
class Pulses:
    """The tags of a channel in pieces, with their numbers. `period_ps` is whole."""
    times_ps: np.ndarray
    period_ps: int
    piece: int  # tags
    missing: int = 0

    def __iter__(self):
        """(first tag, numbers, distances from number times period, periods between
        neighbouring pulses less the whole one, whether a step is such a period)."""
        number = np.int64(0)
        self.missing = 0
        for start in range(0, len(self.times_ps), self.piece):
            window = self.times_ps[max(start - 1, 0):start + self.piece]
            steps = np.diff(window)
            whole = np.clip(np.rint(steps / self.period_ps), -LARGEST_NUMBER, LARGEST_NUMBER)
            whole = whole.astype(np.int64)
            self.missing += int(whole[whole > 1].sum() - np.count_nonzero(whole > 1))
            numbers = np.cumsum(whole) if start else np.append(np.int64(0), np.cumsum(whole))
            numbers = numbers + number
            number = numbers[-1]
            own = window[1:] if start else window
            distances = (own - self.times_ps[0]) - numbers * np.int64(self.period_ps)
            yield start, numbers, distances, steps - self.period_ps, whole == 1


def middle_step(times_ps):
    """(period in ps or None, reason): that of the steps which are alike."""
    count = len(times_ps)
    if count < FEWEST_TAGS:
        return None, ("the channel saw no tags" if count == 0 else
                      f"{count} tags are too few for a periodic signal: it takes {FEWEST_TAGS}")
    places = np.arange(0, count - 1, max(1, (count - 1) // SAMPLE))
    steps = times_ps[places + 1] - times_ps[places]
    middle = float(np.median(steps))
    alike = steps[np.abs(steps - middle) < NEAR * middle] if middle > 1 else steps[:0]
    if len(alike) < SHARE_OF_STEPS * len(steps):
        return None, "the steps from tag to tag are not alike: the signal is not periodic"
    return round(float(alike.mean())), None


def not_shown(reason):
    empty = np.empty(0)
    return PeriodicTiming(
        reason=reason, period_ps=None, frequency_hz=None, pulses=0, missing=0, time_s=empty,
        tie_min_ps=empty, tie_max_ps=empty, tie_mean_ps=empty, tie_rms_ps=None,
        tie_peak_to_peak_ps=None, period_jitter_rms_ps=None, period_jitter_peak_to_peak_ps=None,
        cycle_jitter_rms_ps=None, cycle_jitter_peak_to_peak_ps=None, period_edges_ps=empty,
        period_counts=np.empty(0, np.int64))


@dataclass
class FirstPass:
    line: Line = field(default_factory=Line)
    periods: Spread = field(default_factory=Spread)
    cycles: Spread = field(default_factory=Spread)

    def run(self, pulses):
        last, last_is_one = np.empty(0, np.int64), np.empty(0, bool)
        for _, numbers, distances, periods, is_one in pulses:
            self.line.add(numbers.astype(np.float64), distances.astype(np.float64))
            self.periods.add(periods[is_one].astype(np.float64))
            joined, joined_are_one = np.append(last, periods), np.append(last_is_one, is_one)
            both = joined_are_one[1:] & joined_are_one[:-1]
            self.cycles.add(np.diff(joined)[both].astype(np.float64))
            last, last_is_one = periods[-1:], is_one[-1:]


@dataclass
class Envelope:
    """The error's ends and mean in stretches of equally many tags."""
    size: int
    rows: list = field(default_factory=list)

    def add(self, errors, times_ps, origin_ps):
        starts = np.arange(0, len(errors), self.size)
        lengths = np.diff(np.append(starts, len(errors)))
        middles = times_ps[starts + lengths // 2]
        self.rows.append(np.vstack([
            (middles - origin_ps).astype(np.float64) / 1e12,
            np.minimum.reduceat(errors, starts), np.maximum.reduceat(errors, starts),
            np.add.reduceat(errors, starts) / lengths]))


def period_bins(periods, quantum_ps):
    """(lower end of the first bin, width, bins), each bin with as many steps of the
    quantum; whole ps, doubled so that half a step is whole, too."""
    low, high = int(periods.low), int(periods.high)
    steps = (high - low) // quantum_ps + 1
    width = -(-steps // MOST_BINS) * quantum_ps
    return 2 * low - quantum_ps, 2 * width, -(-steps * quantum_ps // width)


def periodic_timing(times_ps, origin_ps, quantum_ps):
    period_ps, reason = middle_step(times_ps)
    if reason:
        return not_shown(reason)
    size = -(-len(times_ps) // MOST_STRETCHES)
    pulses = Pulses(times_ps, period_ps, max(CHUNK // size, 1) * size)
    first = FirstPass()
    first.run(pulses)
    low, width, bins = period_bins(first.periods, quantum_ps or 1)
    counts = np.zeros(bins, np.int64)
    errors, envelope = Spread(), Envelope(size)
    for start, numbers, distances, periods, is_one in pulses:
        error = distances - first.line.at(numbers.astype(np.float64))
        errors.add(error)
        envelope.add(error, times_ps[start:start + len(error)], np.int64(origin_ps))
        places = (2 * periods[is_one] - low) // width
        counts += np.bincount(places, minlength=bins)
    exact_ps = period_ps + first.line.slope
    time_s, tie_min_ps, tie_max_ps, tie_mean_ps = np.hstack(envelope.rows)
    return PeriodicTiming(
        reason=None, period_ps=exact_ps, frequency_hz=1e12 / exact_ps, pulses=len(times_ps),
        missing=pulses.missing, time_s=time_s, tie_min_ps=tie_min_ps, tie_max_ps=tie_max_ps,
        tie_mean_ps=tie_mean_ps, tie_rms_ps=errors.rms(),
        tie_peak_to_peak_ps=errors.peak_to_peak(),
        period_jitter_rms_ps=first.periods.rms(),
        period_jitter_peak_to_peak_ps=first.periods.peak_to_peak(),
        cycle_jitter_rms_ps=first.cycles.rms(),
        cycle_jitter_peak_to_peak_ps=first.cycles.peak_to_peak(),
        period_edges_ps=(low + np.arange(bins + 1) * width) / 2 - first.periods.mean,
        period_counts=counts)
