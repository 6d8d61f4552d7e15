#!/usr/bin/python3
"""Writes the COMMANDS section of a man page from a CLI11 program's own help.

help2man makes the page's head from `PROGRAM --help`; this adds one
subsection per subcommand, at any depth, from `PROGRAM SUB... --help`, so the
manual is the help text and cannot drift from it. The output is a help2man
include file: `[COMMANDS]` followed by roff.

Usage: cli11_sections.py PROGRAM OUTPUT
"""

import os
import re
import subprocess
import sys

# CLI11 pads option names to this column; a longer name puts its
# description on the next line, indented to it.
NAME_COLUMN = 30


def roff_text(text):
    """Text as roff shows it: no request at a line start, no escapes."""
    text = text.replace("\\", "\\e").replace("-", "\\-")
    if text.startswith((".", "'")):
        text = "\\&" + text
    return text


def help_text(program, words):
    result = subprocess.run([program, *words, "--help"], capture_output=True,
                            text=True, check=True,
                            env={**os.environ, "COLUMNS": "200"})
    return result.stdout


def parse(text):
    """CLI11 help as (description, usage, [(heading, [(name, desc)])],
    footer)."""
    lines = text.rstrip("\n").split("\n")
    description = lines[0]
    usage = ""
    groups = []
    footer = []
    for line in lines[1:]:
        if line.startswith("Usage: "):
            usage = line[len("Usage: "):]
        elif re.fullmatch(r"[A-Z][A-Za-z ]*:", line):
            groups.append((line[:-1], []))
        elif line.startswith(" " * NAME_COLUMN) and groups and groups[-1][1]:
            name, desc = groups[-1][1][-1]
            groups[-1][1][-1] = (name, (desc + " " + line.strip()).strip())
        elif line.startswith("  ") and groups:
            name, _, desc = line.strip().partition("  ")
            groups[-1][1].append((name, desc.strip()))
        elif line.strip():
            footer.append(line)
    return description, usage, groups, footer


def option_name(name):
    """`-h,--help` in bold, the value's type after it in italics."""
    flag, _, kind = name.partition(" ")
    out = "\\fB" + roff_text(flag) + "\\fR"
    if kind:
        out += " \\fI" + roff_text(kind.strip()) + "\\fR"
    return out


def section(program, words, out):
    description, usage, groups, footer = parse(help_text(program, words))
    # The usage line names the program as it was run; the manual names it.
    usage = re.sub(r"^\S+", os.path.basename(program), usage)
    out.append('.SS "' + roff_text(usage).replace('"', '\\(dq') + '"')
    out.append(roff_text(description))
    subcommands = []
    for heading, items in groups:
        if heading == "Subcommands":
            subcommands = [name for name, _ in items]
        out.append(".PP")
        out.append("\\fI" + roff_text(heading) + ":\\fR")
        for name, desc in items:
            out.append(".TP")
            out.append(option_name(name))
            out.append(roff_text(desc))
    # Every subcommand repeats the program's exit status; only other
    # closing words are the subcommand's own.
    own = [line for line in footer if not line.startswith("Exit status:")]
    if own:
        out.append(".PP")
        out.extend(roff_text(line) for line in own)
    for sub in subcommands:
        section(program, [*words, sub], out)


def main():
    program, output = sys.argv[1], sys.argv[2]
    _, _, groups, _ = parse(help_text(program, []))
    out = ["[COMMANDS]"]
    for heading, items in groups:
        if heading == "Subcommands":
            for name, _ in items:
                section(program, [name], out)
    if len(out) == 1:
        sys.exit(program + ": no subcommands in --help")
    with open(output, "w", encoding="utf-8") as f:
        f.write("\n".join(out) + "\n")


if __name__ == "__main__":
    main()
