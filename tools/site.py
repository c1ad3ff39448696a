#!/usr/bin/python3
"""Makes one site of the documents: every Markdown file of docs and the README, with a list of all pages and a search by name.

    tools/site.py OUT    writes it to the folder OUT, which is new or holds an older one

It opens from the file system and loads nothing from elsewhere. Needs the package python3-markdown. Files that pages link to and
that are no pages (examples, headers) are copied beside them.
"""
import argparse
import html
import json
import os
import pathlib
import re
import shutil
import sys
import urllib.parse

try:
    import markdown
except ImportError:
    sys.exit(f"site: {sys.executable} has no module markdown: install python3-markdown")

ROOT = pathlib.Path(__file__).resolve().parent.parent
DOCS = ROOT / "docs"
PARTS = pathlib.Path(__file__).resolve().parent / "site"  # style and script
FIRST = ["README", "docs/tour", "docs/pantiq", "docs/examples", "docs/editor"]  # then the rest by name
GROUPS = {"docs/components": "Components", "docs/kernels": "Kernels"}
MARK = "made by tools/site.py"


def slug(text, separator="-"):
    """The name of a heading, as other readers of Markdown make it."""
    return re.sub(r"[^\w\- ]", "", text.strip().lower()).replace(" ", separator)


class Page:
    def __init__(self, source):
        self.source = source
        self.text = source.read_text()
        name = source.relative_to(ROOT).with_suffix("")
        self.key = name.as_posix()
        place = name.relative_to("docs") if name.parts[0] == "docs" else name
        self.place = (place.parent / "index" if place.name == "README" else place).as_posix() + ".html"
        self.title = re.sub(r"`", "", re.search(r"^# (.*)", self.text, re.M)[1])
        self.group = GROUPS.get(name.parent.as_posix(), "")
        self.short = self.title.partition(":")[0]

    def names(self):
        """What a reader may look for on it: (name, kind, fragment)."""
        yield self.short, self.group or "Guide", ""
        if self.group == "Components":
            properties = self.text.partition("## Properties\n")[2]
            for name in re.findall(r"^\| `([^`]+)` \|", properties, re.M):
                yield name, self.short, "properties"
        elif self.group == "Kernels" and not self.place.endswith("index.html"):
            for heading in re.findall(r"^##+ ((?:\w+)(?:, \w+)*)$", self.text, re.M):
                for name in heading.split(", "):
                    if re.search(rf"\b{name}\(", self.text):
                        yield name, self.short, name.lower()
        else:
            for heading in re.findall(r"^##+ (.*)", self.text, re.M):
                yield heading.replace("`", ""), self.short, slug(heading)


def pages():
    found = {p.key: p for p in (Page(f) for f in [ROOT / "README.md", *sorted(DOCS.rglob("*.md"))])}
    return [found.pop(key) for key in FIRST if key in found] + sorted(
        found.values(), key=lambda p: (p.source.name != "README.md", p.short))


def relative(target, place):
    return urllib.parse.quote(os.path.relpath(target, os.path.dirname(place) or "."))


class Site:
    def __init__(self, out):
        self.out = out
        self.pages = pages()
        self.by_source = {p.source: p for p in self.pages}

    def linked(self, page, address):
        """The address of a link or picture as it is in the site; what is no page comes along."""
        if re.match(r"\w+:", address) or address.startswith("#"):
            return address
        path, _, fragment = address.partition("#")
        source = (page.source.parent / urllib.parse.unquote(path)).resolve()
        if not source.exists():
            sys.exit(f"site: {page.source.relative_to(ROOT)} names '{address}', which is not there")
        if source in self.by_source:
            place = self.by_source[source].place
        else:
            place = source.relative_to(DOCS if DOCS in source.parents else ROOT).as_posix()
            copy = shutil.copytree if source.is_dir() else shutil.copy
            (self.out / place).parent.mkdir(parents=True, exist_ok=True)
            copy(source, self.out / place, **({"dirs_exist_ok": True} if source.is_dir() else {}))
        return relative(place, page.place) + (f"#{fragment}" if fragment else "")

    def body(self, page):
        reader = markdown.Markdown(extensions=["tables", "fenced_code", "toc"],
                                   extension_configs={"toc": {"slugify": slug}})
        text = reader.convert(page.text)
        return re.sub(r'(<(?:a|img)\b[^>]*? (?:href|src)=")([^"]*)(")',
                      lambda m: m[1] + html.escape(self.linked(page, html.unescape(m[2]))) + m[3], text)

    def menu(self, page):
        out = []
        for group in ["", *GROUPS.values()]:
            rows = "".join(f'<li><a href="{relative(p.place, page.place)}"{" aria-current=page" if p is page else ""}>'
                           f"{html.escape(p.short)}</a></li>" for p in self.pages if p.group == group)
            if group:
                here = " open" if page.group == group else ""
                out.append(f"<details{here}><summary>{group}</summary><ul>{rows}</ul></details>")
            else:
                out.append(f"<ul>{rows}</ul>")
        return "\n".join(out)

    def write(self):
        for page in self.pages:
            root = relative(".", page.place)
            file = self.out / page.place
            file.parent.mkdir(parents=True, exist_ok=True)
            title = page.title if page.title == "Pantiq" else f"{page.title} - Pantiq"
            file.write_text(f"""<!DOCTYPE html>
<html lang="en" data-root="{root}">
<head>
<meta charset="utf-8">
<meta name="viewport" content="width=device-width, initial-scale=1">
<meta name="generator" content="{MARK}">
<title>{html.escape(title)}</title>
<link rel="stylesheet" href="{root}/style.css">
</head>
<body>
<input type="checkbox" id="menu"><label for="menu">Pages</label>
<nav>
<input type="search" id="find" placeholder="Find a name" aria-label="Find a name" hidden>
<ul id="found" hidden></ul>
<div id="pages">
{self.menu(page)}
</div>
</nav>
<main>
{self.body(page)}
</main>
<script src="{root}/names.js"></script>
<script src="{root}/find.js"></script>
</body>
</html>
""")
        names = [[name, kind, page.place + (f"#{fragment}" if fragment else "")]
                 for page in self.pages for name, kind, fragment in page.names()]
        rows = ",\n".join(json.dumps(name) for name in names)
        (self.out / "names.js").write_text(f"const names = [\n{rows}\n];\n")
        for part in PARTS.iterdir():
            shutil.copy(part, self.out / part.name)


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("out", type=pathlib.Path)
    out = parser.parse_args().out
    if out.exists() and any(out.iterdir()):
        index = out / "index.html"
        if not index.exists() or MARK not in index.read_text():
            sys.exit(f"site: {out} holds something else; name a new folder")
        shutil.rmtree(out)
    Site(out).write()
    print(out / "index.html")


if __name__ == "__main__":
    main()
