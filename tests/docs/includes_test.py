#!/usr/bin/env python3
"""Holds the units' includes to the list in docs/ARCHITECTURE.md, so that none is added unseen.

use: includes_test.py SOURCE-FOLDER
"""

import pathlib
import re
import sys

INCLUDE = re.compile(r'^\s*#\s*include\s+"([^"]+)"', re.MULTILINE)


def written_down(document):
    """The list under "Who includes whom": the units in their order, and what each may include."""
    block = re.search(r"^## Who includes whom\n.*?^```\n(.*?)^```", document, re.M | re.S).group(1)
    lines = [line.split("->") for line in block.splitlines()]
    return {unit.strip(): set(others.split()) for unit, others in lines}


def included(lib):
    """Where each unit includes a header of another: {(unit, other): [(file, header), ...]}."""
    found = {}
    for file in sorted(lib.rglob("*")):
        if file.suffix not in {".h", ".cpp", ".mm"}:
            continue
        unit = file.relative_to(lib).parts[0]
        for header in INCLUDE.findall(file.read_text()):
            other = header.split("/")[0]
            if other not in {unit, "zelieml.h", "zelieml_ext.h"}:
                found.setdefault((unit, other), []).append(
                    (file.relative_to(lib), header))
    return found


def faults(allowed, found):
    for (unit, other), places in found.items():
        for file, header in places:
            if other not in allowed.get(unit, ()):
                yield f"not in the list: {unit} -> {other} ({file} includes {header})"
            if other == "platform" and unit != "platform" and header.count("/") > 1:
                yield f"a header of one system, outside platform: {file} includes {header}"
            if (unit in ("libaccess", "libreceive") and other == "libemlw"
                    and header != "libemlw/callback.h"):
                yield f"{unit} needs callback.h of libemlw only: {file} includes {header}"
    units = list(allowed)
    for unit, others in allowed.items():
        for other in others:
            if (unit, other) not in found:
                yield f"in the list, but nothing includes so: {unit} -> {other}"
            if other not in units[units.index(unit) + 1:]:
                yield f"points upwards in the list: {unit} -> {other}"


def main():
    root = pathlib.Path(sys.argv[1])
    allowed = written_down((root / "docs/ARCHITECTURE.md").read_text())
    found = included(root / "lib")
    if not found:
        sys.exit("no include found: the test looks in the wrong place")
    wrong = list(faults(allowed, found))
    if wrong:
        sys.exit("\n".join(wrong))
    print(f"{len(found)} arrows, as docs/ARCHITECTURE.md has them")


main()
