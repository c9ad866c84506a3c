#!/usr/bin/python3
"""Every command that the documents show is run, and ends with the status that they say.

The commands of a page run one after the other in a folder that looks like the project's:
what one leaves behind the next may read. `scripts/run` builds nothing there. Behind a
command

    # status N        is its exit status, 0 where nothing is said,
    # needs a unit    keeps it from being run, and so does
    # installs

A block with the info "text shown" holds lines that the commands above it print. A block
with a name behind its language is a file that is saved under that name.
"""

import argparse
import os
import pathlib
import re
import subprocess
import sys
import tempfile
import unittest

PROJECT = pathlib.Path(__file__).resolve().parents[2]
BUILD = pathlib.Path()
LONGEST_S = 120

# Commands that are not run, or not as they stand, and why. Each must occur.
NOT_RUN = {
    ("README.md", "scripts/test"): "it is what runs this test",
    ("README.md", "LD_LIBRARY_PATH=/opt/zelk/lib build/release/bin/zelk_smoke_test port=ftdi://"):
        "needs a unit",
    ("README.md", "LD_LIBRARY_PATH=/usr/local/lib/zelk-simulator zelk_smoke_test port='tap://"
     "unit.rec?library=/opt/zelk/lib/libzelk_timing.so.0&port=ftdi://'"): "needs a unit",
}
# Pages whose commands another test runs, in a way that does not go by the clock.
RUN_ELSEWHERE = {"docs/library.md": "other_project/build_test.py",
                 "docs/production.md": "whole_program_production_test and "
                                       "whole_program_production_scripts_test"}
# What a page says to put in a command's place.
REPLACED = {"docs/simulated-unit.md": ("library=/usr/lib/libzelk_timing.so.0",
                                       "library=build/release/lib/libzelk_timing.so.0")}
SAVE = "zelk_smoke_test mode=external channel_mask=0x03 save_tags="
# What stands ready when a page's commands begin.
PREPARED = {
    "docs/simulated-unit.md": [SAVE + "run.npy"],
    "docs/port-keys.md": [SAVE + "run.npy", SAVE + "later.npy"],
    "docs/saved-tags.md": [SAVE + "run.csv"],
}

COMMAND = re.compile(
    r"(\w+=\S* )*(scripts|tools|build|benchmarks|examples|docs|\.ci|\.|moved)/\S|"
    r"(\w+=\S* )*(zelk_\w+|cmake|ctest|c\+\+|g\+\+|pkg-config|sudo|apt-get|apt|dpkg|python3|sh|cp|"
    r"mkdir|ls|ldd|ldconfig|echo|man|git|cd|chmod) ?")
COMMENT = re.compile(r"\s+# (.*)$")
MARKS = ("needs a unit", "installs")


class Block:
    def __init__(self, info, line):
        self.language, self.name = (info.split() + ["", ""])[:2]
        self.line = line
        self.lines = []

    def is_shown(self):
        return (self.language, self.name) == ("text", "shown")

    def is_program(self):
        return self.language == "python" and not self.name

    def is_commands(self):
        if self.name or self.language not in ("", "sh"):
            return False
        return self.language == "sh" or bool(COMMAND.match(self.lines[0]))

    def text(self):
        return "\n".join(self.lines) + "\n"


def blocks_of(text):
    blocks = []
    inside = False
    for number, line in enumerate(text.splitlines(), 1):
        if line.startswith("```"):
            inside = not inside
            if inside:
                blocks.append(Block(line[3:], number))
        elif inside:
            blocks[-1].lines.append(line)
    assert not inside, "a block without an end"
    return blocks


class Command:
    """A command of a page, which may go on over several lines, and what it says of it."""

    def __init__(self, text):
        comment = COMMENT.search(text)
        self.said = comment.group(1) if comment else ""
        self.text = text[:comment.start()] if comment else text
        stated = re.match(r"status (\d+)$", self.said)
        self.is_stated = bool(stated)
        self.status = int(stated.group(1)) if stated else 0


def commands_of(block):
    whole = re.sub(r"\\\n\s*", "", block.text())
    if block.language == "sh" and "$" in whole:  # a script, whose lines belong together
        return [Command(whole.rstrip("\n"))]
    return [Command(line) for line in whole.splitlines() if line.strip()]


def pages():
    found = sorted(PROJECT.glob("*.md")) + sorted(PROJECT.glob("docs/**/*.md"))
    found += sorted(PROJECT.glob("examples/**/*.md"))
    return [path for path in found if path.name != "CHANGELOG.md"]


def reason_to_leave_out(page, command):
    if command.said in MARKS:
        return command.said
    if page in RUN_ELSEWHERE:
        return RUN_ELSEWHERE[page]
    if page == "README.md" and command.is_stated:
        return "whole_program_readme_test"
    return NOT_RUN.get((page, command.text))


class Folder:
    """The project's folder, with a scripts/run that builds nothing."""

    def __init__(self, path):
        self.path = pathlib.Path(path)
        for name in ("tools", "docs"):
            (self.path / name).symlink_to(PROJECT / name)
        (self.path / "build").mkdir()
        (self.path / "build/release").symlink_to(BUILD)
        (self.path / "scripts").mkdir()
        script = self.path / "scripts/run"
        script.write_text("#!/bin/sh\n[ $# -gt 0 ] || set -- channel_a=2 channel_b=3\n"
                          "exec build/release/bin/zelk_smoke_test \"$@\"\n", encoding="utf-8")
        script.chmod(0o755)
        self.environment = {"PATH": f"{BUILD}/bin:/usr/bin:/bin", "HOME": str(self.path / "home"),
                            "LANG": "C.UTF-8"}

    def files(self):
        return set(self.path.iterdir())

    def run_once(self, *words):
        return subprocess.run(words, cwd=self.path, env=self.environment, text=True,
                              stdin=subprocess.DEVNULL, capture_output=True, timeout=LONGEST_S,
                              check=False)

    def run(self, text, status):
        """A machine that stands still for as long as a capture lasts sees no tags in it: then
        the command gets another try, from where it began."""
        for attempt in range(3):
            before = self.files()
            result = self.run_once("sh", "-c", text)
            if result.returncode == status or 3 not in (status, result.returncode):
                break
            for path in self.files() - before if attempt < 2 else ():
                path.unlink()
        return result


class Documents(unittest.TestCase):
    def check_page(self, page, text):
        with tempfile.TemporaryDirectory() as path:
            folder = Folder(path)
            for command in PREPARED.get(page, []):
                self.assertEqual(folder.run(command, 0).returncode, 0, command)
            printed = []
            for block in blocks_of(text):
                with self.subTest(page=page, line=block.line):
                    printed = self.check_block(page, folder, block, printed)

    def check_block(self, page, folder, block, printed):
        if block.is_shown():
            self.assertTrue(printed, "nothing was run that could have printed it")
            for line in block.lines:
                self.assertIn(line, printed)
        elif block.is_program() and page not in RUN_ELSEWHERE:
            result = folder.run_once("/usr/bin/python3", "-B", "-c", block.text())
            self.assertEqual((result.returncode, result.stderr), (0, ""))
        elif block.is_commands():
            printed = []
            for command in commands_of(block):
                printed += self.check_command(page, folder, command)
        return printed

    def check_command(self, page, folder, command):
        # What is neither of these is a remark, or a status that nobody checks.
        if re.search(r"status \d", command.said) and not command.is_stated:
            self.fail(f"no status: {command.said}")
        if reason_to_leave_out(page, command):
            return []
        text = command.text.replace(*REPLACED.get(page, ("", "")))
        result = folder.run(text, command.status)
        self.assertEqual(result.returncode, command.status, f"{text}\n{result.stderr}")
        return (result.stdout + result.stderr).splitlines()

    def test_commands_do_what_the_pages_say(self):
        for path in pages():
            page = str(path.relative_to(PROJECT))
            self.check_page(page, path.read_text(encoding="utf-8"))

    def test_blocks_of_commands_are_told_from_what_they_print(self):
        """A command that is taken for output would never be run."""
        for path in pages():
            for block in blocks_of(path.read_text(encoding="utf-8")):
                if block.is_commands() or block.name or block.language not in ("", "sh", "text"):
                    continue
                for line in block.lines:
                    with self.subTest(page=path.name, line=line):
                        self.assertNotRegex(line, r"^(\w+=\S+ )*(scripts/|tools/|zelk_smoke_test )")

    def test_every_exception_occurs(self):
        found = set()
        for path in pages():
            page = str(path.relative_to(PROJECT))
            text = path.read_text(encoding="utf-8")
            if page in REPLACED:
                self.assertIn(REPLACED[page][0], text)
                self.assertIn(REPLACED[page][1], text)
            for block in blocks_of(text):
                if block.is_commands():
                    found |= {(page, command.text) for command in commands_of(block)}
        self.assertEqual(set(NOT_RUN) - found, set())
        for page in [*RUN_ELSEWHERE, *PREPARED, *REPLACED]:
            self.assertTrue((PROJECT / page).is_file(), page)

    def test_scripts_named_in_the_text_exist(self):
        for path in pages():
            text = re.sub(r"```.*?```", "", path.read_text(encoding="utf-8"), flags=re.DOTALL)
            for name in re.findall(r"`((?:scripts|tools|benchmarks|\.ci)/[\w./]+)", text):
                with self.subTest(page=path.name, name=name):
                    self.assertTrue((PROJECT / name).exists())

    def test_links_lead_to_pages_and_headings(self):
        for path in pages():
            text = re.sub(r"```.*?```", "", path.read_text(encoding="utf-8"), flags=re.DOTALL)
            for target in re.findall(r"\]\(([^)\s]+)\)", text):
                if target.startswith(("http:", "https:", "mailto:")):
                    continue
                with self.subTest(page=path.name, target=target):
                    name, _, heading = target.partition("#")
                    aim = (path.parent / name) if name else path
                    self.assertTrue(aim.exists())
                    if heading:
                        self.assertIn(heading, headings(aim))


class OfItself(unittest.TestCase):
    """A page that says something wrong is found out."""

    def failures_of(self, text):
        class Page(Documents):
            def runTest(self):
                self.check_page("docs/none.md", text)

        result = unittest.TestResult()
        Page("runTest").run(result)
        self.assertEqual(result.errors, [])
        return len(result.failures)

    def test_a_wrong_status(self):
        self.assertEqual(self.failures_of("```\necho a   # status 0\n```\n"), 0)
        self.assertEqual(self.failures_of("```\necho a   # status 2\n```\n"), 1)
        self.assertEqual(self.failures_of("```\nls nothing-of-this-name\n```\n"), 1)
        self.assertEqual(self.failures_of("```\nls nothing-of-this-name # installs\n```\n"), 0)

    def test_lines_that_are_not_printed(self):
        page = "```\necho a\n```\n\nprints\n\n```text shown\n%s\n```\n"
        self.assertEqual(self.failures_of(page % "a"), 0)
        self.assertEqual(self.failures_of(page % "b"), 1)

    def test_what_is_left_behind(self):
        self.assertEqual(self.failures_of("```\necho a > b\n```\n\n```\nls b\n```\n"), 0)

    def test_a_command_over_two_lines(self):
        page = "```\nsh -c \\\n  'exit 4'   # status %d\n```\n"
        self.assertEqual(self.failures_of(page % 4), 0)
        self.assertEqual(self.failures_of(page % 0), 1)

    def test_a_program(self):
        self.assertEqual(self.failures_of("```python\nprint(1)\n```\n"), 0)
        self.assertEqual(self.failures_of("```python\nprint(x)\n```\n"), 1)


def headings(path):
    """As the anchors that pages of a repository have for them."""
    text = re.sub(r"```.*?```", "", path.read_text(encoding="utf-8"), flags=re.DOTALL)
    lines = re.findall(r"^#+ +(.*)$", text, re.MULTILINE)
    return {re.sub(r"[^\w\- ]", "", line.lower()).replace(" ", "-") for line in lines}


def main():
    global BUILD
    parser = argparse.ArgumentParser()
    parser.add_argument("--build", type=pathlib.Path, required=True)
    options, rest = parser.parse_known_args()
    BUILD = options.build.resolve()
    unittest.main(argv=[sys.argv[0], *rest])


if __name__ == "__main__":
    main()
