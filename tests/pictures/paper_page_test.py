"""The page for the lab book: sheets that fit, and the numbers on them as text."""

import dataclasses
import re
import struct
import unittest
import warnings
import zlib

import numpy as np

import made_pages
import plots

from pictures import figures
from pictures.drawing import html_page, look, paper, paper_page

# Of A4, in points.
SHEET = (595.44, 841.68)


def streams(data):
    """The drawing of each sheet."""
    for found in re.finditer(rb"stream\r?\n(.*?)\r?\nendstream", data, re.DOTALL):
        try:
            stream = zlib.decompress(found[1])
        except zlib.error:
            continue
        if b"\nBT\n" in stream:
            yield stream


def line_of(strings):
    """The text of the strings of one TJ: two bytes per character."""
    text = b"".join(re.findall(rb"\(((?:[^()\\]|\\.)*)\)", strings, re.DOTALL))
    plain = re.sub(rb"\\(.)", lambda escaped: {b"n": b"\n", b"r": b"\r"}.get(
        escaped[1], escaped[1]), text, flags=re.DOTALL)
    return plain.decode("utf-16-be", "replace")


def texts(data):
    """Every line of text on every sheet."""
    shown = re.compile(rb"BT\n.*?\[(.*?)\]\s*TJ\nET", re.DOTALL)
    return [line_of(found[1]) for stream in streams(data) for found in shown.finditer(stream)]


class Paper(unittest.TestCase):
    def setUp(self):
        context = warnings.catch_warnings()
        context.__enter__()
        self.addCleanup(context.__exit__, None, None, None)
        warnings.simplefilter("error")

    def pdf(self, page):
        path = plots.fresh("run.pdf")
        paper_page.write(page, path)
        data = path.read_bytes()
        self.assertTrue(data.startswith(b"%PDF-1."))
        self.assertTrue(data.rstrip().endswith(b"%%EOF"))
        return data

    def sheets(self, data):
        boxes = [tuple(map(float, box.split())) for box in re.findall(
            rb"/MediaBox \[ 0 0 ([\d. ]+?) \]", data)]
        self.assertEqual(boxes, [SHEET] * len(boxes))
        self.assertEqual(len(boxes), len(re.findall(rb"/Type /Page\b", data)))
        return len(boxes)

    def png(self, page):
        """(width, height, the file)."""
        path = plots.fresh("run.png")
        paper_page.write(page, path)
        data = path.read_bytes()
        self.assertEqual(data[:8], b"\x89PNG\r\n\x1a\n")
        self.assertEqual(data[-8:-4], b"IEND")
        return (*struct.unpack(">II", data[16:24]), data)


class Pdf(Paper):
    def test_full_page_says_what_was_calculated(self):
        data = self.pdf(made_pages.full())
        self.assertEqual(self.sheets(data), 7)
        lines = texts(data)
        for expected in ("12,027", "4,987", "118 ps", "2,315", "58.16 ps", "137 ps", "20,018 ps",
                         "3,336", "36:418, 37:405", "Channel 0: time interval error",
                         "99,999,999.250 ps", "4.25 ps", "61.5 ps", "41 %", "-60 %", "1.25",
                         "coincidences>=4000", "offset (118 ps)", "coincidence window (±1 ns)",
                         "gaps (1 of 3)", "Time on channel 1 less time on channel 0 (ns)", "lot 7",
                         "1 of 7", "7 of 7"):
            self.assertTrue(any(expected in line for line in lines), expected)

    def test_both_outputs_have_the_same_titles_and_captions(self):
        page = made_pages.full()
        path = plots.fresh("run.html")
        html_page.write(page, path)
        markup = path.read_text(encoding="utf-8")
        on_paper = " ".join(texts(self.pdf(page)))
        titles = re.findall(r"<h[23]>(.*?)</h[23]>", markup)
        captions = [re.sub(r"<.*?>", "", c) for c in re.findall(r"<p class=caption>(.*?)</p>",
                                                               markup, re.DOTALL)]
        self.assertEqual((len(titles), len(captions)), (39, 7))
        for text in (*titles, *captions):
            self.assertIn(text.replace("&#x27;", "'"), on_paper)

    def test_same_page_makes_the_same_file(self):
        page = made_pages.bare("none")
        self.assertEqual(self.pdf(page), self.pdf(page))

    def test_reasons_stand_in_the_place_of_plots(self):
        lines = texts(self.pdf(made_pages.bare("the reason of it")))
        self.assertEqual(sum("Not shown: " in line for line in lines), 7)

    def test_verdict_is_a_word(self):
        for verdict, word in ((figures.PASS, "PASS"), (figures.FAIL, "FAIL"),
                              (figures.NOT_KNOWN, "? verdict not known")):
            page = dataclasses.replace(made_pages.bare("none"),
                                       run=made_pages.run(verdict=verdict, limits=()))
            lines = texts(self.pdf(page))
            self.assertTrue(any(word in line for line in lines), verdict)

    def test_texts_from_outside_are_drawn_as_they_are(self):
        hostile = made_pages.HOSTILE
        rows = (figures.Row(hostile, hostile),) * 30
        page = dataclasses.replace(
            made_pages.full(), notes=(hostile,), run=made_pages.run(
                tags_file=hostile, json_file=hostile, meaning=hostile, error=hostile,
                note=hostile, start=hostile, limits=(figures.Limit(hostile, None, hostile),) * 20,
                settings=rows, identity=rows))
        lines = " ".join(texts(self.pdf(page)))
        for part in ("$x_{$ \\frac{1}{0} 100 % _a_", "</script><script>throw 'out'</script>",
                     "\ufffd"):
            self.assertIn(part, lines)
        self.png(page)


class Png(Paper):
    def test_is_as_wide_as_a_sheet_and_holds_all_of_them(self):
        width, height, _ = self.png(made_pages.full())
        # 8.27 inches; seven sheets of 11.69 inches, without what is empty at their ends.
        self.assertEqual(width, 1075)
        self.assertGreater(height, 7 * 1519 / 2)
        self.assertLess(height, 7 * 1519)

    def test_draws_in_more_than_one_lightness(self):
        from matplotlib import image
        path = plots.fresh("run.png")
        paper_page.write(made_pages.full(), path)
        grey = image.imread(path)[:, :, :3].mean(axis=2)
        self.assertGreater(len(np.unique(np.round(grey, 2))), 20)


class Inputs(Paper):
    def of_tags(self, tags, **wishes):
        page = plots.page_of(tags, **wishes)
        self.png(page)
        return " ".join(texts(self.pdf(page)))

    def test_no_tag(self):
        self.assertIn("there are no tags", self.of_tags(plots.tags_of([])))

    def test_one_tag(self):
        self.assertIn("1667:1", self.of_tags(plots.tags_of([(2, 5000)])))

    def test_ten_tags(self):
        rows = [(c, 1_000_000 * i + 70 * c) for i in range(1, 6) for c in (0, 1)]
        self.assertIn("offset (70 ps)", self.of_tags(plots.tags_of(rows)))

    def test_silent_channel(self):
        times_ps = np.arange(1, 2001) * 1_000_000
        self.assertIn("Channels 1 and 3: no tags.",
                      self.of_tags(plots.merged(times_ps, [], times_ps + 40)))

    def test_times_from_one_end_to_the_other(self):
        ends = [-(1 << 63), -1, 0, 1, (1 << 63) - 1]
        self.of_tags(plots.tags_of([(c, t) for t in ends for c in (0, 1)] * 3))

    def test_any_window(self):
        times_ps = np.arange(1, 400) * 1000
        for window_ps in (-5, 0, 1, 3400, 10**12, (1 << 63) - 1):
            page = plots.page_of(plots.merged(times_ps, times_ps + 1), window_ps=window_ps)
            self.assertIn(f"within ±{window_ps:,} ps", " ".join(texts(self.pdf(page))))
            html_page.write(page, plots.fresh("run.html"))

    def test_many_tags_at_all_positions(self):
        draw = np.random.default_rng(6)
        times_ps = [np.sort(draw.integers(0, 10**13, 400_000)) for _ in range(4)]
        self.assertIn("1,600,000", self.of_tags(plots.merged(*times_ps), window_ps=30_000))


class Wrapping(unittest.TestCase):
    def test_no_line_is_wider_than_asked(self):
        for text in (made_pages.HOSTILE, "a " * 300, "word", "", "W" * 500):
            text = paper.drawable(look.printable(text, 10_000))
            lines = paper.wrapped(text, 8, 2.0)
            self.assertEqual("".join(lines).replace(" ", ""), text.replace(" ", ""))
            for line in lines:
                self.assertLessEqual(paper.text_width_in(line, 8), 2.02)


class NumbersAsText(unittest.TestCase):
    def test_times_have_the_unit_that_fits(self):
        for time_ps, text in ((0, "0 ps"), (1, "1 ps"), (0.0032, "0.0032 ps"), (999, "999 ps"),
                              (15.694, "15.69 ps"), (1000, "1 ns"), (-880, "-880 ps"),
                              (-12_345, "-12.35 ns"), (99_999_976, "100 µs"),
                              (3.6e15, "3,600 s"), (9.2e18, "9,200,000 s")):
            self.assertEqual(look.time_text(time_ps), text)

    def test_counts_on_ticks_are_short(self):
        for count, text in ((0, "0"), (20, "20"), (0.5, "0.5"), (20_000, "20k"), (1e6, "1M"),
                            (2.5e9, "2.5G")):
            self.assertEqual(look.short_count(count), text)

    def test_no_number_has_an_exponent_where_one_can_do_without(self):
        for value, text in ((0.0001, "0.0001"), (123456.7, "123,457"), (1e-9, "1e-09"),
                            (float("nan"), "not known"), (0.1234567, "0.1235")):
            self.assertEqual(look.plain(value), text)

    def test_text_is_made_printable_and_bounded(self):
        self.assertEqual(look.printable("a\nb\u202ec\ud800d"), "a\ufffdb\ufffdc\ufffdd")
        self.assertEqual(look.printable("x" * 500, 10), "x" * 10 + " …")


if __name__ == "__main__":
    plots.main()
