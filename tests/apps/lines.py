#!/usr/bin/env python3
"""Runs every command of the documents, word for word: a reader who copies one must get what the text says.

blocks.py says what a command is. Those of a page run in its order, in a folder of its own with what their names ask for: clips
in.mp4, a.mp4 and b.mp4, the example graphs and plug-ins. What no test can run is marked with a reason, which is listed here, and
counted. PANTIQ and the like are those of pantiq_test.py, PANTIQ_ROOT is the project.
"""
import collections
import os
import pathlib
import shutil
import subprocess
import unittest

import pantiq_test
from blocks import blocks, commands

ROOT = pathlib.Path(os.environ["PANTIQ_ROOT"])
REASONS = {"a form, no command", "needs a device of sound", "needs a person"}
PAGES = sorted([*(ROOT / "docs").rglob("*.md"), ROOT / "README.md"])
TOUR = ROOT / "docs" / "tour.md"  # run by tests/install, with an installed library


class Lines(pantiq_test.Case):
    left_out = collections.Counter()

    def setUp(self):
        super().setUp()
        os.mkdir(self.path("bin"))
        os.symlink(pantiq_test.PANTIQ, self.path("bin/pantiq"))
        screen = pantiq_test.Screen(self)
        self.env = {**os.environ, **screen.env, "PATH": f"{self.path('bin')}:{os.environ['PATH']}"}
        clip = ["ffmpeg", "-loglevel", "error", "-f", "lavfi", "-i", "testsrc=size=320x180:rate=25:duration=12", "-f", "lavfi", "-i",
                "sine=duration=12", "-c:v", "libx264", "-preset", "ultrafast", "-pix_fmt", "yuv420p", "-c:a", "aac", self.path("clip")]
        subprocess.run([*clip[:-1], "-f", "mp4", clip[-1]], check=True)

    def folder_of(self, page):
        folder = pathlib.Path(self.path(page.stem + ".run"))
        (folder / "out").mkdir(parents=True)
        for name in ("in.mp4", "a.mp4", "b.mp4", "out/cockatoo.mp4"):
            os.symlink(self.path("clip"), folder / name)
        os.symlink(ROOT, folder / "PATH_TO_PANTIQ")
        os.symlink(ROOT / "examples", folder / "examples")
        for plugin in pathlib.Path(os.environ["PANTIQ_PLUGINS"]).glob("*.so"):
            os.symlink(plugin, folder / plugin.name)
        os.symlink(folder / "sepia32.so", folder / "effect.so")
        return folder

    def run_page(self, page):
        """How many commands ran."""
        ran, folder = 0, self.folder_of(page)
        for block in blocks(page.read_text()):
            if block.name:
                (folder / block.name).write_text(block.text)
            for line, command, said in commands(block):
                if block.reason:
                    self.left_out[block.reason] += 1
                    continue
                with self.subTest(page=str(page.relative_to(ROOT)), line=line):
                    done = subprocess.run(["bash", "-c", f"set -o pipefail; {command}"], cwd=folder, env=self.env,
                                          stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
                    out = done.stdout.decode(errors="replace")
                    if said is None:
                        self.assertEqual(done.returncode, 0, f"{command}\n{out[-3000:]}")
                    else:
                        self.assertEqual(out, said, command)
                    ran += 1
        shutil.rmtree(folder)
        return ran

    def test_every_command_runs(self):
        ran = 0
        for page in PAGES:
            if page == TOUR:
                continue
            count = self.run_page(page)
            ran += count
            if page.parent.name == "components" and page.name != "README.md":
                with self.subTest(page=page.name):
                    self.assertGreater(count, 0, "a page of a component has an example")
        self.assertLessEqual(set(self.left_out), REASONS)
        print(f"{ran} commands ran; left out: {dict(self.left_out)}")


if __name__ == "__main__":
    unittest.main()
