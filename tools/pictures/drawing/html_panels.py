"""Panels for the interactive page, as plotly's traces and layout."""

import numpy as np
import plotly.graph_objects as go

from . import panels
from .look import MARK_COLOUR

HEIGHT = 260  # of a panel, in pixels
TALL_HEIGHT = 380
SYMBOLS = {"star": "star", "triangle": "triangle-down"}
DIGITS = 6  # of what is drawn; the numbers in the page's text are exact
GRID_COLOUR = "#dddddd"


def numbers(values):
    """As a list that is short to write."""
    return [int(v) if v == int(v) and abs(v) < 1e15 else float(f"{v:.{DIGITS}g}")
            for v in np.asarray(values, dtype=float).tolist()]


def see_through(colour, share):
    red, green, blue = (int(colour[i:i + 2], 16) for i in (1, 3, 5))
    return f"rgba({red},{green},{blue},{share})"


def trace(name, **properties):
    return go.Scatter(name=name, showlegend=bool(name), **properties)


def line(style):
    return {"color": style.colour, "dash": style.dash, "width": style.width}


def ends(axis):
    return [axis.low, axis.high]


def histogram(drawn, panel):
    x, y = drawn.corners(0.0)
    values = numbers(y)
    hover = "from %{x}: %{y}"
    more = {}
    if panel.y.log:  # a logarithm has no 0, but the mouse shows it
        more["customdata"] = values
        hover = "from %{x}: %{customdata}"
        values = [max(v, panel.y.low) for v in values]
    return trace("", x=numbers(x), y=values, mode="lines",
                 line=line(drawn.line) | {"shape": "hv"}, fill="tozeroy",
                 fillcolor=see_through(drawn.line.colour, 0.25), meta="histogram",
                 hovertemplate=f"{hover}<extra></extra>", **more)


def curve(drawn, panel):
    return trace(drawn.name, x=numbers(drawn.x), y=numbers(drawn.y), mode="lines",
                 line=line(drawn.line), meta="curve",
                 hovertemplate="%{x}: %{y}<extra></extra>")


def band(drawn, panel):
    x = numbers(drawn.x)
    return trace(drawn.name, x=x + x[::-1], y=numbers(drawn.low) + numbers(drawn.high)[::-1],
                 mode="lines", line={"width": 0.5, "color": drawn.colour}, fill="toself",
                 fillcolor=see_through(drawn.colour, 0.35), hoverinfo="skip", meta="band")


def verticals(drawn, panel):
    x = [v for position in drawn.positions for v in (position, position, None)]
    return trace(drawn.name, x=x, y=[*ends(panel.y), None] * len(drawn.positions), mode="lines",
                 line=line(drawn.line), hoverinfo="name", meta="verticals")


def stretches(drawn, panel):
    """Hatched, so that grey print does not make them a part of the data."""
    low, high = ends(panel.y)
    lows, highs = zip(*drawn.spans)
    middles = (np.array(lows) + np.array(highs)) / 2
    return go.Bar(name=drawn.name, x=numbers(middles), width=numbers(np.subtract(highs, lows)),
                  base=low, y=[high - low] * len(drawn.spans), hoverinfo="name", meta="stretches",
                  marker={"color": "#ffffff", "line": {"width": 1, "color": drawn.colour},
                          "pattern": {"shape": "/", "fgcolor": drawn.colour, "size": 7,
                                      "solidity": 0.2}})


def points(drawn, panel):
    return trace(drawn.name, x=numbers(drawn.x), y=numbers(drawn.y), mode="markers",
                 marker={"symbol": SYMBOLS[drawn.symbol], "size": 12, "color": "#ffffff",
                         "line": {"width": 1.5, "color": MARK_COLOUR}},
                 text=list(drawn.texts) or drawn.name, cliponaxis=False,
                 hovertemplate="%{text}<extra></extra>", meta="points")


def width(drawn, panel):
    return trace(drawn.name, x=numbers([drawn.low, drawn.high]), y=[drawn.y, drawn.y],
                 mode="lines+markers", line={"color": MARK_COLOUR, "width": 2},
                 marker={"symbol": "line-ns", "size": 12,
                         "line": {"width": 2, "color": MARK_COLOUR}},
                 hoverinfo="name", meta="width")


MAKERS = {panels.Histogram: histogram, panels.Curve: curve, panels.Band: band,
          panels.Verticals: verticals, panels.Stretches: stretches, panels.Points: points,
          panels.Width: width}


def axis(drawn):
    made = {"title": {"text": drawn.label, "standoff": 8}, "range": ends(drawn),
            "gridcolor": GRID_COLOUR, "zerolinecolor": GRID_COLOUR, "linecolor": MARK_COLOUR,
            "ticks": "outside", "automargin": True, "exponentformat": "none",
            "separatethousands": True}
    if drawn.log:
        made |= {"type": "log", "range": [float(np.log10(v)) for v in ends(drawn)]}
    elif drawn.counts:
        made |= {"exponentformat": "SI", "separatethousands": False, "rangemode": "tozero"}
    if drawn.ticks:
        made |= {"tickmode": "array", "tickvals": [value for value, _ in drawn.ticks],
                 "ticktext": [text for _, text in drawn.ticks]}
    return made


def plot_of(panel):
    """What Plotly.newPlot() draws."""
    layout = {"template": "none", "height": TALL_HEIGHT if panel.tall else HEIGHT,
              "margin": {"l": 70, "r": 45, "t": 12, "b": 50}, "hovermode": "x",
              # Upright beside the panel, where it covers no legend.
              "modebar": {"orientation": "v", "bgcolor": "rgba(255,255,255,0)"},
              "font": {"family": "system-ui, sans-serif", "size": 12},
              "barmode": "overlay", "xaxis": axis(panel.x), "yaxis": axis(panel.y),
              "showlegend": bool(panel.names()),
              "legend": {"orientation": "h", "x": 0, "xanchor": "left", "y": 1.02,
                         "yanchor": "bottom"}}
    figure = go.Figure(data=[MAKERS[type(s)](s, panel) for s in panel.series], layout=layout)
    return figure.to_plotly_json()
