#!/usr/bin/python3
"""Bash completes the program's arguments: its function called by hand, and a real shell
in which somebody presses the tabulator. Both with and without bash-completion."""
import argparse
import os
import pty
import re
import select
import shlex
import subprocess
import sys
import tempfile
import time
import unittest

PACKAGE = "/usr/share/bash-completion/bash_completion"
USUAL_BREAKS = " \t\n\"'@><=;|&(:"
BOUND_S = 60  # a busy machine needs a while

NOSPACE = "compopt -o nospace"

# What a call by hand prints: the option that it asks for, and its replies.
BY_HAND = """
asked_for=()
compopt() { asked_for=("compopt $*"); }
_zelk_smoke_test zelk_smoke_test "${COMP_WORDS[COMP_CWORD]}" "${COMP_WORDS[COMP_CWORD-1]}"
for line in "${asked_for[@]}" "${COMPREPLY[@]}"; do
  printf '%s\\n' "$line"
done
"""


def words_of(line, breaks):
    """The line as bash divides it: a run of breaking characters is a word of its own."""
    apart = "".join(c for c in breaks if c not in " \t\n\"'")
    kept = re.escape(apart)
    pattern = rf"[{kept}]+|(?:[^\s{kept}\"'\\]|\\.|'[^']*'?|\"[^\"]*\"?)+" if apart else r"\S+"
    words = re.findall(pattern, line)
    return words + [""] if line.endswith(" ") else words


def shell(script, directory, *sources):
    sourced = "".join(f"source {shlex.quote(file)}\n" for file in sources)
    result = subprocess.run(["/bin/bash", "--noprofile", "--norc", "-c", sourced + script],
                            cwd=directory, env=environment(directory), capture_output=True,
                            text=True, timeout=BOUND_S, check=False)
    if result.stderr:
        raise AssertionError(result.stderr)
    return result.stdout.splitlines()


def environment(directory):
    return {"HOME": directory, "PATH": "/usr/bin:/bin", "TERM": "dumb", "LC_ALL": "C.UTF-8"}


class Folder(unittest.TestCase):
    """A folder with something to complete."""

    def setUp(self):
        self.folder = tempfile.TemporaryDirectory()
        self.path = self.folder.name
        for directory in ("recordings", "completions"):
            os.mkdir(os.path.join(self.path, directory))
        for file in ("limits.txt", "results one.json", "unit.rec", "recordings/other.rec"):
            with open(os.path.join(self.path, file), "w", encoding="utf-8"):
                pass
        os.symlink(COMPLETION, os.path.join(self.path, "completions/zelk_smoke_test"))

    def tearDown(self):
        self.folder.cleanup()


class Function(Folder):
    package = False

    def setUp(self):
        super().setUp()
        if self.package and not os.path.exists(PACKAGE):
            self.skipTest("the package bash-completion is not installed")

    def replies(self, arguments, breaks=USUAL_BREAKS):
        line = "zelk_smoke_test " + arguments
        words = words_of(line, breaks)
        script = (f"COMP_WORDBREAKS={shlex.quote(breaks)}\n"
                  f"COMP_LINE={shlex.quote(line)}\nCOMP_POINT={len(line)}\n"
                  f"COMP_WORDS=({' '.join(map(shlex.quote, words))})\n"
                  f"COMP_CWORD={len(words) - 1}\n")
        sources = [PACKAGE, COMPLETION] if self.package else [COMPLETION]
        return shell(script + BY_HAND, self.path, *sources)

    def expect(self, arguments, *replies, **how):
        self.assertEqual(self.replies(arguments, **how), list(replies), arguments)

    def test_completes_a_key_without_a_space(self):
        self.expect("for", NOSPACE, "format=")
        self.expect("mode=external coin", NOSPACE, "coincidence_window_ps=")
        self.expect("dead", NOSPACE, "dead_time_ps=", "dead_time_ns=")

    def test_takes_keys_as_the_program_does(self):
        self.expect("FOR", NOSPACE, "format=")
        self.expect("--for", NOSPACE, "--format=")
        self.expect("-for")
        self.expect("--he", "--help")
        self.expect("--ver", "--version")
        self.expect("-", "--help", "--version")

    def test_offers_another_name_of_a_key_where_no_chief_one_begins_like_that(self):
        self.expect("ref", NOSPACE, "ref=", "ref_signal=")
        self.expect("control", NOSPACE, "control_port=")
        self.expect("reference_", NOSPACE, "reference_clock=", "reference_signal=")
        self.expect("nonsense")

    def test_completes_every_key_of_the_help_and_no_other(self):
        listed = subprocess.run([PROGRAM, "--help"], capture_output=True, text=True,
                                timeout=BOUND_S, check=True).stdout
        table = listed.split("meaning\n")[1].split("\nexit status")[0]
        keys = re.findall(r"^  ([a-z0-9_]+)", table, re.MULTILINE)
        others = re.findall(r"\(also ([a-z0-9_, ]+)\)", " ".join(table.split()))
        others = ", ".join(others).split(", ")
        self.assertIn("format", keys)
        self.assertIn("bytes", others)
        self.assertEqual(sorted(self.replies("")), sorted([NOSPACE, *(key + "=" for key in keys)]))
        with open(COMPLETION, encoding="utf-8") as script:
            listed = re.search(r"other_keys=\(([^)]*)\)", script.read())[1].split()
        self.assertEqual(sorted(listed), sorted(others))

    def test_completes_the_words_of_a_key(self):
        for arguments, words in {
                "format=": ["raw64", "delta32", "packed_delta"],
                "--Format=": ["raw64", "delta32", "packed_delta"],
                "format=p": ["packed_delta"],
                "format=RA": ["raw64"],
                "format=x": [],
                "transport=": ["usb"],
                "mode=": ["internal", "external"],
                "ref=": ["internal", "external", "auto", "none"],
                "reference_clock=a": ["auto"],
                "ref_signal=": ["10mhz", "1pps"],
                "reference_signal=1p": ["1pps"],
                "strict=": ["1", "0"],
                "list=": ["1", "0"],
                "bytes=": ["1", "0"],
                "load_calibration=": ["1", "0"],
                "capture_s=": [],
                "note=": [],
                "nonsense=": [],
        }.items():
            self.expect(arguments, *words)

    def test_gives_whole_arguments_where_the_equals_sign_divides_no_words(self):
        breaks = " \t\n\"'"
        self.expect("for", NOSPACE, "format=", breaks=breaks)
        self.expect("format=ra", "format=raw64", breaks=breaks)
        self.expect("limits=l", "limits=limits.txt", breaks=breaks)
        self.expect("port=sim://pai", NOSPACE, "port=sim://pairs", breaks=breaks)

    def test_completes_the_names_of_files(self):
        self.expect("limits=li", "limits.txt")
        self.expect("json=res", "results\\ one.json")
        self.expect("json='res", "results one.json")
        self.expect("json=results\\ o", "results\\ one.json")
        self.expect("save_tags=rec", NOSPACE, "recordings/")
        self.expect("save_tags=recordings/", "recordings/other.rec")
        self.expect("json=~/uni", "~/unit.rec")
        self.expect("json=none")

    def test_completes_ports(self):
        self.expect("port=", NOSPACE, "ftdi://", "sim://tags", "sim://pulses", "sim://random",
                    "sim://pairs", "sim://burst", "sim://silent", "tap://", "replay://")
        self.expect("port=sim://p", NOSPACE, "//pulses", "//pairs")
        self.expect("control_port=f", NOSPACE, "ftdi://")
        self.expect("port='sim://pa", NOSPACE, "sim://pairs")
        self.expect("port='sim://pairs?pair_r", NOSPACE, "sim://pairs?pair_rate_hz=")
        self.expect("port='sim://tags?fi", NOSPACE,
                    "sim://tags?file=", "sim://tags?fifo_bytes=")
        self.expect("port='sim://pairs?seed=1&jit", NOSPACE, "sim://pairs?seed=1&jitter_ps=")

    def test_completes_the_files_of_ports(self):
        self.expect("port=replay://un", NOSPACE, "//unit.rec")
        self.expect("port=tap://rec", NOSPACE, "//recordings/")
        self.expect("port='tap://unit.rec?library=un", NOSPACE,
                    "tap://unit.rec?library=unit.rec")
        self.expect("port='sim://tags?file=recordings/o", NOSPACE,
                    "sim://tags?file=recordings/other.rec")


class FunctionWithThePackage(Function):
    package = True


class Shell(Folder):
    """Somebody types. The shell's line ends in what it would run: a function that keeps
    its arguments, one per line."""

    def arguments(self, typed, more=""):
        setup = (f"source {shlex.quote(COMPLETION)}\n"
                 "zelk_smoke_test() { printf '%s\\n' \"$@\" > arguments; }\n" + more)
        return self.run_shell(setup, typed)

    def test_completes_whole_arguments_where_the_equals_sign_divides_no_words(self):
        breaks = "COMP_WORDBREAKS=$' \\t\\n\"\\'<>&|;('\n"
        for typed, arguments in {"for\tr\t": ["format=raw64"],
                                 "json=res\tno\tx": ["json=results one.json", "note=x"],
                                 "port=sim://pa\t": ["port=sim://pairs"]}.items():
            with self.subTest(typed=typed):
                self.assertEqual(self.arguments(typed, breaks), arguments)

    def run_shell(self, setup, typed):
        with open(os.path.join(self.path, "setup"), "w", encoding="utf-8") as file:
            file.write(setup)
        child, terminal = pty.fork()
        if child == 0:
            os.chdir(self.path)
            os.execve("/bin/bash", ["bash", "--noprofile", "--norc", "-i"],
                      {**environment(self.path), "PS1": "ready> ", "HISTFILE": "",
                       "BASH_COMPLETION_USER_DIR": self.path})
        try:
            self.converse(terminal, f"source ./setup\nzelk_smoke_test {typed}\nexit\n")
        finally:
            os.close(terminal)
            os.waitpid(child, 0)
        with open(os.path.join(self.path, "arguments"), encoding="utf-8") as file:
            return file.read().splitlines()

    def converse(self, terminal, text):
        """Types a line each time the shell is ready for one, until it ends."""
        lines = text.splitlines(keepends=True)
        shown = ""
        end = time.monotonic() + BOUND_S
        while time.monotonic() < end:
            if select.select([terminal], [], [], 1)[0]:
                try:
                    shown += os.read(terminal, 4096).decode(errors="replace")
                except OSError:
                    return
            if lines and shown.endswith("ready> "):
                os.write(terminal, lines.pop(0).encode())
                shown = ""
        self.fail("the shell does not end; it shows " + shown)

    def test_completes_what_is_typed(self):
        for typed, arguments in {
                "for\tr\t": ["format=raw64"],
                "--for\tpa\t": ["--format=packed_delta"],
                "FOR\tde\t": ["format=delta32"],
                "mode=e\tcoin\t5": ["mode=external", "coincidence_window_ps=5"],
                "note='two words' str\t1\t": ["note=two words", "strict=1"],
                "json=res\tno\tx": ["json=results one.json", "note=x"],
                "json='res\tno\tx": ["json=results one.json", "note=x"],
                "json=results\\ o\tno\tx": ["json=results one.json", "note=x"],
                "save_tags=rec\to\tno\tx": ["save_tags=recordings/other.rec", "note=x"],
                "port=sim://pa\t": ["port=sim://pairs"],
                "port='sim://pa\t": ["port=sim://pairs"],
                "port=replay://un\t": ["port=replay://unit.rec"],
                "port='sim://pairs?pair_r\t20000": ["port=sim://pairs?pair_rate_hz=20000"],
                "nonsense\t": ["nonsense"],
        }.items():
            with self.subTest(typed=typed):
                self.assertEqual(self.arguments(typed), arguments)


class ShellWithThePackage(Shell):
    """The package finds the completion when it is asked for, by the program's name."""

    def arguments(self, typed, more=""):
        if not os.path.exists(PACKAGE):
            self.skipTest("the package bash-completion is not installed")
        setup = (f"source {PACKAGE}\n"
                 "zelk_smoke_test() { printf '%s\\n' \"$@\" > arguments; }\n" + more)
        return self.run_shell(setup, typed)


if __name__ == "__main__":
    parser = argparse.ArgumentParser()
    parser.add_argument("--completion", required=True)
    parser.add_argument("--program", required=True)
    options, rest = parser.parse_known_args()
    COMPLETION = os.path.abspath(options.completion)
    PROGRAM = options.program
    unittest.main(argv=[sys.argv[0], *rest])
