#!/usr/bin/env python3
"""The Debian packages have the project's version, and list the symbols that the library exports.

use: lists_test.py SOURCE-FOLDER
"""

import pathlib
import re
import sys

root = pathlib.Path(sys.argv[1])
debian = root / "packaging/debian"
problems = []

version = re.search(r"^project\(zelieml VERSION ([\d.]+) ", (root / "CMakeLists.txt").read_text(),
                    re.MULTILINE).group(1)
packaged = re.match(r"zelieml \(([\d.]+)-\d+\) ", (debian / "changelog").read_text()).group(1)
if packaged != version:
    problems.append(f"packaging/debian/changelog begins with {packaged}, not {version}")

exports = set(re.findall(r"^\w+$", (root / "lib/zelieml/exports.txt").read_text(), re.MULTILINE))
symbols = set(re.findall(r"^ (\w+)@Base [\d.]+$",
                         (debian / "libzelieml1.symbols").read_text(), re.MULTILINE))
for name in sorted(exports - symbols):
    problems.append(f"libzelieml1.symbols lacks the line ' {name}@Base {version}'")
for name in sorted(symbols - exports):
    problems.append(f"libzelieml1.symbols has {name}, which is no export")

if problems:
    sys.exit("\n".join(problems))
