#!/usr/bin/env python3
"""Drives the built program as a process. PANTIQ names it; PANTIQ_GRAPHS the folder of the example graphs."""
import array
import ctypes
import fcntl
import glob
import json
import os
import re
import select
import shutil
import signal
import struct
import subprocess
import tempfile
import termios
import time
import unittest

PANTIQ = os.environ["PANTIQ"]
LONG = os.environ.get("PANTIQ_TEST_LONG") is not None
GEN = "TPQJaehneGen ImageSize.Width=32 ImageSize.Height=16"


def classes():
    pages = json.loads(subprocess.run([PANTIQ, "list", "--json"], capture_output=True, check=True).stdout)
    return {page["page"]: [c["name"] for c in page["classes"]] for page in pages}


class Case(unittest.TestCase):
    def setUp(self):
        self.folder = tempfile.mkdtemp(prefix="pantiq_test_")
        self.addCleanup(shutil.rmtree, self.folder)

    def path(self, name):
        return os.path.join(self.folder, name)

    def write(self, name, data):
        with open(self.path(name), "wb") as file:
            file.write(data)

    def read(self, name):
        with open(self.path(name), "rb") as file:
            return file.read()

    def pantiq(self, *words, code=0, env=None):
        """Runs to the end; checks the exit code, and that nothing looks like a crash."""
        done = subprocess.run([PANTIQ, *words], cwd=self.folder, capture_output=True, env={**os.environ, **(env or {})})
        done.out = done.stdout.decode(errors="replace")
        done.err = done.stderr.decode(errors="replace")
        self.assertEqual(done.returncode, code, f"{words}\n{done.out[-2000:]}\n{done.err[-4000:]}")
        for sign in ("Sanitizer", "terminate called", "core dumped"):
            self.assertNotIn(sign, done.err)
        return done

    def refused(self, *words, says, source=None, caret=None):
        """Exit code 2 and every text of `says`; under the line `source` a caret below the text `caret`."""
        done = self.pantiq(*words, code=2)
        for text in says:
            self.assertIn(text, done.err, words)
        self.assertEqual(done.out, "")
        if caret is not None:
            lines = done.err.splitlines()
            self.assertIn(source, lines)
            under = lines[lines.index(source) + 1]
            begin = source.index(caret)
            self.assertEqual(under[begin:begin + len(caret)], ("^" + "~" * len(caret))[:len(caret)], done.err)
        return done


class CommandLine(Case):
    def test_help_and_version(self):
        text = self.pantiq("--help").out
        for command in ("run", "check", "list", "inspect", "save", "dot", "bench", "kernels", "Examples:"):
            self.assertIn(command, text)
        for command in ("run", "bench", "save"):
            self.assertIn("--overwrite", self.pantiq(command, "--help").out)
        self.assertRegex(self.pantiq("--version").out, r"^pantiq \d+\.\d+\.\d+\n$")

    def test_wrong_calls(self):
        for words, says in [
            ([], "no command"),
            (["rum"], "nearest is run"),
            (["run"], "graph is required"),
            (["run", "--frames", "0", "x"], "--frames"),
            (["run", "--frames", "many", "x"], "--frames"),
            (["run", "--seconds", "soon", "x"], "no time"),
            (["run", "--from", "-1", "x"], "--from"),
            (["run", "--json", "--quiet", "x"], "excludes"),
            (["run", "--frobnicate", "x"], "--frobnicate"),
            (["save", "x"], "--output is required"),
            (["inspect", "TPQMirrr"], "nearest is TPQMirror"),
        ]:
            with self.subTest(words=words):
                self.refused(*words, says=[says])

    def test_one_word_or_many(self):
        one = self.pantiq("run", "--frames", "2", f"{GEN} ! checksum").out
        many = self.pantiq("run", *GEN.split(), "!", "checksum", "sums.txt", "--frames", "2")
        self.assertEqual(many.out, "")
        self.assertEqual(self.read("sums.txt").decode(), one)
        self.assertEqual(len(one.splitlines()), 2)


class GraphFaults(Case):
    def test_launch_lines(self):
        for line, caret, says in [
            ("TPQJaehneGn ! checksum", "TPQJaehneGn", ["nearest is 'TPQJaehneGen'"]),
            (f"{GEN} ! TPQMirror MirorType=mtBoth ! checksum", "MirorType", ["PQMirror1", "nearest is 'MirrorType'"]),
            (f"{GEN} ! TPQMirror MirrorType=mtBth ! checksum", "mtBth",
             ["PQMirror1", "MirrorType", "mtHorizontal, mtVertical, mtBoth", "nearest is 'mtBoth'"]),
            ("TPQJaehneGen ImageSize.Width=70000 ! checksum", "70000",
             ["PQJaehneGen1", "ImageSize.Width", "from 0 to 65535"]),
            ("TPQJaehneGen Rate=fast ! checksum", "fast", ["PQJaehneGen1", "Rate", "a number"]),
            ("TPQJaehneGen Name=g g.OtputPin ! checksum", "OtputPin", ["nearest is 'OutputPin'"]),
            ("TPQJaehneGen Name=g g.OutputPin ! checksum  hg.OutputPin ! checksum", "hg", ["hg"]),
            (f"{GEN} ! TPQMirror Name=m TPQCrop Name=c m.InputPin ! c.InputPin", "c.InputPin", ["both are sinks"]),
            (f"{GEN} ! numbers", "numbers", ["PQJaehneGen1.OutputPin (image)", "numbers1.InputPin (real)"]),
            ("TPQMirror Name=a ! TPQMirror Name=b b.OutputPin ! a.InputPin", "a.InputPin", ["cycle"]),
            (f"{GEN} ! checksum 'open", "'open", ["not closed"]),
            (f"{GEN} ! frames out-%d.png", "out-%d.png", ["connects nothing", "in single quotes"]),
            (f"{GEN} Name=g g.OutputPin TPQMirror", "g.OutputPin", ["connects nothing"]),
            (f"{GEN} ! frames 'out.png'", "'out.png'", ["frames1", "FileName", "%d", "out-%04d.png"]),
            (f"{GEN} ! frames 'out-%d.tiff'", "'out-%d.tiff'", ["frames1", "FileName", ".png"]),
            (f"{GEN} !", "!", ["!"]),
        ]:
            with self.subTest(line=line):
                for command in ("run", "check", "bench", "dot"):
                    self.refused(command, line, says=says, source=line, caret=caret)

    def test_all_faults_at_once(self):
        done = self.refused("run", "TPQMirorr Foo=1 ! TPQMirror Bar=2 MirrorType=3x ! chcksum",
                            says=["TPQMirorr", "'Bar'", "'3x'", "chcksum"])
        faults = [line for line in done.err.splitlines() if line.startswith("pantiq: ")]
        self.assertGreaterEqual(len(faults), 4)

    def test_graphs_that_cannot_run(self):
        self.refused("run", "", says=["the graph is empty"])
        self.refused("run", "# nothing", says=["the graph is empty"])
        self.refused("run", "TPQMirror ! checksum", says=["no source"])
        self.assertIn("not connected", self.pantiq("check", f"{GEN} ! checksum TPQMirror").err)
        self.assertIn("no errors: 2 components", self.pantiq("check", f"{GEN} ! checksum").out)

    def test_what_a_class_knows_is_odd(self):
        line = "TPQJaehneGen ! TPQCombine Offset.Vertical=7 ! checksum"
        done = self.pantiq("check", line)
        self.assertIn("warning: PQCombine1: Offset.Vertical = 7: if image 1 starts before image 2 they lie apart", done.err + done.out)
        self.assertNotIn("warning", self.pantiq("check", line.replace("7", "-7")).err)

    def test_graph_files(self):
        for name, data, says in [
            ("empty.pqg", b"", ["empty.pqg", "empty"]),
            ("text.pqg", b"Dear reader\n", ["text.pqg:1:1: ", "pantiq graph 1"]),
            ("cut.pqg", b"pantiq graph 1\nobject g: TPQJaehneGen\n  Rate = 5\n", ["cut.pqg:", "end"]),
            ("wrong.pqg", b"pantiq graph 1\nobject g: TPQJaehneGen\n  Rate = x\nend\n", ["wrong.pqg:3:10: ", "g", "Rate"]),
            ("bytes.pqg", bytes(range(256)) * 4, ["bytes.pqg"]),
        ]:
            with self.subTest(file=name):
                self.write(name, data)
                self.refused("run", name, says=says)
        os.mkdir(self.path("folder.pqg"))
        self.refused("run", "folder.pqg", says=["folder.pqg", "folder"])
        self.refused("run", "none.pqg", says=["none.pqg", "there is no such file"])

    def test_faults_as_json(self):
        done = self.pantiq("check", "--json", "TPQJaehneGen Rate=fast ! chksum", code=2)
        faults = [json.loads(line) for line in done.out.splitlines()]
        self.assertEqual(done.err, "")
        self.assertEqual([(f["event"], f["line"], f["column"]) for f in faults][:1], [("fault", 1, 19)])
        self.assertTrue(all(f["severity"] in ("error", "warning") and f["text"] for f in faults))
        done = self.pantiq("run", "--json", "TPQJaehneGen Rate=fast ! checksum", code=2)
        self.assertEqual(json.loads(done.out.splitlines()[0])["value"], "fast")


class FileFaults(Case):
    def test_outputs(self):
        self.write("old.txt", b"precious")
        os.mkdir(self.path("folder"))
        for name, says in [
            ("old.txt", "the file exists"),
            ("folder", "that is a folder"),
            ("none/x.txt", "'none' cannot be used"),
            ("old.txt/x.txt", "Not a directory"),
        ]:
            with self.subTest(name=name):
                line = f"{GEN} ! checksum '{name}'"
                self.refused("run", "--frames", "1", line, says=["checksum1", "FileName", name, says, "expected"],
                             source=line, caret=f"'{name}'")
        self.assertEqual(self.read("old.txt"), b"precious")
        self.pantiq("run", "--frames", "1", "--overwrite", f"{GEN} ! checksum 'old.txt'")
        self.assertTrue(self.read("old.txt").startswith(b"0 32x16 vfRGB24 "))

    @unittest.skipIf(os.geteuid() == 0, "root may write everywhere")
    def test_unwritable_folder(self):
        os.mkdir(self.path("shut"), 0o500)
        self.refused("run", f"{GEN} ! checksum 'shut/x'", says=["checksum1", "FileName", "Permission denied"])

    def test_one_output_twice(self):
        for a, b in [("x.txt", "./x.txt"), ("-", "-")]:
            self.refused("run", f"{GEN} Name=g ! checksum '{a}'  g ! checksum '{b}'",
                         says=["checksum2", "FileName", "checksum1"])
        self.assertEqual(os.listdir(self.folder), [])

    def test_an_output_that_is_an_input(self):
        self.pantiq("run", "--frames", "1", f"{GEN} ! frames 'in-%d.bmp'")
        self.refused("run", "--overwrite", "TPQImageGen Picture='in-0.bmp' ! checksum './in-0.bmp'",
                     says=["checksum1", "also the input of PQImageGen1"])
        self.assertTrue(self.read("in-0.bmp").startswith(b"BM"))

    def test_picture_that_is_none(self):
        self.write("text.png", b"no picture")
        self.write("empty.png", b"")
        for name in ("text.png", "empty.png", "none.png"):
            with self.subTest(name=name):
                self.refused("run", f"TPQImageGen Picture='{name}' ! checksum", says=["PQImageGen1", "Picture", name])

    def test_frames_do_not_replace_what_is_there(self):
        self.pantiq("run", "--frames", "2", f"{GEN} ! frames 'f%03d.png'")
        self.refused("run", "--frames", "1", f"{GEN} ! frames 'f%03d.png'", says=["'f000.png' exists, and 1 more"])
        self.pantiq("run", "--frames", "1", "--overwrite", f"{GEN} ! frames 'f%03d.png'")

    def test_full_disk_fails_the_run(self):
        for sink in ("checksum", "y4m"):
            done = self.pantiq("run", "--frames", "5000", f"{GEN} ! {sink} '/dev/full'", code=1)
            self.assertIn("No space left on device", done.err)

    def test_zero_sized_frames(self):
        for sink in ("y4m 'out'", "frames 'out%d.png'"):
            done = self.pantiq("run", "--frames", "3", f"TPQJaehneGen ImageSize.Width=0 ! {sink}", code=1)
            self.assertIn("frame 0 has no pixels (0x180)", done.err)
        self.assertEqual(os.listdir(self.folder), [])
        done = self.pantiq("run", "--frames", "3", "TPQJaehneGen ImageSize.Height=0 ! TPQMirror ! checksum")
        self.assertEqual(done.out.splitlines()[0], "0 240x0 vfRGB24 ef46db3751d8e999")
        self.assertEqual(done.err.count("has no pixels"), 1)


class Runs(Case):
    def test_pictures_and_raw_video_agree(self):
        line = f"{GEN} Name=g ! TPQMirror Name=m  m ! frames 'f%d.bmp'  m ! y4m 'v.y4m'  m ! checksum"
        done = self.pantiq("run", "--frames", "3", line)
        self.assertEqual([row.split()[:3] for row in done.out.splitlines()],
                         [[str(i), "32x16", "vfRGB24"] for i in range(3)])
        video = self.read("v.y4m")
        head, body = video.split(b"\n", 1)
        self.assertEqual(head, b"YUV4MPEG2 W32 H16 F25:1 Ip A1:1 C444 XCOLORRANGE=FULL")
        plane = 32 * 16
        self.assertEqual(len(body), 3 * (6 + 3 * plane))
        for i in range(3):
            picture = self.read(f"f{i}.bmp")
            offset, = struct.unpack_from("<I", picture, 10)
            height, = struct.unpack_from("<i", picture, 22)
            rows = [picture[offset + 96 * y:offset + 96 * (y + 1)] for y in range(16)]
            bgr = b"".join(rows if height < 0 else rows[::-1])
            frame = body[i * (6 + 3 * plane) + 6:(i + 1) * (6 + 3 * plane)]
            for k in range(plane):
                b, g, r = bgr[3 * k:3 * k + 3]
                luma = 0.299 * r + 0.587 * g + 0.114 * b
                self.assertLess(abs(frame[k] - luma), 0.51)
                self.assertLess(abs(frame[plane + k] - min(128 + (b - luma) / 1.772, 255)), 0.51)

    def test_numbers_are_limited_and_drawn(self):
        done = self.pantiq("run", "--frames", "3", f"{GEN} ! TPQHistogram UpperLevel=3 ! numbers Plot='h.png'")
        rows = done.out.splitlines()
        self.assertEqual(rows[0], "number,time,0,1,2,3")
        self.assertEqual(len(rows), 4)
        self.assertEqual(self.read("h.png")[:8], b"\x89PNG\r\n\x1a\n")
        width, height = struct.unpack_from(">II", self.read("h.png"), 16)
        self.assertEqual((width, height), (800, 400))
        self.refused("run", f"{GEN} ! TPQHistogram ! numbers Plot='h.txt'", says="none of .png")
        self.refused("run", f"{GEN} ! TPQHistogram ! numbers Plot='h.png'", says="h.png")  # it is there

    def test_limits(self):
        self.assertEqual(len(self.pantiq("run", "--frames", "7", f"{GEN} ! checksum").out.splitlines()), 7)
        self.assertEqual(len(self.pantiq("run", "--seconds", "400ms", f"{GEN} Rate=10 ! checksum").out.splitlines()), 4)
        whole = self.pantiq("run", "--frames", "1", f"{GEN} ! checksum").err
        self.assertRegex(whole, r"done: 1 frame in \d+\.\d\d s")

    def test_quiet_says_nothing(self):
        done = self.pantiq("run", "--quiet", "--frames", "2", f"{GEN} ! checksum 'x'")
        self.assertEqual((done.out, done.err), ("", ""))
        self.assertIn("expected", self.pantiq("run", "--quiet", "Foo ! checksum", code=2).err)

    def test_json_events(self):
        line = f"{GEN} ! checksum 'sums'"
        done = self.pantiq("run", "--json", "--frames", "5", line)
        self.assertEqual(done.err, "")
        events = [json.loads(row) for row in done.out.splitlines()]
        self.assertEqual(events[0], {"event": "started", "graph": line, "frames": 5})
        self.assertIn("progress", [e["event"] for e in events])
        end = events[-1]
        self.assertEqual((end["event"], end["ok"], end["stopped"], end["frames"]), ("ended", True, False, 5))
        self.assertEqual(end["sinks"], [{"component": "checksum1", "frames": 5, "buffers": 0}])

    def test_json_makes_way_for_a_sink_on_standard_output(self):
        done = self.pantiq("run", "--json", "--frames", "2", f"{GEN} ! checksum")
        self.assertEqual(len(done.out.splitlines()), 2)
        self.assertEqual(json.loads(done.err.splitlines()[-1])["event"], "ended")

    def test_json_tells_why_a_run_failed(self):
        done = self.pantiq("run", "--json", "--frames", "1000", f"{GEN} ! y4m '/dev/full'", code=1)
        events = [json.loads(row) for row in done.out.splitlines()]
        report = [e for e in events if e["event"] == "report"][0]
        self.assertEqual((report["severity"], report["component"], report["class"]), ("error", "y4m1", "y4m"))
        self.assertFalse(events[-1]["ok"])
        self.assertIn("No space left", events[-1]["error"])

    def test_a_closed_pipe_fails_the_run(self):
        run = subprocess.Popen([PANTIQ, "run", f"{GEN} ! checksum"], stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        run.stdout.readline()
        run.stdout.close()
        self.assertIn(b"Broken pipe", run.stderr.read())
        run.stderr.close()
        self.assertEqual(run.wait(), 1)

    def test_bench(self):
        result = json.loads(self.pantiq("bench", "--json", "--frames", "20", f"{GEN} ! TPQMirror ! checksum 'x'").out)
        self.assertEqual(result["frames"], 20)
        self.assertEqual([c["component"] for c in result["components"]], ["PQJaehneGen1", "PQMirror1", "checksum1"])
        self.assertEqual([c["frames"] for c in result["components"]][1:], [20, 20])
        self.assertLessEqual(sum(c["seconds"] for c in result["components"]), result["elapsed"] * 1.01)
        self.assertIn("frames per second", self.pantiq("bench", "--overwrite", f"{GEN} ! checksum 'x'").out)
        done = self.pantiq("bench", "--frames", "3", f"{GEN} ! checksum")
        self.assertEqual(len(done.out.splitlines()), 3)
        self.assertIn("frames per second", done.err)

    def test_progress_on_a_terminal(self):
        leader, follower = os.openpty()
        fcntl.ioctl(follower, termios.TIOCSWINSZ, struct.pack("HHHH", 24, 200, 0, 0))
        run = subprocess.Popen([PANTIQ, "run", "--realtime", "--seconds", "1", f"{GEN} ! checksum 'x'"], cwd=self.folder,
                               stdout=subprocess.DEVNULL, stderr=follower)
        os.close(follower)
        shown = b""
        try:
            while part := os.read(leader, 4096):
                shown += part
        except OSError:  # the other end is closed
            pass
        os.close(leader)
        self.assertEqual(run.wait(), 0)
        self.assertRegex(shown, rb"\r\d+ frames?  [\d.]+ fps  0:00\.\d")
        self.assertIn(b" left", shown)
        self.assertTrue(shown.rstrip().splitlines()[-1].split(b"\x1b[K")[-1].startswith(b"done: "), shown)


class Signals(Case):
    def start(self, *words):
        return subprocess.Popen([PANTIQ, "run", *words], cwd=self.folder, stdout=subprocess.PIPE, stderr=subprocess.PIPE)

    def test_a_signal_ends_the_stream_properly(self):
        for number in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP):
            with self.subTest(signal=number):
                run = self.start("--overwrite", "--realtime", f"{GEN} Name=g Rate=200 ! y4m 'v.y4m'  g ! checksum")
                for _ in range(5):
                    run.stdout.readline()
                run.send_signal(number)
                out, err = run.communicate()
                self.assertEqual(run.returncode, 128 + number, err)
                self.assertIn(b"stopped after ", err)
                self.assertEqual(err.count(b"g has no end"), 1)
                body = self.read("v.y4m").split(b"\n", 1)[1]
                self.assertEqual(len(body) % (6 + 3 * 32 * 16), 0)
                self.assertGreaterEqual(len(body) // (6 + 3 * 32 * 16), 5)
                self.assertTrue(out == b"" or out.endswith(b"\n"))

    def test_json_tells_the_signal(self):
        run = self.start("--json", "--realtime", f"{GEN} Rate=200 ! checksum 'x'")
        self.assertEqual(json.loads(run.stdout.readline())["event"], "note")
        self.assertEqual(json.loads(run.stdout.readline())["event"], "started")
        run.send_signal(signal.SIGINT)
        out, _ = run.communicate()
        end = json.loads(out.splitlines()[-1])
        self.assertEqual((end["ok"], end["stopped"], end["signal"], run.returncode), (True, True, 2, 130))

    @unittest.skipIf(os.environ.get("PANTIQ_SANITIZE") == "thread", "ThreadSanitizer holds signals back during a write")
    def test_the_second_signal_kills(self):
        run = self.start("TPQJaehneGen ! y4m")
        waiting = array.array("i", [0])
        size = fcntl.fcntl(run.stdout.fileno(), 1032)  # F_GETPIPE_SZ
        while waiting[0] < size:  # until the program waits for somebody to read
            fcntl.ioctl(run.stdout.fileno(), termios.FIONREAD, waiting)
            time.sleep(0.01)
        run.send_signal(signal.SIGINT)
        run.send_signal(signal.SIGTERM)
        self.assertIn(run.wait(), (-signal.SIGINT, -signal.SIGTERM))
        run.stdout.close()
        run.stderr.close()


class Storage(Case):
    LINE = ("TPQJaehneGen Name=g Rate=12.5 ImageSize.Width=64 ! TPQMirror MirrorType=mtBoth ! TPQCrop Region.Left=3"
            "  g ! TPQMirror Name=second Enabled=false")

    def test_saved_loaded_and_saved_again_is_the_same(self):
        self.pantiq("save", self.LINE, "-o", "a.pqg")
        self.pantiq("save", "a.pqg", "-o", "b.pqg")
        text = self.read("a.pqg")
        self.assertEqual(text, self.read("b.pqg"))
        self.assertEqual(self.pantiq("save", self.LINE, "-o", "-").stdout, text)
        self.assertTrue(text.startswith(b"pantiq graph 1\n"))
        for part in (b"Rate = 12.5", b"MirrorType = mtBoth", b"InputPin = g.OutputPin", b"Region.Left = 3"):
            self.assertIn(part, text)
        self.assertEqual(self.pantiq("dot", self.LINE).out, self.pantiq("dot", "a.pqg").out)

    def test_comments_and_order_stay(self):
        text = (b"pantiq graph 1\n# a head\n\nobject b: TPQMirror  # flips\n  InputPin = a.OutputPin\n"
                b"  MirrorType = mtVertical\nend\n\nobject a: TPQJaehneGen\nend\n")
        self.write("hand.pqg", text)
        self.assertEqual(self.pantiq("save", "hand.pqg", "-o", "-").stdout, text)

    def test_sinks_of_the_program_are_refused(self):
        for sink in ("checksum", "y4m", "frames"):
            done = self.pantiq("save", f"{GEN} ! {sink}", "-o", "x.pqg", code=2)
            self.assertIn(f"{sink}1", done.err)
        self.assertEqual(os.listdir(self.folder), [])

    def test_where_it_cannot_be_saved(self):
        self.write("old.pqg", b"precious")
        self.assertIn("exists", self.pantiq("save", self.LINE, "-o", "old.pqg", code=2).err)
        self.assertEqual(self.read("old.pqg"), b"precious")
        self.pantiq("save", "--overwrite", self.LINE, "-o", "old.pqg")
        self.assertIn("none", self.pantiq("save", self.LINE, "-o", "none/x.pqg", code=2).err)

    def test_dot(self):
        text = self.pantiq("dot", self.LINE).out
        self.assertTrue(text.startswith("digraph pantiq {") and text.rstrip().endswith("}"))
        self.assertIn('"g" -> "second"', text)


class Listings(Case):
    def test_pages(self):
        pages = classes()
        self.assertEqual(pages["Program"], ["checksum", "frames", "numbers", "y4m"])
        self.assertIn("TPQMirror", pages["Pantiq"])
        text = self.pantiq("list").out
        library, program = text.split("\nProgram\n")
        self.assertTrue(library.startswith("Pantiq\n"))
        self.assertIn("  TPQMirror", library)
        self.assertNotIn("checksum", library)
        self.assertIn("  checksum", program)

    def test_every_class_can_be_inspected(self):
        for name in [name for page in classes().values() for name in page]:
            with self.subTest(name=name):
                shown = json.loads(self.pantiq("inspect", name, "--json").out)
                text = self.pantiq("inspect", name).out
                self.assertTrue(text.startswith(f"{name}: "))
                self.assertTrue(shown["help"])
                for entry in shown["properties"] + shown["pins"]:
                    self.assertIn(f"  {entry['name']}: ", text)
                if "example" in shown:
                    self.assertEqual(self.pantiq("dot", shown["example"]).err, "")

    def test_what_a_property_shows(self):
        shown = json.loads(self.pantiq("inspect", "TPQMirror", "--json").out)
        mirror = next(p for p in shown["properties"] if p["name"] == "MirrorType")
        self.assertEqual((mirror["kind"], mirror["default"], mirror["acts"]),
                         ("enumeration", "mtHorizontal", "with the next frame"))
        self.assertEqual([w["name"] for w in mirror["words"]], ["mtHorizontal", "mtVertical", "mtBoth"])
        size = next(p for p in json.loads(self.pantiq("inspect", "TPQJaehneGen", "--json").out)["properties"]
                    if p["name"] == "ImageSize")
        width = size["properties"][0]
        self.assertEqual((width["name"], width["default"], width["range"], width["unit"]),
                         ("Width", "240", [0, 65535], "pixels"))

    def test_listing_opens_no_module_of_the_platform(self):
        for words in (["list"], ["inspect", "TPQMirror"], ["kernels"], ["run", "--frames", "1", f"{GEN} ! checksum"]):
            done = subprocess.run([PANTIQ, *words], capture_output=True, check=True, env={**os.environ, "LD_DEBUG": "files"})
            opened = done.stderr.decode(errors="replace")
            self.assertIn("libstdc++", opened)
            for module in ("libgst", "libavcodec", "libavformat", "libQt", "libpantiq-"):
                self.assertNotIn(module, opened, words)

    def test_effects_are_tried_and_shown(self):
        shown = json.loads(self.pantiq("list", "--effects", "--json").out)
        text = self.pantiq("list", "--effects").out
        effects = {e["element"]: e for e in shown["effects"]}
        for effect in shown["effects"]:
            line = next(line for line in text.splitlines() if effect["id"] in line)
            for part in (effect["name"], effect["element"], effect["way"] if effect["usable"] else effect["reason"]):
                self.assertIn(part, line)
        for more in shown["more"]:
            self.assertIn(f"  {more['package']}: ", text)
        gamma = effects["gamma"]
        self.assertTrue(gamma["usable"])
        self.assertEqual(gamma["id"], "{0481BCB6-5276-5FB3-9D86-3A9E130F5D19}")
        self.assertEqual([(s["name"], s["expected"], s["default"]) for s in gamma["settings"]],
                         [("gamma", "a number from 0.01 to 10", "1")])
        for name in ("gamma", gamma["name"], gamma["id"]):
            self.assertEqual(json.loads(self.pantiq("list", "--effects", name, "--json").out), gamma)
        self.assertIn("gamma: a number from 0.01 to 10 (default 1)", self.pantiq("list", "--effects=gamma").out)
        self.refused("list", "--effects=gama", says=["no effect 'gama'", "nearest is 'gamma'"])

    def test_without_the_module_effects_say_what_to_install(self):
        with open(self.path("libpantiq-gst.so"), "w"):
            pass
        env = {"PANTIQ_MODULE_PATH": self.folder}
        self.assertIn("gstreamer1.0-plugins-good", self.pantiq("list", "--effects", code=1, env=env).err)
        done = self.pantiq("run", "--frames", "1", f"{GEN} ! TPQDMOEffect DMOName='Video balance' ! checksum", env=env)
        self.assertEqual(done.out, self.pantiq("run", "--frames", "1", f"{GEN} ! checksum").out)
        self.assertIn("frames pass unchanged", done.err)
        self.assertIn("gstreamer1.0-plugins-good", done.err)

    def test_an_effect_in_a_graph_that_was_saved(self):
        effect = "TPQDMOEffect DMOName='Video balance' Settings='hue=0.5'"
        direct = self.pantiq("run", "--frames", "2", f"{GEN} ! {effect} ! checksum").out
        self.assertNotEqual(direct, self.pantiq("run", "--frames", "2", f"{GEN} ! checksum").out)
        self.pantiq("save", f"{GEN} ! {effect} ! TPQMirror Name=m", "-o", self.path("fx.pqg"))
        saved = self.read("fx.pqg").decode()
        self.assertIn("DMOInfo = ('{1234CE75-4BB7-5115-97FD-DA3F79034E62}' 'Video balance')", saved)
        self.write("other.pqg", saved.replace("'Video balance'", "'a name from elsewhere'").encode())
        sink = "\nobject s: frames\n  FileName = '%s-%%d.png'\n  InputPin = m.OutputPin\nend\n"
        for name in ("fx", "other"):
            self.write(name + ".pqg", self.read(name + ".pqg") + (sink % name).encode())
            self.pantiq("run", "--frames", "1", name + ".pqg", "--quiet")
        self.assertEqual(self.read("fx-0.png"), self.read("other-0.png"))

    def test_a_full_disk_is_told(self):
        for words in (["list"], ["list", "--effects"], ["inspect", "TPQMirror"], ["kernels"], ["--help"]):
            with open("/dev/full", "wb") as full:
                done = subprocess.run([PANTIQ, *words], stdout=full, stderr=subprocess.PIPE)
            self.assertEqual(done.returncode, 1)
            self.assertIn(b"No space left", done.stderr)


class Variants(Case):
    def test_kernels_obey_the_environment(self):
        for wish in ("px", "a6"):
            shown = json.loads(self.pantiq("kernels", "--json", env={"PANTIQ_CPU": wish}).out)
            if wish not in shown["variants"]:
                continue
            for kernel in shown["kernels"]:
                self.assertEqual(kernel["variant"], wish if wish in kernel["variants"] else "px", kernel)
            self.assertIn(f"PANTIQ_CPU={wish}", self.pantiq("kernels", env={"PANTIQ_CPU": wish}).out)

    @unittest.skipIf(os.environ.get("PANTIQ_SANITIZE"), "the tests of the kernels run every variant under the sanitizers")
    def test_every_variant_gives_the_same_frames(self):
        """The example of each class that needs no file, twice and with each variant of the kernels."""
        variants = json.loads(self.pantiq("kernels", "--json").out)["variants"]
        ran = 0
        for name in classes()["Pantiq"]:
            example = json.loads(self.pantiq("inspect", name, "--json").out).get("example", "")
            if not example.endswith(("checksum", "numbers")) or re.search("in.mp4|effect.so|out.asf", example):
                continue
            with self.subTest(example=example):
                sums = [self.pantiq("run", "--frames", "4", example, env={"PANTIQ_CPU": v}).out for v in ["px", *variants]]
                self.assertGreaterEqual(len(sums[0].splitlines()), 4)
                for other in sums[1:]:
                    self.assertEqual(sums[0], other)
                ran += 1
        self.assertGreater(ran, 0)


class Media(Case):
    """What the reader of media files says about files that are none."""

    def setUp(self):
        super().setUp()
        if "TPQASFPlayer" not in classes()["Pantiq"]:
            self.skipTest("this build has no player")
        self.line = "TPQASFPlayer FileName='in.asf' ! checksum"

    def test_missing_and_empty(self):
        self.refused("run", self.line, says=["PQASFPlayer1", "FileName", "in.asf", "there is no such file"],
                     source=self.line, caret="'in.asf'")
        self.write("in.asf", b"")
        self.refused("run", self.line, says=["PQASFPlayer1", "FileName", "in.asf", "empty"])
        os.remove(self.path("in.asf"))
        os.mkdir(self.path("in.asf"))
        self.refused("run", self.line, says=["PQASFPlayer1", "FileName", "in.asf", "that is a folder"])

    def test_text_and_cut_header(self):
        header = bytes.fromhex("3026b2758e66cf11a6d900aa0062ce6c") + struct.pack("<QIBB", 5000, 5, 1, 2)
        for data in (b"This is a letter, no film.\n" * 400, header + b"\0" * 40):
            self.write("in.asf", data)
            done = self.pantiq("run", self.line, code=1)
            self.assertIn("PQASFPlayer1", done.err)

    def test_written_files_play_and_outputs_are_safe(self):
        line = f"TPQJaehneGen ! TPQASFLogger FileName='out.asf'"
        done = subprocess.run([PANTIQ, "run", "--frames", "25", line], cwd=self.folder, capture_output=True)
        if b"install" in done.stderr:
            self.skipTest(done.stderr.decode())
        self.assertEqual(done.returncode, 0, done.stderr)
        self.refused("run", "--frames", "25", line, says=["PQASFLogger1", "FileName", "the file exists"])
        sums = self.pantiq("run", "TPQASFPlayer FileName='out.asf' ! checksum").out
        self.assertEqual(len(sums.splitlines()), 25)
        self.refused("run", "--overwrite", "TPQASFPlayer FileName='out.asf' ! TPQASFLogger FileName='./out.asf'",
                     says=["PQASFLogger1", "also the input of PQASFPlayer1"])

    def test_ctrl_c_closes_the_file(self):
        run = subprocess.Popen([PANTIQ, "run", "--realtime", "TPQJaehneGen Name=g ! checksum  g ! TPQASFLogger FileName='c.asf'"],
                               cwd=self.folder, stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        for _ in range(10):
            run.stdout.readline()
        run.send_signal(signal.SIGINT)
        _, err = run.communicate()
        if b"install" in err:
            self.skipTest(err.decode())
        self.assertEqual(run.returncode, 130, err)
        self.assertGreaterEqual(len(self.pantiq("run", "TPQASFPlayer FileName='c.asf' ! checksum").out.splitlines()), 10)


class Screen:
    """A virtual display, and what tests do at it."""

    def __init__(self, case):
        if shutil.which("Xvfb") is None:
            case.skipTest("there is no virtual display: install xvfb")
        try:
            self.x11 = ctypes.CDLL("libX11.so.6")
        except OSError as error:
            case.skipTest(f"there is no client of displays: {error}")
        read, write = os.pipe()
        self.server = subprocess.Popen(["Xvfb", "-displayfd", str(write), "-screen", "0", "640x480x24", "-nolisten", "tcp"],
                                       pass_fds=[write], stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        case.addCleanup(self.end)
        os.close(write)
        with os.fdopen(read) as numbers:
            number = numbers.readline().strip()
        if not number:
            case.skipTest("the virtual display does not start")
        self.name = ":" + number
        self.env = {"DISPLAY": self.name}
        x11, pointer, long = self.x11, ctypes.c_void_p, ctypes.c_ulong
        x11.XOpenDisplay.restype = pointer
        x11.XGetImage.restype = pointer
        x11.XGetImage.argtypes = [pointer, long, ctypes.c_int, ctypes.c_int, ctypes.c_uint, ctypes.c_uint, long, ctypes.c_int]
        x11.XGetPixel.restype = long
        x11.XGetPixel.argtypes = [pointer, ctypes.c_int, ctypes.c_int]
        x11.XDefaultRootWindow.restype = long
        x11.XDefaultRootWindow.argtypes = [pointer]
        x11.XQueryTree.argtypes = [pointer, long] + [pointer] * 4
        x11.XInternAtom.restype = long
        x11.XInternAtom.argtypes = [pointer, ctypes.c_char_p, ctypes.c_int]
        x11.XSendEvent.argtypes = [pointer, long, ctypes.c_int, ctypes.c_long, pointer]
        x11.XSync.argtypes = [pointer, ctypes.c_int]
        self.display = x11.XOpenDisplay(self.name.encode())

    def end(self):
        self.server.terminate()
        self.server.wait()

    def pixel(self, x, y):
        """Red, green and blue."""
        root = self.x11.XDefaultRootWindow(self.display)
        image = self.x11.XGetImage(self.display, root, x, y, 1, 1, 0xffffff, 2)
        value = self.x11.XGetPixel(image, 0, 0)
        return value >> 16 & 255, value >> 8 & 255, value & 255

    def press(self, *keys):
        """Keys into the window that has the focus."""
        focus, revert = ctypes.c_ulong(), ctypes.c_int()
        self.x11.XGetInputFocus.argtypes = [ctypes.c_void_p] * 3
        while focus.value < 2:  # None or PointerRoot
            self.x11.XGetInputFocus(self.display, ctypes.byref(focus), ctypes.byref(revert))
        for key in keys:
            self.x11.XStringToKeysym.restype = ctypes.c_ulong
            self.x11.XKeysymToKeycode.argtypes = [ctypes.c_void_p, ctypes.c_ulong]
            code = self.x11.XKeysymToKeycode(self.display, self.x11.XStringToKeysym(key.encode()))
            for kind in (2, 3):  # KeyPress, KeyRelease
                event = (ctypes.c_long * 24)()
                event[0], event[4], event[5] = kind, focus.value, self.x11.XDefaultRootWindow(self.display)
                ints = ctypes.cast(event, ctypes.POINTER(ctypes.c_int))
                ints[21], ints[22] = code, 1  # keycode, same_screen
                self.x11.XSendEvent(self.display, focus.value, 1, 1, event)
        self.x11.XSync(self.display, 0)

    def close_windows(self):
        """As a person does at the window's frame."""
        root, parent, children = ctypes.c_ulong(), ctypes.c_ulong(), ctypes.POINTER(ctypes.c_ulong)()
        count = ctypes.c_uint()
        self.x11.XQueryTree(self.display, self.x11.XDefaultRootWindow(self.display), ctypes.byref(root),
                            ctypes.byref(parent), ctypes.byref(children), ctypes.byref(count))
        for i in range(count.value):
            event = (ctypes.c_long * 24)()
            event[0] = 33  # ClientMessage
            event[4] = children[i]
            event[5] = self.x11.XInternAtom(self.display, b"WM_PROTOCOLS", 0)
            event[6] = 32
            event[7] = self.x11.XInternAtom(self.display, b"WM_DELETE_WINDOW", 0)
            self.x11.XSendEvent(self.display, children[i], 0, 0, event)
        self.x11.XSync(self.display, 0)
        return count.value


class Screens(Case):
    """Video on a display, and playing files to a person."""

    def setUp(self):
        super().setUp()
        if "TPQDSVideoOut" not in classes()["Pantiq"]:
            self.skipTest("this build plays to no devices")

    def until(self, condition, process):
        """Looks until the condition holds; the process must be alive."""
        while not condition():
            self.assertIsNone(process.poll(), "the program has ended")
            time.sleep(0.02)

    def devices(self, env=None):
        listed = json.loads(self.pantiq("list", "--devices", "--json", env=env).out)
        if not listed["video"]:
            self.skipTest("no video renderer is installed: install gstreamer1.0-x")
        return listed

    def clip(self, seconds, sound=False):
        """A clip whose picture counts its frames in red."""
        made = f"TPQJaehneGen Rate=25 ImageSize.Width=64 ImageSize.Height=48 ! TPQASFLogger FileName='clip.asf' Profile.KeyFrameInterval=5"
        done = self.pantiq("run", "--frames", str(int(seconds * 25)), made)
        self.assertIn("done", done.err)
        if sound:
            if shutil.which("ffmpeg") is None:
                self.skipTest("ffmpeg is not installed")
            subprocess.run(["ffmpeg", "-loglevel", "error", "-i", "clip.asf", "-f", "lavfi", "-i",
                            f"sine=duration={seconds}", "-c:v", "copy", "-c:a", "wmav2", "sound.asf"],
                           cwd=self.folder, check=True)

    def test_devices_are_tried(self):
        dark = self.devices(env={"DISPLAY": ""})
        ximage = [d for d in dark["video"] if d["device"] == "gst:element=ximagesink"]
        if not ximage:
            self.skipTest("ximagesink is not installed: install gstreamer1.0-x")
        self.assertFalse(ximage[0]["usable"])
        self.assertIn("X output", ximage[0]["reason"])
        screen = Screen(self)
        lit = self.devices(env=screen.env)
        self.assertTrue([d for d in lit["video"] if d["device"] == "gst:element=ximagesink"][0]["usable"])
        self.assertEqual([d["default"] for d in lit["video"]].count(True), 1)
        text = self.pantiq("list", "--devices", env=screen.env).out
        for device in lit["video"] + lit["audio"]:
            self.assertIn(device["device"], text)
        self.assertIn("dv:PATH", text)
        self.refused("list", "--devices", "--codecs", says=["excludes"])

    def test_pictures_are_seen_and_the_window_closed(self):
        screen = Screen(self)
        self.devices()
        line = "TPQJaehneGen Rate=25 ImageSize.Width=200 ImageSize.Height=100 ! TPQDSVideoOut"
        with open(self.path("err"), "wb") as err:
            run = subprocess.Popen([PANTIQ, "run", "--realtime", line], cwd=self.folder, stderr=err,
                                   env={**os.environ, **screen.env})
        # The pattern's centre is white or nearly so in each frame; around the window nothing is.
        self.until(lambda: max(max(screen.pixel(x, 50)) for x in range(90, 110)) > 150, run)
        self.assertEqual(screen.pixel(400, 300), (0, 0, 0))
        self.assertGreater(screen.close_windows(), 0)
        run.wait()
        err = self.read("err")
        self.assertEqual(run.returncode, 0, err)
        self.assertIn(b"the window was closed", err)

    def test_refusals_name_what_is_missing(self):
        self.clip(1, sound=True)
        dark = self.refused("play", "sound.asf", "--video", "gst:element=nosuchsink", says=["display", "nosuchsink", "not installed"])
        self.assertNotIn("played", dark.err)
        done = self.pantiq("play", "clip.asf", "--video", "gst:element=ximagesink", code=2, env={"DISPLAY": ""})
        self.assertIn("DISPLAY", done.err)
        done = self.refused("play", "sound.asf", "--video", "gst:element=fakesink", "--audio", "gst:element=nosuchsink",
                            says=["sound", "--mute"])
        self.refused("play", "missing.asf", says=["missing.asf", "there is no such file"])
        self.write("bad.asf", b"This is a letter, no film.\n" * 100)
        self.assertIn("bad.asf", self.pantiq("play", "bad.asf", code=1).err)

    def test_limits(self):
        self.clip(4, sound=True)
        to = ["--video", "gst:element=fakesink", "--audio", "gst:element=fakesink"]
        for words, frames in ((["clip.asf", "--frames", "20"], 20), (["sound.asf", "--seconds", "0.5"], 13),
                              (["clip.asf", "--from", "3", "--mute"], 25), (["sound.asf", "--from", "3s", "--frames", "5"], 5)):
            with self.subTest(words=words):
                done = self.pantiq("play", *words, *to)
                self.assertRegex(done.err, rf"^played {frames} frames in ")
        self.assertEqual(self.pantiq("play", "clip.asf", "--frames", "3", "--quiet", *to).err, "")

    def played(self, *steps, clip="clip.asf", mute=True):
        """Plays on a terminal; each step is a key and a text that must be seen before it is pressed. What was said."""
        master, slave = os.openpty()
        words = [PANTIQ, "play", clip, "--video", "gst:element=fakesink", "--audio", "gst:element=fakesink"]
        run = subprocess.Popen(words + (["--mute"] if mute else []), cwd=self.folder, stdin=slave, stdout=slave, stderr=slave,
                               start_new_session=True, preexec_fn=lambda: fcntl.ioctl(0, termios.TIOCSCTTY, 0))
        os.close(slave)
        self.addCleanup(os.close, master)
        said, at = "", 0

        def more():
            try:
                return os.read(master, 4096).decode(errors="replace")
            except OSError:
                return ""
        for before, key in steps:
            while (found := said.find(before, at)) < 0:
                text = more()
                self.assertTrue(text, said)
                said += text
            at = found + len(before)
            os.write(master, key)
        while text := more():
            said += text
        return run.wait(), said

    def test_keys(self):
        self.clip(20)
        frames = lambda text: int(re.search(r"played (\d+) frames", text).group(1))
        code, said = self.played(("0:01.", b"q"))
        self.assertEqual(code, 0, said)
        self.assertLess(frames(said), 100)
        # Twice ahead by five seconds, once back, then paused, ahead in the pause, and on to the end.
        code, said = self.played(("0:01.", b"\x1b[C"), ("0:06.", b"\x1b[C"), ("0:11.", b"\x1b[D"), ("0:06.", b" "),
                                 ("paused", b"\x1b[C\x1b[C"), ("0:16.", b" "), ("0:17.", b"\x1b[C"))
        self.assertEqual(code, 0, said)
        self.assertLess(frames(said), 400, said)
        # Frame by frame: each step lets one more in.
        code, said = self.played(("0:00.", b"."), ("paused", b"." * 60), ("0:02.", b"q"))
        self.assertEqual(code, 0, said)
        code, said = self.played(("0:01.", b"\x03"))
        self.assertEqual(code, 130, said)

    def test_keys_with_sound(self):
        self.clip(8, sound=True)
        code, said = self.played(("0:01.", b" "), ("paused", b"." * 60), ("0:02.", b" "), ("0:03.", b"\x1b[C"),
                                 clip="sound.asf", mute=False)
        self.assertEqual(code, 0, said)
class Edit(Case):
    """The editor of a mask, on a terminal and in a window."""

    GRAPH = (b"pantiq graph 1\n# kept\nobject g: TPQJaehneGen\nend\n\nobject m: TPQMorphFilter\n  MaskSize.Width = 5\n"
             b"  MaskSize.Height = 4\n  MorphShape.ShapeType = stCustom  # drawn\n  InputPin = g.OutputPin\nend\n\n"
             b"object flip: TPQMirror\n  InputPin = m.OutputPin\nend\n")
    DARK = {"DISPLAY": "", "WAYLAND_DISPLAY": "", "QT_QPA_PLATFORM": ""}

    def setUp(self):
        super().setUp()
        self.write("a.pqg", self.GRAPH)

    def edited(self, *words, steps, program=PANTIQ, size=(24, 80)):
        """Edits on a terminal; each step is a text that must be seen first, then keys or a signal. Exit code, what was seen."""
        master, slave = os.openpty()
        self.addCleanup(os.close, master)
        self.addCleanup(os.close, slave)
        fcntl.ioctl(slave, termios.TIOCSWINSZ, struct.pack("HHHH", *size, 0, 0))
        before = termios.tcgetattr(slave)
        run = subprocess.Popen([program, "edit", *words], cwd=self.folder, stdin=slave, stdout=slave, stderr=slave,
                               start_new_session=True, preexec_fn=lambda: fcntl.ioctl(0, termios.TIOCSCTTY, 0),
                               env={**os.environ, **self.DARK, "TERM": "xterm"})
        self.addCleanup(run.kill)
        said, at = "", 0
        for text, act in steps:
            while (found := said.find(text, at)) < 0:
                if select.select([master], [], [], 0.1)[0]:
                    said += os.read(master, 65536).decode()
                else:
                    self.assertIsNone(run.poll(), said)
            at = found + len(text)
            if isinstance(act, bytes):
                os.write(master, act)
            else:
                run.send_signal(act)
        while run.poll() is None:
            if select.select([master], [], [], 0.1)[0]:
                said += os.read(master, 65536).decode()
        code = run.returncode
        while select.select([master], [], [], 0)[0]:
            said += os.read(master, 65536).decode()
        self.assertEqual(termios.tcgetattr(slave), before, "the terminal is as it was")
        self.assertEqual(said.count("\x1b[?1049h"), said.count("\x1b[?1049l"))
        return code, said

    def test_a_mask_drawn_on_the_terminal(self):
        # Current cells: 0:0, then 1:1 by arrows, then the end of the row; a taller mask; keys that do nothing.
        code, said = self.edited("a.pqg", "m", steps=[
            ("0:0", b" 2x\x1b[C"), ("1:0", b"\x1b[B1"), ("1:1", b"\x1b[F"), ("4:1", b" "), ("", b"\t\tx"), ("", b"5-\x7f6\r"),
            ("Height : \x1b[7m6", b"\t\t\t\x1b[6~"), ("4:5", b"1\n")])
        self.assertEqual(code, 0, said)
        self.assertIn("PQMorphShapeForm  a.pqg: m.MorphShape", said)
        cells = "10000 01001 00000 00000 00000 00001".replace(" ", "")
        kept = self.GRAPH.replace(b"Height = 4", b"Height = 6").decode()
        text = self.read("a.pqg").decode()
        self.assertIn(f"(30 {' '.join(cells)})", text)
        self.assertEqual([l for l in text.splitlines() if "MatrixData" not in l and "Anchor" not in l], kept.splitlines())
        self.assertEqual(sorted(os.listdir(self.folder)), ["a.pqg"])
        self.assertEqual(len(self.pantiq("run", "--frames", "2", "a.pqg").err.splitlines()), 1)

    def test_what_is_no_size_gives_a_message(self):
        code, said = self.edited("a.pqg", "m", steps=[
            ("0:0", b"\t\x7f\t"), ("Invalid value : \x1b", b"\t"), ("0:0", b"70000\r"), ("Invalid value : 70000", b" "),
            ("0:0", b"7\r"), ("0:0", b"\r")])
        self.assertEqual(code, 0, said)
        self.assertIn(b"MaskSize.Width = 7\n", self.read("a.pqg"))

    def test_whatever_cancels_leaves_the_file_as_it_was(self):
        for act, code in [(b"\x1b", 1), (b"\x1b[Z\r", 1), (b"\x03", 130), (b"\x1c", 131), (signal.SIGTERM, 143), (signal.SIGHUP, 129)]:
            with self.subTest(act=act):
                done, said = self.edited("a.pqg", "m", steps=[("0:0", b"1"), ("97;44m1", act)])
                self.assertEqual(done, code, said)
                self.assertIn("m.MorphShape: cancelled; 'a.pqg' is as it was", said)
                self.assertEqual(self.read("a.pqg"), self.GRAPH)

    def test_stopped_continued_and_resized(self):
        code, said = self.edited("a.pqg", "m", steps=[("0:0", signal.SIGTSTP), ("\x1b[?1049l", b""), ("0:0", signal.SIGWINCH),
                                                      ("0:0", b"1"), ("97;44m1", b"\r")])
        self.assertEqual(code, 0, said)

    def test_a_mask_larger_than_the_terminal(self):
        self.write("a.pqg", self.GRAPH.replace(b"Height = 4", b"Height = 300").replace(b"Width = 5", b"Width = 200"))
        code, said = self.edited("a.pqg", "m", size=(8, 20), steps=[("0:0", b"\x1b[F"), ("199:0", b"\x1b[6~"), ("199:3", b"1\r")])
        self.assertEqual(code, 0, said)
        rows = re.search(r"\(60000 ([01 ]+)\)", self.read("a.pqg").decode()).group(1).split()
        self.assertEqual([i for i, cell in enumerate(rows) if cell == "1"], [3 * 200 + 199])

    def test_where_the_graph_goes(self):
        self.write("old.pqg", b"precious")
        self.refused("edit", "a.pqg", "m", "-o", "old.pqg", says=["'old.pqg': the file exists", "--overwrite"])
        draw = [("0:0", b"1\r")]
        self.assertEqual(self.edited("a.pqg", "m", "-o", "old.pqg", "--overwrite", steps=draw)[0], 0)
        self.assertIn(b"(20 1 0", self.read("old.pqg"))
        self.assertEqual(self.read("a.pqg"), self.GRAPH)
        code, said = self.edited("a.pqg", "m", "-o", "-", steps=draw)
        self.assertIn("(20 1 0", said.split("\x1b[?1049l")[1])
        os.symlink("old.pqg", self.path("link.pqg"))
        self.assertEqual(self.edited("link.pqg", "m", steps=[("0:0", b"\x1b[C1\r")])[0], 0)
        self.assertTrue(os.path.islink(self.path("link.pqg")))
        self.assertIn(b"(20 1 1 0", self.read("old.pqg"))

    def test_a_mask_that_is_not_in_use_is_told_of(self):
        self.write("a.pqg", self.GRAPH.replace(b"stCustom", b"stCross"))
        self.assertIn("m.MorphShape.ShapeType is not stCustom", self.edited("a.pqg", "m", steps=[("0:0", b"1\r")])[1])
        code, said = self.edited("a.pqg", "m", "--custom", steps=[("0:0", b"\r")])
        self.assertNotIn("stCustom", said)
        self.assertIn(b"ShapeType = stCustom", self.read("a.pqg"))

    def test_refusals(self):
        self.write("bad.pqg", b"pantiq graph 1\nobject m: TPQMorphFilter\n  MaskSize.Width = x\nend\n")
        self.write("own.pqg", b"pantiq graph 1\nobject m: TPQMorphFilter\nend\nobject c: checksum\n  InputPin = m.OutputPin\nend\n")
        self.write("large.pqg", self.GRAPH.replace(b"= 5", b"= 65535").replace(b"= 4", b"= 65535"))
        for words, says in [
            (["none.pqg", "m"], ["'none.pqg': there is no such file"]),
            (["TPQJaehneGen ! TPQMorphFilter", "m"], ["there is no such file"]),
            (["bad.pqg", "m"], ["bad.pqg:3:"]),
            (["own.pqg", "m"], ["checksum"]),
            (["large.pqg", "m"], ["65535 by 65535 cells", "16777216"]),
            (["a.pqg", "n"], ["no component 'n'", "it has g, m, flip"]),
            (["a.pqg", "flip"], ["flip (TPQMirror) has no mask", "m.MorphShape"]),
            (["a.pqg", "m", "--property", "MaskSize"], ["m (TPQMorphFilter) has no mask 'MaskSize'", "m.MorphShape"]),
            (["a.pqg"], ["component is required"]),
        ]:
            with self.subTest(words=words):
                self.refused("edit", *words, says=says)
        for words in ([], ["--terminal"]):
            done = self.pantiq("edit", "a.pqg", "m", *words, code=2, env=self.DARK)
            self.assertIn("standard input is no terminal; 'a.pqg' is as it was", done.err)
            self.assertEqual("no window" in done.err, not words, done.err)
        self.assertEqual(self.read("a.pqg"), self.GRAPH)

    def test_without_the_module_the_terminal_serves(self):
        os.mkdir(self.path("bin"))
        shutil.copy(PANTIQ, self.path("bin"))
        alone = self.path("bin/pantiq")
        done = subprocess.run([alone, "edit", "a.pqg", "m"], cwd=self.folder, stdin=subprocess.DEVNULL, capture_output=True)
        if b"libpantiq-qt.so is not installed" not in done.stderr:
            self.skipTest("the module is installed on this machine")
        self.assertEqual(done.returncode, 2)
        self.assertIn(b"PANTIQ_DIALOGS=ON", done.stderr)
        self.assertEqual(self.edited("a.pqg", "m", steps=[("0:0", b"1\r")], program=alone)[0], 0)

    def test_the_window(self):
        screen = Screen(self)
        done = subprocess.run([PANTIQ, "edit", "a.pqg", "m"], cwd=self.folder, stdin=subprocess.DEVNULL, capture_output=True,
                              env={**os.environ, **self.DARK})
        if b"libpantiq-qt.so" in done.stderr:
            self.skipTest("this build has no windows: install qt6-base-dev")
        for press, code in [(screen.close_windows, 1), (lambda: screen.press("1", "Right", "space", "Return"), 0)]:
            run = subprocess.Popen([PANTIQ, "edit", "a.pqg", "m"], cwd=self.folder, stdin=subprocess.DEVNULL,
                                   stderr=subprocess.PIPE, env={**os.environ, **self.DARK, **screen.env})
            # The grid's first cells: the current one, then a white one.
            while screen.pixel(100 + 2 + 19, 100 + 2) != (255, 255, 255):
                self.assertIsNone(run.poll(), "the program has ended")
                time.sleep(0.02)
            press()
            _, err = run.communicate()
            self.assertEqual(run.returncode, code, err)
            if code != 0:
                self.assertIn(b"cancelled", err)
                self.assertEqual(self.read("a.pqg"), self.GRAPH)
        self.assertIn(b"(20 1 1 0", self.read("a.pqg"))


class Convert(Case):
    """One file into another."""

    def test_every_container(self):
        made = "TPQJaehneGen ImageSize.Width=64 ImageSize.Height=48 ! TPQASFLogger FileName='it''s.asf'"
        done = subprocess.run([PANTIQ, "run", "--frames", "10", made], cwd=self.folder, capture_output=True)
        if b"install" in done.stderr:
            self.skipTest(done.stderr.decode())
        self.assertEqual(done.returncode, 0, done.stderr)
        for ending in ("asf", "wmv", "MKV", "mp4", "avi"):
            with self.subTest(ending=ending):
                self.pantiq("convert", "it's.asf", "out." + ending, "TPQMirror", "MirrorType=mtBoth", "!", "TPQGrayScale")
                sums = self.pantiq("run", f"TPQASFPlayer FileName=out.{ending} ! checksum").out.splitlines()
                self.assertEqual(len(sums), 10)
                self.assertIn("64x48", sums[0])
        self.pantiq("convert", "it's.asf", "cut.mkv", "--from", "80ms", "--frames", "3")
        self.assertEqual(len(self.pantiq("run", "TPQASFPlayer FileName=cut.mkv ! checksum").out.splitlines()), 3)
        self.refused("convert", "it's.asf", "cut.mkv", says=["cut.mkv", "--overwrite"])
        self.refused("convert", "it's.asf", "out.mov", says=["'out.mov'", ".mp4"])
        self.refused("convert", "none.mp4", "other.mp4", says=["none.mp4"])
        self.refused("convert", "it's.asf", "other.mp4", "TPQMiror", says=["TPQMiror", "nearest is 'TPQMirror'"])
        self.assertFalse(os.path.exists(self.path("other.mp4")))


class Codecs(Case):
    """Compressed and decompressed again, by what is installed."""
    NEEDED = ("MJPG", "FFV1", "HFYU", "XVID")

    @classmethod
    def setUpClass(cls):
        done = subprocess.run([PANTIQ, "list", "--codecs", "--json"], capture_output=True, check=True)
        listed = json.loads(done.stdout)
        cls.tags = {codec["tag"]: codec for codec in listed["codecs"]}
        if not all(tag in cls.tags for tag in cls.NEEDED):
            raise unittest.SkipTest(str(listed.get("missing", "codecs are missing")))

    def chain(self, *more, codec="TPQVideoCompressor"):
        line = f"TPQASFPlayer FileName='clip.asf' ! {codec} ! TPQVideoDecompressor ! checksum"
        done = self.pantiq("run", line, *more)
        self.assertEqual(done.err.count("warning"), 0, done.err)
        return done.out

    def test_encoders_are_tried(self):
        """One that is there and one that is not, each in a process of its own; all of them in the long set."""
        tried = json.loads(self.pantiq("try-device", "encoder", "gst:element=jpegenc").out)
        if tried["code"] != 0:
            self.skipTest(tried["detail"])
        self.assertEqual((tried["blocks"], tried["frames"], tried["at_once"]), (5, 5, True))
        self.assertGreater(tried["decibel"], 30)
        missing = json.loads(self.pantiq("try-device", "encoder", "gst:element=nosuchenc").out)
        self.assertNotEqual(missing["code"], 0)
        self.assertIn("nosuchenc", missing["detail"])
        if LONG:
            listed = json.loads(self.pantiq("list", "--encoders", "--json").out)["encoders"]
            self.assertIn("gst:element=jpegenc", [e["compressor"] for e in listed if e["usable"]])
            self.assertTrue(all(e["reason"] for e in listed if not e["usable"]))
            text = self.pantiq("list", "--encoders").out
            for encoder in listed:
                self.assertIn(encoder["name"], text)
        self.refused("list", "--encoders", "--codecs", says=["excludes"])

    def test_a_clip_comes_back(self):
        made = "TPQJaehneGen ImageSize.Width=162 ImageSize.Height=122 ! TPQGaussNoise"
        self.pantiq("run", "--frames", "30", f"{made} ! TPQASFLogger FileName='clip.asf'")
        direct = self.pantiq("run", "TPQASFPlayer FileName='clip.asf' ! checksum").out
        self.assertEqual(len(direct.splitlines()), 30)
        for tag in ("FFV1", "HFYU", "DIB"):
            self.assertEqual(self.chain(codec=f"TPQVideoCompressor Compressions[0].FourCC={tag}"), direct, tag)
        for tag in ("MJPG", "XVID"):
            lossy = self.chain(codec=f"TPQVideoCompressor Compressions[0].FourCC={tag} Compressions[0].Quality=9000")
            self.assertEqual(len(lossy.splitlines()), 30, tag)
            self.assertNotEqual(lossy, direct)

    def test_what_cannot_be_opened_is_told(self):
        line = f"{GEN} ! TPQVideoCompressor Compressions[0].FourCC=ABCD ! TPQVideoDecompressor ! checksum"
        done = self.pantiq("run", "--frames", "2", line)
        self.assertEqual(len(done.out.splitlines()), 2)
        self.assertIn("'ABCD' can't be opened; 'MJPG' compresses", done.err)
        self.refused("run", line.replace("ABCD", "MJPEG"), says=["FourCC", "'MJPEG'", "one to four characters"])

    def test_without_the_module_frames_pass_as_they_are(self):
        self.write("libpantiq-av.so", b"this is no library")
        missing = {"PANTIQ_MODULE_PATH": self.folder}
        line = f"{GEN} ! TPQVideoCompressor ! TPQVideoDecompressor Width=32 Height=16 ! checksum"
        done = self.pantiq("run", "--frames", "2", line, env=missing)
        self.assertEqual(done.out, self.pantiq("run", "--frames", "2", f"{GEN} ! checksum").out)
        self.assertIn("PQVideoCompressor1: No codec can be opened; frames pass as they are.", done.err)
        self.assertIn("install libavcodec59", done.err)
        self.assertIn("install libavcodec59", self.pantiq("list", "--codecs", env=missing).out)
        listed = json.loads(self.pantiq("list", "--codecs", "--json", env=missing).out)
        self.assertEqual(listed["codecs"], [])
        self.assertIn("install libavcodec59", listed["missing"])

    @unittest.skipIf(os.environ.get("PANTIQ_SANITIZE") == "thread", "the tests of the codecs try them all")
    def test_the_list(self):
        text = self.pantiq("list", "--codecs").out
        for tag, codec in self.tags.items():
            self.assertRegex(text, rf"(?m)^{re.escape(tag)} .*{re.escape(codec['name'])}$")
        self.assertTrue(self.tags["FFV1"]["lossless"] and self.tags["FFV1"]["alone"])
        self.assertTrue(self.tags["MJPG"]["quality"] and not self.tags["MJPG"]["lossless"])


@unittest.skipUnless(os.environ.get("PANTIQ_PLUGINS"), "the example plug-ins are not built")
class Plugins(Case):
    """The example plug-ins, in the program's process and isolated."""

    def setUp(self):
        super().setUp()
        for plugin in glob.glob(os.path.join(os.environ["PANTIQ_PLUGINS"], "*.so")):
            shutil.copy(plugin, self.folder)

    def fx(self, plugin, settings=""):
        return f"{GEN} ! TPQFreeFrame Name=fx FilterFileName={plugin}.so {settings} ! checksum"

    def misbehave(self, words):
        return {"PANTIQ_MISBEHAVE": words}

    def test_runs(self):
        plain = self.pantiq("run", "--frames", "3", f"{GEN} ! checksum").out
        second = f"  {GEN} ! TPQFixedFilter ! fx.InputPins.Pin2"
        for plugin, settings, more in [
            ("waves", "Parameters.Speed=0.5", ""),
            ("sepia32", "Parameters[0]=0.75", ""),
            ("crossfade", "Parameters.Mix=0.25", second),
            ("badge", "Parameters.'Label text'='it''s' Parameters.Invert=true Parameters.Red=9", ""),
            ("misbehave", "", ""),
        ]:
            with self.subTest(plugin=plugin):
                line = self.fx(plugin, settings) + more
                if plugin == "waves":  # two of them do not get into each other's way
                    line = line.replace("! checksum", f"! TPQFreeFrame FilterFileName={plugin}.so ! checksum")
                done = self.pantiq("run", "--frames", "3", line).out
                self.assertEqual(len(done.splitlines()), 3)
                self.assertNotEqual(done, plain)
                isolated = self.pantiq("run", "--frames", "3", line.replace("FilterFileName", "Isolated=true FilterFileName"))
                self.assertEqual(isolated.out, done)
                if settings:
                    self.assertNotEqual(self.pantiq("run", "--frames", "3", self.fx(plugin) + more).out, done)

    def test_a_stored_graph_keeps_its_parameters(self):
        line = self.fx("badge", "Parameters.Size=0.75 Parameters[3]=1").replace("checksum", "TPQMirror Name=m")
        self.pantiq("save", line, "-o", "fx.pqg", env=self.misbehave("crash:1"))
        stored = self.read("fx.pqg").decode()
        self.assertIn("  Parameters.Size = 0.75\n", stored)
        self.assertEqual(self.pantiq("save", "fx.pqg", "-o", "-").out, stored)
        for name, text in [("named", stored), ("listed", re.sub(r"  Parameters.*\n", "", stored).replace(
                "  FilterFileName", "  Parameters.StrValue = ('False' '' '255' '1' '0' '8' '8' '0.75' 'Pantiq')\n  FilterFileName"))]:
            sink = f"\nobject s: frames\n  FileName = '{name}-%d.png'\n  InputPin = m.OutputPin\nend\n"
            self.write(name + ".pqg", (text + sink).encode())
            self.pantiq("run", "--frames", "1", name + ".pqg", "--quiet")
        self.assertEqual(self.read("named-0.png"), self.read("listed-0.png"))
        direct = self.fx("badge", "Parameters.Size=0.75 Parameters[3]=1").replace("checksum", "TPQMirror ! frames 'direct-%d.png'")
        self.pantiq("run", "--frames", "1", direct, "--quiet")
        self.assertEqual(self.read("named-0.png"), self.read("direct-0.png"))

    def test_wrong_parameters(self):
        for setting, caret, says in [
            ("Parameters.Sped=1", "Sped", ["nearest is 'Speed'", "Speed, Height"]),
            ("Parameters.Speed=fast", "fast", ["fx.Parameters.Speed", "a number"]),
            ("Parameters[2]=1", "[2]", ["from 0 to 1"]),
        ]:
            with self.subTest(setting=setting):
                line = self.fx("waves", setting)
                self.refused("run", line, says=says, source=line, caret=caret)
                self.assertIn("cannot be checked now", self.pantiq("check", line).err)

    def test_files_that_are_none(self):
        self.write("text.so", b"not what it seems\n")
        self.refused("run", self.fx("absent"), says=["fx: FilterFileName", "'absent.so'", "no such file"])
        for command in ("run", "check"):
            self.refused(command, self.fx("text"), says=["FilterFileName = 'text.so': that is no shared object", "a plug-in"],
                         source=self.fx("text"), caret="text.so")
        self.assertIn("there is no plug-in", self.pantiq("run", f"{GEN} ! TPQFreeFrame ! checksum", code=1).err)
        for words, why in [("fail:1", "FF_INITIALISE"), ("no-depth", "neither 16, 24 nor 32"), ("fail:11", "32 by 16")]:
            done = self.pantiq("run", "--frames", "3", self.fx("misbehave"), code=1, env=self.misbehave(words))
            self.assertIn(why, done.err)
            self.assertEqual(done.out, "")

    def test_an_isolated_plugin_may_crash_hang_and_leave(self):
        plain = self.pantiq("run", "--frames", "3", f"{GEN} ! checksum").out
        for words, why in [("crash:3", "it crashed in FF_PROCESSFRAME (Segmentation fault)"),
                           ("exit:11", "exit code 3"), ("crash:1", "FF_INITIALISE"),
                           ("hang:3", "did not come back within two seconds in FF_PROCESSFRAME")]:
            with self.subTest(words=words):
                line = self.fx("misbehave", "Isolated=true")
                done = self.pantiq("run", "--frames", "3", line, env=self.misbehave(words))
                self.assertEqual(done.out, plain)
                self.assertIn(why, done.err)
                self.assertIn("frames pass unchanged", done.err)

    def test_ctrl_c_does_not_reach_an_isolated_plugin(self):
        run = subprocess.Popen([PANTIQ, "run", self.fx("waves", "Isolated=true")], cwd=self.folder, text=True,
                               stdout=subprocess.PIPE, stderr=subprocess.PIPE, start_new_session=True)
        for _ in range(20):
            run.stdout.readline()
        os.killpg(run.pid, signal.SIGINT)  # as a terminal does
        _, err = run.communicate()
        self.assertEqual(run.returncode, 128 + signal.SIGINT, err)
        self.assertNotIn("lost", err)

    def test_the_process_of_a_plugin_ends_with_the_program(self):
        """However that ends, and whatever the plug-in is doing."""
        mark = self.path("hangs")
        env = {**os.environ, **self.misbehave("hang:3"), "PANTIQ_MISBEHAVE_MARK": mark}
        run = subprocess.Popen([PANTIQ, "run", "--quiet", self.fx("misbehave", "Isolated=true")], cwd=self.folder,
                               env=env, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE)
        while not os.path.exists(mark) and run.poll() is None:
            os.sched_yield()
        with open(f"/proc/{run.pid}/task/{run.pid}/children", encoding="ascii") as file:
            children = file.read().split()
        for task in glob.glob(f"/proc/{run.pid}/task/*/children"):
            with open(task, encoding="ascii") as file:
                children += file.read().split()
        run.kill()
        run.communicate()
        self.assertTrue(children)
        for child in children:
            while os.path.exists(f"/proc/{child}"):
                with open(f"/proc/{child}/stat", encoding="ascii") as file:
                    if file.read().rsplit(")", 1)[1].split()[0] == "Z":
                        break
                os.sched_yield()

    def test_the_plugin_of_the_page(self):
        """docs/plugins.md, as somebody new would follow it."""
        with open(os.path.join(os.environ["PANTIQ_ROOT"], "docs", "plugins.md"), encoding="utf-8") as file:
            page = file.read()
        self.write("negative.c", re.search(r"```c\n(.*?)```", page, re.DOTALL).group(1).encode())
        build = re.search(r"(?m)^    (cc .*)$", page).group(1).replace("PATH_TO_PANTIQ", os.environ["PANTIQ_ROOT"])
        made = subprocess.run([*build.split(), "-Wall", "-Wextra", "-Werror"], cwd=self.folder, capture_output=True)
        self.assertEqual(made.returncode, 0, made.stderr.decode())
        shown = self.pantiq("inspect", "--plugin", "negative.so").out
        self.assertIn("Parameters.Amount: Float = 1;", shown)
        run = re.search(r"(?m)^    pantiq run --frames 25 \"(.*)\"$", page).group(1)
        self.pantiq("run", "--frames", "2", run)
        self.assertTrue(os.path.exists(self.path("out-01.png")))
        sums = [self.pantiq("run", "--frames", "2", self.fx(plugin)).out for plugin in ("negative", "misbehave")]
        self.assertEqual(sums[0], sums[1], "both invert")

    def test_inspect(self):
        shown = json.loads(self.pantiq("inspect", "--plugin", "badge.so", "--json").out)
        self.assertEqual((shown["version"], shown["video"], shown["minimum_inputs"]), ("1.2", [24], 1))
        self.assertEqual([p["path"] for p in shown["parameters"]][-2:], ["Parameters.Size", "Parameters.'Label text'"])
        self.assertEqual([p["default"] for p in shown["parameters"]],
                         ["false", "false", "255", "160", "0", "8", "8", "0.25", "'Pantiq'"])
        text = self.pantiq("inspect", "--plugin", "badge.so").out
        for says in ("Puts a badge into the picture, version 1.2", "frames of 24 bits", "1 input",
                     "Parameters.Red: UInt8 = 255, 0 to 255", "Parameters.'Label text': String = 'Pantiq'"):
            self.assertIn(says, text)
        for plugin in ("badge", "waves", "sepia32", "crossfade", "misbehave"):
            example = json.loads(self.pantiq("inspect", "--plugin", plugin + ".so", "--json").out)["example"]
            self.assertEqual(len(self.pantiq("run", "--frames", "2", example).out.splitlines()), 2)
        for words, why in [("crash:13", "it crashed in FF_GETEXTENDEDINFO"), ("exit:4", "exit code 3"),
                           ("crash:5 names", "FF_GETPARAMETERNAME")]:
            done = self.pantiq("inspect", "--plugin", "misbehave.so", code=2, env=self.misbehave(words))
            self.assertIn(why, done.err)
            self.assertEqual(done.out, "")
        self.refused("inspect", "--plugin", "absent.so", says=["'absent.so'", "no such file"])
        self.refused("inspect", "--plugin", "badge.so", "TPQMirror", says=["excludes"])
        done = self.pantiq("inspect", "--plugin", "misbehave.so", env=self.misbehave("names throw:4"))
        self.assertIn("raised an exception (in FF_GETNUMPARAMETERS", done.err)


class Flow(Case):
    """Routing, holding and timing of streams."""

    def sums(self, *words):
        """What a checksum sink says of the frames, without their numbers."""
        return [line.split(None, 1)[1] for line in self.pantiq("run", *words).out.splitlines()]

    def test_the_stream_is_changed_in_its_middle(self):
        line = "TPQJaehneGen Rate=10 ! TPQSwitch Name=gate Enabled=false ! checksum"
        plain = self.sums("--frames", "1", "TPQJaehneGen ! checksum")[0]
        self.assertEqual(self.sums("--at", "0.5", "gate.Enabled=true", "--at", "800ms", "gate.EnabledPin=false",
                                   "--at", "1.9s", "gate.Enabled=true", "--frames", "5", line), [plain] * 5)
        taken = "TPQJaehneGen Rate=10 ! TPQGaussNoise ! TPQSnapshot Name=snap PreserveFrameRate=true ! checksum"
        black, *rest = self.sums("--seconds", "1", "--at", "0.35s", "snap.SnapshotPin", taken)
        self.assertEqual(rest[:3], [black] * 3)  # frame 4 brings the pulse, which takes frame 3
        self.assertNotEqual(rest[3], black)
        self.assertEqual(rest[3:], [rest[3]] * 6)
        turned = self.sums("--frames", "4", "--at", "0.08s", "m.MirrorType=mtVertical",
                           "TPQJaehneGen ! TPQRotate Angle=20 ! TPQMirror Name=m ! checksum")
        self.assertEqual(turned[0], turned[1])
        self.assertNotEqual(turned[1], turned[2])
        late = self.pantiq("run", "--frames", "2", "--at", "9s", "gate.Enabled=true", "TPQJaehneGen ! TPQSwitch Name=gate ! checksum")
        self.assertIn("at 9 s gate.Enabled=true did not happen", late.err)

    def test_what_cannot_be_done_in_the_middle_is_refused(self):
        line = "TPQJaehneGen ! TPQSwitch Name=gate ! TPQSnapshot Name=snap ! checksum"
        for what, says in (
                ("door.Enabled=true", ["no component 'door'", "gate"]),
                ("gate.Enable=true", ["there is no property 'Enable'", "'Enabled'"]),
                ("gate.Enabled=7", ["gate.Enabled=7", "expected"]),
                ("gate.Enabled", ["the value is missing"]),
                ("gate.EnabledPin", ["the value is missing", "gate.EnabledPin=true"]),
                ("gate.EnabledPin=maybe", ["maybe", "expected"]),
                ("snap.SnapshotPin=1", ["a clock takes no value"]),
                ("gate.InputPin=1", ["takes image streams"]),
                ("gate.OutputPin", ["nothing can be sent"]),
                ("gate", ["the property or pin is missing"])):
            with self.subTest(what=what):
                self.refused("run", "--frames", "1", "--at", "1s", what, line, says=says)
        self.refused("run", "--at", "soon", "gate.Enabled=true", line, says=["'soon' is no time"])

    def test_rates(self):
        up = self.pantiq("run", "--seconds", "2", "TPQJaehneGen Rate=25 ! TPQChangeRate '60' ! checksum").out
        self.assertEqual(len(up.splitlines()), 120)
        down = self.pantiq("run", "--seconds", "2", "TPQJaehneGen Rate=60 ! TPQChangeRate FrameRate=25 ! checksum").out
        self.assertEqual(len(down.splitlines()), 50)
        held = self.sums("--frames", "3", "TPQJaehneGen ! TPQGaussNoise ! TPQDelay '4' ! checksum")
        self.assertEqual(held, self.sums("--frames", "3", "TPQJaehneGen ! TPQGaussNoise ! checksum"))

    def test_channels_are_made_by_connecting_and_stored(self):
        line = ("TPQJaehneGen ! TPQQueuedSwitch Name=q InputChannels[0].Queuing.Enabled=true ActiveChannelIndex=1 ! TPQMirror "
                "TPQJaehneGen Rate=30 ! q")
        stored = self.pantiq("save", line, "-o", "-").out
        self.assertIn("ActiveChannelIndex = 1", stored)
        self.assertEqual(stored.count("  item"), 2)
        self.write("q.pqg", stored.encode())
        self.assertEqual(self.pantiq("save", "q.pqg", "-o", "-").out, stored)

    def test_two_clips_in_turn_lose_nothing(self):
        for name, angle, frames in (("one.asf", 10, 12), ("two.asf", 40, 9)):
            self.pantiq("run", "--frames", str(frames), f"TPQJaehneGen ImageSize.Width=64 ImageSize.Height=48 ! TPQRotate Angle={angle} "
                                                        f"! TPQASFLogger FileName='{name}'")
        both = [self.sums(f"TPQASFPlayer FileName='{name}' ! checksum") for name in ("one.asf", "two.asf")]
        self.assertEqual([len(sums) for sums in both], [12, 9])
        line = ("TPQASFPlayer FileName=one.asf ! TPQQueuedSwitch Name=q InputChannels[0].Queuing.Enabled=true "
                "InputChannels[1].Queuing.Enabled=true ! checksum TPQASFPlayer FileName=two.asf ! q")
        for _ in range(3):
            self.assertEqual(self.sums(line), both[0] + both[1])
        self.assertEqual(self.sums("--realtime", line), both[0] + both[1])


@unittest.skipUnless(LONG, "in the long set")
class LongRuns(Case):
    """An hour of video through the player: what it keeps does not grow."""

    def most_memory(self, line, env=None):
        """Kilobytes that the run had, looked at twice a second: the most of its second tenth, and of its last."""
        run = subprocess.Popen([PANTIQ, "run", "--quiet", line], cwd=self.folder, stdout=subprocess.DEVNULL)
        sizes = []
        while run.poll() is None:
            with open(f"/proc/{run.pid}/status", encoding="ascii") as file:
                sizes += [int(word.split()[1]) for word in file if word.startswith("VmRSS:")]
            time.sleep(0.5)
        self.assertEqual(run.returncode, 0)
        tenth = len(sizes) // 10
        self.assertGreater(tenth, 1, "it ran too short a time to be looked at")
        return max(sizes[tenth:2 * tenth]), max(sizes[-tenth:])

    def test_an_hour_of_video(self):
        if shutil.which("ffmpeg") is None:
            self.skipTest("ffmpeg is not installed")
        made = "TPQJaehneGen Rate=25 ImageSize.Width=640 ImageSize.Height=360 ! TPQASFLogger FileName='clip.mp4'"
        self.pantiq("run", "--frames", "375", made)
        clip = os.environ.get("PANTIQ_CLIP", self.path("clip.mp4"))
        loops = 3600 // 14
        subprocess.run(["ffmpeg", "-loglevel", "error", "-stream_loop", str(loops), "-i", clip, "-c", "copy", "hour.mkv"],
                       cwd=self.folder, check=True)
        early, late = self.most_memory("TPQASFPlayer FileName='hour.mkv' ! TPQSwitch Enabled=false")
        self.assertLess(late - early, 8 * 1024, f"{early} KB early, {late} KB late")


class ExampleGraphs(Case):
    """From a folder like the project's: examples name their pictures from there."""

    def setUp(self):
        super().setUp()
        shutil.copytree(os.environ["PANTIQ_GRAPHS"], self.path("examples/graphs"))
        self.graphs = {}
        for graph in sorted(glob.glob(self.path("examples/graphs/*.pqg"))):
            with open(graph, encoding="utf-8") as file:
                self.graphs["examples/graphs/" + os.path.basename(graph)] = file.read()
        self.assertTrue(self.graphs)

    def test_examples_have_no_faults(self):
        """Clips that they read need not be here."""
        known = set(classes()["Pantiq"])
        for graph, text in self.graphs.items():
            with self.subTest(graph=graph):
                used = {line.split(":")[1].split()[0] for line in text.splitlines() if line.startswith("object ")}
                if not used <= known:
                    continue
                self.assertEqual(self.pantiq("save", graph, "-o", "-").out, text)

    @unittest.skipIf(os.environ.get("PANTIQ_SANITIZE") == "thread",
                     "ThreadSanitizer looks at what GStreamer writes in pieces of eight bytes; encoders take too long")
    def test_each_runs_on_a_clip(self):
        clip = "TPQJaehneGen ImageSize.Width=1280 ImageSize.Height=720 ! TPQGaussNoise ! TPQASFLogger FileName=in.mp4"
        made = subprocess.run([PANTIQ, "run", "--frames", "6", clip], cwd=self.folder, capture_output=True)
        if b"install" in made.stderr:
            self.skipTest(made.stderr.decode())
        self.assertEqual(made.returncode, 0, made.stderr)
        os.mkdir(self.path("out"))
        shutil.copy(self.path("in.mp4"), self.path("out/cockatoo.mp4"))
        frames = {"25-to-60": 14, "60-to-25": 5, "two-in-turn": 12, "delayed-mirror": 4}
        for graph, text in self.graphs.items():
            with self.subTest(graph=graph):
                self.write(graph, text.replace("FrameDelay = 20", "FrameDelay = 2").encode())
                outputs = re.findall(r"(?m)^object \w+: TPQASFLogger\n  FileName = '(.*)'$", text)
                self.assertTrue(outputs)
                self.assertFalse(any(os.path.exists(self.path(output)) for output in outputs), "a file of its own")
                self.pantiq("run", *(["--frames", "6"] if "--seconds" in text else []), graph)
                for output in outputs:
                    sums = self.pantiq("run", f"TPQASFPlayer FileName='{output}' ! checksum").out.splitlines()
                    if os.environ.get("PANTIQ_SANITIZE"):  # slow: a second start may find the clip played already
                        self.assertGreater(len(sums), 0, output)
                        continue
                    self.assertEqual(len(sums), frames.get(os.path.basename(graph)[:-4], 6), output)


if __name__ == "__main__":
    unittest.main()
