"""What both outputs share of their looks: colours, line styles, and how numbers are
written.

The colours differ in lightness, so they stay apart in grey print and for people who
cannot tell red from green. Nothing is said by a colour alone: every panel has its
channel in the title, and marks differ in dash and symbol.
"""

import unicodedata
from dataclasses import dataclass

CHANNEL_COLOURS = ("#004488", "#c28e0e", "#bb5566", "#000000")
PAIR_COLOUR = "#004488"
MARK_COLOUR = "#000000"
CHANCE_COLOUR = "#999999"
GAP_COLOUR = "#777777"

TIME_UNITS = ((1e12, "s"), (1e9, "ms"), (1e6, "µs"), (1e3, "ns"), (1.0, "ps"))
LONGEST_TEXT = 400  # of a text from outside, in characters


@dataclass(frozen=True)
class Line:
    colour: str
    dash: str = "solid"  # "solid", "dash", "dot" or "dashdot"
    width: float = 1.2


def printable(text, longest=LONGEST_TEXT):
    """The text without what could not be shown, or would change what stands around it:
    controls, direction marks and lone surrogates become U+FFFD."""
    shown = "".join("\ufffd" if unicodedata.category(c) in ("Cc", "Cf", "Cs", "Zl", "Zp") else c
                    for c in text[: longest + 1])
    return shown if len(text) <= longest else shown[:longest] + " …"


def count_text(count):
    return f"{count:,}"


def plain(value, digits=4):
    """The number with so many digits and no exponent where one can do without."""
    if value != value or value in (float("inf"), float("-inf")):
        return "not known"
    if value and not 1e-4 <= abs(value) < 1e15:
        return f"{value:.{digits}g}"
    if abs(value) >= 10 ** (digits - 1):
        return f"{value:,.0f}"
    text = f"{value:.{digits}g}"
    return f"{float(text):.10f}".rstrip("0").rstrip(".") if "e" in text else text


def time_unit(longest_ps):
    """Picoseconds per unit, and the unit, for an axis that reaches so far."""
    for factor, unit in TIME_UNITS:
        if abs(longest_ps) >= 2 * factor:
            return factor, unit
    return TIME_UNITS[-1]


def time_text(time_ps, digits=4):
    for factor, unit in TIME_UNITS:
        if abs(time_ps) >= factor:
            return f"{plain(time_ps / factor, digits)} {unit}"
    return f"{plain(time_ps, digits)} ps"


def rate_text(rate_hz, digits=4):
    for factor, unit in ((1e6, "MHz"), (1e3, "kHz")):
        if abs(rate_hz) >= factor:
            return f"{plain(rate_hz / factor, digits)} {unit}"
    return f"{plain(rate_hz, digits)} Hz"


def short_count(count):
    """For ticks: 20000 is 20k."""
    for factor, prefix in ((1e9, "G"), (1e6, "M"), (1e3, "k")):
        if abs(count) >= factor:
            return f"{plain(count / factor, 4)}{prefix}"
    return plain(count, 4)
