#!/usr/bin/env python3
"""The manual pages of the programs name every command and option that the programs have, and no other.
No line of a help is too wide.

use: commands_test.py PROJECT ZELIEML ZELIEML-LOOPBACK

In zelieml(1) each subsection of COMMANDS is named after its command, or several with commas between
them, and names all their options. Those of all commands may stand in the description only.
"""

import pathlib
import re
import subprocess
import sys

project, zelieml, loopback = sys.argv[1:]
WIDEST = 100
EVERYWHERE = {"-h", "--help", "-w", "--workdir", "--json", "--version"}
problems = []


def part(text, title):
    """The lines of a part of a help."""
    found = re.search(rf"^{title}:\n(.*?)(?:\n\n|\Z)", text, re.DOTALL | re.MULTILINE)
    return found[1].splitlines() if found else []


def first_words(lines):
    return [line.split()[0] for line in lines if re.match(r"  \S", line)]


def tree(program, path=()):
    """The commands that have no commands of their own, each with its options."""
    text = subprocess.run([program, *path, "--help"], stdout=subprocess.PIPE, check=True,
                          encoding="utf-8").stdout
    problems.extend(f"{' '.join(path)} --help, wider than {WIDEST}: {line}"
                    for line in text.splitlines() if len(line) > WIDEST)
    options = {name for word in first_words(part(text, "Options")) for name in word.split(",")}
    commands = first_words(part(text, "Subcommands"))
    if not commands:
        return {" ".join(path): options}
    below = {}
    for command in commands:
        below.update(tree(program, (*path, command)))
    return below


def options_in(text):
    """What stands behind the macro Fl."""
    return {"-" + name for line in text.splitlines() if line.startswith(".")
            for name in re.findall(r"\bFl (-?[\w-]+)", line)}


def compare(what, there, named):
    for name in sorted(there - named):
        problems.append(f"{what}: {name} is not in the manual page")
    for name in sorted(named - there):
        problems.append(f"{what}: {name} is in the manual page only")


def section(page, title):
    return re.search(rf"^\.Sh {title}\n(.*?)(?=^\.Sh |\Z)", page, re.DOTALL | re.MULTILINE)[1]


page = pathlib.Path(project, "docs/man/zelieml.1").read_text()
there = tree(zelieml)
named = set()
for text in re.split(r"^\.Ss ", section(page, "COMMANDS"), flags=re.MULTILINE)[1:]:
    title, _, rest = text.partition("\n")
    commands = title.split(", ")
    named.update(commands)
    options = set().union(*(there.get(command, set()) for command in commands))
    compare(title, options - EVERYWHERE, options_in(rest) - EVERYWHERE)
    wrong = (options_in(rest) & EVERYWHERE) - options
    if wrong:
        problems.append(f"{title}: it has no {', '.join(sorted(wrong))}")
compare("zelieml", set(there), named)
everywhere = options_in(section(page, "DESCRIPTION"))
compare("zelieml", EVERYWHERE, everywhere)

page = pathlib.Path(project, "docs/man/zelieml-loopback.1").read_text()
compare("zelieml-loopback", tree(loopback)[""], options_in(page))

print("\n".join(problems) or f"{len(there)} commands are described")
sys.exit(1 if problems else 0)
