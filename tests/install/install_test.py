#!/usr/bin/env python3
"""Installs the build that PANTIQ_BUILD names under a folder with a space in its name, and uses it from outside the tree."""
import json
import os
import pathlib
import re
import shlex
import shutil
import subprocess
import tempfile
import unittest

BUILD = pathlib.Path(os.environ["PANTIQ_BUILD"])
ROOT = pathlib.Path(os.environ["PANTIQ_ROOT"])
LIBDIR = os.environ.get("PANTIQ_LIBDIR", "lib")
CMAKE = os.environ.get("CMAKE", "cmake")
MEDIA = os.environ.get("PANTIQ_MEDIA", "1") == "1"
DIALOGS = os.environ.get("PANTIQ_DIALOGS", "1") == "1"


def run(*args, good=True, **more):
    done = subprocess.run([str(a) for a in args], capture_output=True, text=True, **more)
    if good and done.returncode != 0:
        raise AssertionError(f"{shlex.join(map(str, args))}\n{done.stdout}{done.stderr}")
    return done.stdout if good else done


class Installed(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.folder = pathlib.Path(tempfile.mkdtemp(prefix="pantiq install "))
        cls.addClassCleanup(shutil.rmtree, cls.folder)
        cls.prefix = cls.folder / "an older one"
        install = [CMAKE, "--install", BUILD, "--prefix", cls.prefix, "--strip"]
        run(*install)
        (cls.prefix / "bin" / "pantiq").write_text("older")
        run(*install)
        moved = cls.folder / "moved there"
        cls.prefix.rename(moved)  # nothing depends on where it was installed
        cls.prefix = moved
        cls.environment = {k: v for k, v in os.environ.items() if k not in ("PANTIQ_MODULE_PATH", "PANTIQ_PLUGIN_HOST")}

    def outside(self, name):
        place = self.folder / name
        shutil.copytree(ROOT / "examples" / "outside", place)
        return place

    def check_program(self, program):
        # Linked with archives it lies elsewhere: it is told where the modules are.
        more = {**self.environment, "PANTIQ_MODULE_PATH": str(self.prefix / LIBDIR / "pantiq")}
        said = run(program, env=more)
        self.assertTrue(said.startswith("3 frames\n"), said)
        self.assertIn("media: there" if MEDIA else "PANTIQ_MEDIA=ON", said)

    def configure(self, name, text):
        place = self.folder / name
        place.mkdir()
        (place / "CMakeLists.txt").write_text(
            f"cmake_minimum_required(VERSION 3.25)\nproject(asks LANGUAGES CXX)\nfind_package(pantiq {text})\n"
            "message(STATUS \"found ${pantiq_FOUND} ${pantiq_nosuch_FOUND}\")\n")
        done = run(CMAKE, "-S", place, "-B", place / "build", f"-DCMAKE_PREFIX_PATH={self.prefix}", good=False)
        return done.returncode, " ".join((done.stdout + done.stderr).split())

    def test_find_package_builds_the_outside_program(self):
        place = self.outside("by cmake")
        run(CMAKE, "-S", place, "-B", place / "build", f"-DCMAKE_PREFIX_PATH={self.prefix}")
        run(CMAKE, "--build", place / "build")
        self.check_program(place / "build" / "outside")

    def test_find_package_answers_for_components_and_versions(self):
        code, said = self.configure("unknown", "REQUIRED COMPONENTS core nosuch")
        self.assertNotEqual(code, 0)
        self.assertRegex(said, r"pantiq has no component 'nosuch'; there are .*core.*media")
        code, said = self.configure("optional", "REQUIRED COMPONENTS core OPTIONAL_COMPONENTS nosuch")
        self.assertEqual(code, 0, said)
        self.assertIn("found 1 FALSE", said)
        code, said = self.configure("future", "7.0 REQUIRED")
        self.assertNotEqual(code, 0)
        self.assertIn('compatible with requested version "7.0"', said)

    def test_pkg_config_builds_the_outside_program(self):
        place = self.outside("by make")
        more = {**self.environment, "PKG_CONFIG_PATH": str(self.prefix / LIBDIR / "pkgconfig")}
        run("make", "-C", place, f"PKG_CONFIG_PATH={more['PKG_CONFIG_PATH']}", env=self.environment)
        self.check_program(place / "outside")
        for file in (self.prefix / LIBDIR / "pkgconfig").glob("*.pc"):
            run("pkg-config", "--print-errors", "--exists", file.stem, env=more)

    def test_the_program_runs_with_its_modules_and_graphs(self):
        pantiq = self.prefix / "bin" / "pantiq"
        said = run(pantiq, "run", "TPQJaehneGen ! TPQMirror ! checksum", "--frames", "3", env=self.environment)
        self.assertTrue(said)
        graphs = self.prefix / "share" / "pantiq" / "graphs"
        self.assertEqual({f.name for f in graphs.iterdir()}, {f.name for f in (ROOT / "examples" / "graphs").iterdir()})
        pictures = {f.name for f in (self.prefix / "share" / "pantiq" / "palette").iterdir()}
        for name in json.loads(run(pantiq, "list", "--json", env=self.environment))[0]["classes"]:
            large = name["name"].upper()
            self.assertLessEqual({f"{large}.svg", *(f"{p}{large}.{e}" for p in ("", "_") for e in ("png", "bmp"))}, pictures)
        if MEDIA:
            asf = self.folder / "rings.asf"
            run(pantiq, "run", f"TPQJaehneGen ! TPQASFLogger FileName='{asf}'", "--frames", "5", env=self.environment)
            mirrored = self.folder / "out.asf"
            run(pantiq, "run", f"TPQASFPlayer FileName='{asf}' ! TPQMirror ! TPQASFLogger FileName='{mirrored}'",
                env=self.environment)
            self.assertGreater(mirrored.stat().st_size, 1000)
        for plugin in (BUILD / "plugins").glob("*sepia32*.so"):  # isolated: by the installed plug-in host
            line = f"TPQJaehneGen ! TPQFreeFrame Isolated=true FilterFileName='{plugin}' ! checksum"
            run(pantiq, "run", line, "--frames", "2", env=self.environment)

    @unittest.skipUnless(DIALOGS, "this build has no windows: install qt6-base-dev")
    def test_the_module_of_windows_finds_what_tries_a_display(self):
        graph = self.folder / "mask.pqg"
        graph.write_text("pantiq graph 1\nobject m: TPQMorphFilter\nend\n")
        for platform, says in (("nosuch", "the display cannot be used: "), ("", "there is no display")):
            done = run(self.prefix / "bin" / "pantiq", "edit", graph, "m", good=False, stdin=subprocess.DEVNULL,
                       env={**self.environment, "DISPLAY": "", "WAYLAND_DISPLAY": "", "QT_QPA_PLATFORM": platform})
            self.assertEqual(done.returncode, 2)
            self.assertIn(says, done.stderr)

    def test_headers_reach_only_what_is_installed(self):
        include = self.prefix / "include"
        headers = [h for h in include.rglob("*") if h.is_file()]
        self.assertGreater(len(headers), 100)
        missing = {f"{h.relative_to(include)}: {name}" for h in headers
                   for name in re.findall(r'^#\s*include "([^"]+)"', h.read_text(), re.M) if not (include / name).exists()}
        self.assertEqual(missing, set())

    def test_no_file_names_the_build(self):
        naming = [f for f in self.prefix.rglob("*") if f.is_file() and os.fsencode(BUILD) in f.read_bytes()]
        self.assertEqual(naming, [])

    def test_manual_and_completion(self):
        self.assertIn("pantiq", (self.prefix / "share" / "man" / "man1" / "pantiq.1").read_text())
        script = self.prefix / "share" / "bash-completion" / "completions" / "pantiq"

        def complete(*words):
            ask = (f"source {shlex.quote(str(script))}; COMP_WORDS=({shlex.join(words)}); COMP_CWORD={len(words) - 1}; "
                   "_pantiq; printf '%s\\n' \"${COMPREPLY[@]}\"")
            path = {**self.environment, "PATH": f"{self.prefix / 'bin'}:{os.environ['PATH']}"}
            return run("bash", "-c", ask, env=path, cwd=self.folder).split("\n")[:-1]

        self.assertEqual(complete("pantiq", "conv"), ["convert"])
        self.assertIn("--realtime", complete("pantiq", "run", "--r"))
        self.assertEqual(complete("pantiq", "inspect", "TPQMir"), ["TPQMirror"])
        self.assertEqual(complete("pantiq", "play", "moved"), ["moved there"])
        self.assertEqual(complete("pantiq", "play", "--seconds", ""), [""])
        for other in ("zsh/vendor-completions/_pantiq", "fish/vendor_completions.d/pantiq.fish"):
            self.assertIn("realtime", (self.prefix / "share" / other).read_text())


if __name__ == "__main__":
    unittest.main()
