"""Panels for paper: draws one into matplotlib's axes."""

import numpy as np
from matplotlib.ticker import FixedFormatter, FixedLocator, FuncFormatter, NullLocator

from . import panels
from .look import MARK_COLOUR, short_count

DASHES = {"solid": "-", "dash": "--", "dot": ":", "dashdot": "-."}
SYMBOLS = {"star": "*", "triangle": "v"}
SMALL = 7  # points
MANY_BINS = 600
GRID_COLOUR = "#dddddd"


def style(line):
    return {"color": line.colour, "linestyle": DASHES[line.dash], "linewidth": line.width}


def histogram(axes, drawn, panel):
    base = panel.y.low if panel.y.log else 0.0
    x, y = drawn.corners(base)
    shown = np.maximum(y, base)
    axes.fill_between(x, shown, base, step="post", color=drawn.line.colour, alpha=0.3,
                      linewidth=0)
    # Lines of many bins would run into each other.
    share = 0.8 if len(y) < MANY_BINS else 0.3
    axes.step(x, shown, where="post", color=drawn.line.colour,
              linewidth=share * drawn.line.width)


def curve(axes, drawn, panel):
    axes.plot(drawn.x, drawn.y, label=drawn.name or None, **style(drawn.line))


def band(axes, drawn, panel):
    axes.fill_between(drawn.x, drawn.low, drawn.high, color=drawn.colour, alpha=0.4, linewidth=0,
                      label=drawn.name or None)


def verticals(axes, drawn, panel):
    for position in drawn.positions:
        axes.axvline(position, label=drawn.name, **style(drawn.line))


def stretches(axes, drawn, panel):
    for low, high in drawn.spans:
        axes.axvspan(low, high, facecolor="#ffffff", edgecolor=drawn.colour, hatch="////",
                     linewidth=0.5, label=drawn.name)


def points(axes, drawn, panel):
    axes.plot(drawn.x, drawn.y, linestyle="none", marker=SYMBOLS[drawn.symbol], markersize=9,
              markerfacecolor="white", markeredgecolor=MARK_COLOUR, clip_on=False, zorder=5,
              label=drawn.name)


def width(axes, drawn, panel):
    axes.plot([drawn.low, drawn.high], [drawn.y, drawn.y], color=MARK_COLOUR, linewidth=1.2,
              marker="|", markersize=9, label=drawn.name, zorder=4)


DRAWERS = {panels.Histogram: histogram, panels.Curve: curve, panels.Band: band,
           panels.Verticals: verticals, panels.Stretches: stretches, panels.Points: points,
           panels.Width: width}


def ticks(drawn, axis):
    if drawn.ticks:
        axis.set_major_locator(FixedLocator([value for value, _ in drawn.ticks]))
        axis.set_major_formatter(FixedFormatter([text for _, text in drawn.ticks]))
        axis.set_minor_locator(NullLocator())
    elif drawn.counts:
        axis.set_major_formatter(FuncFormatter(lambda value, _: short_count(value)))
    else:
        axis.set_major_formatter(FuncFormatter(lambda value, _: f"{round(value, 10):,.10g}"))


def legend(axes):
    """Above the panel, where it covers no data; each name once."""
    handles = dict(zip(*reversed(axes.get_legend_handles_labels())))
    if handles:
        axes.legend(handles.values(), handles.keys(), loc="lower left", bbox_to_anchor=(0, 1.0),
                    ncol=2, fontsize=SMALL - 1, frameon=False, borderaxespad=0.1,
                    columnspacing=1.0, handlelength=2.2, labelspacing=0.2)


def legend_lines(panel):
    """Height that the legend of the panel needs."""
    return (len(panel.names()) + 1) // 2


def draw(axes, panel):
    for series in panel.series:
        DRAWERS[type(series)](axes, series, panel)
    axes.set_xlim(panel.x.low, panel.x.high)
    axes.set_ylim(panel.y.low, panel.y.high)
    if panel.x.log:
        axes.set_xscale("log")
    if panel.y.log:
        axes.set_yscale("log")
    ticks(panel.x, axes.xaxis)
    ticks(panel.y, axes.yaxis)
    axes.set_xlabel(panel.x.label, fontsize=SMALL)
    axes.set_ylabel(panel.y.label, fontsize=SMALL)
    axes.tick_params(labelsize=SMALL)
    axes.grid(color=GRID_COLOUR, linewidth=0.5)
    axes.set_axisbelow(True)
    legend(axes)
