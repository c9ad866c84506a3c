"""Runs the smoke test with json= and reads what it left behind."""

import argparse
import decimal
import json
import os
import pathlib
import signal
import subprocess
import sys
import tempfile
import time
import unittest

import jsonschema

PROGRAM = ""
SCRIPTED_LIBRARY = ""  # the directory of the library that answers from a script
DOCS = pathlib.Path()
HOUR_MS = 3_600_000
# A run that hangs for longer has failed; a library that hangs is given up after 5 s.
LONGEST_S = 60
# Every run's directory is in it.
SCRATCH = tempfile.TemporaryDirectory()


def configure():
    """Takes --NAME=VALUE for the three places from the command line; returns the rest."""
    global PROGRAM, SCRIPTED_LIBRARY, DOCS
    parser = argparse.ArgumentParser(add_help=False, allow_abbrev=False)
    parser.add_argument("--program", default=PROGRAM)
    parser.add_argument("--scripted-library", default=SCRIPTED_LIBRARY)
    parser.add_argument("--docs", type=pathlib.Path, default=DOCS)
    places, rest = parser.parse_known_args()
    PROGRAM, SCRIPTED_LIBRARY, DOCS = places.program, places.scripted_library, places.docs
    return [sys.argv[0], *rest]


def main():
    try:
        unittest.main(argv=configure())
    finally:
        SCRATCH.cleanup()


def raw64(tags):
    """The records of (channel, time in ps), as a read of a script."""
    words = b"".join((channel << 61 | time_ps).to_bytes(8, "big") for channel, time_ps in tags)
    return f"read status=0 delay_ms=0 bytes={words.hex()}"


class Result:
    def __init__(self, run, process, output, error):
        self.run = run
        self.status = process.returncode
        self.output = (output or b"").decode()
        self.error = error.decode(errors="replace")

    def document(self):
        """The document, after it was held against the schema."""
        return read_document(self.run.file)


def schema():
    return json.loads((DOCS / "run.schema.json").read_text())


def parse(text):
    document = json.loads(text, parse_float=decimal.Decimal)
    plain = json.loads(text)  # the validator knows no decimal numbers
    jsonschema.Draft202012Validator(schema()).validate(plain)
    return document


def read_document(path):
    return parse(path.read_text(encoding="utf-8"))


class Run:
    """One run in a directory of its own. `script`: lines for the scripted library;
    None: the simulated one."""

    def __init__(self, arguments, script=None, file="run.json"):
        self.path = pathlib.Path(tempfile.mkdtemp(dir=SCRATCH.name))
        self.file = self.path / file
        self.log = self.path / "calls.log"
        self.arguments = [os.fsencode(a) for a in arguments]
        self.environment = {"HOME": "/home/operator"}
        for name in ("ASAN_OPTIONS", "LSAN_OPTIONS", "TSAN_OPTIONS", "UBSAN_OPTIONS"):
            if name in os.environ:
                self.environment[name] = os.environ[name]
        if script is not None:
            (self.path / "device.script").write_text("".join(line + "\n" for line in script))
            self.environment["LD_LIBRARY_PATH"] = SCRIPTED_LIBRARY
            self.environment["ZELK_SCRIPT"] = str(self.path / "device.script")
            self.environment["ZELK_SCRIPT_LOG"] = str(self.log)

    def start(self, **more):
        more = {"stdout": subprocess.PIPE, "stderr": subprocess.PIPE} | more
        return subprocess.Popen([PROGRAM, *self.arguments], cwd=self.path, env=self.environment,
                                stdin=subprocess.DEVNULL, **more)

    def calls(self):
        return self.log.read_text() if self.log.exists() else ""

    def wait_for_call(self, text):
        end = time.monotonic() + LONGEST_S
        while text not in self.calls():
            if time.monotonic() > end:
                raise TimeoutError(f"no call {text}")
            time.sleep(0.01)

    def finish(self, process):
        try:
            output, error = process.communicate(timeout=LONGEST_S)
        finally:
            process.kill()
        return Result(self, process, output, error)

    def result(self, **more):
        return self.finish(self.start(**more))

    def interrupted_result(self, call, number=signal.SIGTERM):
        """The run that gets a signal some time after the call."""
        process = self.start()
        self.wait_for_call(call)
        time.sleep(0.3)
        process.send_signal(number)
        return self.finish(process)

    def hidden_files(self):
        return [name for name in os.listdir(self.path) if name.startswith(".")]
