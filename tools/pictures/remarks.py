"""What a reader should look at first, in a sentence each.

A verdict speaks of the program's rules alone: a unit that falls silent in mid-capture may
still pass. These sentences say what the figures show besides.
"""

from typing import NamedTuple

from .look import count_text, plain, time_text


class Remark(NamedTuple):
    section: str  # where it can be seen
    text: str


def of_channel(page, channel):
    c = channel.number
    if channel.streamed and not channel.tags:
        yield Remark("rates", f"Channel {c} was streamed, but no tags came.")
    if page.rates.gaps_total_per_channel[c]:
        length = time_text(page.rates.gaps_length_s_per_channel[c] * 1e12, 3)
        gaps = page.rates.gaps_total_per_channel[c]
        times = "once" if gaps == 1 else f"{count_text(gaps)} times"
        yield Remark("rates", f"Channel {c} pauses {times}, for {length} in all.")
    if channel.monotonic_violations:
        yield Remark("rates", f"On channel {c} time runs backwards "
                     f"{count_text(channel.monotonic_violations)} times.")
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


def remarks_on(page):
    found = [remark for channel in page.channels for remark in of_channel(page, channel)]
    if peak_is_cut(page):
        found.append(Remark("correlation", "The peak of the pair reaches out of the coincidence "
                            "window."))
    return tuple(found)
