"""Panels of the pair: the cross-correlation and its wide view.

Their horizontal axis is the difference of the times, B - A, not relative to the offset:
so a mark stands at the same place in all of them.
"""

from ..figures import BIN_WIDTH_PS
from .axes import count_axis, log_count_axis, time_axis
from .look import (CHANCE_COLOUR, GAP_COLOUR, MARK_COLOUR, PAIR_COLOUR, Line, count_text,
                           time_text)
from .panels import Histogram, Panel, Points, Stretches, Verticals, Width

FEWEST_BINS_IN_VIEW = 12  # to either side of the peak
WIDTHS_IN_VIEW = 1.5


def pair_title(pair):
    return f"channel {pair.channel_b} minus channel {pair.channel_a}"


def difference_label(pair):
    return f"Time on channel {pair.channel_b} less time on channel {pair.channel_a}"


def side_window_name(correlation):
    counts = (f"{count_text(correlation.minus_period_window)} and "
              f"{count_text(correlation.plus_period_window)} pairs")
    if not correlation.window_covers_sides:
        return "side windows (not in the histogram, so not counted in full)"
    return f"side windows ({counts})"


def marks(page, factor, top, sides=True, width=True):
    """Offset, peak, width, window and side windows; `top`: where a peak would end."""
    seen = page.correlation
    window = page.pair.window_ps
    shown = []
    if sides and seen.offset_valid:
        spans = tuple(((seen.offset_ps + low) / factor, (seen.offset_ps + high) / factor)
                      for low, high in seen.side_windows_ps)
        shown.append(Stretches(spans, GAP_COLOUR, side_window_name(seen)))
    shown.append(Verticals((-window / factor, window / factor), Line(CHANCE_COLOUR, "dash", 1.6),
                           f"coincidence window (±{time_text(window)})"))
    if not seen.offset_valid:
        return tuple(shown)
    shown.append(Verticals((seen.offset_ps / factor,), Line(MARK_COLOUR, "dot", 1.6),
                           f"offset ({seen.offset_ps:,} ps)"))
    peak_ps = seen.offset_ps + seen.peak_center_ps
    if width and seen.fwhm_ps > 0:
        half = seen.fwhm_ps / 2
        shown.append(Width((peak_ps - half) / factor, (peak_ps + half) / factor, top / 2,
                           f"width, 2.355 rms ({time_text(seen.fwhm_ps)})"))
    shown.append(Points((peak_ps / factor,), (top,), "star",
                        f"peak ({count_text(seen.peak_count)} pairs per {BIN_WIDTH_PS} ps)"))
    return tuple(shown)


def histogram(correlation, factor):
    width = BIN_WIDTH_PS * correlation.merged
    edges = (correlation.offset_ps + correlation.centers_ps - width / 2) / factor
    edges = list(edges) + [edges[-1] + width / factor]
    return Histogram(edges, correlation.counts, Line(PAIR_COLOUR))


def bin_text(width_ps):
    return f"Pairs per {time_text(width_ps)}"


def whole_panel(page):
    seen = page.correlation
    half_bin = BIN_WIDTH_PS * seen.merged / 2
    window = page.pair.window_ps
    side_ends = [seen.offset_ps + end for span in seen.side_windows_ps for end in span]
    ends = [-window, window, seen.offset_ps + seen.centers_ps[0] - half_bin,
            seen.offset_ps + seen.centers_ps[-1] + half_bin, *side_ends]
    margin = 0.03 * (max(ends) - min(ends))
    x, factor = time_axis(difference_label(page.pair), min(ends) - margin, max(ends) + margin)
    most = int(seen.counts.max())
    y = log_count_axis(bin_text(2 * half_bin), max(most, seen.peak_count))
    return Panel("correlation-whole", "The whole histogram, logarithmic", x, y,
                 series=(histogram(seen, factor), *marks(page, factor, most)), tall=True)


def peak_panel(page):
    seen = page.correlation
    half_bin = BIN_WIDTH_PS * seen.merged / 2
    reach = max(FEWEST_BINS_IN_VIEW * 2 * half_bin, WIDTHS_IN_VIEW * seen.fwhm_ps,
                1.3 * abs(seen.peak_center_ps))
    middle = seen.offset_ps + seen.peak_center_ps
    x, factor = time_axis(difference_label(page.pair), middle - reach, middle + reach)
    most = int(seen.counts.max())
    y = count_axis(bin_text(2 * half_bin), most)
    return Panel("correlation-peak", "Around the peak, linear", x, y,
                 series=(histogram(seen, factor), *marks(page, factor, most, sides=False)),
                 tall=True)


def correlation_panels(page):
    return () if page.correlation.reason else (whole_panel(page), peak_panel(page))


def wide_panels(page):
    view = page.wide
    if view.reason:
        return ()
    x, factor = time_axis(difference_label(page.pair), -view.range_ps, view.range_ps)
    most = int(view.counts.max())
    y = log_count_axis(bin_text(view.bin_width_ps), most)
    drawn = Histogram(view.edges_ps / factor, view.counts, Line(PAIR_COLOUR))
    window = page.pair.window_ps
    shown = [drawn, Verticals((-window / factor, window / factor),
                              Line(CHANCE_COLOUR, "dash", 1.6),
                              f"coincidence window (±{time_text(window)})")]
    if view.peak_ps is not None:
        shown.append(Points((view.peak_ps / factor,), (most,), "star",
                            f"fullest bin ({count_text(most)} pairs at {time_text(view.peak_ps)})"))
    return (Panel("wide", f"Differences to ±{time_text(view.range_ps)}", x, y,
                  series=tuple(shown), tall=True),)
