#!/usr/bin/env python3
"""Checks the package's table of units (pantiq/design/PQPackage.cpp) against the sources.

    check_package.py ROOT

Every unit (a header with a source, plain or of kernels) stands in it once, and each after those that its header includes. Prints
what is wrong and exits with 1 if there is anything.
"""
import pathlib
import re
import sys

INCLUDE = re.compile(r'^\s*#\s*include\s*"pantiq/(\w+/\w+)\.h"', re.M)


def faults(root):
    table = (root / "pantiq" / "design" / "PQPackage.cpp").read_text().partition("kUnits[]")[2].partition("};")[0]
    listed = re.findall(r'"(\w+/\w+)"', table)
    headers = {}
    for source in sorted((root / "pantiq").glob("*/*.cpp")):
        header = source.with_name(re.sub(r"_(px|simd)$", "", source.stem) + ".h")
        if header.exists():
            headers[f"{header.parent.name}/{header.stem}"] = INCLUDE.findall(header.read_text())
    yield from (f"{unit} is listed {listed.count(unit)} times" for unit in sorted(set(listed)) if listed.count(unit) > 1)
    yield from (f"{unit} is no unit" for unit in listed if unit not in headers)
    place = {unit: index for index, unit in enumerate(listed)}
    for unit, needed in headers.items():
        if unit not in place:
            yield f"{unit} is not listed"
            continue
        yield from (f"{unit} is listed before {other}, which it needs" for other in needed if place.get(other, -1) > place[unit])


def main():
    found = list(faults(pathlib.Path(sys.argv[1])))
    print("\n".join(f"PQPackage.cpp: {fault}" for fault in found) if found else "the package lists all units in order")
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main())
