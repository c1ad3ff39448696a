"""The blocks of code in a Markdown page, and the commands in them.

A command is a line that begins with `pantiq` or `cc` in a block of code that is indented, or fenced without a language or as sh;
open quotes go on in the next line. A block of lines with `$ ` before them shows what is said, too. A block that follows
`as `NAME`:` is to be saved under that name. A block that no test can run has <!-- not run: REASON --> before it.
"""
import collections
import re
import shlex

Block = collections.namedtuple("Block", "line kind reason name text")


def blocks(text):
    """The blocks of code of a page: first line, language (None: indented), why it is not run, the name it is saved under."""
    lines = text.split("\n")
    before, i = [], 0
    while i < len(lines):
        fence = re.match(r"```(\w*)$", lines[i])
        indented = lines[i].startswith("    ") and (i == 0 or not lines[i - 1].strip())
        if not fence and not indented:
            if lines[i].strip():
                before.append(lines[i])
            i += 1
            continue
        first, body = i + 1, []
        if fence:
            i += 1
            while lines[i] != "```":
                body.append(lines[i])
                i += 1
            i += 1
        else:
            while i < len(lines) and (lines[i].startswith("    ") or not lines[i].strip()):
                body.append(lines[i][4:])
                i += 1
            i -= len(body) - len("\n".join(body).rstrip().split("\n"))
        last = before[-1] if before else ""
        reason = re.fullmatch(r"<!-- not run: (.*) -->", last)
        name = re.search(r"as `([\w.-]+)`:$", last)
        yield Block(first, fence[1] if fence else None, reason and reason[1], name and name[1], "\n".join(body).rstrip() + "\n")
        before = []


def commands(block):
    """(line, command, what it says or None) of a block."""
    if block.kind not in (None, "", "sh"):
        return
    lines, i = block.text.splitlines(), 0
    shown = any(line.startswith("$ ") for line in lines)
    while i < len(lines):
        first, text = i, lines[i]
        i += 1
        if not re.match(r"\$ |pantiq |cc " if not shown else r"\$ ", text):
            continue
        while i < len(lines) and (open_quotes(text) or text.endswith("\\")):
            text += "\n" + lines[i]
            i += 1
        said = None
        if shown:
            text, said = text[2:], ""
            while i < len(lines) and not lines[i].startswith("$ "):
                said += lines[i] + "\n"
                i += 1
        yield block.line + first, text, said


def open_quotes(text):
    try:
        shlex.split(text, comments=True)
    except ValueError:
        return True
    return False
