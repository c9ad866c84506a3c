"""zelk_plot as its user meets it."""

import importlib
import importlib.machinery
import importlib.util
import os
import pathlib
import stat
import subprocess
import sys
import types
import unittest
from unittest import mock

import plots
from plots import fresh, saved, tags_of

SCRIPT = plots.TOOLS / "zelk_plot"
ROWS = [(0, 0), (1, 24), (0, 10**8), (1, 10**8 + 30)]


def loaded():
    loader = importlib.machinery.SourceFileLoader("zelk_plot", str(SCRIPT))
    module = importlib.util.module_from_spec(importlib.util.spec_from_loader("zelk_plot", loader))
    loader.exec_module(module)
    return module


class Refused(unittest.TestCase):
    def refuse(self, text, *arguments):
        done = subprocess.run([str(SCRIPT), *arguments], text=True, capture_output=True,
                              timeout=plots.LONGEST_S, check=False, cwd=fresh("x").parent)
        self.assertEqual((done.returncode, done.stdout), (2, ""), done.stderr)
        self.assertEqual(done.stderr.count("\n"), 1, done.stderr)
        self.assertTrue(done.stderr.startswith("zelk_plot: "), done.stderr)
        self.assertIn(text, done.stderr)

    def test_are_arguments_that_say_nothing(self):
        path = str(saved(tags_of(ROWS)))
        self.refuse("RUN.npy")
        self.refuse("--channel", path, "--channel", "1")
        self.refuse("'4' is no channel", path, "--channel-a", "4")
        self.refuse("'x' is no number of picoseconds", path, "--window-ps", "x")
        self.refuse("no number of picoseconds", path, "--window-ps", str(2**63))
        self.refuse("--mode", path, "--mode", "extrenal")
        self.refuse("both channel 1", path, "--channel-a", "1")

    def test_are_inputs_that_are_none(self):
        path = str(saved(tags_of(ROWS)))
        self.refuse("No such file", "none.npy")
        self.refuse("No such file", path, "none.json")
        self.refuse("not a NumPy array file", str(SCRIPT), "-o", "page.html")
        self.refuse("no JSON document", path, path)
        self.refuse("not a regular file", "/dev/zero", "-o", "page.html")
        odd = fresh(os.fsdecode(b"r\xff\nun.npy"))
        odd.write_text("nothing")
        self.refuse("not a NumPy array file", str(odd))

    def test_are_outputs_that_are_none(self):
        path = str(saved(tags_of(ROWS)))
        self.refuse("must end in .html, .pdf, .png", path, "-o", "page.svg")
        self.refuse("must end in", path, "-o", "page")
        self.refuse("no such directory", path, "-o", "missing/page.html")
        directory = fresh("d.html")
        directory.mkdir()
        self.refuse("is a directory", path, "-o", str(directory))

    def test_are_outputs_over_an_input(self):
        page = saved(tags_of(ROWS), "run.npy")
        html = page.with_suffix(".html")
        os.link(page, html)
        self.refuse("is an input", str(page))
        self.refuse("is an input", str(page), "-o", str(html))
        document = fresh("run.html")
        document.write_text("{}")
        link = fresh("link.html")
        os.symlink(document, link)
        self.refuse("is an input", str(page), str(document), "-o", str(link))
        self.assertEqual(document.read_text(), "{}")


class Written(unittest.TestCase):
    """With a drawing module that only leaves a mark."""

    def setUp(self):
        self.script = loaded()
        self.pages = []

    def run_script(self, *arguments, draw=None):
        def write(page, path):
            self.pages.append(page)
            pathlib.Path(path).write_text("drawn")
        package = importlib.import_module("pictures.drawing")
        for name in ("html_page", "paper_page"):
            fake = types.ModuleType("pictures.drawing." + name)
            fake.write = draw or write
            patch = mock.patch.dict(sys.modules, {"pictures.drawing." + name: fake})
            patch.start()
            self.addCleanup(patch.stop)
            patch = mock.patch.object(package, name, fake, create=True)
            patch.start()
            self.addCleanup(patch.stop)
        self.script.run([str(a) for a in arguments])

    def test_is_a_page_beside_the_tags(self):
        path = saved(tags_of(ROWS))
        self.run_script(path)
        page = path.with_suffix(".html")
        self.assertEqual(page.read_text(), "drawn")
        self.assertEqual(sorted(os.listdir(path.parent)), ["run.html", "run.npy"])
        mask = os.umask(0o022)
        os.umask(mask)
        self.assertEqual(stat.S_IMODE(page.stat().st_mode), 0o666 & ~mask)
        self.assertEqual(self.pages[0].tags, 4)

    def test_takes_wishes_and_any_suffix(self):
        path = saved(tags_of(ROWS))
        for name in ("a.pdf", "a.PNG", "a.html"):
            self.run_script(path, "-o", path.parent / name, "--channel-a", "1", "--channel-b", "0",
                            "--window-ps", "-5", "--mode", "external")
            self.assertEqual((path.parent / name).read_text(), "drawn")
        pair = self.pages[0].pair
        self.assertEqual((pair.channel_a, pair.channel_b, pair.window_ps), (1, 0, -5))
        self.assertEqual(self.pages[0].run.mode, "external")

    def test_replaces_an_older_page_only_when_all_of_it_is_there(self):
        path = saved(tags_of(ROWS))
        page = path.with_suffix(".html")
        page.write_text("older")

        def fails(_, hidden):
            pathlib.Path(hidden).write_text("half")
            raise OSError(28, "No space left on device")
        with self.assertRaises(self.script.Failure) as caught:
            self.run_script(path, draw=fails)
        self.assertEqual(str(caught.exception), f"{page}: No space left on device")
        self.assertEqual(page.read_text(), "older")
        self.assertEqual(sorted(os.listdir(path.parent)), ["run.html", "run.npy"])


class Asked(unittest.TestCase):
    def test_for_help_it_explains_every_argument(self):
        done = subprocess.run([str(SCRIPT), "--help"], text=True, capture_output=True,
                              timeout=plots.LONGEST_S, check=False)
        self.assertEqual((done.returncode, done.stderr), (0, ""))
        for word in ("RUN.npy", "RUN.json", "-o FILE", "--channel-a", "--channel-b", "--window-ps",
                     "--mode"):
            self.assertIn(word, done.stdout)


if __name__ == "__main__":
    plots.main()
