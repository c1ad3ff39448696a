#!/usr/bin/env python3
"""Takes the tour of docs/tour.md word for word: every command runs, in order, in one home folder; what a block with `$ ` shows is
what is said; every block of code stands in the file that the text before it names. PANTIQ_BUILD is a release build."""
import os
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile
import unittest

ROOT = pathlib.Path(os.environ["PANTIQ_ROOT"])
sys.path.insert(0, str(ROOT / "tests" / "apps"))
from blocks import blocks  # noqa: E402

TOUR = ROOT / "docs" / "tour.md"


class Tour(unittest.TestCase):
    def setUp(self):
        self.home = pathlib.Path(tempfile.mkdtemp(prefix="pantiq_tour_"))
        self.addCleanup(shutil.rmtree, self.home)
        project = self.home / "project"
        (project / "build").mkdir(parents=True)
        os.symlink(os.environ["PANTIQ_BUILD"], project / "build" / "release")
        self.state = self.home / ".state"
        self.state.write_text(f"export HOME='{self.home}'\ncd '{project}'\n")

    def shell(self, command):
        """Runs it where the last one ended: in its folder, with its variables."""
        script = f". '{self.state}'\nset -eo pipefail\n{command}\n{{ export -p; echo \"cd '$PWD'\"; }} >'{self.state}'\n"
        environment = {k: v for k, v in os.environ.items() if k not in ("PANTIQ_MODULE_PATH", "PANTIQ_CPU", "CMAKE_PREFIX_PATH")}
        return subprocess.run(["bash", "-c", script], env=environment, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                              stderr=subprocess.STDOUT, text=True)

    def test_commands(self):
        ran = shown = 0
        for block in blocks(TOUR.read_text()):
            if block.name:
                (self.home / "tour" / block.name).write_text(block.text)
            if block.kind or block.reason:
                continue
            if block.text.startswith("$ "):
                command, _, said = block.text[2:].partition("\n")
                done = self.shell(command + " || true")  # what is shown may be a fault
                self.assertEqual(done.stdout, said, f"tour.md:{block.line}: {command}")
                shown += 1
            else:
                done = self.shell(block.text)
                self.assertEqual(done.returncode, 0, f"tour.md:{block.line}:\n{block.text}\n{done.stdout[-4000:]}")
                ran += len(block.text.splitlines())
        self.assertGreater(ran, 15)
        self.assertGreater(shown, 3)
        left = {p.name for p in (self.home / "tour").iterdir()}
        self.assertLessEqual({"rings-00.png", "dark-02.png", "half-02.png", "mirrored.asf", "dark.asf"}, left)

    def test_code_is_from_the_files_named(self):
        text, looked = TOUR.read_text(), 0
        for block in blocks(text):
            if block.kind not in ("cpp", "cmake"):
                continue
            before = "\n".join(text.split("\n")[:block.line - 1])
            named = [n for n in re.findall(r"`((?:examples|pantiq)/[\w./]+\.\w+)`", before)]
            file = (ROOT / named[-1]).read_text()
            self.assertIn(block.text, file, f"tour.md:{block.line}: not in {named[-1]}")
            looked += 1
        self.assertGreater(looked, 5)

    def test_rename_refuses_what_is_no_name(self):
        script = ROOT / "examples" / "skeleton" / "rename.sh"
        for words in ([], ["darken"], ["Two Words"], ["A/B"], ["Darken", "More"]):
            done = subprocess.run([script, *words], cwd=self.home, capture_output=True, text=True)
            self.assertEqual(done.returncode, 2, words)
            self.assertIn("begins with a capital", done.stderr)
        (self.home / "Darken").mkdir()
        done = subprocess.run([script, "Darken"], cwd=self.home, capture_output=True, text=True)
        self.assertEqual((done.returncode, done.stderr), (2, "rename: 'Darken' is there already\n"))


if __name__ == "__main__":
    unittest.main()
