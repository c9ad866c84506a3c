"""The interactive page in a real browser: drawn without an error, without a network, and
with the numbers that were calculated."""

import dataclasses
import unittest

import numpy as np

import made_pages
import plots
from browser import Browser, chromium

from pictures import figures
from pictures.drawing import html_page

LARGEST_BYTES = 10_000_000
FULL_PANELS = (
    [f"rates-{c}" for c in range(4)] + ["correlation-whole", "correlation-peak", "wide"]
    + [f"intervals-{c}" for c in range(4)] + [f"density-{c}" for c in range(4)]
    + [f"{kind}-{c}" for c in range(4) for kind in ("dnl", "inl")]
    + [f"{kind}-{c}" for c in range(4) for kind in ("tie", "period")])
SECTIONS = ["rates", "correlation", "wide", "intervals", "density", "nonlinearity", "timing"]

# Worked out from made_pages.full() by hand.
FULL_NUMBERS = {
    "tags_total": "12027", "coincidences": "4987", "xcorr_offset_ps": "118",
    "xcorr_peak_count": "2315", "xcorr_peak_center_ps": "0", "xcorr_rms_ps": "58.161",
    "xcorr_fwhm_est_ps": "136.969", "xcorr_minus3333_window_pm40ps": "11",
    "xcorr_plus3333_window_pm40ps": "13", "xcorr_top_bins": "0:2315,8:2156,-8:2156",
    "ch0": "4989", "ch1": "4988", "ch2": "2000", "ch3": "50", "rate_hz[3]": "49.0",
    "monotonic_violations[0]": "0", "monotonic_violations[3]": "3", "min_dt_ps[1]": "20018",
    "max_gap_ps[2]": "400000002", "dt_lt_10ns[0]": "0", "dt_lt_100ns[1]": "11",
    "dt_lt_500ns[2]": "222", "dt_lt_900ns[3]": "3336", "ch1_mod3333_unique": "181",
    "ch2_mod3333_exact_zero": "9", "ch3_mod3333_top": "36:418,37:405", "gaps[2]": "3",
    "gaps_s[2]": "0.125", "backwards[0]": "5", "outside_view": "2", "silent_tail_s": "0.25",
    "origin_ps": "1000", "histogram_sample": "0.5", "wide_tags_used": "4000",
    "wide_pairs": "5598", "wide_peak_ps": "125.0", "interval_median_ps[3]": "125000000.0",
    "interval_zero[0]": "4", "interval_negative[1]": "5", "codes[1]": "181",
    "code_width_ps[1]": "18.5", "tags_per_code[1]": "200.0", "dnl_rms[1]": "0.42",
    "dnl_rms_beyond_chance[1]": "0.41", "dnl_min[1]": "-0.6", "dnl_max[1]": "0.6",
    "inl_min[1]": "-1.5", "inl_max[1]": "1.25", "period_ps[2]": "99999999.25",
    "pulses[2]": "4989", "missing_pulses[2]": "2", "tie_rms_ps[2]": "4.25",
    "tie_peak_to_peak_ps[2]": "31.5", "period_jitter_rms_ps[2]": "5.75",
    "period_jitter_peak_to_peak_ps[2]": "40.5", "cycle_jitter_rms_ps[2]": "9.75",
    "cycle_jitter_peak_to_peak_ps[2]": "61.5"}


def plot(name):
    return f"document.getElementById('plot-{name}')"


@unittest.skipUnless(chromium(), "needs chromium")
class InBrowser(unittest.TestCase):
    maxDiff = None

    @classmethod
    def setUpClass(cls):
        cls.browser = Browser()
        cls.addClassCleanup(cls.browser.close)

    def write(self, page):
        path = plots.fresh("run.html")
        html_page.write(page, path)
        self.assertLess(path.stat().st_size, LARGEST_BYTES)
        return path

    def open(self, page):
        self.browser.open(self.write(page))
        self.browser.wait_for("document.documentElement.dataset.drawn !== undefined")
        self.expect_quiet()

    def expect_quiet(self):
        self.assertEqual(self.browser.troubles, [])
        outside = [url for url in self.browser.requests
                   if not url.startswith(("file:", "data:", "blob:"))]
        self.assertEqual(outside, [])

    def value(self, expression):
        return self.browser.value(expression)

    def numbers(self):
        pairs = self.value("[...document.querySelectorAll('data')].map(d => [d.id, d.value])")
        self.assertEqual(len(dict(pairs)), len(pairs), "a name occurs twice")
        return dict(pairs)

    def panels(self):
        return self.value("[...document.querySelectorAll('.place')].map(p => p.id)")

    def text(self, selector):
        return self.value(f"document.querySelector('{selector}').textContent")

    def expect_drawn(self, name):
        """Every trace of the plot has a shape on the screen."""
        kinds = self.value(f"{plot(name)}.data.map(trace => trace.type || 'scatter')")
        shapes = self.value(
            f"[...{plot(name)}.querySelectorAll('.scatterlayer .trace')].map(trace => "
            "[...trace.querySelectorAll('path.js-line, path.js-fill, .points path')]"
            ".filter(p => p.getAttribute('d')?.length > 5).length)")
        bars = self.value(f"{plot(name)}.querySelectorAll('.barlayer .trace').length")
        self.assertEqual(len(shapes), kinds.count("scatter"), name)
        self.assertEqual(bars, kinds.count("bar"), name)
        self.assertTrue(all(shapes), f"{name}: {shapes}")


class Full(InBrowser):
    """One page that nobody touches."""

    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        cls.page = made_pages.full()
        cls("test_every_plot_is_drawn").open(cls.page)

    def test_numbers_are_those_of_the_figures(self):
        seen = self.numbers()
        self.assertEqual({name: seen.get(name) for name in FULL_NUMBERS}, FULL_NUMBERS)
        pairs = int(self.page.correlation.counts.sum())
        self.assertEqual(seen["histogram_pairs"], str(pairs))

    def test_sections_follow_each_other(self):
        self.assertEqual(self.value("[...document.querySelectorAll('section')].map(s => s.id)"),
                         SECTIONS)

    def test_every_plot_is_drawn(self):
        self.assertEqual(self.panels(), [f"plot-{name}" for name in FULL_PANELS])
        for name in FULL_PANELS:
            self.expect_drawn(name)

    def test_steps_have_the_values_of_the_series(self):
        bins = self.page.wide
        drawn = self.value(f"(t => [t.x, t.customdata, t.line.shape])({plot('wide')}.data[0])")
        self.assertEqual(drawn[0], [-100.0, *(bins.edges_ps / 1000).tolist()])
        self.assertEqual(drawn[1], [0, *bins.counts.tolist(), 0])
        self.assertEqual(drawn[2], "hv")

    def test_marks_stand_at_their_places(self):
        traces = self.value(f"{plot('correlation-whole')}.data.map(t => "
                            "[t.name, t.x.filter(x => x !== null), t.width ?? null])")
        marks = {name.split(" (")[0]: (x, width) for name, x, width in traces if name}
        self.assertEqual(marks["offset"][0], [0.118, 0.118])
        self.assertEqual(marks["peak"][0], [0.118])
        self.assertEqual(marks["coincidence window"][0], [-1, -1, 1, 1])
        # 118 +- 136.969 / 2 ps.
        self.assertEqual(marks["width, 2.355 rms"][0], [0.0495155, 0.186484])
        self.assertEqual(marks["side windows"], ([-3.215, 3.451], [0.08, 0.08]))

    def test_legend_says_what_the_marks_are(self):
        legend = self.value(f"[...{plot('correlation-whole')}.querySelectorAll('.legendtext')]"
                            ".map(t => t.textContent)")
        self.assertEqual(legend, ["side windows (not in the histogram, so not counted in full)",
                                  "coincidence window (±1 ns)", "offset (118 ps)",
                                  "width, 2.355 rms (137 ps)", "peak (2,315 pairs per 8 ps)"])

    def test_axes_have_titles_with_units(self):
        titles = self.value("[...document.querySelectorAll('.xtitle')].map(t => t.textContent)")
        self.assertEqual(len(titles), len(FULL_PANELS))
        self.assertEqual(set(titles), {
            "Time in the run (s)", "Time on channel 1 less time on channel 0 (ns)",
            "Time on channel 1 less time on channel 0 (ps)", "Time to the next tag",
            "Position in the clock period (ps)", "Period less the mean period (ps)"})

    def test_remarks_lead_to_their_sections(self):
        remarks = self.value("[...document.querySelectorAll('#remarks a')].map(a => "
                             "[a.textContent, a.getAttribute('href')])")
        self.assertIn(["Channel 1 pauses 3 times, for 125 ms in all.", "#rates"], remarks)
        self.assertIn(["On channel 1 time runs backwards once.", "#rates"], remarks)
        self.assertIn(["The delay line of channel 0 is uneven by 41 % rms.", "#nonlinearity"],
                      remarks)
        self.assertNotIn("On channel 0 time", str(remarks))


class Handled(InBrowser):
    """A page under a user's hands."""

    def setUp(self):
        self.open(made_pages.full())

    def visible(self, channel):
        return self.value(f"[...document.querySelectorAll('[data-channel=\"{channel}\"] .place')]"
                          ".map(p => p.getBoundingClientRect().height > 100)")

    def test_channels_are_hidden_and_shown(self):
        self.assertEqual(self.visible(2), [True] * 7)
        self.value("document.getElementById('show-2').click()")
        self.assertEqual(self.visible(2), [False] * 7)
        self.assertEqual(self.visible(1), [True] * 7)
        self.value("document.getElementById('show-2').click()")
        self.assertEqual(self.visible(2), [True] * 7)
        self.expect_drawn("rates-2")
        self.expect_quiet()

    def mouse(self, kind, x, y):
        self.browser.page("Input.dispatchMouseEvent", type=kind, x=x, y=y, button="left",
                          buttons=0 if kind == "mouseReleased" else 1, clickCount=1)

    def middle_of(self, name):
        """The panel is brought into view."""
        return self.value(f"(p => {{ p.scrollIntoView({{block: 'center'}}); const box = "
                          "p.querySelector('.nsewdrag').getBoundingClientRect(); "
                          "return [box.x + box.width / 2, box.y + box.height / 2]; })"
                          f"({plot(name)})")

    def test_mouse_over_a_plot_tells_the_value(self):
        x, y = self.middle_of("correlation-peak")
        for step in range(3):
            self.browser.page("Input.dispatchMouseEvent", type="mouseMoved", x=x + step, y=y + 40)
        self.browser.wait_for(f"{plot('correlation-peak')}"
                              ".querySelector('.hoverlayer .hovertext') !== null")

    def test_dragging_zooms_panels_that_belong_together(self):
        x, y = self.middle_of("rates-0")
        self.mouse("mousePressed", x, y)
        for step in range(1, 11):
            self.mouse("mouseMoved", x + 10 * step, y)
        self.mouse("mouseReleased", x + 100, y)
        def length(name):
            return f"(r => r[1] - r[0])({plot(name)}.layout.xaxis.range)"
        self.browser.wait_for(f"{length('rates-0')} < 0.5")
        for other in ("rates-3", "tie-1"):
            self.browser.wait_for(f"Math.abs({length(other)} - {length('rates-0')}) < 1e-9")
        self.assertEqual(self.value(length("intervals-0")) , self.value(length("intervals-1")))
        self.assertEqual(self.value(f"{plot('wide')}.layout.xaxis.range"), [-100, 100])
        self.expect_quiet()


class Words(InBrowser):
    def header(self, **changes):
        page = made_pages.bare("not of interest here")
        self.open(dataclasses.replace(page, run=made_pages.run(**changes)))

    def test_verdict_is_a_word(self):
        for verdict, word in ((figures.PASS, "\u2714 PASS"), (figures.FAIL, "\u2718 FAIL"),
                              (figures.NOT_KNOWN, "? verdict not known")):
            self.header(verdict=verdict)
            self.assertEqual(self.text("#verdict"), word)

    def test_limits_are_judged_in_words(self):
        self.header()
        rows = self.value("[...document.querySelectorAll('table')].find(t => t.caption?."
                          "textContent == 'Limits').innerText")
        self.assertEqual([line.strip().split("\t") for line in rows.strip().splitlines()[1:]],
                         [["Condition", "Result", "Seen"],
                          ["coincidences>=4000", "\u2714 met", "4988"],
                          ["xcorr_rms_ps<5", "\u2718 NOT MET", "6.664"],
                          ["rate_hz[3]>0", "? not judged"]])

    def test_texts_from_outside_stay_texts(self):
        hostile = made_pages.HOSTILE
        rows = (figures.Row(hostile, hostile),)
        limits = (figures.Limit(hostile, False, hostile),)
        page = made_pages.full()
        self.open(page)
        scripts = self.value("document.scripts.length")
        self.open(dataclasses.replace(page, notes=(hostile,), run=made_pages.run(
            tags_file=hostile, json_file=hostile, meaning=hostile, error=hostile, note=hostile,
            start=hostile, limits=limits, settings=rows, identity=rows)))
        self.assertEqual(self.value("document.scripts.length"), scripts)
        self.assertEqual(self.value("document.images.length"), 0)
        # Controls, direction marks and lone surrogates are replaced; the rest is as it was.
        start = (hostile.replace("\u202e", "\ufffd").replace("\0", "\ufffd")
                 .replace("\n", "\ufffd").replace("\t", "\ufffd").replace("\ud800", "\ufffd"))
        for place in ("#note", "#error", "#meaning", "#notes li", "title"):
            self.assertTrue(self.text(place).startswith(start[:300]), place)
        for name in FULL_PANELS:
            self.expect_drawn(name)

    def test_reasons_stand_in_the_place_of_plots(self):
        self.open(made_pages.bare("the <reason> of it"))
        self.assertEqual(self.panels(), [])
        for section in SECTIONS:
            self.assertIn("the <reason> of it.", self.text(f"#{section} .missing"))
            self.assertEqual(self.value(f"document.querySelectorAll('#{section} table').length"), 0)

    def test_old_browser_shows_the_figures_and_says_why_no_plots(self):
        script = self.browser.page("Page.addScriptToEvaluateOnNewDocument",
                                   source="delete window.DecompressionStream")
        try:
            self.browser.open(self.write(made_pages.full()))
            self.browser.wait_for("!document.getElementById('trouble').hidden")
        finally:
            self.browser.page("Page.removeScriptToEvaluateOnNewDocument", **script)
        self.assertIn("too old", self.text("#trouble"))
        self.assertEqual(self.numbers()["coincidences"], "4987")
        self.expect_quiet()

    def test_trouble_in_a_page_is_noticed(self):
        """What every other test relies on. Trouble may come late, and so in a browser that
        no other test uses."""
        for script in ("console.error('x')", "throw new Error('x')", "Promise.reject('x')",
                       "fetch('http://x.invalid/')"):
            path = plots.fresh("trouble.html")
            path.write_text(f"<!DOCTYPE html><script>{script}</script>")
            with Browser() as browser:
                browser.open(path)
                browser.wait_for_trouble()
                requests = browser.requests
        self.assertIn("http://x.invalid/", requests)

    def test_plot_that_cannot_be_drawn_is_trouble(self):
        path = self.write(made_pages.full())
        text = path.read_text(encoding="utf-8")
        broken = text.replace('"name":"wide","plot":{', '"name":"nowhere","plot":{')
        self.assertNotEqual(broken, text)
        path.write_text(broken, encoding="utf-8")
        self.browser.open(path)
        self.browser.wait_for("!document.getElementById('trouble').hidden")
        self.assertIn("could not be drawn", self.text("#trouble"))
        self.browser.wait_for_trouble()


class Inputs(InBrowser):
    def of_tags(self, tags, **wishes):
        page = plots.page_of(tags, **wishes)
        self.open(page)
        panels = [name.removeprefix("plot-") for name in self.panels()]
        for name in panels:
            self.expect_drawn(name)
        return panels, self.numbers()

    def test_no_tag(self):
        panels, numbers = self.of_tags(plots.tags_of([]))
        self.assertEqual(panels, [])
        self.assertEqual(numbers["tags_total"], "0")
        self.assertEqual(numbers["xcorr_offset_ps"], "")
        self.assertEqual(self.value("document.querySelectorAll('.missing').length"), 7)

    def test_one_tag(self):
        panels, numbers = self.of_tags(plots.tags_of([(2, 5000)]))
        self.assertEqual(numbers["ch2"], "1")
        # 5000 = 3333 + 1667.
        self.assertEqual(numbers["ch2_mod3333_top"], "1667:1")
        self.assertEqual(numbers["min_dt_ps[2]"], "")
        self.assertNotIn("intervals-2", panels)

    def test_ten_tags(self):
        rows = [(c, 1_000_000 * i + 70 * c) for i in range(1, 6) for c in (0, 1)]
        panels, numbers = self.of_tags(plots.tags_of(rows))
        self.assertEqual(numbers["tags_total"], "10")
        self.assertEqual(numbers["coincidences"], "5")
        self.assertEqual(numbers["xcorr_offset_ps"], "70")
        self.assertEqual(numbers["min_dt_ps[1]"], "1000000")
        self.assertIn("correlation-whole", panels)
        self.assertIn("rates-0", panels)

    def test_silent_channel_has_no_switch(self):
        times_ps = np.arange(1, 2001) * 1_000_000
        panels, _ = self.of_tags(plots.merged(times_ps, [], times_ps + 40))
        self.assertIn("rates-2", panels)
        self.assertNotIn("rates-1", panels)
        self.assertEqual(self.value("[0, 1, 2, 3].map(c => "
                                    "document.getElementById(`show-${c}`).disabled)"),
                         [False, True, False, True])
        self.assertIn("Channels 1 and 3: no tags.", self.text("#rates .missing"))

    def test_times_from_one_end_to_the_other(self):
        ends = [-(1 << 63), -1, 0, 1, (1 << 63) - 1]
        self.of_tags(plots.tags_of([(c, t) for t in ends for c in (0, 1)] * 3))

    def test_many_tags_at_all_positions(self):
        draw = np.random.default_rng(5)
        times_ps = [np.sort(draw.integers(0, 10**13, 400_000)) for _ in range(4)]
        panels, numbers = self.of_tags(plots.merged(*times_ps), window_ps=30_000)
        self.assertEqual(numbers["tags_total"], "1600000")
        for channel in range(4):
            self.assertIn(f"dnl-{channel}", panels)


if __name__ == "__main__":
    plots.main()
