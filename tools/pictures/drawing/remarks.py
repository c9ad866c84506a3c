"""What a reader should look at first, in a sentence each.

A verdict speaks of the program's rules alone: a unit that falls silent in mid-capture may
still pass. These sentences say what the figures show besides.
"""

import math
from typing import NamedTuple

from ..figures import BIN_WIDTH_PS
from .look import count_text, plain, time_text


class Remark(NamedTuple):
    section: str  # where it can be seen
    text: str


def times(count):
    return "once" if count == 1 else f"{count_text(count)} times"


def of_gaps(rates, c):
    gaps = rates.gaps_per_channel[c]
    if not gaps:
        return
    last = gaps[-1]
    if last.end_s == rates.end_s:
        yield Remark("rates", f"Channel {c} is silent for the last "
                     f"{time_text((last.end_s - last.start_s) * 1e12, 3)} of the run.")
    if rates.gaps_total_per_channel[c] > 1 or last.end_s != rates.end_s:
        length = time_text(rates.gaps_length_s_per_channel[c] * 1e12, 3)
        yield Remark("rates", f"Channel {c} pauses {times(rates.gaps_total_per_channel[c])}, for "
                     f"{length} in all.")


def of_channel(page, channel):
    c = channel.number
    if channel.streamed and not channel.tags:
        yield Remark("rates", f"Channel {c} was streamed, but no tags came.")
    yield from of_gaps(page.rates, c)
    if channel.monotonic_violations:
        yield Remark("rates", f"On channel {c} time runs backwards "
                     f"{times(channel.monotonic_violations)}.")
    codes = page.codes_per_channel[c]
    if not codes.reason and codes.even is False:
        yield Remark("nonlinearity", f"The delay line of channel {c} is uneven by "
                     f"{plain(100 * codes.dnl_rms_beyond_chance, 3)} % rms.")


def peak_is_cut(page):
    """Whether a peak, and not just a floor, reaches out of the coincidence window."""
    seen = page.correlation
    if not seen.offset_valid or seen.reason or seen.rms_ps >= page.pair.window_ps / 2:
        return False
    return abs(seen.offset_ps + seen.peak_center_ps) + seen.rms_ps > page.pair.window_ps


def pairs_by_chance(correlation):
    """More pairs in a side window than this are no chance. The peak counts as floor, too:
    so a healthy one hides nothing but a slip of few tags."""
    low_ps, high_ps = correlation.side_windows_ps[0]
    floor = correlation.pairs / correlation.bins * (high_ps - low_ps) / BIN_WIDTH_PS
    return floor + 6 * math.sqrt(floor + 1)


def of_side_windows(correlation):
    if correlation.reason or not correlation.window_covers_sides:
        return
    for pairs, side in ((correlation.minus_period_window, "before"),
                        (correlation.plus_period_window, "after")):
        if pairs > pairs_by_chance(correlation):
            yield Remark("correlation", f"{count_text(pairs)} pairs lie one clock period {side} "
                         "the offset.")


def remarks_on(page):
    found = [remark for channel in page.channels for remark in of_channel(page, channel)]
    found += of_side_windows(page.correlation)
    if peak_is_cut(page):
        found.append(Remark("correlation", "The peak of the pair reaches out of the coincidence "
                            "window."))
    return tuple(found)
