#!/usr/bin/env python3
"""Checks that includes follow the rooms' arrows, and that the rooms of plain C++ include nothing else.

    check_arrows.py ROOT

Prints every offending line and exits with 1 if there is one.
"""
import pathlib
import re
import sys

# Room -> rooms that it may include. Arrows point one way.
MAY_USE = {
    "host": set(),
    "kernels": set(),
    "core": {"host", "kernels"},
    "filters": {"core", "host", "kernels"},
    "flow": {"core", "host", "kernels"},
    "compose": {"core", "host", "kernels"},
    "platform": set(),
    "plugins": {"core", "host", "kernels", "platform"},
    "media": {"core", "host", "kernels", "platform"},
    "design": {"host", "kernels", "core", "filters", "flow", "compose", "platform", "plugins", "media"},
}
# Rooms that use the standard library alone, and the files that are allowed more.
PLAIN = {"host", "kernels", "core", "filters", "flow", "compose"}
INTRINSICS = re.compile(r"([a-z]*mmintrin|cpuid)\.h")  # brought by the compiler; kernels alone
ALLOWED = {
    "host/PQPictureFile.cpp": {"png.h", "jpeglib.h", "jerror.h"},
}
INCLUDE = re.compile(r'^\s*#\s*include\s*([<"])([^>"]+)[>"]')


def faults(root):
    for path in sorted((root / "pantiq").rglob("*")):
        if path.suffix not in {".h", ".cpp", ".inl", ".def"}:
            continue
        name = path.relative_to(root / "pantiq").as_posix()
        room = name.split("/")[0]
        if "/" not in name:
            continue
        if room not in MAY_USE:
            yield f"pantiq/{name}: no such room: {room}"
            continue
        for number, line in enumerate(path.read_text().splitlines(), 1):
            match = INCLUDE.match(line)
            if not match:
                continue
            what = match.group(2)
            if what.startswith("pantiq/"):
                other = what.split("/")[1]
                if "/" not in what[len("pantiq/"):]:
                    continue  # pantiq/PQExport.h
                if other != room and other not in MAY_USE[room]:
                    yield f"pantiq/{name}:{number}: {room} may not include {what}"
            elif match.group(1) == '"':
                yield f'pantiq/{name}:{number}: includes read "pantiq/<room>/<Unit>.h", not "{what}"'
            elif room in PLAIN and "." in what:
                if what in ALLOWED.get(name, set()) or (room == "kernels" and INTRINSICS.fullmatch(what)):
                    continue
                yield f"pantiq/{name}:{number}: {room} uses the standard library alone, not <{what}>"


def main():
    found = list(faults(pathlib.Path(sys.argv[1])))
    print("\n".join(found) if found else "all includes follow the arrows")
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main())
