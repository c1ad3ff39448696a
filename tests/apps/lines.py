#!/usr/bin/env python3
"""Runs every command of the documents, word for word: a reader who copies one must get what the text says.

A command is a line that begins with `pantiq` or `cc` in a block of code that is indented, or fenced without a language or as sh;
open quotes go on in the next line. A block of lines with `$ ` before them shows what is said, too, and is compared with it. The
commands of a page run in its order, in a folder of its own with what their names ask for: clips in.mp4, a.mp4 and b.mp4, the
example graphs and plug-ins. A block that follows `as `NAME`:` is saved under that name first. A block that no test can run has
<!-- not run: REASON --> before it; the reasons are listed here, and what is left out is counted. PANTIQ and the like are those of
pantiq_test.py, PANTIQ_ROOT is the project.
"""
import collections
import os
import pathlib
import re
import shlex
import shutil
import subprocess
import unittest

import pantiq_test

ROOT = pathlib.Path(os.environ["PANTIQ_ROOT"])
REASONS = {"a form, no command", "needs a device of sound"}
PAGES = sorted([*(ROOT / "docs").rglob("*.md"), ROOT / "README.md"])
TOUR = ROOT / "docs" / "tour.md"  # run by tests/install, with an installed library
Block = collections.namedtuple("Block", "line kind reason name text")


def blocks(text):
    """The blocks of code of a page: first line, language (None: indented), why it is not run, the name it is saved under."""
    lines = text.split("\n")
    before, i = [], 0
    while i < len(lines):
        fence = re.match(r"```(\w*)$", lines[i])
        indented = lines[i].startswith("    ") and (i == 0 or not lines[i - 1].strip())
        if not fence and not indented:
            if lines[i].strip():
                before.append(lines[i])
            i += 1
            continue
        first, body = i + 1, []
        if fence:
            i += 1
            while lines[i] != "```":
                body.append(lines[i])
                i += 1
            i += 1
        else:
            while i < len(lines) and (lines[i].startswith("    ") or not lines[i].strip()):
                body.append(lines[i][4:])
                i += 1
            i -= len(body) - len("\n".join(body).rstrip().split("\n"))
        last = before[-1] if before else ""
        reason = re.fullmatch(r"<!-- not run: (.*) -->", last)
        name = re.search(r"as `([\w.-]+)`:$", last)
        yield Block(first, fence[1] if fence else None, reason and reason[1], name and name[1], "\n".join(body).rstrip() + "\n")
        before = []


def commands(block):
    """(line, command, what it says or None) of a block."""
    if block.kind not in (None, "", "sh"):
        return
    lines, i = block.text.splitlines(), 0
    shown = any(line.startswith("$ ") for line in lines)
    while i < len(lines):
        first, text = i, lines[i]
        i += 1
        if not re.match(r"\$ |pantiq |cc " if not shown else r"\$ ", text):
            continue
        while i < len(lines) and (open_quotes(text) or text.endswith("\\")):
            text += "\n" + lines[i]
            i += 1
        said = None
        if shown:
            text, said = text[2:], ""
            while i < len(lines) and not lines[i].startswith("$ "):
                said += lines[i] + "\n"
                i += 1
        yield block.line + first, text, said


def open_quotes(text):
    try:
        shlex.split(text, comments=True)
    except ValueError:
        return True
    return False


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
