"""The document of each kind of run: it fits the schema and says what the program
printed and returned."""

import calendar
import os
import re
import signal
import stat
import subprocess
import time
import unittest
from decimal import Decimal

import runs
from runs import HOUR_MS, Run, raw64

# Channel 0 and 1 are a pair, channel 2 has a tag out of order, channel 3 a single one.
TAGS = [(0, 1_000_000), (1, 1_000_024), (2, 1_500_000), (2, 1_400_000), (2, 1_600_000),
        (3, 1_700_000), (0, 2_000_003), (1, 2_000_043), (0, 3_000_000), (1, 3_000_030),
        (0, 5_000_000_000), (1, 5_000_000_030)]
SCRIPT = ["reference_clock 2 1 1 1 0 0 1 1 3735928559", "applied_dead_time_ps 26664", raw64(TAGS)]
CAPTURE = ["format=raw64", "mode=external", "channel_mask=15", "capture_s=1", "bin_s=0.002"]

BEYOND_THE_REPORT = {"rate_hz", "silent_tail_s", "violations_share", "coincidence_share",
                     "elapsed_s", "host_pause_ms"}


def number(text):
    """What the report's text says; None: no number."""
    if text.startswith("0x"):
        return int(text, 16)
    value = Decimal(text)
    return value if value.is_finite() else None


def report_values(output):
    """Each key of the report with its text; the lines of bins as a list."""
    values = {"bins": []}
    for line in output.splitlines():
        if line.startswith("bin "):
            values["bins"].append([int(count) for count in re.findall(r"ch\d=(\d+)", line)])
        elif line.startswith(("device=", "calibration_path=")):
            key, _, values[key] = line.partition("=")
        else:
            for pair in line.split(" "):
                key, _, values[key] = pair.partition("=")
    return values


def ranking(text):
    return [[int(n) for n in entry.split(":")] for entry in text.split(",") if entry]


class Documents(unittest.TestCase):
    maxDiff = None

    def expect_end(self, result, status, error=None):
        document = result.document()
        self.assertEqual(result.status, status)
        self.assertEqual(document["exit_status"], status)
        self.assertEqual(document["error"], error)
        self.assertEqual(result.run.hidden_files(), [])
        return document

    def expect_figures(self, document, report, absent=()):
        """Every figure is what the report prints. `absent`: (name, channel) of those
        that this run does not have."""
        figures = document["figures"]
        compared = set()
        for key, value in figures.items():
            if key in BEYOND_THE_REPORT:
                continue
            texts = report[key].split(",") if isinstance(value, list) else [report[key]]
            values = value if isinstance(value, list) else [value]
            self.assertEqual(len(texts), len(values), key)
            for channel, (text, found) in enumerate(zip(texts, values)):
                expected = None if (key, channel) in absent else number(text)
                self.assertEqual(found, expected, f"{key}[{channel}]")
            compared.add(key)
        self.assertEqual(set(figures) - compared, BEYOND_THE_REPORT)
        return compared

    def expect_lists(self, document, report):
        lists = document["lists"]
        self.assertEqual(lists["bins"], report["bins"])
        for key in set(lists) - {"bins"}:
            self.assertEqual(lists[key], ranking(report[key]), key)
        return set(lists)

    def expect_words(self, document, report):
        """The report's words, and the keys of those that are no figures."""
        self.assertEqual(document["identity"]["device"], report["device"])
        self.assertEqual(document["identity"]["port"], report["port"])
        self.assertEqual(document["identity"]["calibration_path"], report["calibration_path"])
        for key in ("transport", "format", "mode"):
            self.assertEqual(document["settings"][key], report[key])
        for key in ("requested", "signal"):
            self.assertEqual(document["reference_clock"][key], report[f"ref_{key}"])
        return {"device", "port", "calibration_path", "transport", "format", "mode",
                "ref_requested", "ref_signal"}

    def test_of_a_capture_says_what_the_report_says(self):
        arguments = CAPTURE + ["json=run.json", "dead_time_ps=25000", "note=lot 7",
                               "require=coincidences>=4,rate_hz[3]>0"]
        result = Run(arguments, SCRIPT).result()
        document = self.expect_end(result, 4)
        self.assertEqual(result.error, "not met: rate_hz[3]>0 (not available)\n")
        # The reference clock's line has a word under the key of a number.
        reference_line, report_lines = result.output.split("\n", 1)
        self.assertIn("ref_active=internal ", reference_line)
        self.assertEqual(document["reference_clock"]["active"], "internal")
        report = report_values(reference_line + "\n" + report_lines)
        single = [("max_gap_ms", 3), ("min_dt_ps", 3)]
        seen = self.expect_figures(document, report, single)
        seen |= self.expect_lists(document, report)
        seen |= self.expect_words(document, report)
        self.assertEqual(set(report) - seen, set(), "lines that are not in the document")

        figures = document["figures"]
        self.assertEqual(figures["coincidences"], 4)
        self.assertEqual(figures["xcorr_offset_ps"], 30)
        self.assertEqual(figures["monotonic_violations"], [0, 0, 1, 0])
        self.assertEqual(figures["ref_raw"], 3735928559)
        self.assertEqual(figures["coincidence_share"], 1)
        self.assertIsNone(figures["rate_hz"][3])
        # Three steps in 4.999 ms.
        self.assertEqual(figures["rate_hz"][0], Decimal("600.120"))
        self.assertGreaterEqual(figures["elapsed_s"], Decimal("1"))

        self.assertEqual(document["arguments"], arguments)
        self.assertEqual(document["note"], "lot 7")
        self.assertEqual(document["settings"]["channel_mask"], 15)
        self.assertEqual(document["settings"]["dead_time_ps"], 25000)
        self.assertEqual(document["applied"]["dead_time_ps"], 26664)
        self.assertIsNone(document["applied"]["packed_bits"])
        self.assertEqual(document["identity"]["serial"], "SN1")
        self.assertEqual(document["reference_clock"]["external_locked"], False)
        self.assertEqual(document["reference_clock"]["missing_warning"], True)
        self.assertEqual(os.path.dirname(document["device_library"]),
                         os.path.realpath(runs.SCRIPTED_LIBRARY))
        self.assertEqual(document["host"], os.uname().nodename)
        self.assertEqual([(limit["text"], limit["met"], limit["seen"])
                          for limit in document["limits"]],
                         [("coincidences>=4", True, "4"),
                          ("rate_hz[3]>0", False, "not available")])

    def test_of_a_capture_without_pairs_has_no_correlation(self):
        document = self.expect_end(Run(CAPTURE + ["json=run.json", "channel_b=3"],
                                       SCRIPT).result(), 3)
        correlation = [key for key in document["figures"] if key.startswith("xcorr_")]
        self.assertEqual(len(correlation), 7)
        for key in correlation:
            self.assertIsNone(document["figures"][key])
        self.assertIsNone(document["lists"]["xcorr_top_bins"])

    def test_of_the_simulated_unit_has_what_it_accepted(self):
        began = time.time()
        result = Run(["json=run.json", "channel_a=2", "channel_b=3", "capture_s=1"]).result()
        document = self.expect_end(result, 0)
        report = report_values(result.output)
        report["dead_time_ps"] = "none was set"
        silent = [(key, channel) for key in ("max_gap_ms", "min_dt_ps") for channel in (0, 1)]
        self.expect_figures(document, report, [*silent, ("dead_time_ps", 0)])
        self.expect_lists(document, report)
        self.assertEqual(document["applied"]["calibration_divider"], number(report["divider"]))
        self.assertEqual(document["applied"]["packed_bits"], 16)
        self.assertEqual(document["applied"]["packed_quantum_ps"], 8)
        self.assertIsNone(document["figures"]["dead_time_ps"])
        start = calendar.timegm(time.strptime(document["start"][:-5], "%Y-%m-%dT%H:%M:%S"))
        self.assertLess(abs(start - began), 30)

    def test_of_a_unit_with_a_fixed_clock_has_no_reference(self):
        script = ["status qx_set_reference_clock -4", *SCRIPT]
        result = Run(CAPTURE + ["json=run.json"], script).result()
        document = self.expect_end(result, 0)
        self.assertIsNone(document["reference_clock"])
        self.assertIsNone(document["figures"]["ref_fallback"])
        self.assertEqual(document["figures"]["ref_active"], -1)

    def test_of_a_set_up_that_fails_holds_what_was_known(self):
        first = Run(CAPTURE + ["json=run.json"], ["status qx_identify -12"]).result()
        document = self.expect_end(first, 2, "identify: status -12")
        self.assertEqual(first.error, "identify: status -12\n")
        for key in ("identity", "reference_clock", "applied", "byte_probe", "units"):
            self.assertIsNone(document[key])
        self.assertEqual(document["figures"]["monotonic_violations"], [None] * 4)

        later = Run(CAPTURE + ["json=run.json"], ["status qx_set_stream_interface -12"]).result()
        document = self.expect_end(later, 2, "set_stream_interface: status -12")
        self.assertEqual(document["identity"]["serial"], "SN1")
        self.assertEqual(document["reference_clock"]["active"], "internal")
        self.assertIsNone(document["applied"])

    def test_of_refused_arguments_is_written_wherever_its_key_stands(self):
        for arguments, error in (
                (["capture_s=abc", "json=run.json", "note=kept"], "stod"),
                (["--JSON=other.json", "channel_a=9", "--note=kept", "json=run.json"],
                 "channel_a/channel_b must be distinct and in 0..3"),
                (["json=run.json", "note=kept", "require=nothing>1"],
                 'cannot read the condition "nothing>1": no figure is called "nothing"')):
            result = Run(arguments, []).result()
            document = self.expect_end(result, 2, error)
            self.assertEqual(result.error, error + "\n")
            self.assertEqual(result.output, "")
            self.assertEqual(result.run.calls(), "")
            self.assertEqual(document["note"], "kept")
            self.assertEqual(document["settings"]["json"], "run.json")
            self.assertEqual(os.listdir(result.run.path).count("other.json"), 0)

    def test_of_a_library_that_hangs_was_prepared(self):
        no_answer = "the device library does not answer"
        in_the_stop = Run(CAPTURE + ["json=run.json"],
                          [f"delay qx_stop_stream_mode {HOUR_MS}", raw64(TAGS)]).result()
        document = self.expect_end(in_the_stop, 2, no_answer)
        self.assertEqual(in_the_stop.error, no_answer + "\n")
        self.assertEqual(document["applied"]["calibration_loaded"], True)
        self.assertIsNone(document["figures"]["tags_total"])

        in_a_read = Run(CAPTURE + ["json=run.json"],
                        [f"forever status=-3 delay_ms={HOUR_MS} bytes="]).result()
        self.expect_end(in_a_read, 2, no_answer)

        in_the_close = Run(CAPTURE + ["json=run.json"],
                           [f"delay qx_close {HOUR_MS}", *SCRIPT]).result()
        document = self.expect_end(in_the_close, 0)
        self.assertEqual(document["figures"]["tags_total"], len(TAGS))

    def test_of_a_failure_holds_the_first_error(self):
        result = Run(CAPTURE + ["json=run.json"],
                     [f"delay qx_stop_stream_mode {HOUR_MS}",
                      "forever status=-12 delay_ms=0 bytes="]).result()
        self.expect_end(result, 2, "read_stream_bytes: status -12")

    def test_of_an_interrupted_capture_has_its_figures(self):
        for number_of_signal in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP):
            run = Run(CAPTURE + ["json=run.json", "capture_s=60"], SCRIPT)
            result = run.interrupted_result("received=96", number_of_signal)
            document = self.expect_end(result, 128 + number_of_signal)
            self.assertEqual(document["figures"]["tags_total"], len(TAGS))

    def test_of_an_interrupted_set_up_says_so(self):
        run = Run(CAPTURE + ["json=run.json"], ["delay qx_load_calibration 1500"])
        result = run.interrupted_result("qx_identify")
        document = self.expect_end(result, 143, "interrupted during set-up")
        self.assertEqual(document["identity"]["serial"], "SN1")

    def test_of_a_run_that_a_signal_ends_at_once_names_it(self):
        # A report of 4096 lines is more than the pipe takes that nobody reads.
        script = [raw64([(0, 0), (1, 4_095_999_999_999)])]
        run = Run(CAPTURE + ["json=run.json", "bin_s=0.001"], script)
        process = run.start()
        run.wait_for_call("qx_stop_stream_mode")
        time.sleep(3)
        process.send_signal(signal.SIGTERM)
        process.wait(timeout=runs.LONGEST_S)
        document = self.expect_end(run.finish(process), 143, "ended by signal 15")
        self.assertEqual(document["figures"]["tags_total"], 2)
        self.assertEqual(len(document["lists"]["bins"]), 4096)

    def test_of_a_byte_probe_says_what_its_report_says(self):
        result = Run(["byte_probe=1", *CAPTURE, "json=run.json"], SCRIPT).result()
        document = self.expect_end(result, 0)
        report = dict(line.split("=", 1) for line in result.output.splitlines()[1:])
        probe = document["byte_probe"]
        for key in ("payload_bytes", "nonzero_bytes", "first_nonzero_offset", "decoded_total"):
            self.assertEqual(probe[key], number(report["byte_probe_" + key]), key)
        self.assertEqual(probe["first_bytes"], report["byte_probe_first_bytes"])
        self.assertEqual(probe["decoded"],
                         [number(report[f"byte_probe_ch{i}"]) for i in range(4)])
        self.assertIsNone(document["figures"]["tags_total"])
        self.assertEqual(document["applied"]["tdl_masks"], [7, 7, 7, 7])

        silent = self.expect_end(Run(["byte_probe=1", *CAPTURE, "json=run.json"], []).result(), 1)
        self.assertIsNone(silent["byte_probe"]["first_nonzero_offset"])
        self.assertEqual(silent["byte_probe"]["first_bytes"], "")

    def test_of_a_list_names_the_units(self):
        result = Run(["list=1", "json=run.json"]).result()
        document = self.expect_end(result, 0)
        self.assertGreater(len(document["units"]), 0)
        self.assertEqual(len(document["units"]), result.output.count("\n"))
        for unit, line in zip(document["units"], result.output.splitlines()):
            for key in ("port", "serial", "device"):
                self.assertIn(unit[key], line)
        self.assertIsNone(document["identity"])

        none = self.expect_end(Run(["list=1", "json=run.json"], []).result(), 0)
        self.assertEqual(none["units"], [])

        failed = Run(["list=1", "json=run.json"], ["status qx_discover -12"]).result()
        document = self.expect_end(failed, 2, "discover: status -12")
        self.assertIsNone(document["units"])

    def test_takes_bytes_that_are_no_text(self):
        result = Run([*CAPTURE, "json=run.json", b"note=caf\xe9\n\"\\"], SCRIPT).result()
        document = self.expect_end(result, 0)
        self.assertEqual(document["note"], 'caf\ufffd\n"\\')


class Places(unittest.TestCase):
    def test_that_are_refused_cost_no_call_and_no_report(self):
        for place in ("missing/run.json", ".", ""):
            result = Run([*CAPTURE, "json=" + place], SCRIPT).result()
            self.assertEqual(result.status, 2)
            self.assertEqual(result.output, "")
            self.assertEqual(result.error.count("\n"), 1)
            self.assertIn("json", result.error.lower())
            self.assertEqual(result.run.calls(), "")

    def test_that_turn_out_full_fail_the_run_after_its_report(self):
        result = Run([*CAPTURE, "json=/dev/full"], SCRIPT).result()
        self.assertEqual(result.status, 2)
        self.assertIn("coincidences=4\n", result.output)
        self.assertEqual(result.error, "cannot write the JSON document to /dev/full: "
                                       "No space left on device\n")
        self.assertTrue(result.run.calls().endswith("qx_close\n"))

    def test_that_turn_out_full_do_not_hide_an_error(self):
        result = Run([*CAPTURE, "json=/dev/full"], ["status qx_identify -12"]).result()
        self.assertEqual(result.status, 2)
        self.assertEqual(result.error, "identify: status -12\n")

    def test_may_be_a_descriptor(self):
        run = Run([*CAPTURE, "json=/dev/fd/{}"], SCRIPT)
        ours, theirs = os.pipe()
        run.arguments[-1] = f"json=/dev/fd/{theirs}".encode()
        process = run.start(pass_fds=[theirs])
        os.close(theirs)
        with os.fdopen(ours) as end:
            text = end.read()
        result = run.finish(process)
        self.assertEqual(result.status, 0)
        self.assertEqual(runs.parse(text)["exit_status"], 0)

    def test_may_be_a_pipe_that_the_library_lets_down(self):
        run = Run([*CAPTURE, "json=pipe"], [f"delay qx_stop_stream_mode {HOUR_MS}"])
        os.mkfifo(run.path / "pipe")
        end = os.open(run.path / "pipe", os.O_RDONLY | os.O_NONBLOCK)
        result = run.result()
        text = os.read(end, 1_000_000).decode()
        os.close(end)
        self.assertEqual(result.status, 2)
        self.assertEqual(runs.parse(text)["error"], "the device library does not answer")

    def test_of_help_and_version_are_left_alone(self):
        for flag in ("--help", "-h", "--version"):
            run = Run(["json=run.json", flag])
            run.file.write_text("older")
            result = run.result()
            self.assertEqual(result.status, 0)
            self.assertEqual(run.file.read_text(), "older")

    def test_of_the_report_itself_is_refused_and_kept(self):
        run = Run([*CAPTURE, "json=report"], SCRIPT)
        with open(run.path / "report", "wb") as report:
            result = run.result(stdout=report)
        self.assertEqual(result.status, 2)
        self.assertEqual(result.error, "cannot write the JSON document to report: "
                                       "it is standard output\n")
        self.assertTrue((run.path / "report").exists())

    def test_behind_a_link_keep_the_link(self):
        run = Run([*CAPTURE, "json=link"], SCRIPT)
        os.symlink("run.json", run.path / "link")
        result = run.result()
        self.assertEqual(result.status, 0)
        self.assertTrue(stat.S_ISLNK(os.lstat(run.path / "link").st_mode))
        self.assertEqual(result.document()["exit_status"], 0)


class Page(unittest.TestCase):
    def test_names_every_key(self):
        page = (runs.DOCS / "json.md").read_text()
        missing = []

        def visit(schema):
            for key, inner in schema.get("properties", {}).items():
                name = re.sub(r"^ch\d", "ch0", key)
                if f"`{name}`" not in page:
                    missing.append(key)
                visit(inner)
            if "items" in schema:
                visit(schema["items"])

        schema = runs.schema()
        figures = schema["properties"].pop("figures")
        visit(schema)
        for key in figures["properties"]:
            if f"`{re.sub(r'^ch[0-9]', 'ch0', key)}`" not in page:
                missing.append(key)
        self.assertEqual(missing, [])

    def test_examples_run(self):
        page = (runs.DOCS / "json.md").read_text()
        examples = re.findall(r"```(sh|python)\n(.*?)```", page, re.DOTALL)
        self.assertEqual([language for language, _ in examples], ["sh", "python"])
        run = Run([])
        programs = run.path / "bin"
        programs.mkdir()
        os.symlink(runs.PROGRAM, programs / "zelk_smoke_test")
        environment = run.environment | {"PATH": f"{programs}:{os.environ['PATH']}"}
        for language, text in examples:
            command = ["bash", "-eu", "-c", text] if language == "sh" else ["python3", "-c", text]
            done = subprocess.run(command, cwd=run.path, env=environment, text=True,
                                  capture_output=True, timeout=runs.LONGEST_S, check=False)
            self.assertEqual((done.returncode, done.stderr), (0, ""), text)
            self.assertRegex(done.stdout, r"ZK4-0001")


if __name__ == "__main__":
    runs.main()
