"""What a panel shows, as plain values that know no drawing library.

`panels_of_run` fills them from the figures; html_panels and paper_panels draw them. All
values of a series are in the unit of their axis.
"""

from dataclasses import dataclass, field

import numpy as np

from .look import Line


@dataclass(frozen=True)
class Axis:
    label: str
    low: float
    high: float
    log: bool = False
    counts: bool = False  # its ticks are written as 20k
    ticks: tuple[tuple[float, str], ...] = ()  # (value, text); empty: the library's own


@dataclass(frozen=True, eq=False)
class Histogram:
    """Steps that begin and end at the lower end of the panel."""
    edges: np.ndarray  # one more than there are values
    values: np.ndarray
    line: Line

    def corners(self, base):
        """(x, y) of the steps; a value holds up to the next x."""
        edges, values = np.asarray(self.edges), np.asarray(self.values, dtype=float)
        return (np.concatenate([edges[:1], edges]),
                np.concatenate([[base], values, [base]]))


@dataclass(frozen=True, eq=False)
class Curve:
    x: np.ndarray
    y: np.ndarray
    line: Line
    name: str = ""


@dataclass(frozen=True, eq=False)
class Band:
    """What lies between two curves."""
    x: np.ndarray
    low: np.ndarray
    high: np.ndarray
    colour: str
    name: str = ""


@dataclass(frozen=True)
class Verticals:
    """Lines from the lower end of the panel to the upper one."""
    positions: tuple[float, ...]
    line: Line
    name: str


@dataclass(frozen=True)
class Stretches:
    """Stripes from the lower end of the panel to the upper one."""
    spans: tuple[tuple[float, float], ...]
    colour: str
    name: str


@dataclass(frozen=True)
class Points:
    x: tuple[float, ...]
    y: tuple[float, ...]
    symbol: str  # "star" or "triangle"
    name: str
    texts: tuple[str, ...] = ()  # for each point, when the mouse is over it


@dataclass(frozen=True)
class Width:
    """A horizontal bar with an upright at either end."""
    low: float
    high: float
    y: float
    name: str


@dataclass(frozen=True)
class Panel:
    name: str  # in the page
    title: str
    x: Axis
    y: Axis
    channel: int | None = None  # None: it belongs to the pair
    series: tuple = field(default=())
    together: str = ""  # panels with the same word are zoomed together along x
    tall: bool = False

    def names(self):
        """What the legend says."""
        return [s.name for s in self.series if getattr(s, "name", "")]
