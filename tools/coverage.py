#!/usr/bin/env python3
"""coverage.py BUILD - what the tests of a coverage build have reached, unit by unit

Reads what the programs of BUILD have left behind, with gcovr, and prints for each unit of lib/ the
share of its lines and branches that were reached, and every line that was not.

Fails when a unit has less than 95 % of its lines, and when a line that was not reached has no
reason in docs/TESTING.md: a row "| `file` | `text` | reason |", where the text is a part of the
line.
"""

import json
import re
import subprocess
import sys
from collections import defaultdict
from pathlib import Path

LEAST = 95.0
ROOT = Path(__file__).resolve().parent.parent
REASONS = ROOT / "docs" / "TESTING.md"


def measure(build):
    """The files of the library as gcovr sees them."""
    report = subprocess.run(
        ["gcovr", "--root", str(ROOT), "--filter", str(ROOT / "lib") + "/",
         "--exclude-throw-branches", "--exclude-unreachable-branches", "--json", "-", str(build)],
        check=True, stdout=subprocess.PIPE, text=True).stdout
    return json.loads(report)["files"]


def reasons():
    """The pairs (file, part of a line) that may be left out."""
    row = re.compile(r"^\| `(lib/[^`]+)` \| `([^|]+)` \|")
    found = (row.match(line) for line in REASONS.read_text().splitlines())
    return [match.groups() for match in found if match]


def share(part, whole):
    return 100.0 * part / whole if whole else 100.0


class Unit:
    def __init__(self):
        self.lines = self.reached = self.branches = self.taken = 0
        self.missed = []

    def add(self, entry):
        source = (ROOT / entry["file"]).read_text().splitlines()
        for line in entry["lines"]:
            if line.get("gcovr/noncode"):
                continue
            self.lines += 1
            self.branches += len(line["branches"])
            self.taken += sum(1 for branch in line["branches"] if branch["count"])
            if line["count"]:
                self.reached += 1
            else:
                number = line["line_number"]
                self.missed.append((entry["file"], number, source[number - 1].strip()))


def main():
    if len(sys.argv) != 2:
        sys.exit(__doc__)
    units = defaultdict(Unit)
    for entry in measure(sys.argv[1]):
        units["/".join(Path(entry["file"]).parts[:-1])].add(entry)
    if not units:
        sys.exit("nothing was measured: is this a coverage build whose tests have run?")

    good = True
    print(f"{'unit':24}{'lines':>8}{'reached':>9}{'branches':>11}")
    for name, unit in sorted(units.items()):
        lines = share(unit.reached, unit.lines)
        print(f"{name:24}{unit.lines:8}{lines:8.1f}%{share(unit.taken, unit.branches):10.1f}%")
        if lines < LEAST:
            print(f"  under {LEAST} % of its lines")
            good = False

    known = reasons()
    unused = set(known)
    print("\nlines that were not reached:")
    for unit in units.values():
        for file, number, text in unit.missed:
            why = [pair for pair in known if pair[0] == file and pair[1] in text]
            unused.difference_update(why)
            if not why:
                good = False
            print(f"  {file}:{number}: {text}{'' if why else '   (no reason in docs/TESTING.md)'}")
    for file, text in sorted(unused):
        print(f"  {file}: `{text}` has a reason in docs/TESTING.md and is reached")
    sys.exit(0 if good else 1)


if __name__ == "__main__":
    main()
