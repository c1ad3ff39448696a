#!/usr/bin/env python3
"""Follows every link and picture: of the Markdown documents, and of the site that tools/site.py makes of them."""
import html.parser
import json
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile
import unittest
import urllib.parse

ROOT = pathlib.Path(__file__).resolve().parent.parent.parent
PAGES = [*ROOT.glob("*.md"), *(ROOT / "docs").rglob("*.md"), *(ROOT / "pantiq").rglob("*.md")]


def without_code(text):
    text = re.sub(r"(?m)^```.*?^```$", "", text, flags=re.S)
    return re.sub(r"(?m)^    .*$", "", text)


def anchors(text):
    """The names that a link to a part of a page may have."""
    text = without_code(text)
    headings = re.findall(r"(?m)^#+ (.*)$", text)
    return {re.sub(r"[^\w\- ]", "", h.strip().lower()).replace(" ", "-") for h in headings} | set(re.findall(r'<a id="([^"]+)"', text))


class Markdown(unittest.TestCase):
    def test_links_and_pictures(self):
        followed = 0
        for page in PAGES:
            text = re.sub(r"`[^`\n]*`", "code", without_code(page.read_text()))
            for address in re.findall(r"\[[^\]]*\]\(([^)\s]+)\)", text):
                if re.match(r"\w+:", address):
                    continue
                with self.subTest(page=str(page.relative_to(ROOT)), link=address):
                    path, _, fragment = address.partition("#")
                    target = page.parent / urllib.parse.unquote(path) if path else page
                    self.assertTrue(target.exists(), "nothing is there")
                    if fragment and target.suffix == ".md":
                        self.assertIn(fragment, anchors(target.read_text()))
                    followed += 1
        self.assertGreater(followed, 200)


class Parts(html.parser.HTMLParser):
    def __init__(self, text):
        super().__init__()
        self.ids, self.addresses = set(), []
        self.feed(text)

    def handle_starttag(self, tag, attributes):
        for name, value in attributes:
            if name == "id":
                self.ids.add(value)
            if name in ("href", "src"):
                self.addresses.append((tag, value))


class Site(unittest.TestCase):
    def test_links_and_pictures(self):
        """In a folder with a blank and a letter beyond ASCII in its name, as people have them."""
        folder = pathlib.Path(tempfile.mkdtemp(prefix="pantiq sité "))
        self.addCleanup(shutil.rmtree, folder)
        made = subprocess.run([sys.executable, ROOT / "tools" / "site.py", folder], capture_output=True, text=True)
        if "install python3-markdown" in made.stderr:
            self.skipTest(made.stderr)
        self.assertEqual(made.returncode, 0, made.stderr)
        pages = {file.resolve(): Parts(file.read_text()) for file in folder.rglob("*.html")}
        self.assertEqual(len(pages), len([p for p in PAGES if p == ROOT / "README.md" or ROOT / "docs" in p.parents]))
        known = set(pages) | {file.resolve() for file in folder.rglob("*")}
        names = json.loads((folder / "names.js").read_text().removeprefix("const names = ").rstrip(";\n"))
        self.assertGreater(len(names), 500)
        searched = Parts("".join(f'<a href="{place}"></a>' for _, _, place in names))
        for page, parts in [*pages.items(), (folder.resolve() / "names.js", searched)]:
            for tag, address in parts.addresses:
                if re.match(r"\w+:", address) and tag == "a":
                    continue
                with self.subTest(page=page.name, link=address):
                    self.assertNotRegex(address, r"^(\w+:|/)", "the site loads nothing from elsewhere")
                    path, _, fragment = address.partition("#")
                    target = (page.parent / urllib.parse.unquote(path)).resolve() if path else page
                    self.assertIn(target, known)
                    if fragment and target in pages:
                        self.assertIn(fragment, pages[target].ids)
        again = subprocess.run([sys.executable, ROOT / "tools" / "site.py", folder], capture_output=True, text=True)
        self.assertEqual(again.returncode, 0, again.stderr)
        (folder / "index.html").write_text("something else")
        self.assertIn("holds something else", subprocess.run([sys.executable, ROOT / "tools" / "site.py", folder],
                                                             capture_output=True, text=True).stderr)


if __name__ == "__main__":
    unittest.main()
