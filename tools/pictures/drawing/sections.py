"""The sections of a page: title, what to look for, the panels, and why some are missing.

A caption is a list of texts and numbers; a page that can mark numbers does so.
"""

from dataclasses import dataclass

from ..figures import BIN_WIDTH_PS, CHANNELS, CLOCK_PERIOD_PS, Page
from . import channel_panels, pair_panels
from .look import count_text, plain, rate_text, time_text
from .named_numbers import UNKNOWN, Number, count, exact_time, number
from .panels import Panel
from .remarks import peak_is_cut


@dataclass(frozen=True)
class Table:
    heads: tuple[str, ...]  # the first one is empty
    rows: tuple[tuple[str | Number, ...], ...]


@dataclass(frozen=True)
class Section:
    name: str  # in the page
    title: str
    caption: tuple[str | Number, ...]
    panels: tuple[Panel, ...]
    missing: tuple[str, ...]  # sentences
    columns: int = 1  # of panels
    table: Table | None = None


def sentence(text):
    return text if text.endswith((".", "?", "!")) else f"{text}."


def channels_text(numbers):
    names = [str(n) for n in numbers]
    if len(names) == 1:
        return f"Channel {names[0]}"
    if len(names) == CHANNELS:
        return "All channels"
    return f"Channels {', '.join(names[:-1])} and {names[-1]}"


def missing_channels(reasons):
    """One sentence per reason, with all channels that it holds for."""
    by_reason = {}
    for channel, reason in enumerate(reasons):
        if reason:
            by_reason.setdefault(reason, []).append(channel)
    return tuple(sentence(f"{channels_text(channels)}: {reason}")
                 for reason, channels in by_reason.items())


def table_of(heads, page, make):
    """A row for each channel for which `make` gives numbers. None without any."""
    made = [(channel.number, make(channel.number)) for channel in page.channels]
    rows = tuple((f"Channel {number}", *cells) for number, cells in made if cells)
    return Table(("", *heads), rows) if rows else None


def why_no_rate(channel):
    if channel.tags:
        return None
    return {True: "streamed, but no tags came", False: "not streamed",
            None: "no tags"}[channel.streamed]


def rate_caption(page):
    plot = page.rates
    caption = ["Look for steps, slopes and gaps: a healthy source gives a flat line. A gap is a "
               "stretch without tags that is too long to be chance. "]
    outside = sum(plot.outside_per_channel)
    if outside:
        caption += [count("outside_view", outside),
                    " tags lie so far from the others that they are left out here. "]
    if plot.silent_tail_s > 0:
        caption += ["The capture went on for ", seconds("silent_tail_s", plot.silent_tail_s),
                    " after the last tag of all. "]
    width_s = float(plot.edges_s[1] - plot.edges_s[0])
    return (*caption, f"A bin is {time_text(width_s * 1e12)} wide, and one tag in it makes "
            f"{plain(1 / width_s, 3)} per second. Second 0 is the time ",
            exact_time("origin_ps", plot.origin_ps), ".")


def seconds(name, value_s):
    return number(name, value_s, lambda s: time_text(s * 1e12))


def rate_table(page):
    plot = page.rates

    def row(c):
        if not page.channels[c].tags:
            return None
        rate_hz = page.channels[c].rate_hz
        return (UNKNOWN if rate_hz is None else rate_text(rate_hz),
                count(f"gaps[{c}]", plot.gaps_total_per_channel[c]),
                seconds(f"gaps_s[{c}]", plot.gaps_length_s_per_channel[c]),
                count(f"backwards[{c}]", plot.backwards_total_per_channel[c]))
    return table_of(("Mean rate", "Gaps", "All gaps together", "Tags that run backwards"), page,
                    row)


def rates(page):
    reason = page.rates.reason
    missing = (sentence(reason),) if reason else missing_channels(map(why_no_rate, page.channels))
    return Section("rates", "Tags per second on each channel over the run",
                   () if reason else rate_caption(page), channel_panels.rate_panels(page),
                   missing, table=None if reason else rate_table(page))


def correlation_caption(page):
    seen = page.correlation
    caption = ["Of ", f"{count_text(seen.tags_a)} and {count_text(seen.tags_b)} tags, ",
               count_text(seen.coincidences), f" on channel {page.pair.channel_a} have a partner "
               f"within ±{time_text(page.pair.window_ps)}. "]
    if seen.offset_valid:
        caption += [f"Channel {page.pair.channel_b} comes {time_text(abs(seen.offset_ps))} "
                    f"{'later' if seen.offset_ps >= 0 else 'earlier'}; the peak is "
                    f"{time_text(seen.fwhm_ps)} wide as far as the rms of the whole histogram "
                    "tells. That histogram holds ",
                    count("histogram_pairs", seen.pairs), " pairs. "]
    if peak_is_cut(page):
        caption += ["The peak reaches out of the coincidence window: offset, coincidences and "
                    "width miss a part of it until the window is made wider. "]
    if not seen.window_covers_sides:
        caption += ["The histogram is too narrow for the side windows: a slip of the clock by one "
                    f"period of {CLOCK_PERIOD_PS} ps shows only with a window of 3.4 ns or more. "]
    if seen.sampled < 1:
        caption += ["There are too many pairs: this is a sample of ",
                    number("histogram_sample", seen.sampled, lambda s: f"{plain(100 * s)} %"),
                    " of the tags. "]
    if seen.merged > 1:
        caption += [f"A drawn bin is {seen.merged} bins of {BIN_WIDTH_PS} ps. "]
    caption += ["Look for one narrow peak well above a flat floor; the floor is chance, and a "
                "second peak is an echo or a slip."]
    return tuple(caption)


def correlation(page):
    seen = page.correlation
    return Section("correlation",
                   f"Cross-correlation: {pair_panels.pair_title(page.pair)}",
                   () if seen.reason else correlation_caption(page),
                   pair_panels.correlation_panels(page),
                   (sentence(seen.reason),) if seen.reason else ())


def wide_caption(page):
    view = page.wide
    sample = view.tags_used < view.tags_total
    caption = [count("wide_pairs", view.pairs), " pairs of ",
               count("wide_tags_used", view.tags_used),
               f" tags, a sample that is evenly spread over the {count_text(view.tags_total)} "
               if sample else " tags, which are all ", f"of channel {page.pair.channel_a}. "]
    if view.peak_ps is not None:
        caption += ["The fullest bin lies at ",
                    number("wide_peak_ps", view.peak_ps, time_text),
                    f", give or take {time_text(view.bin_width_ps / 2)}. "]
    caption += ["Look for the peak: one outside of the coincidence window is a delay, of 1 ns "
                "per 20 cm of cable. Several at equal distances are a periodic signal. None "
                "means that the two channels see different things."]
    return tuple(caption)


def wide(page):
    view = page.wide
    return Section("wide", f"The same differences out to 100 windows: "
                   f"{pair_panels.pair_title(page.pair)}",
                   () if view.reason else wide_caption(page), pair_panels.wide_panels(page),
                   (sentence(view.reason),) if view.reason else ())


INTERVAL_CAPTION = (
    "Random events rise to one hump near the mean interval. The edge at the left is the dead "
    "time; a hump or a shoulder right after it is afterpulses or ringing; a single spike is a "
    "periodic signal. Steps of 0 and backwards have no place on the axis.",)


def interval_row(page, channel):
    seen = page.intervals_per_channel[channel]
    if seen.reason:
        return None
    return (time_text(seen.shortest_ps),
            number(f"interval_median_ps[{channel}]", seen.median_ps, time_text),
            time_text(seen.longest_ps), count(f"interval_zero[{channel}]", seen.zero),
            count(f"interval_negative[{channel}]", seen.negative))


def intervals(page):
    return Section("intervals", "Time from one tag to the next on the same channel",
                   INTERVAL_CAPTION, channel_panels.interval_panels(page),
                   missing_channels([i.reason for i in page.intervals_per_channel]), columns=2,
                   table=table_of(("Shortest", "Median", "Longest", "Of 0", "Backwards"), page,
                                  lambda channel: interval_row(page, channel)))


DENSITY_CAPTION = (
    f"Every tag's time modulo the clock period of {CLOCK_PERIOD_PS} ps. Signals that know nothing "
    "of this clock fill all positions alike, up to the widths of the delay line's codes and to "
    "chance. A single hump is a signal that is locked to the clock, as the calibration source is. "
    "A spike at 0 means that the fine time is missing; empty stretches are codes that never "
    "occur.",)


def density(page):
    return Section("density", f"Where in the clock period of {CLOCK_PERIOD_PS} ps the tags fall",
                   DENSITY_CAPTION, channel_panels.density_panels(page),
                   missing_channels([c.density_reason for c in page.codes_per_channel]),
                   columns=2)


NONLINEARITY_CAPTION = (
    "What stays within the grey band is chance, and goes down with more tags. What leaves it "
    "belongs to the delay line: a code that is wider than the others takes more tags, and the "
    "integral says how far times are off there.",)


def percent(name, value):
    return number(name, value, lambda v: f"{plain(100 * v, 3)} %")


def share_of_width(name, value):
    return number(name, value, lambda v: plain(v, 3))


def nonlinearity_row(page, channel):
    codes = page.codes_per_channel[channel]
    if codes.reason:
        return None
    name = f"[{channel}]"
    return (count(f"codes{name}", len(codes.codes_ps)),
            number(f"code_width_ps{name}", codes.code_width_ps, time_text),
            number(f"tags_per_code{name}", codes.tags_per_code),
            percent(f"dnl_rms{name}", codes.dnl_rms),
            percent(f"dnl_rms_beyond_chance{name}", codes.dnl_rms_beyond_chance),
            percent(f"dnl_min{name}", codes.dnl_min), percent(f"dnl_max{name}", codes.dnl_max),
            share_of_width(f"inl_min{name}", codes.inl_min),
            share_of_width(f"inl_max{name}", codes.inl_max),
            {True: "even, up to chance", False: "uneven", None: UNKNOWN}[codes.even])


def nonlinearity(page):
    heads = ("Codes", "Mean width", "Tags per code", "Widths off, rms", "Beyond chance",
             "Narrowest", "Widest", "Integral from", "to (widths)", "Codes are")
    return Section("nonlinearity", "Differential and integral nonlinearity of the delay lines",
                   NONLINEARITY_CAPTION, channel_panels.nonlinearity_panels(page),
                   missing_channels([c.reason for c in page.codes_per_channel]), columns=2,
                   table=table_of(heads, page, lambda channel: nonlinearity_row(page, channel)))


TIMING_CAPTION = (
    "The time interval error says how late a pulse comes after the straight line that fits all "
    "pulses best. Look for a flat band: a slope or a bow is a clock that drifts, a step is a lost "
    "clock period, and the histogram of periods should have one hump.",)


def timing_row(page, channel):
    seen = page.timing_per_channel[channel]
    if seen.reason:
        return None
    name = f"[{channel}]"
    return (number(f"period_ps{name}", seen.period_ps, period_text),
            count(f"pulses{name}", seen.pulses), count(f"missing_pulses{name}", seen.missing),
            *(number(f"{key}{name}", getattr(seen, key), time_text) for key in (
                "tie_rms_ps", "tie_peak_to_peak_ps", "period_jitter_rms_ps",
                "period_jitter_peak_to_peak_ps", "cycle_jitter_rms_ps",
                "cycle_jitter_peak_to_peak_ps")))


def period_text(period_ps):
    return f"{period_ps:,.3f} ps"


def timing(page):
    heads = ("Mean period", "Pulses", "Missing", "Error, rms", "peak to peak", "Period, rms",
             "peak to peak", "Period to period, rms", "peak to peak")
    return Section("timing", "Periodic signal: time interval error and jitter", TIMING_CAPTION,
                   channel_panels.timing_panels(page),
                   missing_channels([t.reason for t in page.timing_per_channel]), columns=2,
                   table=table_of(heads, page, lambda channel: timing_row(page, channel)))


def sections_of(page: Page) -> tuple[Section, ...]:
    return (rates(page), correlation(page), wide(page), intervals(page), density(page),
            nonlinearity(page), timing(page))


def source(run):
    """Where the page's numbers come from."""
    start = f"Run of {run.start}. " if run.start is not None else ""
    told = f"{run.json_file} tells" if run.json_file is not None else "No document tells"
    return f"{start}The tags are those of {run.tags_file}; {told} of the run itself."
