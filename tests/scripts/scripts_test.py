#!/usr/bin/python3
"""The scripts say how they are called, and build where they can write.

They run in a copy of the tree, with a cmake that notes how it was called and leaves a
program behind that prints its arguments. What needs a tree of another user's is skipped
where the tests do not run as root."""

import os
import pathlib
import shutil
import stat
import subprocess
import sys
import tempfile
import unittest

PROJECT = pathlib.Path(__file__).resolve().parents[2]
NOBODY = 65534
# Packages are all there; a build is a program, and a note of how it was asked for.
COMMANDS = {
    "dpkg-query": "printf installed\n",
    "ctest": 'echo "ctest $*" >> "$NOTES"\n',
    "cmake": """echo "cmake $*" >> "$NOTES"
if [ "$1" = --build ]; then
  mkdir -p "$2/bin"
  printf '#!/bin/sh\\necho "program $*"; pwd\\n' > "$2/bin/zelk_smoke_test"
  chmod +x "$2/bin/zelk_smoke_test"
else
  while [ "$1" != -B ]; do shift; done
  mkdir -p "$2" && echo cache > "$2/CMakeCache.txt"
fi
""",
}
TAKES_NO_ARGUMENT = ["coverage", "lint"]
BUILDS = ["benchmark", "coverage", "fuzz", "lint", "run", "soak", "test"]


class Tree(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        top = pathlib.Path(folder.name).resolve()
        top.chmod(0o755)
        self.tree = top / "tree"
        self.own = top / "own"
        self.commands = top / "commands"
        for directory in (self.tree, self.own, self.commands):
            directory.mkdir()
        shutil.copytree(PROJECT / "scripts", self.tree / "scripts")
        for name, body in COMMANDS.items():
            (self.commands / name).write_text("#!/bin/sh\n" + body, encoding="utf-8")
            (self.commands / name).chmod(0o755)
        self.notes = self.own / "notes"
        self.user = []

    def become_nobody(self):
        if os.getuid() != 0:
            self.skipTest("needs root, to have a tree of another user's")
        if not shutil.which("setpriv"):
            self.skipTest("needs setpriv")
        os.chown(self.own, NOBODY, NOBODY)
        self.user = ["setpriv", f"--reuid={NOBODY}", f"--regid={NOBODY}", "--clear-groups"]

    def make_read_only(self):
        """For root nothing is; so it is another user's as well."""
        if os.getuid() == 0:
            self.become_nobody()
        for directory, _, _ in os.walk(self.tree):
            self.addCleanup(os.chmod, directory, 0o755)
        for directory, _, _ in os.walk(self.tree):
            os.chmod(directory, 0o555)

    def call(self, *words, **environment):
        everywhere = {"PATH": f"{self.commands}:/usr/bin:/bin", "HOME": str(self.own / "home"),
                      "NOTES": str(self.notes)}
        name, *arguments = words
        return subprocess.run([*self.user, str(self.tree / "scripts" / name), *arguments],
                              cwd=self.own, env={**everywhere, **environment}, text=True,
                              stdin=subprocess.DEVNULL, capture_output=True, timeout=60,
                              check=False)

    def noted(self):
        return self.notes.read_text(encoding="utf-8").splitlines() if self.notes.exists() else []


class Usage(Tree):
    def test_every_script_answers_help_and_builds_nothing(self):
        names = [path.name for path in (PROJECT / "scripts").iterdir()
                 if path.stat().st_mode & stat.S_IXUSR and path.name != "run"]
        self.assertGreaterEqual(len(names), 7)
        for name in sorted(names):
            for word in ("--help", "-h"):
                with self.subTest(name=name, word=word):
                    result = self.call(name, word)
                    self.assertTrue(result.stdout.startswith(f"usage: scripts/{name}"))
                    self.assertGreater(result.stdout.count("\n"), 2)
                    self.assertNotIn("shared.sh", result.stdout)
                    self.assertEqual((result.returncode, result.stderr), (0, ""))
        self.assertEqual(self.noted(), [])

    def test_the_program_answers_help_behind_the_usage_of_run(self):
        result = self.call("run", "--help")
        self.assertEqual(result.returncode, 0)
        self.assertEqual(result.stdout.splitlines()[0], "program --help")
        self.assertTrue(result.stderr.startswith("usage: scripts/run"))

    def test_other_arguments_are_refused_in_one_line(self):
        calls = [["test", "relaese"], ["test", "asan", "-v"], ["benchmark", "--slow"],
                 ["soak", "60", "--sed", "1"], ["soak", "soon"], ["fuzz"], ["fuzz", "soon"],
                 ["fuzz", "5", "decode"]] + [[name, "x"] for name in TAKES_NO_ARGUMENT]
        for words in calls:
            with self.subTest(words=words):
                result = self.call(*words)
                self.assertEqual((result.returncode, result.stdout), (2, ""))
                self.assertRegex(result.stderr, rf"^scripts/{words[0]}: it takes .*--help.*\n$")
        self.assertEqual(self.noted(), [])

    def test_soak_refuses_an_unknown_build(self):
        result = self.call("soak", "1", SOAK_PRESET="debug")
        self.assertEqual(result.returncode, 2)
        self.assertEqual(result.stderr,
                         "scripts/soak: SOAK_PRESET is release, asan or tsan, not `debug`\n")


class Building(Tree):
    def expect_run(self, result, build):
        self.assertEqual(result.returncode, 0, result.stderr)
        self.assertEqual(self.noted(), [f"cmake --preset release -B {build}/release",
                                        f"cmake --build {build}/release --target zelk_smoke_test"])


class Places(Building):
    def test_in_the_tree(self):
        result = self.call("run")
        self.expect_run(result, self.tree / "build")
        self.assertEqual(result.stderr, "")

    def test_the_program_runs_where_the_script_was_called(self):
        result = self.call("run", "json=run.json", "note=two  words")
        self.assertEqual(result.stdout,
                         f"program json=run.json note=two  words\n{self.own}\n")

    def test_without_arguments_the_program_compares_what_is_streamed(self):
        self.assertIn("program channel_a=2 channel_b=3\n", self.call("run").stdout)

    def test_in_the_named_directory(self):
        for name in ("elsewhere", str(self.own / "elsewhere")):
            with self.subTest(name=name):
                self.notes.unlink(missing_ok=True)
                self.expect_run(self.call("run", ZELK_BUILD_DIR=name), self.own / "elsewhere")
        self.assertFalse((self.tree / "build").exists())

    def test_tests_run_in_the_named_directory(self):
        result = self.call("test", "asan", ZELK_BUILD_DIR="there")
        build = self.own / "there/asan"
        self.assertEqual(result.returncode, 0, result.stderr)
        self.assertEqual(self.noted()[:2], [f"cmake --preset asan -B {build}",
                                            f"cmake --build {build}"])
        self.assertRegex(self.noted()[2], rf"^ctest --test-dir {build} ")

    def test_from_a_tree_that_cannot_be_written(self):
        self.make_read_only()
        self.expect_run(self.call("run", ZELK_BUILD_DIR="mine"), self.own / "mine")

    def test_the_user_s_own_directory_takes_the_place_of_one_that_cannot_be_written(self):
        self.make_read_only()
        own = f"{self.own}/home/.cache/zelk{self.tree}"
        result = self.call("run")
        self.expect_run(result, own)
        self.assertEqual(result.stderr,
                         f"scripts/run: cannot write {self.tree}/build/release, so it builds in "
                         f"{own}/release; ZELK_BUILD_DIR names another place\n")

    def test_a_file_of_one_s_own_that_is_read_only_is_no_obstacle(self):
        build = self.tree / "build/release"
        build.mkdir(parents=True)
        (build / "copied").write_text("", encoding="utf-8")
        (build / "copied").chmod(0o444)
        self.expect_run(self.call("run"), self.tree / "build")

    def test_one_line_where_there_is_no_place(self):
        self.make_read_only()
        for environment in ({"HOME": "/nonexistent"}, {"ZELK_BUILD_DIR": "/proc/none"},
                            {"ZELK_BUILD_DIR": str(self.tree / "x")}):
            for name in BUILDS:
                with self.subTest(environment=environment, name=name):
                    words = [name, "5"] if name == "fuzz" else [name]
                    result = self.call(*words, **environment)
                    self.assertEqual((result.returncode, result.stdout), (2, ""))
                    self.assertRegex(result.stderr,
                                     rf"^scripts/{name}: cannot write .*; set ZELK_BUILD_DIR to a "
                                     r"directory that can be written\n$")
        self.assertEqual(self.noted(), [])


class OtherUsers(Building):
    def test_after_a_build_by_root(self):
        self.become_nobody()
        build = self.tree / "build/release"
        build.mkdir(parents=True)
        (build / "CMakeCache.txt").write_text("root's\n", encoding="utf-8")
        result = self.call("run")
        self.expect_run(result, f"{self.own}/home/.cache/zelk{self.tree}")
        self.assertEqual((build / "CMakeCache.txt").read_text(encoding="utf-8"), "root's\n")

    def test_after_root_went_on_with_the_user_s_build(self):
        self.become_nobody()
        build = self.tree / "build/release"
        build.mkdir(parents=True)
        (build / ".ninja_log").write_text("root's\n", encoding="utf-8")
        for directory in (self.tree, self.tree / "build", build):
            os.chown(directory, NOBODY, NOBODY)
        self.expect_run(self.call("run"), f"{self.own}/home/.cache/zelk{self.tree}")


if __name__ == "__main__":
    unittest.main(argv=sys.argv)
