"""Panels of one channel each: rates, intervals, codes and periodic timing.

Panels of one kind have the same horizontal axis, so that channels can be compared.
"""

import numpy as np

from ..figures import CLOCK_PERIOD_PS
from .axes import (count_axis, log_count_axis, log_time_axis, seconds_axis, time_axis,
                   widened)
from .look import (CHANCE_COLOUR, CHANNEL_COLOURS, GAP_COLOUR, MARK_COLOUR, Line,
                           count_text, time_text)
from .panels import Axis, Band, Curve, Histogram, Panel, Points, Stretches, Verticals

CHANCE_SIGMAS = 3


def line_of(channel):
    return Line(CHANNEL_COLOURS[channel])


def some_of(shown, total):
    return count_text(total) if shown == total else f"{count_text(shown)} of {count_text(total)}"


def rate_panel(page, channel):
    plot = page.rates
    rates = plot.rates_hz_per_channel[channel]
    x, per_second = seconds_axis("Time in the run", plot.end_s)
    y = count_axis("Tags per second", float(rates.max()))
    series = []
    gaps = plot.gaps_per_channel[channel]
    if gaps:
        total = plot.gaps_total_per_channel[channel]
        series.append(Stretches(tuple((g.start_s * per_second, g.end_s * per_second)
                                      for g in gaps),
                                GAP_COLOUR, f"gaps ({some_of(len(gaps), total)})"))
    series.append(Histogram(plot.edges_s * per_second, rates, line_of(channel)))
    backwards = plot.backwards_per_channel[channel]
    if backwards:
        total = plot.backwards_total_per_channel[channel]
        series.append(Points(tuple(b.time_s * per_second for b in backwards),
                             (y.high * 0.95,) * len(backwards), "triangle",
                             f"tag earlier than the one before "
                             f"({some_of(len(backwards), total)})",
                             tuple(f"row {b.row}: {time_text(b.step_ps)}" for b in backwards)))
    return Panel(f"rates-{channel}", f"Channel {channel}", x, y, channel, tuple(series), "time")


def rate_panels(page):
    if page.rates.reason:
        return ()
    return tuple(rate_panel(page, c.number) for c in page.channels if c.tags)


def per_part_of_octave(intervals):
    """The bins of an octave are equally wide in time, and so not on the axis: as they are,
    random events would rise in stairs."""
    octaves = np.log2(intervals.edges_ps[1:] / intervals.edges_ps[:-1])
    return intervals.counts / (8 * octaves)


def interval_panels(page):
    shown = [(c, i) for c, i in enumerate(page.intervals_per_channel) if not i.reason]
    if not shown:
        return ()
    x = log_time_axis("Time to the next tag", min(i.shortest_ps for _, i in shown),
                      max(i.longest_ps for _, i in shown))
    panels = []
    for channel, intervals in shown:
        steps = per_part_of_octave(intervals)
        series = (Histogram(intervals.edges_ps, steps, line_of(channel)),
                  Verticals((intervals.shortest_ps,), Line(MARK_COLOUR, "dot"),
                            f"shortest ({time_text(intervals.shortest_ps)})"),
                  Verticals((intervals.median_ps,), Line(CHANCE_COLOUR, "dash", 1.6),
                            f"median ({time_text(intervals.median_ps)})"))
        y = log_count_axis("Steps per 1/8 octave", float(steps.max()),
                           float(steps[steps > 0].min()))
        panels.append(Panel(f"intervals-{channel}", f"Channel {channel}", x, y, channel, series,
                            "intervals"))
    return tuple(panels)


def code_axis():
    return Axis("Position in the clock period (ps)", 0.0, float(CLOCK_PERIOD_PS))


def density_axis():
    """With room on both sides: pulses in step with the clock stand at its very start."""
    margin = 0.03 * CLOCK_PERIOD_PS
    axis = code_axis()
    return Axis(axis.label, axis.low - margin, axis.high + margin)


def density_panels(page):
    panels = []
    for channel, codes in enumerate(page.codes_per_channel):
        if codes.density_reason:
            continue
        series = (Histogram(np.arange(CLOCK_PERIOD_PS + 1) - 0.5, codes.counts,
                            line_of(channel)),)
        panels.append(Panel(f"density-{channel}", f"Channel {channel}", density_axis(),
                            count_axis("Tags per ps of position", int(codes.counts.max())),
                            channel, series, "codes"))
    return tuple(panels)


def symmetric_axis(label, *series):
    reach = max(float(np.abs(s).max()) for s in series)
    return Axis(label, *widened(-1.15 * reach, 1.15 * reach))


def nonlinearity_panels(page):
    panels = []
    for channel, codes in enumerate(page.codes_per_channel):
        if codes.reason:
            continue
        chance = np.full(len(codes.codes_ps), CHANCE_SIGMAS * codes.dnl_sigma)
        inl_chance = CHANCE_SIGMAS * codes.inl_sigma
        for kind, values, band, label in (
                ("dnl", codes.dnl, chance, "Width / mean − 1"),
                ("inl", codes.inl, inl_chance, "Mean widths")):
            words = "Differential" if kind == "dnl" else "Integral"
            series = (Band(codes.codes_ps, -band, band, CHANCE_COLOUR,
                           f"chance alone ({CHANCE_SIGMAS} sigma)"),
                      Curve(codes.codes_ps, values, line_of(channel)))
            panels.append(Panel(f"{kind}-{channel}", f"Channel {channel}: {words.lower()}",
                                code_axis(), symmetric_axis(label, values, band), channel,
                                series, "codes"))
    return tuple(panels)


def error_panel(page, channel, timing):
    x, per_second = seconds_axis("Time in the run", page.rates.end_s)
    ends = [float(timing.tie_min_ps.min()), float(timing.tie_max_ps.max())]
    margin = 0.1 * (ends[1] - ends[0])
    y, factor = time_axis("Late by", ends[0] - margin, ends[1] + margin)
    times = timing.time_s * per_second
    series = (Band(times, timing.tie_min_ps / factor, timing.tie_max_ps / factor,
                   CHANNEL_COLOURS[channel], "earliest to latest pulse"),
              Curve(times, timing.tie_mean_ps / factor, Line(MARK_COLOUR), "mean"))
    return Panel(f"tie-{channel}", f"Channel {channel}: time interval error", x, y, channel,
                 series, "time")


def period_panel(channel, timing):
    edges = timing.period_edges_ps
    x, factor = time_axis("Period less the mean period", float(edges[0]), float(edges[-1]))
    series = (Histogram(edges / factor, timing.period_counts, line_of(channel)),)
    y = count_axis("Periods per bin", int(timing.period_counts.max()))
    return Panel(f"period-{channel}", f"Channel {channel}: periods", x, y, channel, series)


def timing_panels(page):
    panels = []
    for channel, timing in enumerate(page.timing_per_channel):
        if timing.reason:
            continue
        panels.append(error_panel(page, channel, timing))
        if len(timing.period_counts):
            panels.append(period_panel(channel, timing))
    return tuple(panels)
