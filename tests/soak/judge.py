"""Whether a run of the program did what it promises."""

import collections
import re

import ports
from document import compare_with_document
from literal_figures import compare_with_tags
from report import REF_LINE, Malformed, Report
from run import SANITIZER_STATUS, SIGNALS
from saved_tags import Unloadable, read_saved_tags
from scenario import DOCUMENT, LOGGED, TAGS_CSV, TAGS_NPY

STATUSES = (0, 1, 2, 3, *(128 + number for number in SIGNALS))
LOADER_FAILED = 127
UNANSWERED = "the device library does not answer"
UNWRITTEN = "cannot write the report to standard output"
UNKEPT = (f"cannot write the tags to {TAGS_NPY}: File too large",
          f"cannot write the tags to {TAGS_CSV}: File too large",
          f"cannot write the JSON document to {DOCUMENT}: File too large")  # fmt: skip
INTERRUPTED = "interrupted during set-up"
TIMED_OUT = -3
FIXED_CLOCK = (-3, -4, -7)
# So many reads in vain, of 20 ms each, give any consumer the time to drain the queue.
READS_OF_AN_ENDED_STREAM = 6
PROBE_BUFFER_BYTES = 65536
# What a run may take beside its capture before its counts are doubted. A thread that
# counts tags, and is kept from it until a short capture is over, counts none.
MOST_WAITED_S = 0.15

SANITIZER = re.compile(rb"(ERROR|WARNING): \w+Sanitizer|runtime error:|Sanitizer:DEADLYSIGNAL")
PROGRESS = re.compile(rb"\r\x1b\[K(\d[^\r\n]*(?=\r))?")
NOTE = re.compile(rb"note: [^\n]*\n")
VERDICT = re.compile(rb"(PASS|FAIL|ENDED EARLY)\b[^\n]*\n\Z")
DEBUG_LINE = re.compile(rb"packed-decoder: [^\n]*\n")
CONTROL = re.compile(rb"[\x00-\x1f\x7f]")

# What an error line begins with when this call has failed.
OPERATIONS = {f"qx_{call}": call for call in ports.CALLS} | {
    "qx_discover": "discover",
    "qx_open_serial": "open",
    "qx_get_reference_clock_status": "reference_clock_status",
    "qx_set_stream_channel_mask": "set_stream_channels",
    "qx_start_stream_mode": "start_stream(mode)",
    "qx_stop_stream_mode": "stop_stream_any",
}


def is_failure(call):
    """Of a call that the program must not pass over."""
    if call.status in (None, 0) or call.name == "qx_load_calibration":
        return False
    if call.name in ("qx_set_reference_clock", "qx_get_reference_clock_status"):
        return call.status not in FIXED_CLOCK
    return not (call.name == "qx_read_stream_bytes" and call.status == TIMED_OUT)


class Verdict:
    """The complaints about one run, and its report if there is one."""

    def __init__(self, step, result):
        self.step = step
        self.result = result
        self.complaints = []
        self.report = None
        self.failed_call = next(filter(is_failure, result.calls or []), None)
        self.error = self.own_error()
        self.judge()

    def complain(self, text):
        self.complaints.append(text)

    def own_error(self):
        """Standard error without what only a terminal sees, and without debug lines."""
        error = self.result.error
        if self.step.terminal:
            error = NOTE.sub(b"", PROGRESS.sub(b"", error))
            if self.result.status != 2:
                error = VERDICT.sub(b"", error)
        if "ZELK_PACKED_DEBUG" in self.step.environment:
            error = DEBUG_LINE.sub(b"", error)
        return error

    def judge(self):
        status = self.result.status
        if self.result.timed_out:
            self.complain(f"did not end within {self.result.seconds:.0f} s")
        elif SANITIZER.search(self.result.error) or status == SANITIZER_STATUS:
            self.complain("a sanitizer found something")
        elif status == LOADER_FAILED and self.step.memory_bytes:
            pass
        elif -status in SIGNALS:
            self.judge_end_at_once(-status)
        elif status not in STATUSES:
            self.complain(f"status {status} is none of the documented ones")
        else:
            self.judge_end()

    def judge_end_at_once(self, number):
        """By a signal, before the program was ready for it or after the capture."""
        if number not in self.result.signals_sent:
            self.complain(f"ended by signal {number}, which nobody sent")
        # One that has failed may have said so before it was ended.
        refused = self.step.error and self.error == f"{self.step.error}\n".encode()
        # A second signal may end a run that the first one has interrupted.
        again = len(self.result.signals_sent) > 1 and self.error == f"{INTERRUPTED}\n".encode()
        has_failed = self.failed_call or refused or again or not self.step.can_report
        if self.error and (self.error[-1:] != b"\n" or not has_failed):
            self.complain("a word, or half of one, from a run that a signal ended at once")
        # One that has said why it ends, or could not, may have closed the device before.
        has_ended = (has_failed or 2 in self.step.closed) and self.made("qx_close")
        is_left = self.opened() and not self.made("qx_stop") and not has_ended
        if len(self.result.signals_sent) == 1 and is_left:
            self.complain("signals: ended at once with the device open and nothing stopped")

    def judge_end(self):
        status = self.result.status
        if status > 128 and status - 128 not in self.result.signals_sent:
            self.complain(f"status {status} without that signal")
        if status == 2:
            self.judge_failure()
        elif status > 128 and self.error == f"{INTERRUPTED}\n".encode():
            self.expect_no_report()
        elif status > 128 and not self.has_reported():
            self.judge_end_at_once(status - 128)
            return
        else:
            self.judge_success()
        if self.result.calls is not None and not self.is_unanswered():
            self.judge_calls()
        self.judge_saved_tags()
        self.judge_document()

    def is_unanswered(self):
        unseen = 2 in self.step.closed and self.step.may_hang and self.result.status == 2
        return unseen or self.error == f"{UNANSWERED}\n".encode()

    # A run that failed.

    def judge_failure(self):
        if 2 not in self.step.closed:
            self.judge_error_line()
        if self.step.can_report and self.step.file_bytes is None:
            self.expect_no_report()

    def expect_no_report(self):
        output = self.result.output
        if output and not REF_LINE.fullmatch(output) and self.step.can_report:
            self.complain("a report, or a part of it, from a run that failed")

    def judge_error_line(self):
        lines = self.error.split(b"\n")
        if len(lines) != 2 or lines[1] or not lines[0]:
            self.complain(f"{len(lines) - 1} lines on standard error, not one whole line")
            return
        if CONTROL.search(lines[0]):
            self.complain("error line: control characters")
        text = lines[0].decode(errors="replace")
        if not self.is_explained(text):
            self.complain("error line: it does not name what failed")

    def is_explained(self, text):
        step = self.step
        if step.error:
            return text == step.error and not self.result.calls
        if self.failed_call:
            return text.startswith(OPERATIONS[self.failed_call.name] + ": ")
        if text == UNANSWERED:
            return step.may_hang
        if text in UNKEPT:
            return step.file_bytes is not None
        if text == UNWRITTEN:
            full = step.file_bytes is not None and len(self.result.output) == step.file_bytes
            return not step.can_report or full
        if "no ZELK device found" in text:
            return step.environment.get("ZELK_SIM_DISCOVERY") == "empty"
        if self.result.calls is not None and not step.memory_bytes:
            return False  # nothing failed in the library, and there was memory enough
        return "memory" in text or "thread" in text or text.partition(":")[0] in OPERATIONS.values()

    # A run that came to its end.

    def has_reported(self):
        if not self.step.settings:
            return True
        try:
            return bool(Report(self.result.output, self.step.settings))
        except Malformed:
            return False

    def judge_success(self):
        step, status = self.step, self.result.status
        if step.must_fail:
            self.complain(f"status {status}, although it had to fail")
        if self.failed_call:
            self.complain(f"status {status}, although a call failed: {self.failed_call.line}")
        if self.error and 2 not in step.closed:
            self.complain(f"a word on standard error with status {status}")
        if not step.can_report:
            self.complain(f"status {status}, although no report could be written")
        elif step.settings is None:
            if status != 0 or not self.result.output.endswith(b"\n"):
                self.complain("no information")
        else:
            self.judge_report()

    def judge_report(self):
        try:
            self.report = Report(self.result.output, self.step.settings)
        except Malformed as error:
            self.complain(f"report: {error}")
            return
        self.complaints += self.report.complaints()
        if self.result.status < 128 and self.result.status != self.status_of_the_lines():
            self.complain(f"status {self.result.status} does not agree with the report")
        self.judge_stream()

    def status_of_the_lines(self):
        settings, report = self.step.settings, self.report
        if settings.byte_probe:
            return 0 if report["byte_probe_payload_bytes"] else 1
        tags = report.tags
        good = tags[settings.channel_a] and tags[settings.channel_b] and report["coincidences"]
        return 0 if good else 3

    def judge_stream(self):
        """What the report says against what passed between the program and the library."""
        settings, report = self.step.settings, self.report
        if self.step.library == LOGGED and not self.step.damaged and settings.format != "packed_delta":
            others = [n for n in range(4) if not settings.channel_mask >> n & 1]
            if any(report.tags[channel] for channel in others):
                self.complain("tags on a channel that is not enabled")
        if not settings.byte_probe and (report.divider == 0) < (settings.mode == "external"):
            self.complain("a divider in external mode")
        if self.result.calls is None:
            return
        received = self.bytes_received()
        if settings.byte_probe:
            if report["byte_probe_payload_bytes"] != received:
                self.complain(f"byte probe: {received} bytes were read")
            return
        if self.tags_seen() * settings.least_bytes_per_tag > received:
            self.complain(f"{self.tags_seen()} tags of {received} bytes")
        loads = [c.status for c in self.result.calls if c.name == "qx_load_calibration"]
        if report.calibration_loaded != (loads == [0]):
            self.complain("calibration_loaded is not what the library said")

    # The files that were asked for.

    def judge_saved_tags(self):
        saved = self.result.saved_tags
        if not self.step.saves_tags or self.is_unanswered():
            return  # what hangs may hang between a row and its header
        if isinstance(saved, Unloadable):
            self.complain(f"saved tags: {saved}")
        elif saved is None:
            if self.report:
                self.complain("saved tags: there are none, beside a report")
        elif self.report and saved.counts != self.report.tags:
            self.complain(f"saved tags: {saved.counts}, and the report counts {self.report.tags}")
        elif self.report and saved.are_all_kept:
            self.complaints += compare_with_tags(self.report, saved.tags)
        elif self.result.status == 2 and self.result.calls is not None and not self.started():
            self.complain("saved tags: a file of a run that never captured")

    def judge_document(self):
        step, document = self.step, self.result.document
        if not step.writes_document:
            return
        if document is not None:
            line = None if 2 in step.closed else self.error.decode(errors="replace")[:-1]
            self.complaints += compare_with_document(document, self.result.status, line, self.report)
        elif step.file_bytes is None and not step.memory_bytes:
            self.complain("document: there is none")

    # The library's log.

    def made(self, name):
        return any(call.name.startswith(name) for call in self.result.calls or [])

    def opened(self):
        calls = self.result.calls or []
        return any(call.name.startswith("qx_open") and call.status == 0 for call in calls)

    def started(self):
        calls = self.result.calls or []
        return any(call.name == "qx_start_stream_mode" and call.status == 0 for call in calls)

    def descriptors_left(self):
        """As a pattern: a file that is opened before the device may be closed before it, too."""
        most = self.step.saves_tags + self.step.writes_document
        return f"(0|-[1-{most}])" if most else "0"

    def reads(self):
        return [call for call in self.result.calls if call.name == "qx_read_stream_bytes"]

    def bytes_received(self):
        return sum(call.received or 0 for call in self.reads() if call.status == 0)

    def tags_seen(self):
        return self.report.tags_total + self.report["reader_dropped"]

    def stood_still(self):
        """The machine let the run wait, perhaps in the capture, and perhaps one thread alone."""
        return self.result.seconds > self.step.shortest_s + MOST_WAITED_S

    def stream_has_ended(self):
        """Nothing more came, for so long that nothing is left in the queue."""
        last = self.reads()[-READS_OF_AN_ENDED_STREAM:]
        return (len(last) == READS_OF_AN_ENDED_STREAM and not self.stood_still()
                and all(call.status == TIMED_OUT for call in last))

    def judge_calls(self):
        calls = self.result.calls
        names = collections.Counter(call.name for call in calls)
        opened = self.opened()
        # A signal after the capture may end the program before it closes the device.
        at_once = self.result.status > 128 and names["qx_stop_stream_mode"] and not names["qx_close"]
        closed_at_last = names["qx_close"] == opened and (not opened or calls[-1].name == "qx_close")
        if not closed_at_last and not at_once:
            self.complain("the device was not closed, or not at last")
        if names["qx_stop_stream_mode"] != self.started():
            self.complain("the stream was not stopped once")
        for call in calls:
            if re.search(r" (device|list)=(closed|foreign|freed)| during_read", call.line):
                self.complain(f"a call that must not be: {call.line}")
            if re.search(rf"threads_left=[^0]|descriptors_left=(?!{self.descriptors_left()}$)", call.line):
                self.complain(f"something is left behind: {call.line}")


def compare_with_known_tags(verdict, tags):
    """What the library sent against what the report tells."""
    report = verdict.report
    if report is None or not verdict.stream_has_ended():
        return
    if verdict.tags_seen() != len(tags):
        verdict.complain(f"{verdict.tags_seen()} tags of {len(tags)}")
    if not report["reader_dropped"]:
        verdict.complaints += compare_with_tags(report, tags)


def compare_recording(verdicts):
    """A recorded run, two replays of it, and a byte probe of the same."""
    live, first, second, probe = verdicts
    calls = live.result.calls
    if not live.made("qx_close") or live.failed_call or any(
            call.status not in (None, 0) for call in calls if call.name != "qx_read_stream_bytes"):
        return
    for replay in (first, second, probe):
        if replay.report is None:
            replay.complain("recording: a run that went well cannot be replayed")
    if not all(v.report and v.stream_has_ended() for v in (first, second, probe)):
        return
    if second.report["reader_dropped"] == 0 and first.result.output != second.result.output:
        second.complain("recording: two replays differ")
    if first.tags_seen() != second.tags_seen():
        second.complain(f"recording: {second.tags_seen()} tags, a replay {first.tags_seen()}")
    pieces = max((call.received or 0 for call in first.reads()), default=0)
    same_pieces = pieces <= PROBE_BUFFER_BYTES or first.step.settings.format != "packed_delta"
    if same_pieces and first.tags_seen() != probe.report.tags_total:
        probe.complain(f"recording: {probe.report.tags_total} tags, a replay {first.tags_seen()}")
    if live.step.damaged or not live.report:
        return
    seen = live.report.tags_total if live.step.settings.byte_probe else live.tags_seen()
    if seen > first.tags_seen():
        live.complain(f"recording: {seen} tags, a replay {first.tags_seen()}")


def judge(scenario, results):
    """One verdict per step."""
    verdicts = [Verdict(step, result) for step, result in zip(scenario.steps, results)]
    if scenario.tags is not None:
        compare_with_known_tags(verdicts[0], scenario.tags)
    if scenario.compare == "recording":
        compare_recording(verdicts)
    return verdicts
