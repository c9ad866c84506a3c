"""Sheets of A4 that are filled from the top: texts, tables and panels in their order."""

import functools

from matplotlib.backends.backend_agg import FigureCanvasAgg
from matplotlib.figure import Figure
from matplotlib.font_manager import FontProperties, findfont, get_font
from matplotlib.patches import Rectangle
from matplotlib.textpath import text_to_path

WIDTH_IN, HEIGHT_IN = 8.27, 11.69
LEFT_IN, TOP_IN, BOTTOM_IN = 0.7, 0.6, 0.6
INNER_IN = WIDTH_IN - LEFT_IN - 0.55
POINTS_PER_IN = 72
LINE = 1.3  # height of a line, in font sizes


def font(size, bold=False):
    return FontProperties(family="DejaVu Sans", size=size, weight="bold" if bold else "normal")


def drawable(text):
    """The text with U+FFFD for what the font lacks."""
    known = get_font(findfont(font(8))).get_charmap()
    return "".join(c if ord(c) in known else "\ufffd" for c in text)


@functools.lru_cache(maxsize=None)
def text_width_in(text, size, bold=False):
    width, _, _ = text_to_path.get_text_width_height_descent(text, font(size, bold), False)
    return width / POINTS_PER_IN


def split_to_fit(word, size, bold, width_in):
    """The longest beginning that fits, one character at least, and the rest."""
    end = len(word)
    while end > 1 and text_width_in(word[:end], size, bold) > width_in:
        end = max(1, min(end - 1, int(end * width_in / text_width_in(word[:end], size, bold))))
    return word[:end], word[end:]


def wrapped(text, size, width_in, bold=False):
    """Lines that are not wider than that."""
    lines, line, taken_in = [], "", 0.0
    space_in = text_width_in("a a", size, bold) - 2 * text_width_in("a", size, bold)
    for word in text.split(" "):
        word_in = text_width_in(word, size, bold)
        if line and taken_in + space_in + word_in <= width_in:
            line, taken_in = f"{line} {word}", taken_in + space_in + word_in
            continue
        if line:
            lines.append(line)
        while text_width_in(word, size, bold) > width_in and len(word) > 1:
            beginning, word = split_to_fit(word, size, bold, width_in)
            lines.append(beginning)
        line, taken_in = word, text_width_in(word, size, bold)
    return [*lines, line]


class Paper:
    """The sheets so far. `left_in` of the current one is free below what stands there."""

    def __init__(self):
        self.sheets = []
        self.new_sheet()

    def new_sheet(self):
        sheet = Figure(figsize=(WIDTH_IN, HEIGHT_IN))
        FigureCanvasAgg(sheet)
        self.sheets.append(sheet)
        self.y_in = HEIGHT_IN - TOP_IN

    @property
    def left_in(self):
        return self.y_in - BOTTOM_IN

    def need(self, height_in):
        if height_in > self.left_in:
            self.new_sheet()

    def space(self, height_in):
        self.y_in -= height_in

    def put(self, text, x_in, size, bold=False, colour="#000000"):
        """One line at the current height."""
        self.sheets[-1].text(x_in / WIDTH_IN, self.y_in / HEIGHT_IN, text, va="top", color=colour,
                             fontproperties=font(size, bold))

    def text(self, text, size=8, bold=False, colour="#000000", indent_in=0.0):
        # As far from the right end as from the left one.
        for line in wrapped(drawable(text), size, INNER_IN - 2 * indent_in, bold):
            height_in = LINE * size / POINTS_PER_IN
            self.need(height_in)
            self.put(line, LEFT_IN + indent_in, size, bold, colour)
            self.space(height_in)

    def text_height_in(self, text, size=8, bold=False):
        return len(wrapped(drawable(text), size, INNER_IN, bold)) * LINE * size / POINTS_PER_IN

    def row(self, cells, widths_in, size=7, bold=False):
        """A line of a table; cells are wrapped. A thin rule stands below."""
        columns = [wrapped(drawable(cell), size, width - 0.08, bold)
                   for cell, width in zip(cells, widths_in)]
        line_in = LINE * size / POINTS_PER_IN
        self.need(line_in * max(map(len, columns)) + 0.04)
        top_in, x_in = self.y_in, LEFT_IN
        for lines, width in zip(columns, widths_in):
            self.y_in = top_in
            for line in lines:
                self.put(line, x_in, size, bold)
                self.space(line_in)
            x_in += width
        self.y_in = top_in - line_in * max(map(len, columns)) - 0.01
        self.rule(sum(widths_in))
        self.space(0.03)

    def rule(self, width_in=INNER_IN, colour="#bbbbbb", thickness=0.5):
        self.box(width_in, 0.0, colour, thickness)

    def box(self, width_in, height_in, colour, thickness, dash="-"):
        """From the current height downwards."""
        self.sheets[-1].add_artist(Rectangle(
            (LEFT_IN / WIDTH_IN, (self.y_in - height_in) / HEIGHT_IN), width_in / WIDTH_IN,
            height_in / HEIGHT_IN, transform=self.sheets[-1].transFigure, facecolor="none",
            edgecolor=colour, linewidth=thickness, linestyle=dash))

    def axes(self, x_in, y_in, width_in, height_in):
        return self.sheets[-1].add_axes((x_in / WIDTH_IN, y_in / HEIGHT_IN, width_in / WIDTH_IN,
                                         height_in / HEIGHT_IN))
