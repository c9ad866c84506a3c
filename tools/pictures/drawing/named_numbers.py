"""The numbers of a page under the names that a script finds them by.

A name is the one of the report and of the JSON document where there is one; `name[2]`
is that of channel 2.
"""

from typing import NamedTuple

from .. import figures
from .look import count_text, plain, rate_text, time_text

UNKNOWN = "–"


class Number(NamedTuple):
    name: str
    value: str  # to the last digit; empty: not known
    text: str  # for people


class NumberRow(NamedTuple):
    label: str
    numbers: tuple[Number, ...]


def number(name, value, text=None):
    """`text` writes the value for people."""
    if value is None:
        return Number(name, "", UNKNOWN)
    return Number(name, repr(value), (text or plain)(value))


def count(name, value):
    return number(name, value, count_text)


def ranking(name, entries):
    """As the report writes it: position:count, the fullest first."""
    text = ",".join(f"{position}:{entries_there}" for position, entries_there in entries)
    return Number(name, text, text.replace(",", ", ") or UNKNOWN)


def exact_time(name, value_ps):
    return number(name, value_ps, lambda ps: f"{ps:,} ps")


def pair_rows(page):
    seen = page.correlation
    known = seen.offset_valid
    return (
        NumberRow("Tags in all", (count("tags_total", page.tags),)),
        NumberRow("Coincidences", (count("coincidences", seen.coincidences),)),
        NumberRow("Offset", (exact_time("xcorr_offset_ps", seen.offset_ps if known else None),)),
        NumberRow("Pairs in the fullest bin",
                  (count("xcorr_peak_count", seen.peak_count if known else None),)),
        NumberRow("Centre of that bin, from the offset",
                  (exact_time("xcorr_peak_center_ps", seen.peak_center_ps if known else None),)),
        NumberRow("Spread (rms)",
                  (number("xcorr_rms_ps", seen.rms_ps if known else None, time_text),)),
        NumberRow("Width (2.355 rms)",
                  (number("xcorr_fwhm_est_ps", seen.fwhm_ps if known else None, time_text),)),
        NumberRow("Pairs a clock period before the offset",
                  (count("xcorr_minus3333_window_pm40ps",
                         seen.minus_period_window if known else None),)),
        NumberRow("Pairs a clock period after it",
                  (count("xcorr_plus3333_window_pm40ps",
                         seen.plus_period_window if known else None),)),
        NumberRow("Fullest bins, centre in ps:pairs",
                  (ranking("xcorr_top_bins", seen.top_bins if known else ()),)),
    )


def per_channel(page, label, make):
    return NumberRow(label, tuple(make(channel) for channel in page.channels))


def channel_rows(page):
    rows = [
        per_channel(page, "Tags", lambda c: count(f"ch{c.number}", c.tags)),
        per_channel(page, "Mean rate",
                    lambda c: number(f"rate_hz[{c.number}]", c.rate_hz, rate_text)),
        per_channel(page, "Tags that run backwards",
                    lambda c: count(f"monotonic_violations[{c.number}]", c.monotonic_violations)),
        per_channel(page, "Shortest step",
                    lambda c: exact_time(f"min_dt_ps[{c.number}]",
                                         c.steps.min_dt_ps if c.tags > 1 else None)),
        per_channel(page, "Longest step",
                    lambda c: number(f"max_gap_ps[{c.number}]",
                                     c.steps.max_gap_ps if c.tags > 1 else None, time_text)),
    ]
    for which, limit_ps in enumerate(figures.STEP_LIMITS_PS):
        name = f"dt_lt_{limit_ps // 1000}ns"
        rows.append(per_channel(
            page, f"Steps below {time_text(limit_ps)}",
            lambda c, name=name, which=which: count(f"{name}[{c.number}]", c.steps.below[which])))
    rows += [
        per_channel(page, "Positions in the clock period that occur",
                    lambda c: count(f"ch{c.number}_mod3333_unique", c.residues.unique)),
        per_channel(page, "Tags at position 0",
                    lambda c: count(f"ch{c.number}_mod3333_exact_zero", c.residues.exact_zero)),
        per_channel(page, "Fullest positions, ps:tags",
                    lambda c: ranking(f"ch{c.number}_mod3333_top", c.residues.top)),
    ]
    return tuple(rows)
