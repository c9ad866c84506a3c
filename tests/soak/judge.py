"""Whether a run of the program did what it promises."""

import collections
import re

import ports
from report import REF_LINE, Malformed, Report
from run import SANITIZER_STATUS, SIGNALS
from scenario import LOGGED

STATUSES = (0, 1, 2, 3, *(128 + number for number in SIGNALS))
LOADER_FAILED = 127
UNANSWERED = "the device library does not answer"
UNWRITTEN = "cannot write the report to standard output"
INTERRUPTED = "interrupted during set-up"
TIMED_OUT = -3
FIXED_CLOCK = (-3, -4, -7)
# So many reads in vain, of 20 ms each, give any consumer the time to drain the queue.
READS_OF_AN_ENDED_STREAM = 6
PROBE_BUFFER_BYTES = 65536
# What a run may take beside its capture before its counts are doubted.
MOST_WAITED_S = 1

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

    # The library's log.

    def made(self, name):
        return any(call.name.startswith(name) for call in self.result.calls or [])

    def opened(self):
        calls = self.result.calls or []
        return any(call.name.startswith("qx_open") and call.status == 0 for call in calls)

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
        opened = any(c.name in ("qx_open_serial", "qx_open") and c.status == 0 for c in calls)
        started = any(c.name == "qx_start_stream_mode" and c.status == 0 for c in calls)
        # A signal after the capture may end the program before it closes the device.
        at_once = self.result.status > 128 and names["qx_stop_stream_mode"] and not names["qx_close"]
        closed_at_last = names["qx_close"] == opened and (not opened or calls[-1].name == "qx_close")
        if not closed_at_last and not at_once:
            self.complain("the device was not closed, or not at last")
        if names["qx_stop_stream_mode"] != started:
            self.complain("the stream was not stopped once")
        for call in calls:
            if re.search(r" (device|list)=(closed|foreign|freed)| during_read", call.line):
                self.complain(f"a call that must not be: {call.line}")
            if re.search(r"_left=[^0]", call.line):
                self.complain(f"something is left behind: {call.line}")


def literal_steps(times):
    return [later - earlier for earlier, later in zip(times, times[1:])]


def compare_with_tags(verdict, tags):
    """The report against tags that are known, counted in the plainest way."""
    report = verdict.report
    if report is None or not verdict.stream_has_ended():
        return
    if verdict.tags_seen() != len(tags):
        verdict.complain(f"{verdict.tags_seen()} tags of {len(tags)}")
    if report["reader_dropped"]:
        return
    lists = [[time for channel, time in tags if channel == n] for n in range(4)]
    settings = verdict.step.settings
    for n, times in enumerate(lists):
        residues, steps = [time % 3333 for time in times], literal_steps(times)
        forward = [step for step in steps if step >= 0]
        expected = {
            f"ch{n}": len(times),
            f"ch{n}_mod3333_unique": len(set(residues)),
            f"ch{n}_mod3333_exact_zero": residues.count(0),
        }
        found = {key: report[key] for key in expected}
        expected |= {"violations": len(steps) - len(forward), "shortest": min(steps, default=0),
                     "gap": f"{max(forward, default=0) / 1e9:.3f}"}
        found |= {"violations": report["monotonic_violations"][n],
                  "shortest": report["min_dt_ps"][n], "gap": f"{report['max_gap_ms'][n]:.3f}"}
        if found != expected:
            verdict.complain(f"{found}, not {expected}")
    found, b = 0, 0
    others = lists[settings.channel_b]
    for time in lists[settings.channel_a]:
        while b < len(others) and others[b] < time - settings.window_ps:
            b += 1
        found += b < len(others) and others[b] <= time + settings.window_ps
    if found != report["coincidences"]:
        verdict.complain(f"coincidences={report['coincidences']}, not {found}")


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
        compare_with_tags(verdicts[0], scenario.tags)
    if scenario.compare == "recording":
        compare_recording(verdicts)
    return verdicts
