#!/usr/bin/env python3
"""Prints the lines and branches that gcov has counted in a build, by room, and what nothing has reached.

    coverage.py BUILD

A branch counts where some instance of a template or inline function takes it. Left out is what the compiler makes: the edges of
calls that may throw, the guards of local statics, and branches at lines in which nothing is decided.
"""
import collections
import concurrent.futures
import json
import os
import pathlib
import re
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
GROUPS = {
    "plain kernels": lambda path: path.startswith("pantiq/kernels/") and not re.search(r"_simd\.|Vec\.h", path),
    "core": lambda path: path.startswith("pantiq/core/"),
    "compose": lambda path: path.startswith("pantiq/compose/"),
}
STATIC = re.compile(r"^\s*(static|thread_local)\b")
DECIDES = re.compile(r"\b(if|for|while|switch|case)\b|\?|&&|\|\|")


def decided(branches):
    """The counts of a line's branches without those of calls, which come in pairs: the call returns, the call throws."""
    counts = []
    for branch in branches:
        if branch["throw"]:
            if counts and counts[-1][1]:
                counts.pop()
        else:
            counts.append((branch["count"], branch["fallthrough"]))
    return [count for count, _ in counts]


def counted(data):
    """What gcov says of one object: (file, line, function, its count, the counts of its branches)."""
    said = subprocess.run(["gcov", "--json-format", "--stdout", "--branch-probabilities", "--branch-counts", data.name],
                          cwd=data.parent, capture_output=True, check=True).stdout
    found = []
    for text in said.split(b"\n"):
        for file in json.loads(text)["files"] if text.strip() else []:
            path = os.path.relpath(os.path.realpath(data.parent / file["file"]), ROOT)
            if any(inside(path) for inside in GROUPS.values()):
                found += [(path, line["line_number"], line.get("function_name", ""), line["count"],
                           decided(line["branches"])) for line in file["lines"]]
    return found


def main():
    build = pathlib.Path(sys.argv[1]).resolve()
    objects = sorted((build / "pantiq").rglob("*.gcda")) + sorted((build / "tests").rglob("*.gcda"))
    lines = collections.defaultdict(lambda: [0, {}])
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        for found in pool.map(counted, objects):
            for path, number, _, count, branches in found:
                line = lines[path, number]
                line[0] += count
                kept = line[1].setdefault(len(branches), [0] * len(branches))
                for i, taken in enumerate(branches):
                    kept[i] += taken
    sources = {path: (ROOT / path).read_text().split("\n") for path, _ in lines}
    for group, inside in GROUPS.items():
        all_lines = run_lines = all_branches = run_branches = 0
        missing = []
        for (path, number), (count, shapes) in sorted(lines.items()):
            if not inside(path):
                continue
            text = sources[path][number - 1]
            branches = [] if STATIC.match(text) or not DECIDES.search(text) else [taken for shape in shapes.values() for taken in shape]
            all_lines, run_lines = all_lines + 1, run_lines + (count > 0)
            all_branches, run_branches = all_branches + len(branches), run_branches + sum(taken > 0 for taken in branches)
            if count == 0 or 0 in branches:
                missed = "not run" if count == 0 else f"{branches.count(0)} of {len(branches)} branches not taken"
                missing.append(f"  {path}:{number}: {missed}: {text.strip()}")
        print(f"{group}: {run_lines} of {all_lines} lines ({100 * run_lines / max(all_lines, 1):.1f} %), "
              f"{run_branches} of {all_branches} branches ({100 * run_branches / max(all_branches, 1):.1f} %)")
        print("\n".join(missing))


if __name__ == "__main__":
    main()
