#!/usr/bin/env python3
"""Every link and every reference to a manual page leads somewhere, and every page is reached from README.

use: pages_test.py PROJECT MANUAL

Links are followed in all *.md of the tree, to files, folders and headings; to other machines they are
not. MANUAL has the manual pages that are made from the headers.
"""

import os
import pathlib
import re
import sys

project, manual = (pathlib.Path(argument).resolve() for argument in sys.argv[1:])
problems = []

# Manual pages of others that ours refer to.
OTHERS = {("locale", "1"), ("chgrp", "1"), ("chmod", "1"), ("systemd", "1"), ("flock", "2"),
          ("rename", "2")}


def pages_of_tree():
    found = []
    for folder, folders, files in os.walk(project):
        folders[:] = [name for name in folders if not name.startswith((".git", "build"))
                      and pathlib.Path(folder, name) != manual]
        found += [pathlib.Path(folder, name) for name in files if name.endswith(".md")]
    return sorted(found)


def without_code(text):
    """Without blocks of code, code within lines, and comments."""
    text = re.sub(r"^( *)```.*?^\1```", "", text, flags=re.DOTALL | re.MULTILINE)
    text = re.sub(r"<!--.*?-->", "", text, flags=re.DOTALL)
    return re.sub(r"`[^`\n]*`", "`code`", re.sub(r"^    .*$", "", text, flags=re.MULTILINE))


def anchors(page):
    """The fragments by which its headings are linked to."""
    found = set()
    text = re.sub(r"^( *)```.*?^\1```", "", page.read_text(), flags=re.DOTALL | re.MULTILINE)
    for heading in re.findall(r"^#+ (.*)$", text, re.MULTILINE):
        words = heading.replace("\\", "").replace("`", "").lower()
        words = re.sub(r"\[([^]]*)\]\([^)]*\)", r"\1", words)
        anchor = re.sub(r"[^\w\- ]", "", words).replace(" ", "-")
        again = sum(1 for other in found if re.fullmatch(rf"{re.escape(anchor)}(-\d+)?", other))
        found.add(f"{anchor}-{again}" if again else anchor)
    return found


def follow(page, target):
    """The page that a link leads to, or None."""
    def problem(what):
        problems.append(f"{page.relative_to(project)}: {target}: {what}")

    if re.match(r"\w+:", target):
        return None
    file, _, fragment = target.partition("#")
    there = (page.parent / file).resolve() if file else page
    if not there.exists() or project not in (there, *there.parents):
        problem("there is no such file")
    elif fragment and (there.suffix != ".md" or fragment not in anchors(there)):
        problem("there is no such heading")
    elif there.suffix == ".md":
        return there
    return None


def links(page):
    text = without_code(page.read_text())
    return re.findall(r"(?<!\\)\]\(([^)\s]*)\)", text) + re.findall(r"^\[[^]]+\]: (\S+)$", text,
                                                                     re.MULTILINE)


pages = pages_of_tree()
count = 0
leads_to = {}
for one in pages:
    targets = links(one)
    count += len(targets)
    leads_to[one] = {there for there in (follow(one, target) for target in targets) if there}

reached, waiting = set(), [project / "README.md"]
while waiting:
    one = waiting.pop()
    if one not in reached:
        reached.add(one)
        waiting += leads_to[one]
problems.extend(f"{one.relative_to(project)}: no link leads there from README.md"
                for one in pages if one not in reached)

# ------------------------------------------------------------------ manual pages

written = list((project / "docs/man").iterdir())
there_are = {tuple(page.name.rsplit(".", 1)) for page in [*written, *(manual / "man3").iterdir()]}


def check_reference(page, name, section):
    known = {number for other, number in there_are if other == name}
    if (name, section) not in there_are | OTHERS and not (section is None and known):
        problems.append(f"{page.relative_to(project)}: there is no manual page "
                        f"{name}{f'({section})' if section else ''}")


references = 0
for one in pages:
    text = one.read_text()
    found = [(name, section or None)
             for section, name in re.findall(r"`man (?:(\d) )?([\w.-]+)`", text)]
    found += re.findall(r"\b((?:zeli|eml_)[\w.-]+)\((\d)\)", text)
    references += len(found)
    for name, section in found:
        check_reference(one, name, section)
for one in written:
    text = one.read_text()
    found = re.findall(r"^\.Xr (\S+) (\d)", text, re.MULTILINE)
    references += len(found)
    for name, section in found:
        check_reference(one, name, section)
    problems.extend(f"{one.relative_to(project)}: there is no {document}"
                    for document in re.findall(r"\bdocs/[\w/.]*\w", text)
                    if not (project / document).is_file())
    listed = re.search(r"^\.Sh SEE ALSO\n(.*)", text, re.DOTALL | re.MULTILINE)
    others = {other.name for other in written} - {one.name}
    if not any(re.search(rf"^\.Xr {re.escape(one.name.rsplit('.', 1)[0])} {one.name[-1]}\b",
                         (project / "docs/man" / other).read_text(), re.MULTILINE)
               for other in others) or not listed:
        problems.append(f"{one.relative_to(project)}: no other page refers to it, or it to none")

if count < 150 or references < 30:
    problems.append(f"only {count} links and {references} references to manual pages")
print("\n".join(problems) or f"{count} links in {len(pages)} pages, {references} manual pages")
sys.exit(1 if problems else 0)
