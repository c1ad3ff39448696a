#!/usr/bin/env python3
"""Writes share/pantiq.1 and the completions of share/completions from what the program says of itself (pantiq --help).

    tools/manual.py PANTIQ           writes them
    tools/manual.py PANTIQ --check   says which is not what the program says; exit code 1 if there is one
"""
import argparse
import pathlib
import re
import subprocess
import sys

SHARE = pathlib.Path(__file__).resolve().parent.parent / "share"
HELP_COLUMN = 34


def run(program, *args):
    return subprocess.run([program, *args], capture_output=True, text=True, check=True).stdout


def sections(text):
    """The parts of a help text: the lines before the first heading, then {heading: [(left, right)]}, then the footer."""
    intro, parts, footer, current = [], {}, [], None
    for line in text.splitlines():
        if line in ("Positionals:", "Options:", "Subcommands:"):
            current = parts.setdefault(line[:-1], [])
        elif current is None:
            intro.append(line)
        elif footer or (line and not line.startswith("  ")):
            footer.append(line)
        elif line.startswith(" " * HELP_COLUMN):
            current[-1][1] = (current[-1][1] + " " + line.strip()).strip()
        elif line:
            left, right = line[:HELP_COLUMN], line[HELP_COLUMN:]
            if not left.endswith(" "):  # too long for its column: its text is on the next line
                left, right = line, ""
            current.append([left.strip(), right.strip()])
    return intro, parts, footer


class Entry:
    def __init__(self, left, text):
        left = re.sub(r" (Excludes|REQUIRED|Needs).*", "", left).replace(":INT in [1 - 9007199254740992]", "")
        names, _, self.value = left.partition(" ")
        self.names = names.split(",")
        self.text = text


class Command:
    def __init__(self, program, name):
        intro, parts, self.footer = sections(run(program, *([name] if name else []), "--help"))
        self.name = name
        self.help = intro[0]
        self.usage = intro[1].removeprefix("Usage: pantiq ").removeprefix(name).strip()
        self.positionals = [Entry(*row) for row in parts.get("Positionals", [])]
        self.options = [Entry(*row) for row in parts["Options"]]
        self.commands = [row[0] for row in parts.get("Subcommands", [])]


def roff(text):
    text = text.replace("\\", "\\e").replace("-", "\\-").replace("'", "\\(aq")
    return "\\&" + text if text.startswith(".") else text


def manual(version, top, commands):
    out = [f'.TH PANTIQ 1 "" "pantiq {version}" "User Commands"', ".SH NAME", f"pantiq \\- {roff(top.help[0].lower() + top.help[1:].rstrip('.'))}"]
    out += [".SH SYNOPSIS"]
    for command in commands:
        out += [f".B pantiq {command.name}", roff(command.usage), ".br"]
    out += [".SH COMMANDS"]
    for command in commands:
        out += [f".SS {command.name}", roff(command.help) + "."]
        for entry in command.positionals + command.options:
            if "--help" in entry.names:
                continue
            names = ", ".join(f"\\fB{roff(n)}\\fR" for n in entry.names)
            out += [".TP", names + (f" \\fI{roff(entry.value)}\\fR" if entry.value and entry not in command.positionals else ""),
                    roff(entry.text) + "."]
        if command.footer and command.footer != top.footer:
            out += [".PP", *map(roff, command.footer)]
    examples, rest = [], []
    for line in top.footer:
        if line.startswith("  "):
            examples.append(line.strip())
        elif line and line != "Examples:":
            rest.append(line)
    codes = [line for line in rest if line.startswith("Exit codes: ")]
    out += [".SH LAUNCH LINES", *[roff(line) for line in rest if line not in codes]]
    out += [".SH EXIT STATUS", *[roff(line.removeprefix("Exit codes: ")) for line in codes]]
    out += [".SH ENVIRONMENT", ".TP", ".B PANTIQ_CPU", roff("The variant of the kernels to run, as pantiq kernels names it.")]
    out += [".TP", ".B PANTIQ_MODULE_PATH", roff("Folders, separated by colons, where the modules of media engines are looked for first.")]
    out += [".SH EXAMPLES", ".nf", *map(roff, examples), ".fi"]
    return "\n".join(out) + "\n"


BASH = """# Completion of pantiq for bash; made by tools/manual.py.
_pantiq() {
  local cur=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]} command=${COMP_WORDS[1]} words=
  COMPREPLY=()
  if ((COMP_CWORD == 1)); then
    COMPREPLY=($(compgen -W '@commands@' -- "$cur"))
    return
  fi
  case $previous in
    @files@) compopt -o filenames 2>/dev/null; mapfile -t COMPREPLY < <(compgen -f -- "$cur"); return ;;
    @values@) return ;;
  esac
  case $command in
@cases@
  esac
  if [[ $cur == -* ]]; then
    COMPREPLY=($(compgen -W "$words" -- "$cur"))
    return
  fi
  case $command in
    @classes@) COMPREPLY=($(compgen -W "$(pantiq list 2>/dev/null | awk '/^  /{print $1}')" -- "$cur")) ;;
  esac
  case $command in
    @paths@) compopt -o filenames 2>/dev/null; local files; mapfile -t files < <(compgen -f -- "$cur"); COMPREPLY+=("${files[@]}") ;;
  esac
}
complete -F _pantiq pantiq
"""


def bash(top, commands):
    def all_of(test):
        return "|".join(sorted({n for c in commands for o in c.options if o.value and test(o) for n in o.names})) or "--"

    cases = [f"    {c.name}) words='{' '.join(n for o in c.options for n in o.names)}' ;;" for c in commands]
    takes = lambda words: "|".join(c.name for c in commands if any(w in p.value for p in c.positionals for w in words))
    return (BASH.replace("@commands@", " ".join(top.commands) + " --help --version").replace("@cases@", "\n".join(cases))
            .replace("@files@", all_of(lambda o: "FILE" in o.value))
            .replace("@values@", all_of(lambda o: "FILE" not in o.value))
            .replace("@classes@", takes(["LAUNCH", "CLASS", "FILTERS"])).replace("@paths@", takes(["FILE", "IN", "OUT"])))


CLASSES = "pantiq list 2>/dev/null | awk '/^  /{print $1}'"

ZSH = """#compdef pantiq
# Completion of pantiq for zsh; made by tools/manual.py.
_pantiq_classes() {
  local -a classes
  classes=(${(f)"$(@list@)"})
  compadd -a classes
}
_pantiq() {
  local -a commands
  if ((CURRENT == 2)); then
    commands=(
@commands@
    )
    _describe command commands
    return
  fi
  case $words[2] in
@cases@
  esac
}
_pantiq "$@"
"""


def quoted(text):
    return text.replace("'", "'\\''")


def zsh(top, commands):
    def plain(text):
        return quoted(text.replace("[", "(").replace("]", ")").replace(":", ","))

    def rest(command):
        values = " ".join(p.value + " " + " ".join(p.names) for p in command.positionals)
        wanted = [a for word, a in {"LAUNCH": "_pantiq_classes", "CLASS": "_pantiq_classes", "FILTERS": "_pantiq_classes"}.items() if word in values][:1]
        wanted += ["_files"] if any(w in values for w in ("FILE", "IN", "OUT")) else []
        return f"'*: :{{{'; '.join(wanted)}}}'" if wanted else ""

    cases = []
    for command in commands:
        lines = []
        for option in command.options:
            value = f":{plain(option.value)}:{'_files' if 'FILE' in option.value else ''}" if option.value else ""
            for name in option.names:
                lines.append(f"'{name}[{plain(option.text)}]{value}'")
        lines += [rest(command)] if rest(command) else []
        cases.append(f"    {command.name})\n      _arguments " + " \\\n        ".join(lines) + "\n      ;;")
    return (ZSH.replace("@list@", CLASSES).replace("@cases@", "\n".join(cases))
            .replace("@commands@", "\n".join(f"      '{c.name}:{plain(c.help)}'" for c in commands)))


def fish(top, commands):
    out = ["# Completion of pantiq for fish; made by tools/manual.py.", "complete -c pantiq -f",
           "complete -c pantiq -n __fish_use_subcommand -l help -d 'Prints help'",
           "complete -c pantiq -n __fish_use_subcommand -l version -d 'Prints the version'"]
    for command in commands:
        seen = f"-n '__fish_seen_subcommand_from {command.name}'"
        out.append(f"complete -c pantiq -n __fish_use_subcommand -a {command.name} -d '{quoted(command.help)}'")
        for option in command.options:
            names = " ".join(("-l " + n[2:]) if n.startswith("--") else ("-s " + n[1:]) for n in option.names)
            value = "" if not option.value else " -r -F" if "FILE" in option.value else " -x"
            out.append(f"complete -c pantiq {seen} {names}{value} -d '{quoted(option.text)}'")
        values = " ".join(p.value + " " + " ".join(p.names) for p in command.positionals)
        if any(w in values for w in ("LAUNCH", "CLASS", "FILTERS")):
            out.append(f"complete -c pantiq {seen} -a \"({CLASSES.replace('$1', chr(92) + '$1')})\"")
        if any(w in values for w in ("FILE", "IN", "OUT")):
            out.append(f"complete -c pantiq {seen} -F")
    return "\n".join(out) + "\n"


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("program")
    parser.add_argument("--check", action="store_true")
    options = parser.parse_args()
    top = Command(options.program, "")
    commands = [Command(options.program, name) for name in top.commands]
    version = run(options.program, "--version").split()[1]
    wrong = 0
    for name, text in {"pantiq.1": manual(version, top, commands), "completions/pantiq.bash": bash(top, commands),
                       "completions/_pantiq": zsh(top, commands), "completions/pantiq.fish": fish(top, commands)}.items():
        file = SHARE / name
        if not options.check:
            file.parent.mkdir(parents=True, exist_ok=True)
            file.write_text(text)
        elif not file.exists() or file.read_text() != text:
            print(f"manual: share/{name} is not what the program says; run tools/manual.py", file=sys.stderr)
            wrong = 1
    return wrong


if __name__ == "__main__":
    sys.exit(main())
