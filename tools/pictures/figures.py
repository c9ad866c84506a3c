"""Every number that a page shows, and nothing that calculates or draws one.

`page.make_page()` fills a `Page`; `html_page.write(page, path)` and
`paper_page.write(page, path)` draw it. So all outputs show the same numbers.

A series is a NumPy array and is bounded: no series has more than a few thousand
entries, whatever the input. Everything else is a plain int, float, str or None.
None stands for what is not known. `reason`: why a plot cannot be shown, as one
sentence without a full stop; None when it can. What a plot with a reason holds
besides is empty.

Tuples named `..._per_channel` have four entries, of channel 0 to 3. Times with
`_ps` are whole picoseconds as the unit gave them. Times with `_s` are seconds
since `RatePlot.origin_ps`, the earliest time in view.
"""

from dataclasses import dataclass, field

import numpy as np

CHANNELS = 4
CLOCK_PERIOD_PS = 3333
BIN_WIDTH_PS = 8  # of the program's histogram
STEP_LIMITS_PS = (10_000, 100_000, 500_000, 900_000)

PASS = "PASS"
FAIL = "FAIL"
NOT_KNOWN = "not known"


@dataclass(frozen=True)
class Row:
    """A line of a table: "Threshold", "0.5 V"."""
    label: str
    value: str


@dataclass(frozen=True)
class Limit:
    """A condition of the run, as it was given."""
    text: str
    met: bool | None  # None: the run did not come to the question
    seen: str | None  # the value that was compared, as the program printed it


@dataclass(frozen=True)
class Run:
    """What the JSON document says of the run, or the arguments where there is none."""
    tags_file: str  # name without directory
    json_file: str | None  # None: no document was given
    verdict: str  # PASS, FAIL or NOT_KNOWN
    meaning: str  # what the exit status says, in words
    exit_status: int | None
    error: str | None  # the line with which the run failed
    limits: tuple[Limit, ...]
    settings: tuple[Row, ...]  # those in effect, for a table
    identity: tuple[Row, ...]  # of unit, program and machine, for a table
    mode: str | None  # "internal" or "external"
    format: str | None  # "raw64", "delta32" or "packed_delta"
    quantum_ps: int | None  # of the times; None: not known
    start: str | None  # UTC, as the document has it
    note: str | None  # the operator's text
    channel_mask: int | None  # bit n: channel n was streamed


@dataclass(frozen=True)
class Pair:
    channel_a: int
    channel_b: int
    window_ps: int  # coincidence window: as many ps before and after


@dataclass(frozen=True)
class Steps:
    """Steps between neighbouring tags of a channel, in order of arrival, as reported."""
    min_dt_ps: int  # 0 with fewer than two tags
    max_gap_ps: int  # the longest step that is not negative
    below: tuple[int, ...]  # steps below each of STEP_LIMITS_PS


@dataclass(frozen=True)
class Residues:
    """Times modulo the clock period, as reported."""
    unique: int
    exact_zero: int
    top: tuple[tuple[int, int], ...]  # (residue, tags), at most eight, fullest first


@dataclass(frozen=True)
class Channel:
    number: int
    streamed: bool | None  # by the channel mask; None: not known
    tags: int
    first_ps: int | None  # in order of arrival
    last_ps: int | None
    rate_hz: float | None  # steps over the time from first to last tag
    monotonic_violations: int  # tags earlier than the one before
    steps: Steps
    residues: Residues


@dataclass(frozen=True)
class Gap:
    """A stretch without tags on a channel that is too long to be chance."""
    start_s: float
    end_s: float


@dataclass(frozen=True)
class Backwards:
    """A tag that is earlier than the one before on its channel."""
    time_s: float  # of the earlier tag
    step_ps: int  # negative
    row: int  # of the tag in the file, from 0


@dataclass(frozen=True, eq=False)
class RatePlot:
    reason: str | None
    origin_ps: int  # second 0 of every plot over time
    end_s: float  # where the view ends
    edges_s: np.ndarray  # one more than there are bins
    rates_hz_per_channel: tuple[np.ndarray, ...]  # one value per bin
    gaps_per_channel: tuple[tuple[Gap, ...], ...]  # the longest, in order of time
    gaps_total_per_channel: tuple[int, ...]
    gaps_length_s_per_channel: tuple[float, ...]  # all of them together
    backwards_per_channel: tuple[tuple[Backwards, ...], ...]  # the first ones in the view
    backwards_total_per_channel: tuple[int, ...]
    outside_per_channel: tuple[int, ...]  # tags that are so far off that they are left out
    silent_tail_s: float  # time of the capture after the last tag; 0: hardly any, or not known


@dataclass(frozen=True, eq=False)
class Correlation:
    """Differences B - A around the offset, with the program's bins of 8 ps.

    The figures are those of the report. What is drawn are the same bins, `merged` of
    them at a time where there are too many.
    """
    reason: str | None
    tags_a: int
    tags_b: int
    coincidences: int  # tags of A with a partner within the window
    offset_ps: int  # 0 where there is none
    offset_valid: bool
    peak_count: int
    peak_center_ps: int  # like all centres relative to the offset
    rms_ps: float
    fwhm_ps: float
    minus_period_window: int  # pairs in the side window one clock period before
    plus_period_window: int
    side_windows_ps: tuple[tuple[int, int], ...]  # their ends, minus first
    window_covers_sides: bool  # whether the histogram reaches both of them in full
    top_bins: tuple[tuple[int, int], ...]  # (centre, pairs), at most ten, fullest first
    bins: int  # of the program's histogram
    pairs: int  # in all of its bins
    # Share of A's tags in histogram and figures; below 1 where there are too many pairs.
    sampled: float
    merged: int  # bins of 8 ps per drawn bin
    centers_ps: np.ndarray  # of the drawn bins, relative to the offset
    counts: np.ndarray


@dataclass(frozen=True, eq=False)
class WideView:
    """Differences B - A from -100 to +100 windows, of a sample. Not around the offset."""
    reason: str | None
    range_ps: int
    bin_width_ps: int
    tags_used: int  # of A, evenly spread over the run
    tags_total: int
    pairs: int
    edges_ps: np.ndarray  # one more than there are bins
    counts: np.ndarray
    peak_ps: float | None  # centre of the fullest bin


@dataclass(frozen=True, eq=False)
class Intervals:
    """Steps from tag to tag of one channel, in bins eight of which make an octave."""
    reason: str | None
    edges_ps: np.ndarray  # one more than there are bins
    counts: np.ndarray
    zero: int  # steps of 0, which no logarithmic axis can show
    negative: int  # steps backwards
    shortest_ps: int | None  # of the others
    median_ps: float | None  # within a bin's width
    longest_ps: int | None


@dataclass(frozen=True, eq=False)
class CodeDensity:
    """Where in the clock period the tags of one channel lie, and what that says of the
    widths of its delay line's codes."""
    density_reason: str | None  # why there is no density
    counts: np.ndarray  # 3333, per position in the clock period
    reason: str | None  # why there is no nonlinearity
    coherence: float | None  # 0: not locked to the clock; 1: locked
    codes_ps: np.ndarray  # position of each code
    dnl: np.ndarray  # width over mean width, less 1
    inl: np.ndarray  # sum of dnl up to and with the code, in mean widths
    tags_per_code: float | None
    code_width_ps: float | None  # the mean
    dnl_sigma: float | None  # what chance alone gives, per code
    inl_sigma: np.ndarray  # likewise, per code
    dnl_rms: float | None  # of the codes
    dnl_rms_beyond_chance: float | None  # what is left of it when chance is taken away
    dnl_min: float | None
    dnl_max: float | None
    inl_min: float | None
    inl_max: float | None
    even: bool | None  # whether chance alone explains the unevenness


@dataclass(frozen=True, eq=False)
class PeriodicTiming:
    """Time interval error and jitter of one channel with a periodic signal."""
    reason: str | None
    period_ps: float | None  # of the straight line that fits best
    frequency_hz: float | None
    pulses: int  # tags that were used
    missing: int  # pulses of which there is no tag
    time_s: np.ndarray  # middle of each stretch of the run
    tie_min_ps: np.ndarray  # envelope of the time interval error in each stretch
    tie_max_ps: np.ndarray
    tie_mean_ps: np.ndarray
    tie_rms_ps: float | None
    tie_peak_to_peak_ps: float | None
    # Periods between neighbouring pulses, less the mean.
    period_jitter_rms_ps: float | None
    period_jitter_peak_to_peak_ps: float | None
    # Change from one period to the next.
    cycle_jitter_rms_ps: float | None
    cycle_jitter_peak_to_peak_ps: float | None
    period_edges_ps: np.ndarray  # histogram of period less mean period
    period_counts: np.ndarray


@dataclass(frozen=True, eq=False)
class Page:
    run: Run
    pair: Pair
    tags: int  # rows of the file with channel 0 to 3
    channels: tuple[Channel, ...]
    rates: RatePlot
    correlation: Correlation
    wide: WideView
    intervals_per_channel: tuple[Intervals, ...]
    codes_per_channel: tuple[CodeDensity, ...]
    timing_per_channel: tuple[PeriodicTiming, ...]
    notes: tuple[str, ...] = field(default=())  # what the reader must know: one sentence each
