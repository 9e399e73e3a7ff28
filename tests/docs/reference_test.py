#!/usr/bin/env python3
"""Every export is in the reference, with the declaration that its header has.

use: reference_test.py PROJECT MANUAL

Reads the headers in its own way, to be no mirror of what writes the reference.
"""

import pathlib
import re
import sys

project, manual = map(pathlib.Path, sys.argv[1:])
problems = []


def declarations(code):
    """Declarations in one shape: no comments, single blanks."""
    code = re.sub(r"/\*.*?\*/", " ", code, flags=re.DOTALL)
    code = re.sub(r"^#define .*", "", code, flags=re.MULTILINE)
    code = re.sub(r"(?:enum|struct) \w+ \{[^}]*\}", "", code)
    found = (re.sub(r"\s+", " ", part).strip() for part in code.split(";"))
    return [part for part in found if part and not part.startswith("typedef")]


def compare(what, got, wanted):
    for name in sorted(set(wanted) - set(got)):
        problems.append(f"{what}: {name} is missing")
    for name in sorted(set(got) - set(wanted)):
        problems.append(f"{what}: {name} is too much")
    for name in sorted({name for name in got if got.count(name) > 1}):
        problems.append(f"{what}: {name} stands there twice")


def name_of(declaration):
    return re.match(r"(?:[\w*]+ [ *]*)+?(\w+)(?:\(|$)", declaration)[1]


headers = "\n".join(header.read_text() for header in sorted((project / "include").glob("*.h")))
exported = [line for line in (project / "lib/zelieml/exports.txt").read_text().splitlines()
            if line and not line.startswith("#")]
in_header = [text for text in map(str.strip, re.findall(r"(?<=\nZELIEML_API )[^;]*", headers))]
in_header = [text for part in in_header for text in declarations(part)]
if len(exported) < 60:
    problems.append(f"only {len(exported)} exports")
compare("headers", [name_of(d) for d in in_header], exported)

pages = [page for page in (project / "docs/api").glob("*.md") if page.name != "README.md"]
blocks = [block for page in pages
          for block in re.findall(r"```c\n(.*?)```", page.read_text(), re.DOTALL)]
compare("docs/api", [d for block in blocks for d in declarations(block)], in_header)

index = (project / "docs/api/README.md").read_text()
for name in exported:
    if f"`{name}`" not in index:
        problems.append(f"docs/api/README.md: {name} is missing")
    page = manual / "man3" / f"{name}.3"
    target = re.fullmatch(r"\.so (man3/zelieml_\w+\.3)\n", page.read_text()) if page.exists() else None
    if not target:
        problems.append(f"{name} has no manual page")
    elif not re.search(rf"\n\.SH NAME\n[^\n]*\b{name}\b", (manual / target[1]).read_text()):
        problems.append(f"the manual page of {name} is about something else")

print("\n".join(problems) or "all there")
sys.exit(1 if problems else 0)
