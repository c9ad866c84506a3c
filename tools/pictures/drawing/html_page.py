"""The interactive page: one HTML file that needs no network and no other file."""

import base64
import gzip
import html
import json
import pathlib

from plotly.offline import get_plotlyjs

from .. import figures
from . import named_numbers
from .html_panels import plot_of
from .look import CHANNEL_COLOURS, printable
from .named_numbers import Number
from .remarks import remarks_on
from .sections import sections_of, source

HERE = pathlib.Path(__file__).parent
# Nothing is loaded from anywhere, whatever the page's texts say.
POLICY = ("default-src 'none'; script-src 'unsafe-inline'; style-src 'unsafe-inline'; "
          "img-src data: blob:")
VERDICTS = {figures.PASS: ("pass", "\u2714 PASS"), figures.FAIL: ("fail", "\u2718 FAIL"),
            figures.NOT_KNOWN: ("unknown", "? verdict not known")}
MET = {True: "\u2714 met", False: "\u2718 NOT MET", None: "? not judged"}


def escaped(text):
    return html.escape(printable(text))


def marked(number):
    return (f'<data id="{html.escape(number.name)}" value="{html.escape(number.value)}">'
            f"{html.escape(number.text)}</data>")


def mixed(part):
    return marked(part) if isinstance(part, Number) else html.escape(part)


def table(title, heads, rows, kind="even"):
    """`rows`: a label, which is escaped, and cells, which are markup."""
    head = "".join(f"<th scope=col>{html.escape(h)}</th>" for h in heads)
    lines = [f"<table class={kind}>"]
    if title:
        lines.append(f"<caption>{html.escape(title)}</caption>")
    if heads:
        lines.append(f"<thead><tr>{head}</tr></thead>")
    for label, *cells in rows:
        lines.append(f"<tr><th scope=row>{escaped(label)}</th>"
                     + "".join(f"<td>{cell}</td>" for cell in cells) + "</tr>")
    return "\n".join([*lines, "</table>"])


def verdict(run):
    kind, word = VERDICTS[run.verdict]
    lines = [f'<div class="verdict {kind}"><strong id=verdict>{word}</strong> '
             f"<span id=meaning>{escaped(run.meaning)}</span>"]
    if run.error is not None:
        lines.append(f'<p class=error>The run ended with: <span id=error>{escaped(run.error)}'
                     "</span></p>")
    if run.note is not None:
        lines.append(f'<p class=note>Note: <span id=note>{escaped(run.note)}</span></p>')
    return "\n".join([*lines, "</div>"])


def limits(run):
    rows = [(limit.text, MET[limit.met], escaped(limit.seen if limit.seen is not None else ""))
            for limit in run.limits]
    return table("Limits", ("Condition", "Result", "Seen"), rows) if rows else \
        "<p>No limits were given.</p>" if run.json_file is not None else ""


def plain_table(title, rows):
    return table(title, (), [(row.label, escaped(row.value)) for row in rows],
                 "pairs") if rows else ""


def numbers(page):
    pair = page.pair
    rows = [(row.label, *map(marked, row.numbers)) for row in named_numbers.channel_rows(page)]
    heads = ("Per channel", *(f"Channel {c.number}" for c in page.channels))
    pair_rows = [(row.label, *map(marked, row.numbers)) for row in named_numbers.pair_rows(page)]
    return (table("Figures of the channels", heads, rows)
            + table(f"Figures of the pair, channels {pair.channel_a} and {pair.channel_b}, within "
                    f"±{pair.window_ps:,} ps", (), pair_rows))


def header(page):
    run = page.run
    lines = [f"<h1>Time tags of {escaped(run.tags_file)}</h1>",
             f"<p id=source>{escaped(source(run))}</p>", verdict(run)]
    if page.notes:
        lines += ["<ul id=notes>", *(f"<li>{escaped(note)}</li>" for note in page.notes), "</ul>"]
    found = remarks_on(page)
    if found:
        lines += ["<h3>Look at</h3>", "<ul id=remarks>",
                  *(f'<li><a href="#{remark.section}">{html.escape(remark.text)}</a></li>'
                    for remark in found), "</ul>"]
    lines += [limits(run), numbers(page), "<div class=tables>",
              f"<div>{plain_table('Settings', run.settings)}</div>",
              f"<div>{plain_table('Unit and run', run.identity)}</div>", "</div>"]
    return "\n".join(lines)


def channel_switches(page):
    switches = []
    for channel in page.channels:
        colour = CHANNEL_COLOURS[channel.number]
        state = "checked" if channel.tags else "disabled"
        none = "" if channel.tags else " (no tags)"
        switches.append(f'<label><input type=checkbox id=show-{channel.number} '
                        f'value={channel.number} {state}><span class=swatch '
                        f'style="background:{colour}"></span>Channel {channel.number}{none}'
                        "</label>")
    return f"<div id=channels>Show: {''.join(switches)}</div>"


def panel_place(panel):
    channel = "" if panel.channel is None else f' data-channel="{panel.channel}"'
    together = f' data-together="{panel.together}"' if panel.together else ""
    return (f"<figure class=panel{channel}{together}><h3>{html.escape(panel.title)}</h3>"
            f'<div class=place id="plot-{panel.name}"></div></figure>')


def section_markup(section):
    columns = " two" if section.columns == 2 else ""
    lines = [f'<section id="{section.name}"><h2>{html.escape(section.title)}</h2>']
    if section.panels:
        lines.append(f"<p class=caption>{''.join(map(mixed, section.caption))}</p>")
    if section.table:
        rows = [(label, *map(mixed, cells)) for label, *cells in section.table.rows]
        lines.append(table("", section.table.heads, rows, "narrow"))
    if section.missing:
        lines.append(f"<p class=missing>Not shown: {html.escape(' '.join(section.missing))}</p>")
    if section.panels:
        lines += [f'<div class="panels{columns}">', *map(panel_place, section.panels), "</div>"]
    return "\n".join([*lines, "</section>"])


def script_safe(value):
    """JSON that cannot end the element in which it stands."""
    return json.dumps(value, separators=(",", ":"), allow_nan=False).replace("<", "\\u003c")


def packed_library():
    """The plotting library, so small that many pages can be kept."""
    return base64.b64encode(gzip.compress(get_plotlyjs().encode(), 6, mtime=0)).decode()


def markup(page):
    sections = sections_of(page)
    plots = [{"name": p.name, "plot": plot_of(p), "together": p.together}
             for s in sections for p in s.panels]
    return "\n".join([
        "<!DOCTYPE html>", '<html lang="en"><head><meta charset="utf-8">',
        f'<meta http-equiv="Content-Security-Policy" content="{POLICY}">',
        '<meta name="viewport" content="width=device-width, initial-scale=1">',
        f"<title>{escaped(page.run.tags_file)}</title>",
        f"<style>{(HERE / 'page.css').read_text(encoding='utf-8')}</style></head><body>",
        "<noscript><p>The plots need JavaScript; the figures do not.</p></noscript>",
        '<p id="trouble" hidden></p>', header(page), channel_switches(page),
        *map(section_markup, sections),
        f'<script type="application/json" id="panels">{script_safe(plots)}</script>',
        f'<script type="text/plain" id="library">{packed_library()}</script>',
        f"<script>{(HERE / 'page.js').read_text(encoding='utf-8')}</script>",
        "</body></html>", ""])


def write(page, path):
    pathlib.Path(path).write_text(markup(page), encoding="utf-8")
