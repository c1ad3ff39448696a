#!/usr/bin/env python3
"""Puts the faults of this folder's lists into the sources, one at a time, and sees whether the room's tests notice.

  mutants.py                     all of them; exit code 0 if at least 95 of 100 are caught
  mutants.py kernels core:3      only these rooms, or the third one of a room
  mutants.py --check             only looks whether the lists fit the sources
  mutants.py --report FILE       writes the outcome there as well
  mutants.py --trust             takes it that all passes without a fault

Works on a copy of the tree in build/mutants: the sources themselves are never touched.
"""
import argparse
import datetime
import os
import pathlib
import queue
import shutil
import signal
import subprocess
import sys
import threading
import time

HERE = pathlib.Path(__file__).resolve().parent
ROOT = HERE.parent.parent
WORK = ROOT / "build" / "mutants"
SOURCE = WORK / "source"
BUILD = SOURCE / "build" / "mutants"
ROOMS = ["host", "kernels", "core", "filters", "flow", "compose"]
WANTED = 0.95


class Mutant:
    def __init__(self, name, room, path, old, new):
        self.name, self.room, self.path, self.old, self.new = name, room, path, old, new

    def mutated(self, text):
        """The source with the fault in it; raises ValueError unless its line stands there exactly once."""
        lines = text.split("\n")
        at = [i for i, line in enumerate(lines) if line.strip() == self.old]
        if len(at) != 1:
            raise ValueError(f"found {len(at)} times, expected once")
        line = lines[at[0]]
        lines[at[0]] = line[: len(line) - len(line.lstrip())] + self.new
        return "\n".join(lines)


def read_list(room):
    """The entries of a room's list: a line with a file, then pairs of a line '- ' as it is and a line '+ ' instead."""
    mutants, path, old = [], None, None
    for number, line in enumerate((HERE / f"{room}.txt").read_text().split("\n"), 1):
        where = f"{room}.txt:{number}"
        if line.startswith("- ") and path and old is None:
            old = line[2:].strip()
        elif (line == "+" or line.startswith("+ ")) and old is not None:
            mutants.append(Mutant(f"{room}:{len(mutants) + 1}", room, path, old, line[2:].strip()))
            old = None
        elif old is not None:
            sys.exit(f"{where}: a line that begins with '+' was expected after '- {old}'")
        elif line.startswith("pantiq/"):
            path = line.strip()
        elif line.strip() and not line.startswith("#"):
            sys.exit(f"{where}: '{line}' is neither a file, nor a fault, nor a comment")
    return mutants


def read_lists():
    return [mutant for room in ROOMS if (HERE / f"{room}.txt").exists() for mutant in read_list(room)]


def check(mutants):
    faults, seen = [], set()
    for m in mutants:
        try:
            m.mutated((ROOT / m.path).read_text())
        except (OSError, ValueError) as error:
            faults.append(f"{m.name} {m.path}: {error}: {m.old}")
        if m.old == m.new or (m.path, m.old, m.new) in seen:
            faults.append(f"{m.name} {m.path}: changes nothing, or stands there twice: {m.old}")
        seen.add((m.path, m.old, m.new))
    for fault in faults:
        print(fault)
    print(f"{len(mutants)} faults, {len(faults)} of them do not fit")
    return not faults


def copy_tree():
    """Makes SOURCE equal to the files that git knows here; what is equal already keeps its time."""
    names = subprocess.run(["git", "ls-files", "-z"], cwd=ROOT, check=True, capture_output=True).stdout.decode()
    names = {name for name in names.split("\0") if name and (ROOT / name).is_file()}
    for old in list(SOURCE.rglob("*")) if SOURCE.exists() else []:
        if old.is_file() and BUILD not in old.parents and str(old.relative_to(SOURCE)) not in names:
            old.unlink()
    for name in names:
        new, data = SOURCE / name, (ROOT / name).read_bytes()
        if not new.exists() or new.read_bytes() != data:
            new.parent.mkdir(parents=True, exist_ok=True)
            new.write_bytes(data)
            new.chmod((ROOT / name).stat().st_mode)


running = set()


def run(command, limit=None, **options):
    """The exit code, None after `limit` seconds, and the output. A command ends with all that it has started."""
    process = subprocess.Popen(command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, start_new_session=True, **options)
    running.add(process)
    try:
        output = process.communicate(timeout=limit)[0]
        return process.returncode, output.decode(errors="replace")
    except subprocess.TimeoutExpired:
        os.killpg(process.pid, signal.SIGKILL)
        return None, process.communicate()[0].decode(errors="replace")
    finally:
        running.discard(process)


def end_all(*_):
    for process in list(running):
        try:
            os.killpg(process.pid, signal.SIGKILL)
        except ProcessLookupError:
            pass
    os._exit(130)


def configure():
    # What may be changed is compiled source by source, and for a short build where the speed does not matter.
    single = WORK / "single.cmake"
    single.write_text("".join(f"cmake_language(DEFER CALL set_target_properties pantiq_{room} PROPERTIES UNITY_BUILD OFF)\n" +
                              f"cmake_language(DEFER CALL target_compile_options pantiq_{room} PRIVATE -O1)\n" * (room != "kernels")
                              for room in ROOMS))
    settings = ["CMAKE_BUILD_TYPE=Release", "CMAKE_UNITY_BUILD=ON", f"CMAKE_PROJECT_pantiq_INCLUDE={single}",
                "CMAKE_DISABLE_PRECOMPILE_HEADERS=ON", "CMAKE_GTEST_DISCOVER_TESTS_DISCOVERY_MODE=PRE_TEST",
                "PANTIQ_MEDIA=OFF", "PANTIQ_DIALOGS=OFF", "PANTIQ_APP=OFF", "PANTIQ_EXAMPLES=OFF", "PANTIQ_BENCH=OFF",
                "PANTIQ_TESTS=ON"]
    if shutil.which("ccache"):
        settings.append("CMAKE_CXX_COMPILER_LAUNCHER=ccache")
        os.environ["CCACHE_BASEDIR"] = str(SOURCE)
    code, output = run(["cmake", "-G", "Ninja", "-S", SOURCE, "-B", BUILD] + ["-D" + s for s in settings])
    if code != 0:
        sys.exit(f"{output}\nmutants: cannot configure")


def build(room):
    return run(["cmake", "--build", BUILD, "--target", f"test_{room}", "-j", str(os.cpu_count())])


# Sources whose tests bear another name.
FAMILIES = [("Box", "BoxRank"), ("MinMax", "BoxRank"), ("Median", "BoxRank"), ("BorderRank", "BoxRank"), ("Color", "Color"),
            ("Sampling", "Affine*:*Warp"), ("Cpu", "Dispatch")]


def families(path):
    """The tests that are named after a source come first: they are the likeliest to notice."""
    stem = pathlib.Path(path).stem.removesuffix("_px").removesuffix("_simd").removeprefix("PQ")
    if "/kernels/" in path:
        stem = next((family for begin, family in FAMILIES if stem.startswith(begin)), stem)
    return f"*{stem}*"


def test(program, room, path, limit):
    """'missed', 'caught by ...' or 'hung'."""
    environment = {k: v for k, v in os.environ.items() if not k.startswith("PANTIQ_") and not k.startswith("GTEST_")}
    for part in ([f"--gtest_filter={families(path)}"] if path else []) + ["--gtest_filter=*"]:
        code, output = run([program, "--gtest_fail_fast", "--gtest_brief=1", part], limit, env=environment,
                           cwd=BUILD / "tests" / room)
        if code is None:
            return "hung"
        if code != 0:
            failed = [line.split("]", 1)[1].split(",")[0].split(" (")[0].strip() for line in output.split("\n")
                      if line.startswith("[  FAILED  ]")]
            return "caught by " + (failed[0] if failed else f"a crash ({code})")
    return "missed"


def main():
    arguments = argparse.ArgumentParser()
    arguments.add_argument("--check", action="store_true")
    arguments.add_argument("--report")
    arguments.add_argument("--trust", action="store_true")
    arguments.add_argument("which", nargs="*")
    given = arguments.parse_args()
    mutants = read_lists()
    if not check(mutants):
        sys.exit(1)
    if given.check:
        return
    if given.which:
        mutants = [m for m in mutants if m.room in given.which or m.name in given.which]
        if not mutants:
            sys.exit(f"mutants: nothing is named {' '.join(given.which)}")

    signal.signal(signal.SIGINT, end_all)
    signal.signal(signal.SIGTERM, end_all)
    begin = time.time()
    WORK.mkdir(parents=True, exist_ok=True)
    copy_tree()
    configure()
    limits = {}

    def try_without(room):
        """Without a fault everything must pass; this also measures how long that takes."""
        code, output = build(room)
        if code != 0:
            sys.exit(f"{output[-4000:]}\nmutants: test_{room} cannot be built without a fault either")
        start = time.time()
        outcome = "missed" if given.trust else test(BUILD / "bin" / f"test_{room}", room, None, 1800)
        if outcome != "missed":
            sys.exit(f"mutants: without a fault test_{room} is {outcome}")
        limits[room] = 1200 if given.trust else 120 + 5 * (time.time() - start)
        if not given.trust:
            print(f"test_{room} passes without a fault in {time.time() - start:.0f} s", flush=True)

    # One fault is built while the one before is tested.
    outcomes, waiting = {}, queue.Queue(maxsize=1)

    def tell(m, outcome, build_time, test_time):
        outcomes[m.name] = outcome
        print(f"{m.name:12} {outcome:60} {m.path} {build_time:.0f} s + {test_time:.0f} s", flush=True)

    def tester():
        while (work := waiting.get()) is not None:
            m, program, build_time = work
            start = time.time()
            tell(m, test(program, m.room, m.path, limits[m.room]), build_time, time.time() - start)
            program.unlink()

    thread = threading.Thread(target=tester, daemon=True)
    thread.start()
    for m in mutants:
        if m.room not in limits:
            try_without(m.room)
        start = time.time()
        original = (ROOT / m.path).read_text()
        (SOURCE / m.path).write_text(m.mutated(original))
        code, output = build(m.room)
        if code == 0:
            program = WORK / f"test_{m.name.replace(':', '_')}"
            shutil.copy2(BUILD / "bin" / f"test_{m.room}", program)
        (SOURCE / m.path).write_text(original)
        if code == 0:
            waiting.put((m, program, time.time() - start))
        else:
            errors = [line for line in output.split("\n") if "error" in line] or [output]
            tell(m, "broken: " + errors[0].strip(), time.time() - start, 0)
    waiting.put(None)
    thread.join()

    count = {word: [m for m in mutants if outcomes[m.name].split(" ")[0].strip(":") == word]
             for word in ("caught", "missed", "hung", "broken")}
    lines = [f"{datetime.date.today()}, {os.cpu_count()} cores {os.uname().machine}, {(time.time() - begin) / 60:.0f} minutes",
             f"{len(mutants)} faults: " + ", ".join(f"{len(found)} {word}" for word, found in count.items())]
    for word in ("missed", "hung", "broken"):
        for m in count[word]:
            lines += ["", f"{m.name} {outcomes[m.name]}", f"  {m.path}", f"  - {m.old}", f"  + {m.new}"]
    print("\n".join(lines))
    if given.report:
        pathlib.Path(given.report).write_text("\n".join(lines) + "\n")
    sys.exit(0 if len(count["caught"]) >= WANTED * len(mutants) else 1)


if __name__ == "__main__":
    main()
