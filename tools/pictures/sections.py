"""The sections of a page: title, what to look for, the panels, and why some are missing.

A caption is a list of texts and numbers; a page that can mark numbers does so.
"""

from dataclasses import dataclass

from . import channel_panels, pair_panels
from .figures import BIN_WIDTH_PS, CLOCK_PERIOD_PS, Page
from .look import count_text, plain, rate_text, time_text
from .named_numbers import Number, count, exact_time, number
from .panels import Panel


@dataclass(frozen=True)
class Section:
    name: str  # in the page
    title: str
    caption: tuple[str | Number, ...]
    panels: tuple[Panel, ...]
    missing: tuple[str, ...]  # sentences
    columns: int = 1  # of panels


def sentence(text):
    return text if text.endswith((".", "?", "!")) else f"{text}."


def channels_text(numbers):
    names = [str(n) for n in numbers]
    if len(names) == 1:
        return f"Channel {names[0]}"
    return f"Channels {', '.join(names[:-1])} and {names[-1]}"


def missing_channels(reasons):
    """One sentence per reason, with all channels that it holds for."""
    by_reason = {}
    for channel, reason in enumerate(reasons):
        if reason:
            by_reason.setdefault(reason, []).append(channel)
    return tuple(sentence(f"{channels_text(channels)}: {reason}")
                 for reason, channels in by_reason.items())


def of_each(page, make):
    """"channel 0: 5 Hz, channel 1: 6 Hz" for the channels for which `make` gives parts."""
    parts = []
    for channel in range(len(page.channels)):
        made = make(channel)
        if made:
            parts += ["; " if parts else "", f"channel {channel} ", *made]
    return parts


def silent_channels(page):
    words = []
    for channel in page.channels:
        if channel.tags:
            continue
        words.append({True: "it was streamed, but gave no tags",
                      False: "it was not streamed",
                      None: "it has no tags"}[channel.streamed])
    return words


def rate_caption(page):
    plot = page.rates
    caption = ["Mean rates: ", *of_each(page, lambda c: page.channels[c].tags and [
        rate_text(page.channels[c].rate_hz)] if page.channels[c].rate_hz is not None else None),
        ". "] if any(c.rate_hz is not None for c in page.channels) else []
    gaps = sum(plot.gaps_total_per_channel)
    if gaps:
        caption += ["Gaps: ", *of_each(page, lambda c: plot.gaps_total_per_channel[c] and [
            count(f"gaps[{c}]", plot.gaps_total_per_channel[c]), ", together ",
            number(f"gaps_s[{c}]", plot.gaps_length_s_per_channel[c],
                   lambda s: time_text(s * 1e12))]), ". "]
    else:
        caption += ["No channel has a gap that is too long to be chance. "]
    backwards = sum(plot.backwards_total_per_channel)
    caption += [f"Tags that run backwards: {count_text(backwards)}. "]
    outside = sum(plot.outside_per_channel)
    if outside:
        caption += [count("outside_view", outside),
                    " tags lie so far from the others that they are left out here. "]
    if plot.silent_tail_s > 0:
        caption += ["The capture went on for ",
                    number("silent_tail_s", plot.silent_tail_s, lambda s: time_text(s * 1e12)),
                    " after the last tag of all. "]
    caption += ["Look for steps, slopes and gaps: a healthy source gives a flat line. "
                "Second 0 is the time ", exact_time("origin_ps", plot.origin_ps), "."]
    return tuple(caption)


def rates(page):
    reason = page.rates.reason
    missing = (sentence(reason),) if reason else missing_channels(
        [None if c.tags else words for c, words in zip(page.channels, all_words(page))])
    return Section("rates", "Tags per second on each channel over the run",
                   () if reason else rate_caption(page), channel_panels.rate_panels(page),
                   missing)


def all_words(page):
    words = iter(silent_channels(page))
    return ["" if c.tags else next(words) for c in page.channels]


def correlation_caption(page):
    seen = page.correlation
    caption = ["Of ", f"{count_text(seen.tags_a)} and {count_text(seen.tags_b)} tags, ",
               count_text(seen.coincidences), f" on channel {page.pair.channel_a} have a partner "
               f"within ±{time_text(page.pair.window_ps)}. "]
    if seen.offset_valid:
        caption += [f"Channel {page.pair.channel_b} comes {time_text(abs(seen.offset_ps))} "
                    f"{'later' if seen.offset_ps >= 0 else 'earlier'}; the peak is "
                    f"{time_text(seen.fwhm_ps)} wide as far as the rms of the whole histogram "
                    "tells, and holds ", count("histogram_pairs", seen.pairs), " pairs. "]
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
                   (sentence(seen.reason),) if seen.reason else (), columns=2)


def wide_caption(page):
    view = page.wide
    caption = [count("wide_pairs", view.pairs), " pairs of ",
               count("wide_tags_used", view.tags_used), " tags, evenly spread over the "
               f"{count_text(view.tags_total)} of channel {page.pair.channel_a}. "]
    if view.peak_ps is not None:
        caption += ["The fullest bin lies at ",
                    number("wide_peak_ps", view.peak_ps, time_text), ". "]
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


def interval_caption(page):
    def parts(channel):
        intervals = page.intervals_per_channel[channel]
        if intervals.reason:
            return None
        made = ["median ", number(f"interval_median_ps[{channel}]", intervals.median_ps,
                                  time_text)]
        if intervals.zero:
            made += [", ", count(f"interval_zero[{channel}]", intervals.zero), " of 0"]
        if intervals.negative:
            made += [", ", count(f"interval_negative[{channel}]", intervals.negative),
                     " backwards"]
        return made
    return ("Steps: ", *of_each(page, parts), ". Steps of 0 and backwards have no place on the "
            "axis. Random events rise to one hump near the mean interval. The edge at the left "
            "is the dead time; a hump or a shoulder right after it is afterpulses or ringing; a "
            "single spike is a periodic signal.")


def intervals(page):
    panels = channel_panels.interval_panels(page)
    return Section("intervals", "Time from one tag to the next on the same channel",
                   interval_caption(page) if panels else (), panels,
                   missing_channels([i.reason for i in page.intervals_per_channel]), columns=2)


def density(page):
    panels = channel_panels.density_panels(page)
    caption = (f"Every tag's time modulo the clock period of {CLOCK_PERIOD_PS} ps. Signals that "
               "know nothing of this clock fill all positions alike, up to the widths of the "
               "delay line's codes and to chance. A single hump is a signal that is locked to "
               "the clock, as the calibration source is. A spike at 0 means that the fine time is "
               "missing; empty stretches are codes that never occur.",)
    return Section("density", f"Where in the clock period of {CLOCK_PERIOD_PS} ps the tags fall",
                   caption if panels else (), panels,
                   missing_channels([c.density_reason for c in page.codes_per_channel]),
                   columns=2)


def nonlinearity_caption(page):
    def parts(channel):
        codes = page.codes_per_channel[channel]
        if codes.reason:
            return None
        name = f"[{channel}]"
        return [count(f"codes{name}", len(codes.codes_ps)), " codes of ",
                number(f"code_width_ps{name}", codes.code_width_ps, time_text), ", widths off by ",
                percent(f"dnl_rms{name}", codes.dnl_rms), " rms (",
                percent(f"dnl_rms_beyond_chance{name}", codes.dnl_rms_beyond_chance),
                " beyond chance), from ", percent(f"dnl_min{name}", codes.dnl_min), " to ",
                percent(f"dnl_max{name}", codes.dnl_max), ", together from ",
                number(f"inl_min{name}", codes.inl_min, lambda v: plain(v, 3)), " to ",
                number(f"inl_max{name}", codes.inl_max, lambda v: plain(v, 3)), " widths"]
    return (*of_each(page, parts), ". What stays within the grey band is chance and goes down "
            "with more tags. What leaves it belongs to the delay line: a code that is wider than "
            "the others takes more tags, and the integral says how far times are off there.")


def percent(name, value):
    return number(name, value, lambda v: f"{plain(100 * v, 3)} %")


def nonlinearity(page):
    panels = channel_panels.nonlinearity_panels(page)
    return Section("nonlinearity", "Differential and integral nonlinearity of the delay lines",
                   nonlinearity_caption(page) if panels else (), panels,
                   missing_channels([c.reason for c in page.codes_per_channel]), columns=2)


def timing_caption(page):
    def parts(channel):
        timing = page.timing_per_channel[channel]
        if timing.reason:
            return None
        name = f"[{channel}]"
        return ["period ", number(f"period_ps{name}", timing.period_ps, period_text), ", ",
                count(f"pulses{name}", timing.pulses), " pulses, ",
                count(f"missing_pulses{name}", timing.missing), " missing, error ",
                number(f"tie_rms_ps{name}", timing.tie_rms_ps, time_text), " rms and ",
                number(f"tie_peak_to_peak_ps{name}", timing.tie_peak_to_peak_ps, time_text),
                " from peak to peak, periods ",
                number(f"period_jitter_rms_ps{name}", timing.period_jitter_rms_ps, time_text),
                " rms, change from period to period ",
                number(f"cycle_jitter_rms_ps{name}", timing.cycle_jitter_rms_ps, time_text),
                " rms"]
    return (*of_each(page, parts), ". The time interval error says how late a pulse comes after "
            "the straight line that fits all pulses best. Look for a flat band: a slope or a bow "
            "is a clock that drifts, a step is a lost clock period, and the histogram of periods "
            "should have one hump.")


def period_text(period_ps):
    return f"{period_ps:,.3f} ps"


def timing(page):
    panels = channel_panels.timing_panels(page)
    return Section("timing", "Periodic signal: time interval error and jitter",
                   timing_caption(page) if panels else (), panels,
                   missing_channels([t.reason for t in page.timing_per_channel]), columns=2)


def sections_of(page: Page) -> tuple[Section, ...]:
    return (rates(page), correlation(page), wide(page), intervals(page), density(page),
            nonlinearity(page), timing(page))
