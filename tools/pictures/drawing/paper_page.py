"""The page for the lab book: PDF or PNG, by matplotlib."""

import pathlib

import numpy as np
from matplotlib import image, rc_context
from matplotlib.backends.backend_pdf import PdfPages

from .. import figures
from . import named_numbers, paper_panels
from .look import printable
from .named_numbers import Number
from .paper import INNER_IN, LEFT_IN, Paper
from .remarks import remarks_on
from .sections import sections_of, source

DOTS_PER_IN = 130  # of a PNG
# Dollar signs and underscores in texts are just these. Text stays text in a PDF.
LOOK = {"text.parse_math": False, "text.usetex": False, "pdf.fonttype": 42,
        "font.family": "DejaVu Sans", "axes.unicode_minus": True, "hatch.linewidth": 0.4}
VERDICTS = {figures.PASS: "\u2714 PASS", figures.FAIL: "\u2718 FAIL",
            figures.NOT_KNOWN: "? verdict not known"}
BOX_LOOKS = {figures.PASS: (1.5, "-"), figures.FAIL: (4.0, "-"), figures.NOT_KNOWN: (1.5, "--")}
MET = {True: "\u2714 met", False: "\u2718 NOT MET", None: "? not judged"}
WHITE = 255
BELOW_SHEET = 10  # white rows below what is drawn
PANEL_IN, TALL_PANEL_IN = 1.35, 2.1  # height of the axes
BELOW_IN = 0.5  # ticks and label
TITLE_IN = 0.2
LEGEND_LINE_IN = 0.13
AXIS_IN = 0.55  # ticks and label at the left
GAP_IN = 0.2


def text_of(parts):
    return "".join(p.text if isinstance(p, Number) else p for p in parts)


def put_verdict(paper, run):
    top_in = paper.y_in
    paper.space(0.08)
    paper.text(VERDICTS[run.verdict], 14, bold=True, indent_in=0.12)
    paper.text(printable(run.meaning), 9, indent_in=0.12)
    if run.error is not None:
        paper.text(f"The run ended with: {printable(run.error)}", 8, indent_in=0.12)
    if run.note is not None:
        paper.text(f"Note: {printable(run.note)}", 8, indent_in=0.12)
    paper.space(0.08)
    height_in = top_in - paper.y_in
    paper.y_in = top_in
    thickness, dash = BOX_LOOKS[run.verdict]
    paper.box(INNER_IN, height_in, "#000000", thickness, dash)
    paper.space(height_in + 0.1)


def put_table(paper, title, heads, rows, widths_in):
    if not rows:
        return
    paper.need(0.6)
    paper.space(0.1)
    paper.text(title, 9, bold=True)
    paper.space(0.02)
    if heads:
        paper.row(heads, widths_in, bold=True)
    for row in rows:
        paper.row([printable(cell) for cell in row], widths_in)


def put_numbers(paper, page):
    rows = [(row.label, *(n.text for n in row.numbers))
            for row in named_numbers.channel_rows(page)]
    heads = ("", *(f"Channel {c.number}" for c in page.channels))
    put_table(paper, "Figures of the channels", heads, rows,
              [1.9] + [(INNER_IN - 1.9) / len(page.channels)] * len(page.channels))
    pair = page.pair
    put_table(paper, f"Figures of the pair, channels {pair.channel_a} and {pair.channel_b}, "
              f"within ±{pair.window_ps:,} ps", (),
              [(row.label, row.numbers[0].text) for row in named_numbers.pair_rows(page)],
              [2.6, INNER_IN - 2.6])


def put_header(paper, page):
    run = page.run
    paper.text(f"Time tags of {printable(run.tags_file)}", 13, bold=True)
    paper.text(printable(source(run)))
    paper.space(0.1)
    put_verdict(paper, run)
    for note in page.notes:
        paper.text(f"• {printable(note)}", 8)
    found = remarks_on(page)
    if found:
        paper.space(0.05)
        paper.text("Look at", 9, bold=True)
    for remark in found:
        paper.text(f"• {remark.text}", 8)
    put_table(paper, "Limits", ("Condition", "Result", "Seen"),
              [(limit.text, MET[limit.met], limit.seen or "") for limit in run.limits],
              [3.5, 1.2, INNER_IN - 4.7])
    put_numbers(paper, page)
    put_table(paper, "Settings", (), [(row.label, row.value) for row in run.settings],
              [2.2, INNER_IN - 2.2])
    put_table(paper, "Unit and run", (), [(row.label, row.value) for row in run.identity],
              [2.2, INNER_IN - 2.2])


def row_heights_in(row):
    """Of the axes, and of what stands above them."""
    axes_in = TALL_PANEL_IN if any(p.tall for p in row) else PANEL_IN
    return axes_in, TITLE_IN + LEGEND_LINE_IN * max(map(paper_panels.legend_lines, row))


def put_row(paper, row, columns):
    axes_in, above_in = row_heights_in(row)
    paper.need(above_in + axes_in + BELOW_IN)
    width_in = (INNER_IN - GAP_IN * (columns - 1)) / columns
    for place, panel in enumerate(row):
        x_in = LEFT_IN + place * (width_in + GAP_IN)
        paper.put(panel.title, x_in, 8, bold=True)
        axes = paper.axes(x_in + AXIS_IN, paper.y_in - above_in - axes_in, width_in - AXIS_IN,
                          axes_in)
        paper_panels.draw(axes, panel)
    paper.space(above_in + axes_in + BELOW_IN)


def put_section_table(paper, table):
    rows = [[text_of([cell]) for cell in row] for row in table.rows]
    # A column is as wide as its longest cell asks for; a head may take two lines.
    asked = [max(len(head) / 2, *(len(row[i]) for row in rows)) + 3
             for i, head in enumerate(table.heads)]
    widths_in = [INNER_IN * share / sum(asked) for share in asked]
    paper.row(table.heads, widths_in, size=6.5, bold=True)
    for row in rows:
        paper.row(row, widths_in, size=6.5)
    paper.space(0.1)


def put_section(paper, section):
    rows = [section.panels[i:i + section.columns]
            for i in range(0, len(section.panels), section.columns)]
    words = text_of(section.caption) if section.panels else ""
    missing = f"Not shown: {' '.join(section.missing)}" if section.missing else ""
    first_in = sum(row_heights_in(rows[0])) + BELOW_IN if rows else 0.0
    table_in = 0.2 * (len(section.table.rows) + 2) if section.table else 0.0
    # The title is not parted from the first panels.
    paper.need(0.6 + table_in + first_in
               + sum(paper.text_height_in(text) for text in (words, missing)))
    paper.space(0.1)
    paper.rule(colour="#000000", thickness=1.0)
    paper.space(0.06)
    paper.text(section.title, 11, bold=True)
    paper.space(0.04)
    for text in filter(None, (words, missing)):
        paper.text(text)
        paper.space(0.05)
    if section.table:
        put_section_table(paper, section.table)
    for row in rows:
        put_row(paper, row, section.columns)


def sheets_of(page):
    paper = Paper()
    put_header(paper, page)
    for section in sections_of(page):
        put_section(paper, section)
    return paper.sheets


def write_pdf(page, path):
    # The file says nothing of when and where it was drawn: the same run, the same bytes.
    nothing = {"CreationDate": None, "Producer": None, "Creator": None}
    with rc_context(LOOK), PdfPages(path, metadata=nothing) as pdf:
        sheets = sheets_of(page)
        for number, sheet in enumerate(sheets, 1):
            sheet.text(0.5, 0.025, f"{number} of {len(sheets)}", fontsize=7, ha="center")
            pdf.savefig(sheet)


def pixels(sheet):
    sheet.set_dpi(DOTS_PER_IN)
    sheet.canvas.draw()
    drawn = np.asarray(sheet.canvas.buffer_rgba())[:, :, :3]
    used = np.flatnonzero((drawn != WHITE).any(axis=(1, 2)))
    return drawn[: used[-1] + BELOW_SHEET] if len(used) else drawn[:0]


def write_png(page, path):
    """All sheets in one picture, one right below the other."""
    with rc_context(LOOK):
        sheets = [pixels(sheet) for sheet in sheets_of(page)]
    image.imsave(path, np.vstack(sheets), dpi=DOTS_PER_IN, metadata={"Software": None})


def write(page, path):
    writer = {".pdf": write_pdf, ".png": write_png}[pathlib.Path(path).suffix.lower()]
    writer(page, path)
