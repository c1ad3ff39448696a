#!/usr/bin/env python3
"""Writes docs/components: a page for each component, from its description in the program, and pictures of its effect.

    tools/pages.py PANTIQ             writes the pages
    tools/pages.py PANTIQ --check     says which pages are not what the program describes; exit code 1 if there are any
    tools/pages.py PANTIQ --pictures  makes the pictures, too, of one frame of the clip that tools/clip.sh fetches

PANTIQ is the program. What is shown of a component stands in tools/pages.json: for each class a list of pictures with a caption
and the part of a launch line between a frame of 480 by 270 pixels and the file. An entry with "numbers" ends in a plot; "frame"
is the number of the frame to show, 0 without it; "from" is what makes the frames in place of the clip; "at" is done meanwhile. An
entry with "graph" is a drawing of that launch line, made with Graphviz, one with "text" a paragraph.
"""
import argparse
import json
import pathlib
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
PAGES = ROOT / "docs" / "components"
IMAGES = ROOT / "docs" / "images" / "components"
CLIP = ROOT / "out" / "cockatoo.mp4"
FRAME = "TPQResize OutputSize.Width=480 OutputSize.Height=270 Interpolation=imSuper"


def run(program, *args):
    """What the program says."""
    done = subprocess.run([program, *args], capture_output=True, text=True, cwd=ROOT)  # plug-ins are named from there
    if done.returncode != 0:
        sys.exit(f"pages: {' '.join(args)}\n{done.stderr}")
    return done.stdout


def rows(properties, prefix=""):
    for p in properties:
        name = prefix + p["name"]
        if "properties" in p:
            yield name, p["type"], "", p.get("help", ""), p
            yield from rows(p["properties"], name + ".")
        else:
            yield name, p["type"], p.get("default", ""), p.get("help", ""), p


def cell(text):
    return str(text).replace("|", "\\|").replace("\n", " ")


def picture_name(class_name, index, entry):
    return f"{class_name}-{index}.{'png' if 'numbers' in entry else 'svg' if 'graph' in entry else 'jpg'}"


def page(info, shown):
    name = info["class"]
    out = [f"# {name}", "", f"![](../images/palette/{name.upper()}.svg) {info['help']}", ""]
    for index, entry in enumerate(shown):
        if "text" in entry:
            out += [entry["text"], ""]
            continue
        out += [f"![{cell(entry['caption'])}](../images/components/{picture_name(name, index, entry)})", ""]
        line = " ! ".join(entry[part] for part in ("from", "line", "graph") if entry.get(part))
        out += [f"*{entry['caption']}*" + (f": `{line}`" if line else ""), ""]
    if info.get("example"):
        out += [f"    pantiq run --frames 25 '{info['example']}'", ""]
    out += ["## Pins", "", "| pin | direction | stream | |", "|---|---|---|---|"]
    for pin in info["pins"]:
        more = ", list" if pin.get("list") else ""
        out.append(f"| `{pin['name']}` | {pin['role']}{more} | {pin['stream']} | {cell(pin['help'])} |")
    out += ["", "## Properties", "", "| property | type | default | acts | |", "|---|---|---|---|---|"]
    for prop, kind, default, text, p in rows(info["properties"]):
        notes = text
        if p.get("words"):
            notes = f"One of {', '.join('`%s`' % w['name'] for w in p['words'])}. " + notes
        if p.get("unit"):
            notes += f" In {p['unit']}."
        if "useful" in p:
            notes += f" Useful: {p['useful'][0]} to {p['useful'][1]}."
        shown_default = f"`{cell(default)}`" if str(default) != "" else ""
        out.append(f"| `{prop}` | {kind} | {shown_default} | {p.get('acts', '')} | {cell(notes)} |")
    out += ["", f"Descends from {', '.join(info['parents'])}. Unit `{info['unit']}`.", ""]
    return "\n".join(out)


def make_pictures(program, name, shown):
    IMAGES.mkdir(parents=True, exist_ok=True)
    for index, entry in enumerate(shown):
        if "text" in entry:
            continue
        target = IMAGES / picture_name(name, index, entry)
        if "graph" in entry:
            look = ["-Gbgcolor=white", "-Gpad=0.2", "-Nfontname=sans-serif", "-Efontname=sans-serif", "-Nfontsize=11", "-Efontsize=9"]
            drawing = run(program, "dot", entry["graph"])
            subprocess.run(["dot", "-Tsvg", *look, "-o", target], input=drawing, text=True, check=True)
            continue
        first = f"TPQASFPlayer Name=clip FileName='{CLIP}'"
        last = entry.get("frame", 0)
        line = entry.get("line", "")
        start = entry.get("from", f"{first} ! {FRAME}")
        if "numbers" in entry:
            line = f"{start} ! {line} ! numbers FileName=/dev/null Plot='{target}'"
        else:
            part = f"{target.with_suffix('')}-%d.jpg"
            line = f"{start} ! {line + ' ! ' if line else ''}frames '{part}'"
        skip = [] if "from" in entry else ["--from", "9s"]
        moment = ["--at", *entry["at"].split(" ", 1)] if "at" in entry else []
        run(program, "run", "--quiet", "--overwrite", *skip, *moment, "--frames", str(last + 1), line)
        for number in range(last + 1):  # all but the last only lead to it
            made = IMAGES / f"{name}-{index}-{number}.jpg"
            if made.exists():
                made.replace(target)


def keep(folder, texts, check, wrong):
    """Writes the texts, by file name, as the pages of a folder, or adds to the faults what they differ in; the exit code."""
    tool = pathlib.Path(sys.argv[0]).name
    folder.mkdir(parents=True, exist_ok=True)
    for file in folder.glob("*.md"):
        if file.name not in texts:
            wrong.append(f"{file.name} is of nothing that is there; run tools/{tool}")
            if not check:
                file.unlink()
    for file_name, text in texts.items():
        file = folder / file_name
        if check and (not file.exists() or file.read_text() != text):
            wrong.append(f"{file_name} is not what the program describes; run tools/{tool}")
        if not check:
            file.write_text(text)
    for fault in wrong if check else []:
        print("pages:", fault, file=sys.stderr)
    return 1 if check and wrong else 0


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("program")
    parser.add_argument("--check", action="store_true")
    parser.add_argument("--pictures", action="store_true")
    options = parser.parse_args()
    options.program = str(pathlib.Path(options.program).resolve())
    shown = json.loads((ROOT / "tools" / "pages.json").read_text())
    listed = json.loads(run(options.program, "list", "--json"))
    classes = [c["name"] for p in listed if p["page"] == "Pantiq" for c in p["classes"]]
    wrong = []
    texts = {}
    index = ["# Components", "", "Made by `tools/pages.py` from what the program tells of itself (`pantiq inspect CLASS`).", ""]
    index += ["| class | |", "|---|---|"]
    for name in sorted(classes):
        info = json.loads(run(options.program, "inspect", name, "--json"))
        if options.pictures:
            make_pictures(options.program, name, shown.get(name, []))
        texts[f"{name}.md"] = page(info, shown.get(name, []))
        index.append(f"| ![](../images/palette/{name.upper()}.svg) [`{name}`]({name}.md) | {cell(info['help'])} |")
        wrong += [f"no picture {picture_name(name, i, e)}" for i, e in enumerate(shown.get(name, []))
                  if "text" not in e and not (IMAGES / picture_name(name, i, e)).exists()]
    texts["README.md"] = "\n".join(index) + "\n"
    wrong += [f"pictures of {name}, which is no component" for name in shown if name not in classes]
    wrong += [f"no picture of {name}" for name in classes if name not in shown]
    return keep(PAGES, texts, options.check, wrong)

if __name__ == "__main__":
    sys.exit(main())
