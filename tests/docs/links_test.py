#!/usr/bin/env python3
"""Every name in the headers' comments, in docs/api and in the library's manual pages is a reference.

use: links_test.py PROJECT MANUAL

A reference is the name of a function or an enumerator, the title of a part in brackets, or the name
of a document ("docs/FORMATS.md"). The parts become separate pages: words such as "below", or "see"
without a reference, lead nowhere there. pages_test.py follows the links.
"""

import pathlib
import re
import sys

project, manual = map(pathlib.Path, sys.argv[1:])
problems = []

headers = {path.name: path.read_text() for path in sorted((project / "include").glob("*.h"))}
everything = "\n".join(headers.values())
exports = {line for line in (project / "lib/zelieml/exports.txt").read_text().splitlines()
           if line and not line.startswith("#")}
types = re.findall(r"typedef (?:enum|struct) (\w+) \{(.*?)\} \w+;", everything, re.DOTALL)
names = exports | {name for name, _ in types} | {
    name for _, body in types for name in re.findall(r"^ +(\w+) +=", body, re.MULTILINE)} | set(
    re.findall(r"^#define (EML_\w+)", everything, re.MULTILINE))
parts = set(re.findall(r"/\* -{3,} (.*) \*/", everything))


# ------------------------------------------------------------------ the headers


def check_comment(header, line, text):
    def problem(what):
        problems.append(f"{header}: comment of line {line}: {what}")

    for title in re.findall(r"\[([^\]]*)\]", text):
        if title not in parts:
            problem(f"there is no part [{title}]")
    for document in re.findall(r"\bdocs/[\w/.]*\w", text):
        if not (project / document).is_file():
            problem(f"there is no {document}")
    for word in re.findall(r"\b(?:above|below)\b", text, re.IGNORECASE):
        problem(f'"{word}" leads off the page')
    for target in re.findall(r"(?<!to )\bsee (\S+)", text, re.IGNORECASE):
        if not target.startswith(("[", "docs/")) and target.strip(".,:;)") not in names:
            problem(f'"see {target}" is no reference')
    code = re.sub(r'"[^"]*"|\bzelieml\w*\.h\b', "", text)
    for name in re.findall(r"\b(?:eml|EML|server_info|zelieml)_\w*", code):
        if name not in names:
            problem(f"nothing is called {name}")


comments = [(header, text.count("\n", 0, comment.start()) + 1, comment[0])
            for header, text in headers.items()
            for comment in re.finditer(r"/\*.*?\*/", text, re.DOTALL)]
for header, line, comment in comments:
    lines = [re.sub(r"^\s*/?\*+/? ?", "", text) for text in comment.splitlines()]
    check_comment(header, line, " ".join(" ".join(lines).split()))


# ------------------------------------------------------------------ docs/api


def declared(code):
    return {name for name in names if re.search(rf"\b{name}\b", code)}


def check_page(page):
    def problem(what):
        problems.append(f"docs/api/{page.name}: {what}")

    text = page.read_text()
    own = declared("".join(re.findall(r"^```c\n(.*?)^```", text, re.DOTALL | re.MULTILINE)))
    prose = re.sub(r"^```c\n.*?^```|^#.*?$", "", text, flags=re.DOTALL | re.MULTILINE)
    defined = dict(re.findall(r"^\[(`\w+`)\]: (\S+)$", prose, re.MULTILINE))
    targets = re.findall(r"(?<!\\)\]\(([^)]*)\)", prose) + list(defined.values())
    for bracket in re.findall(r"\\\[.*", prose):
        problem(f"{bracket} is no reference")
    links = set(re.findall(r"(?<!\\)\[(`\w+`)\](?!:)", prose))
    for link in sorted(links - defined.keys()):
        problem(f"{link} is linked to nothing")
    for name in sorted(names - own):
        if re.search(rf"(?<!\[)`{name}`", prose):
            problem(f"{name} is on another page, and no link")
    return len(targets)


links = sum(check_page(page) for page in (project / "docs/api").glob("*.md"))


# ------------------------------------------------------------------ manual pages


def check_manual_page(page):
    def problem(what):
        problems.append(f"man {page.name}: {what}")

    synopsis, _, description = page.read_text().partition(".SH DESCRIPTION\n")
    description = description.replace("\\&", "")
    found = re.findall(r"\\fB(\w+)\\fR\(3\)|^\.BR (\w+) \(3\)", description, re.MULTILINE)
    for name in {one or other for one, other in found}:
        if not (page.parent / f"{name}.3").is_file():
            problem(f"there is no page {name}(3)")
    for bracket in re.findall(r"\[.*", description):
        problem(f"{bracket} is no reference")
    for name in sorted(exports - declared(synopsis)):
        if re.search(rf"\b{name}\b(?!\\fR\(3\))", description):
            problem(f"{name} is on another page, and named without its section")
    return len(found)


links += sum(check_manual_page(page) for page in (manual / "man3").glob("zelieml*.3"))

if len(comments) < 50 or links < 200:
    problems.append(f"only {len(comments)} comments and {links} links")
print("\n".join(problems) or "all of them do")
sys.exit(1 if problems else 0)
