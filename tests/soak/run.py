"""Runs the program once, under the conditions of a step, and keeps all of it."""

import dataclasses
import fcntl
import os
import pathlib
import pty
import re
import resource
import select
import signal
import subprocess
import time
import tty

from saved_tags import Unloadable, read_saved_tags
from scenario import DOCUMENT, FIFO, LOGGED, SCRIPTED, TAGS_CSV, TAGS_NPY

PIPE_BYTES = 4096
GIB = 1 << 30
# Memory grows with the tags and never with a setting.
MEMORY_BYTES = 2 * GIB
# A sanitizer's report must not look like a status of the program.
SANITIZER_STATUS = 99


@dataclasses.dataclass
class Build:
    """Where one build keeps what a run needs."""

    directory: pathlib.Path
    sanitized: bool

    @property
    def program(self):
        return str(self.directory / "bin" / "zelk_smoke_test")

    @property
    def simulated_library(self):
        return str(self.directory / "lib" / "libzelk_timing.so.0")


@dataclasses.dataclass
class Call:
    """A line of a library's log."""

    name: str
    status: int = None  # of functions that give one
    received: int = None  # bytes that a read brought
    line: str = ""


@dataclasses.dataclass
class Result:
    status: int  # negative: the signal that ended it
    output: bytes
    error: bytes
    seconds: float
    timed_out: bool
    calls: list = None  # None: nothing was logged
    signals_sent: list = dataclasses.field(default_factory=list)
    saved_tags: object = None  # SavedTags, what is wrong with the file, or None: there is none
    document: bytes = None


def parse_log(text):
    calls = []
    for line in text.splitlines():
        call = Call(line.split(" ", 1)[0], line=line)
        answer = re.search(r" -> (-?\d+)( received=(\d+))?", line)
        if answer and not call.name.startswith("qx_discover_"):
            call.status = int(answer[1])
            call.received = int(answer[3]) if answer[3] else None
        calls.append(call)
    return calls


class Source:
    """A descriptor of ours that the program writes to, and what came from it."""

    def __init__(self, descriptor, idle_s=0):
        self.descriptor = descriptor
        self.idle_s = idle_s
        self.content = b""

    def take(self):
        try:
            piece = os.read(self.descriptor, 65536)
        except OSError:  # a terminal whose other end has gone
            piece = b""
        self.content += piece
        if not piece:
            self.close()

    def close(self):
        if self.descriptor is not None:
            os.close(self.descriptor)
            self.descriptor = None


def make_pipe(small):
    ours, theirs = os.pipe()
    if small:
        fcntl.fcntl(theirs, fcntl.F_SETPIPE_SZ, PIPE_BYTES)
    return ours, theirs


class Run:
    def __init__(self, step, build, directory):
        self.step = step
        self.build = build
        self.directory = pathlib.Path(directory)
        self.filling = b""  # what stands in the error pipe beforehand

    def environment(self):
        options = f"exitcode={SANITIZER_STATUS}:abort_on_error=0"
        variables = {"HOME": "/home/lab", "TSAN_OPTIONS": options, "LSAN_OPTIONS": options,
                     "ASAN_OPTIONS": options + ":allocator_may_return_null=0",
                     "UBSAN_OPTIONS": options + ":print_stacktrace=1"}
        if self.step.terminal:
            variables["TERM"] = "xterm"
        if self.step.library != "simulated":
            variables["LD_LIBRARY_PATH"] = str(self.build.directory / "lib" / self.step.library)
        if self.step.library == LOGGED:
            variables["ZELK_CALL_LOG"] = str(self.directory / "calls.log")
            variables["ZELK_CALL_LOG_READS"] = "1"
        if self.step.library == SCRIPTED:
            variables["ZELK_SCRIPT"] = str(self.directory / "device.script")
            variables["ZELK_SCRIPT_LOG"] = str(self.directory / "calls.log")
        return variables | self.step.environment

    def make_files(self):
        for name, content in self.step.files.items():
            path = self.directory / name
            if content is FIFO:
                os.mkfifo(path)
            else:
                path.write_bytes(content)
        (self.directory / "calls.log").unlink(missing_ok=True)
        library = self.directory / "device.so"  # for a port to name
        if not library.exists():
            library.symlink_to(self.build.simulated_library)

    def make_output(self):
        """Our end, or None, and the program's."""
        if self.step.output == "file":
            flags = os.O_WRONLY | os.O_CREAT | os.O_TRUNC
            return None, os.open(self.directory / "report.txt", flags)
        if self.step.output == "full_device":
            return None, os.open("/dev/full", os.O_WRONLY)
        ours, theirs = make_pipe(self.step.hold_output_s)
        if self.step.output == "closed_pipe":
            os.close(ours)
            return None, theirs
        return Source(ours, self.step.hold_output_s), theirs

    def make_error(self):
        if self.step.terminal:
            ours, theirs = pty.openpty()
            tty.setraw(theirs)
            return Source(ours), theirs
        ours, theirs = make_pipe(self.step.hold_error_s)
        if self.step.hold_error_s:
            self.filling = b"-" * PIPE_BYTES
            os.write(theirs, self.filling)
        return Source(ours, self.step.hold_error_s), theirs

    def prepare_child(self):
        """Between fork and exec."""
        resource.setrlimit(resource.RLIMIT_CORE, (0, 0))
        for number in SIGNALS:  # a shell starts what runs in the background with some ignored
            signal.signal(number, signal.SIG_DFL)
        if self.step.file_bytes is not None:
            resource.setrlimit(resource.RLIMIT_FSIZE, (self.step.file_bytes,) * 2)
        for descriptor in self.step.closed:
            os.close(descriptor)
        if not self.build.sanitized:
            resource.setrlimit(resource.RLIMIT_AS, (self.step.memory_bytes or MEMORY_BYTES,) * 2)

    def watch(self, process, sources, started):
        """Reads and sends signals until the program has ended; True: it had to be killed."""
        signals = list(self.step.signals)
        limit_s = self.step.longest_s * (3 if self.build.sanitized else 1)
        end = os.pidfd_open(process.pid)
        ended = False
        try:
            while not ended:
                now_s = time.monotonic() - started
                if now_s > limit_s:
                    return True
                while signals and signals[0][0] <= now_s:
                    process.send_signal(signals[0][1])
                    self.signals_sent.append(signals.pop(0)[1])
                waits = [limit_s] + [moment for moment, _ in signals[:1]]
                waits += [s.idle_s for s in sources if s.idle_s > now_s]
                ready = select.poll()
                ready.register(end, select.POLLIN)
                for source in sources:
                    if source.descriptor is not None and source.idle_s <= now_s:
                        ready.register(source.descriptor, select.POLLIN)
                happened = {number for number, _ in ready.poll(1 + 1000 * max(min(waits) - now_s, 0))}
                for source in sources:
                    if source.descriptor in happened:
                        source.take()
                ended = end in happened
        finally:
            os.close(end)
        return False

    def run(self):
        self.make_files()
        self.signals_sent = []
        output, their_output = self.make_output()
        error, their_error = self.make_error()
        sources = [source for source in (output, error) if source]
        started = time.monotonic()
        process = subprocess.Popen([self.build.program, *self.step.arguments], stdin=subprocess.DEVNULL,
                                   stdout=their_output, stderr=their_error, cwd=self.directory,
                                   env=self.environment(), preexec_fn=self.prepare_child)
        os.close(their_output)
        os.close(their_error)
        timed_out = self.watch(process, sources, started)
        if timed_out:
            process.kill()
        status = process.wait()
        seconds = time.monotonic() - started
        for source in sources:
            while source.descriptor is not None:
                source.take()
        return Result(status, self.collected_output(output), error.content[len(self.filling):],
                      seconds, timed_out, self.collected_calls(), self.signals_sent,
                      self.collected_tags(), self.collected_document())

    def collected_output(self, source):
        if source:
            return source.content
        return (self.directory / "report.txt").read_bytes() if self.step.output == "file" else b""

    def collected_tags(self):
        for name in (TAGS_NPY, TAGS_CSV):
            path = self.directory / name
            if path.exists():
                try:
                    return read_saved_tags(path)
                except Unloadable as fault:
                    return fault
        return None

    def collected_document(self):
        path = self.directory / DOCUMENT
        return path.read_bytes() if path.exists() else None

    def collected_calls(self):
        if self.step.library not in (LOGGED, SCRIPTED) or self.step.file_bytes is not None:
            return None  # also where the log itself may be cut off
        log = self.directory / "calls.log"
        return parse_log(log.read_text(errors="replace")) if log.exists() else []


def run_step(step, build, directory):
    return Run(step, build, directory).run()


SIGNALS = (signal.SIGINT, signal.SIGTERM)
