#!/usr/bin/env python3
"""Writes docs/kernels: a page for each family of kernels, from the program's list of them and the comments of the headers.

    tools/kernels.py PANTIQ           writes the pages
    tools/kernels.py PANTIQ --check   says which pages are not what the headers say; exit code 1 if there are any

A family's header begins with its manual, a comment in this form: paragraphs; lists of lines that begin with "- "; formulas,
indented by six more; and entries, a line of kernel names and what they do, indented by two. Public headers describe a function
by the comment before it, and by what follows it on its line. A function that nothing describes is an error.
"""
import argparse
import collections
import json
import re
import sys

from pages import ROOT, cell, keep, run

HEADERS = ROOT / "pantiq" / "kernels"
PAGES = ROOT / "docs" / "kernels"
TITLES = {
    "PQBase": "Copies, fills, arithmetic and logic", "PQFormat": "Pixel formats", "PQNoise": "Noise and the test picture",
    "PQFixedMask": "Filters with fixed masks", "PQBoxRank": "Box average, minimum, maximum, medians",
    "PQMorphology": "Erosion and dilation", "PQColor": "Colour spaces", "PQPoint": "Points and histograms",
    "PQAffine": "Rotate and shear", "PQWarp": "Warps", "PQResize": "Resize", "PQWiener": "Wiener filter",
    "PQMix": "Two images into one", "PQBorderRank": "Minimum and maximum with their own border",
    "PQMemory": "Memory, rounding, cache, reciprocals", "PQCpu": "Processors and variants"}
FUNCTION = re.compile(r"PQ_EXPORT ([\w:]+(?: \w+)*[ *&]+?) ?(\w+) ?(PQ_PARAMS_\w+|\((?:[^()]|\([^()]*\))*\));(?: *// (.*))?")
NAME = re.compile(r"\b(?:ipp|own|PQ|_ipp_)\w*[a-z]\w*(?:(?<=_)\*)?|\bget_shift_int\b|\bGlobal_CPU\b|\bPANTIQ_CPU\b")


def signatures():
    """The argument lists by name, as they are declared."""
    text = re.sub(r"\\\n", " ", (HEADERS / "PQSignatures.h").read_text())
    found = re.findall(r"^#define PQ_PARAMS_(\w+)\s+(\(.*\))$", text, re.M)
    return {name: re.sub(r"\s+", " ", params).replace("( ", "(").replace(" * ", "* ").replace(" &", "& ").replace("& ", "& ")
            for name, params in found}


def declaration(result, name, params):
    """As a program would declare it, broken into lines of at most 100."""
    params = re.sub(r"\s+", " ", params)
    words = params[1:-1].split(", ")
    head = f"{result.strip()} {name}("
    lines, line = [], head
    for i, word in enumerate(words):
        piece = word + (")" if i + 1 == len(words) else ", ")
        if len(line) + len(piece.rstrip()) > 100 and line.strip():
            lines.append(line.rstrip())
            line = " " * 4
        line += piece
    return "\n".join(lines + [line + ";"])


def marked(line, names):
    """A line of text with the names in it as code. `names`: those that a reader can look up."""
    line = re.sub(r"PQ_SLOT\(\w+\)\([^)]*\)|SetUp_<name>|_px_<name>", lambda m: f"`{m[0]}`", line)
    if "`" in line:  # marked by hand
        return line
    line = NAME.sub(lambda m: f"`{m[0]}`" if m[0] in names or "_" in m[0] or m[0].endswith(".h") else m[0], line)
    return re.sub(r"(?<![`\w])(\w+\.(?:h|cpp|def))\b", r"`\1`", line).replace("<", "&lt;")


def markdown(lines, names):
    """Comment text as Markdown: lists as they are, other indented lines as code."""
    out, kind = [], "text"  # of the line before
    for line in lines:
        if not line.startswith(" "):
            now = "list" if line.startswith("- ") else "text"
        elif kind == "list" and not line.startswith("    "):
            now = "list"
        else:
            now = "code"
        if not line and kind == "code":
            now = "text"
        if kind == "code" and now != "code":
            out += ["```", ""]
        if now == "code" and kind != "code":
            out += ["", "```text"]
            margin = len(line) - len(line.lstrip())
        if now == "list" and kind == "text":
            out.append("")
        out.append(line[margin:] if now == "code" else marked(line, names))
        kind = now
    out += ["```"] if kind == "code" else []
    return re.sub(r"\n{3,}", "\n\n", "\n".join(out)).strip()


def comment_lines(text):
    return [re.sub(r"^// ?", "", line) for line in text.splitlines()]


def first_comment(header):
    text = (HEADERS / header).read_text()
    return comment_lines(text[:text.index("#pragma once")].rstrip())


def manual(header, names):
    """The comment that a family's header begins with: its general lines, and the entries as (names, lines)."""
    general, entries, entry = [], [], None
    for line in first_comment(header):
        listed = [n.strip() for n in line.split(",") if n.strip()]
        if listed and all(n in names for n in listed):
            if entry is not None and not entry[1]:  # a list of several lines
                entry[0].extend(listed)
            else:
                entry = (listed, [])
                entries.append(entry)
        elif entry is not None and (line.startswith("  ") or not line):
            entry[1].append(line[2:])
        else:
            entry = None
            general.append(line)
    return general, entries


Declared = collections.namedtuple("Declared", "header section result name params lines")


def declared(header):
    """The functions of a public header in their order, and its sections' introductions."""
    parameters = signatures()
    text = (HEADERS / header).read_text().split("namespace pantiq {", 1)[1]
    functions, sections = [], {}
    section, comment, lines = "", [], []
    joined = re.sub(r"\n +(?=[^ /\n])", " ", text)
    fresh = False
    for line in joined.splitlines():
        if line.startswith("// ---- "):
            comment, fresh = [line[8:]], True
        elif line.startswith("//"):
            comment = comment + [re.sub(r"^// ?", "", line)] if fresh else [re.sub(r"^// ?", "", line)]
            fresh = True
        elif match := FUNCTION.match(line):
            result, name, params, tail = match.groups()
            if params.startswith("PQ_PARAMS_"):
                params = parameters[params[len("PQ_PARAMS_"):]]
            if tail or fresh:
                lines = (comment if fresh else []) + ([tail] if tail else [])
            fresh = False
            functions.append(Declared(header, section, result, name, params, lines))
        elif not line.strip():
            if fresh and comment and joined.find("// ---- " + comment[0]) >= 0:  # an introduction stands alone
                section = re.split(r"[.:]", comment[0])[0]
                sections[section] = ([comment[0][len(section) + 1:].strip()] + comment[1:])
            comment, fresh, lines = [], False, []
    return functions, sections


def statuses():
    rows = re.findall(r"constexpr IppStatus (\w+) = (-?\d+); +// (.*)", (HEADERS / "PQImageDefs.h").read_text())
    return ["| status | | |", "|---|---|---|"] + [f"| {value} | `{name}` | {cell(text)} |" for name, value, text in
                                                  [("ippStsNoErr", "0", "done")] + rows]


def variants_table(lines):
    """The lines of PQCpu.h about patterns as a table."""
    rows = [re.split(r" {2,}", line.strip()) for line in lines if line.startswith("  ")]
    return ["| " + " | ".join(rows[0]) + " |", "|" + "---|" * len(rows[0])] + ["| " + " | ".join(r) + " |" for r in rows[1:]]


def page(family, functions, kernels, names, sections):
    """functions: of this family, in order; kernels: the program's rows by name."""
    out = [f"# {TITLES[family]}", ""]
    header = HEADERS / f"{family}.h"
    general, entries = manual(header.name, names) if header.exists() else ([], [])
    told = {name: index for index, (listed, _) in enumerate(entries) for name in listed}
    by_manual = all(f.name in told for f in functions)
    if not by_manual:  # described function by function in the public header
        functions = sorted(functions, key=lambda f: not f.lines)
        general = first_comment(functions[0].header)
        if functions[0].header == "PQBaseKernels.h":
            general = general[general.index("") + 1:]  # without what the header is
    if family == "PQCpu":
        at = next(i for i, line in enumerate(general) if line.startswith("  "))
        out += [markdown(general[:at], names), ""] + variants_table(general[at:]) + [""]
    else:
        out += [markdown(general, names), ""]
    if len(functions) > 3:
        out += [", ".join(f"[`{f.name}`](#{f.name.lower()})" for f in functions), ""]
    shown, section = set(), None
    for f in functions:
        if f.name in shown:
            continue
        group = [f]
        if f.name in told:
            listed, lines = entries[told[f.name]]
            group = [g for n in listed for g in functions if g.name == n]
        else:
            group = [g for g in functions if g.lines is f.lines] or [f]
            lines = [line for line in f.lines if "the manual is" not in line]
            if not lines:
                sys.exit(f"kernels: {f.header}: nothing describes {f.name}")
            if f.section and f.section != section and not by_manual:
                section = f.section
                out += [f"## {section}", "", markdown(sections[section], names), ""]
        level = "###" if f.section and not by_manual else "##"
        shown.update(g.name for g in group)
        anchors = "".join(f'<a id="{g.name.lower()}"></a>' for g in group if len(group) > 1)
        out += [f"{level} {', '.join(g.name for g in group)}", ""] + ([anchors, ""] if anchors else [])
        out += ["```cpp", *[declaration(g.result, g.name, g.params) for g in group], "```", ""]
        out += [markdown(lines, names), "", where(group, kernels), ""]
    return re.sub(r"\n{3,}", "\n\n", "\n".join(out)).rstrip() + "\n"


def where(group, kernels):
    """Where the functions of a group are declared and which variants they have."""
    places = collections.OrderedDict()
    for g in group:
        kernel = kernels.get(g.name)
        text = f"*In `pantiq/kernels/{g.header}`" + (", a slot" if kernel and kernel["slot"] else "")
        text += f"; variants {', '.join(kernel['variants'])}.*" if kernel else ".*"
        places.setdefault(text, []).append(g.name)
    if len(places) == 1:
        return next(iter(places))
    return "\n\n".join(f"{', '.join(f'`{n}`' for n in listed)}: {text}" for text, listed in places.items())


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("program")
    parser.add_argument("--check", action="store_true")
    options = parser.parse_args()
    kernels = {k["name"]: k for k in json.loads(run(options.program, "kernels", "--json"))["kernels"]}
    rows = dict(re.findall(r"PQ_(?:SLOT|PLAIN)_ROW\(\w+, \w+, (?:\w, )?(\w+), (\w+)\)", (HEADERS / "slots.def").read_text()))
    parameters = signatures()
    families, sections, plain = {}, {}, {}
    for header, other in [("PQBaseKernels.h", "PQMemory"), ("PQFormatKernels.h", None), ("PQBorderRank.h", "PQBorderRank"),
                          ("PQCpu.h", "PQCpu")]:
        functions, found = declared(header)
        sections.update(found)
        for f in functions:
            plain[f.name] = f
            if f.name not in kernels:
                families.setdefault(other, []).append(f)
    for name, kernel in sorted(kernels.items(), key=lambda k: list(plain).index(k[0]) if k[0] in plain else -1):
        f = plain.get(name) or Declared(kernel["unit"] + ".h", "", "IppStatus", name, parameters[rows[name]], [])
        families.setdefault(kernel["family"], []).append(f)
    names = {f.name for functions in families.values() for f in functions}
    order = [f for f in TITLES if f in families]
    missing = set(families) - set(TITLES)
    if missing:
        sys.exit(f"kernels: no title for {', '.join(sorted(missing))}")
    texts = {f"{family}.md": page(family, families[family], kernels, names, sections) for family in order}
    index = ["# Kernels", "", "Made by `tools/kernels.py` from the headers in `pantiq/kernels` and from `pantiq kernels`.", ""]
    index += [markdown(first_comment("PQImageDefs.h")[2:], names), "", "## Families", "", "| family | functions |", "|---|---|"]
    for family in order:
        links = ", ".join(f"[`{f.name}`]({family}.md#{f.name.lower()})" for f in families[family])
        index.append(f"| [{TITLES[family]}]({family}.md) | {links} |")
    index += ["", "## Slots", "", markdown(first_comment("PQDispatcher.h"), names), "", "## Statuses", ""] + statuses()
    texts["README.md"] = "\n".join(index) + "\n"
    return keep(PAGES, texts, options.check, [])


if __name__ == "__main__":
    sys.exit(main())
