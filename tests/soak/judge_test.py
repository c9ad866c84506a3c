"""That the soak's judge finds nothing wrong with a good run, and something with
each run that has gone wrong in one way. The good report is one of the default unit."""

import dataclasses
import json
import pathlib
import re
import signal
import unittest

from judge import Verdict
from report import Report, ranking
from run import Result, parse_log
from saved_tags import SavedTags, Unloadable
from scenario import Step
from settings import Settings

REPORT = pathlib.Path(__file__).with_name("good_report.txt").read_text()
REF_LINE = REPORT.splitlines(keepends=True)[0]
SETTINGS = Settings(capture_s=0.5, channel_a=2, channel_b=3)
GOOD_STEP = Step([], SETTINGS)
GOOD_LOG = """\
qx_open_serial -> 0
qx_load_calibration -> 0
qx_start_stream_mode -> 0
qx_read_stream_bytes -> 0 received=20000
qx_read_stream_bytes -> -3 received=0
qx_stop_stream_mode -> 0
qx_close threads_left=0 descriptors_left=0
"""


def complaints(output=REPORT, status=0, error="", log=GOOD_LOG, signals=(), step_error=None, **step):
    step = step | ({"error": step_error} if step_error else {})
    result = Result(status, output.encode(), error.encode(), 1.0, False,
                    None if log is None else parse_log(log), list(signals))
    return Verdict(dataclasses.replace(GOOD_STEP, **step), result).complaints


class Judge(unittest.TestCase):
    def expect_complaint(self, **run):
        self.assertNotEqual(complaints(**run), [], run)

    def test_a_good_run_is_good(self):
        self.assertEqual(complaints(), [])

    def test_every_doctored_figure_is_found(self):
        for old, new in (
            ("tags_total=9920", "tags_total=9921"),
            ("ch2=4960\n", "ch2=4961\n"),
            ("ch0=0\n", "ch0=-1\n"),
            ("coincidences=4960", "coincidences=4961"),
            ("xcorr_offset_ps=24", "xcorr_offset_ps=1001"),
            ("xcorr_peak_count=2423", "xcorr_peak_count=2422"),
            ("xcorr_peak_center_ps=0", "xcorr_peak_center_ps=8"),
            ("xcorr_rms_ps=6.378", "xcorr_rms_ps=6.478"),
            ("xcorr_minus3333_window_pm40ps=0", "xcorr_minus3333_window_pm40ps=1"),
            ("0:2423,8:1384", "8:1384,0:2423"),
            ("-8:927", "-9:927"),
            (",-984:0", ""),
            ("reader_dropped=0", "reader_dropped=18446744073709551615"),
            ("reader_dropped=0", "reader_dropped=100000"),
            ("monotonic_violations=0,0,0,0", "monotonic_violations=0,0,1,0"),
            ("max_gap_ms=0.000", "max_gap_ms=0.100"),
            ("min_dt_ps=0,0,99999976", "min_dt_ps=0,0,899999"),
            ("min_dt_ps=0,0,99999976", "min_dt_ps=0,0,-1"),
            ("dt_lt_10ns=0,0,0", "dt_lt_10ns=0,0,1"),
            ("dt_lt_900ns=0,0,0", "dt_lt_900ns=0,0,4960"),
            ("ch0_mod3333_unique=0", "ch0_mod3333_unique=1"),
            ("ch2_mod3333_unique=31", "ch2_mod3333_unique=8"),
            ("ch2_mod3333_exact_zero=0", "ch2_mod3333_exact_zero=400"),
            ("37:438", "3333:438"),
            ("37:438", "-1:438"),
            ("33:312", "33:5000"),
            ("bins_s=0.100", "bins_s=0.200"),
            ("bin_overflow_tags=0", "bin_overflow_tags=1"),
            ("bin 4 ch0=0", "bin 5 ch0=0"),
            ("ch2=959", "ch2=958"),
            ("calibration_loaded=1", "calibration_loaded=0"),
            ("dt_lt_500ns=0,0,0,0\n", ""),
            ("format=packed_delta", "format=raw64"),
            (REF_LINE, ""),
        ):  # fmt: skip
            self.assertIn(old, REPORT)
            self.expect_complaint(output=REPORT.replace(old, new, 1))

    def test_a_status_that_the_lines_do_not_bear_is_found(self):
        for status in (1, 2, 3, 4, 99, 127, 130, 139, -6, -11, -2):
            self.expect_complaint(status=status)
        self.expect_complaint(output=REPORT.replace("coincidences=4960", "coincidences=0"))

    def test_a_report_that_is_cut_off_or_goes_on_is_found(self):
        self.expect_complaint(output="")
        self.expect_complaint(output=REPORT[:-1])
        self.expect_complaint(output=REPORT[:700])
        self.expect_complaint(output=REPORT + "more\n")

    def test_success_although_a_call_failed_is_found(self):
        for name in ("read_stream_bytes", "stop_stream_mode", "start_stream_mode"):
            log = re.sub(f"qx_{name} -> 0", f"qx_{name} -> -7", GOOD_LOG)
            self.expect_complaint(log=log)
            self.expect_complaint(log=log, status=3)

    def test_success_although_nothing_was_read_is_found(self):
        self.expect_complaint(log=GOOD_LOG.replace("received=20000", "received=0"))

    def test_success_with_a_report_that_nobody_could_read_is_found(self):
        self.expect_complaint(output="", closed=(1,))
        self.expect_complaint(output="", closed=(1, 2), status=3)

    def test_a_failure_is_one_line_that_names_the_call(self):
        log = GOOD_LOG.replace("qx_stop_stream_mode -> 0", "qx_stop_stream_mode -> -7")
        failed = {"output": REF_LINE, "status": 2, "log": log}
        self.assertEqual(complaints(error="stop_stream_any: not available\n", **failed), [])
        for error in ("", "stop_stream_any: no\nmore\n", "stop_stream_any: no", "\n",
                      "read_stream_bytes: no\n", "stop_stream_any: \x1b[2J\n",
                      "the device library does not answer\n", "\nstop_stream_any: no\n"):
            self.expect_complaint(error=error, **failed)
        self.expect_complaint(error="stop_stream_any: no\n", **(failed | {"output": REPORT}))

    def test_what_is_left_behind_is_found(self):
        self.expect_complaint(log=GOOD_LOG.replace("threads_left=0", "threads_left=1"))
        self.expect_complaint(log=GOOD_LOG.replace("descriptors_left=0", "descriptors_left=-1"))
        self.expect_complaint(log=GOOD_LOG.replace("qx_stop_stream_mode -> 0\n", ""))
        self.expect_complaint(log=GOOD_LOG[: GOOD_LOG.index("qx_close")])

    def test_the_end_by_a_signal_is_judged(self):
        interrupt = (signal.SIGINT,)
        self.assertEqual(complaints(status=130, signals=interrupt), [])
        set_up = {"output": REF_LINE, "status": 130, "signals": interrupt}
        closed = "qx_open_serial -> 0\nqx_close threads_left=0 descriptors_left=0\n"
        self.assertEqual(complaints(error="interrupted during set-up\n", log=closed, **set_up), [])
        self.expect_complaint(log=closed, **set_up)
        self.assertEqual(complaints(log=closed, closed=(2,), **set_up), [])
        self.assertEqual(complaints(log="qx_open_serial -> -20\n", closed=(2,), **set_up), [])
        self.expect_complaint(error="interrupted during set-up\n", log="qx_open_serial -> 0\n",
                              **set_up)
        self.expect_complaint(status=143, signals=interrupt)
        stopped = GOOD_LOG[: GOOD_LOG.index("qx_close")]
        at_once = {"output": REF_LINE, "status": 130, "signals": interrupt}
        self.assertEqual(complaints(log=stopped, **at_once), [])
        self.expect_complaint(log=stopped.replace("qx_stop_stream_mode -> 0\n", ""), **at_once)
        self.expect_complaint(log=stopped, error="interrupted\n", **at_once)
        self.assertEqual(complaints(output="", status=-2, signals=interrupt, log=""), [])
        self.expect_complaint(output="", status=-2, signals=interrupt, log="qx_open_serial -> 0\n")
        set_up = {"output": "", "error": "interrupted during set-up\n", "log": ""}
        self.assertEqual(complaints(status=-2, signals=interrupt * 2, **set_up), [])
        self.expect_complaint(status=-2, signals=interrupt, **set_up)
        self.expect_complaint(status=-2, signals=interrupt * 2, **(set_up | {"error": "interrup"}))
        unwritten = {"output": "", "status": -2, "signals": interrupt, "log": "", "closed": (1,)}
        line = "cannot write the report to standard output\n"
        self.assertEqual(complaints(error=line, **unwritten), [])
        self.expect_complaint(error=line[:-1], **unwritten)
        self.expect_complaint(error=line, **unwritten | {"closed": ()})
        failed = "qx_open_serial -> 0\nqx_set_calibration_freq -> -3\n"
        after_it = {"output": REF_LINE, "status": -15, "signals": (signal.SIGTERM,),
                    "error": "set_calibration_freq: status -3\n"}
        self.assertEqual(complaints(log=failed + "qx_close\n", **after_it), [])
        self.expect_complaint(log=failed, **after_it)
        refused = {"output": "", "status": -2, "signals": interrupt, "log": ""}
        self.assertEqual(complaints(step_error="stoi", error="stoi\n", **refused), [])
        self.expect_complaint(step_error="stoi", error="stol\n", **refused)

    def test_only_a_terminal_sees_notes_progress_and_a_verdict(self):
        seen = "note: a\n\r\x1b[K0.2 of 2.5 s, ch2 9998/s\r\x1b[K\r\x1b[KPASS: 4960 coincidences\n"
        self.assertEqual(complaints(error=seen, terminal=True), [])
        self.expect_complaint(error=seen)
        self.expect_complaint(error="PASS: all is well\n")
        self.expect_complaint(error=seen + "more\n", terminal=True)
        self.expect_complaint(error=seen + seen, terminal=True)

    def test_a_hang_that_cannot_be_told_leaves_the_device_open(self):
        left_open = GOOD_LOG[: GOOD_LOG.index("qx_stop")]
        hung = {"output": REF_LINE, "status": 2, "log": left_open, "closed": (2,)}
        self.assertEqual(complaints(may_hang=True, **hung), [])
        self.expect_complaint(**hung)

    def test_saved_tags_that_differ_from_the_report_are_found(self):
        saving = dataclasses.replace(GOOD_STEP, arguments=["save_tags=kept.npy"])

        def complaints_of(saved):
            result = Result(0, REPORT.encode(), b"", 1.0, False, parse_log(GOOD_LOG),
                            saved_tags=saved)
            return Verdict(saving, result).complaints

        self.assertEqual(complaints_of(SavedTags([0, 0, 4960, 4960])), [])
        self.assertNotEqual(complaints_of(SavedTags([0, 0, 4960, 4959])), [])
        self.assertNotEqual(complaints_of(SavedTags([0, 0, 4960, 4960], [(2, 5)] * 9920)), [])
        self.assertNotEqual(complaints_of(Unloadable("it has no end")), [])
        self.assertNotEqual(complaints_of(None), [])

    def test_saved_tags_of_a_run_that_never_captured_are_found(self):
        saving = dataclasses.replace(GOOD_STEP, arguments=["save_tags=kept.npy"])
        for status, right in ((0, True), (-7, False)):
            log = ("qx_open_serial -> 0\n" f"qx_start_stream_mode -> {status}\n"
                   f"qx_read_stream_bytes -> {-5 if right else -3} received=0\n"
                   + "qx_stop_stream_mode -> 0\n" * right + "qx_close descriptors_left=-1\n")
            call = "read_stream_bytes" if right else "start_stream(mode)"
            result = Result(2, REF_LINE.encode(), f"{call}: no\n".encode(), 1.0, False,
                            parse_log(log), saved_tags=SavedTags())
            self.assertEqual(Verdict(saving, result).complaints == [], right)

    def test_a_document_that_differs_from_the_run_is_found(self):
        writing = dataclasses.replace(GOOD_STEP, arguments=["json=kept.json"])
        report = Report(REPORT.encode(), SETTINGS)
        lists = {key: ranking(text) for key, text in report.figures.items()
                 if key.endswith("_top") or key == "xcorr_top_bins"}
        good = {"exit_status": 0, "error": None, "lists": lists | {"bins": report.bins},
                "figures": {key: report[key] for key in ("tags_total", "coincidences", "min_dt_ps")}}

        def complaints_of(document):
            result = Result(0, REPORT.encode(), b"", 1.0, False, parse_log(GOOD_LOG),
                            document=document)
            return Verdict(writing, result).complaints

        def changed(part, **more):
            return json.dumps(good | {part: good[part] | more}).encode()

        self.assertEqual(complaints_of(json.dumps(good).encode()), [])
        self.assertEqual(complaints_of(changed("lists", xcorr_top_bins=None)), [])
        for document in (
            None, b"", json.dumps(good).encode()[:-1],
            json.dumps(good | {"exit_status": 3}).encode(),
            json.dumps(good | {"error": "no"}).encode(),
            changed("figures", tags_total=9919), changed("figures", coincidences=None),
            changed("figures", min_dt_ps=[0, 0, 0, 0]), changed("lists", bins=[]),
            changed("lists", ch2_mod3333_top=None),
        ):  # fmt: skip
            self.assertNotEqual(complaints_of(document), [], document)

    def test_a_sanitizer_is_heard(self):
        self.expect_complaint(error="==1==ERROR: AddressSanitizer: heap-use-after-free\n", status=2)
        self.expect_complaint(error="x.cpp:1:2: runtime error: shift exponent 64\n", status=2)


if __name__ == "__main__":
    unittest.main()
