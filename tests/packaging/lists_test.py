#!/usr/bin/env python3
"""The Debian packages have the project's version, and list the symbols that the library exports.
systemd and launchd are told the same of the service.

use: lists_test.py SOURCE-FOLDER
"""

import pathlib
import plistlib
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

unit = dict(re.findall(r"^(\w+)=(.*)", (debian / "zelieml@.service").read_text(), re.MULTILINE))
for file in (root / "packaging/launchd").iterdir():
    job = plistlib.loads(file.read_bytes())
    instance = file.stem.partition(".")[2]
    program, *words = job["ProgramArguments"]
    workdir = words.pop()
    for holds, what in (
            (job["Label"] == file.stem, "is labelled otherwise"),
            (pathlib.Path(program).name == "zelieml", "runs another program"),
            (words == unit["ExecStart"].split()[1:-1], "runs another command than the unit"),
            (pathlib.Path(workdir).name == instance, "has the work directory of another instance"),
            (job["Umask"] == int(unit["UMask"], 8), "has another umask than the unit"),
            (job["ExitTimeOut"] == int(unit["TimeoutStopSec"]), "waits shorter or longer at the end"),
            (job["KeepAlive"] == {"SuccessfulExit": False} and unit["Restart"] == "on-failure",
             "is not restarted as the unit is")):
        if not holds:
            problems.append(f"{file.name} {what}")

if problems:
    sys.exit("\n".join(problems))
