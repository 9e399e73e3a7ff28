#!/usr/bin/env python3
"""Shows which tests were skipped in the last run of ctest, and why.

use: skips.py BUILD [--strict]

BUILD     the build folder; its Testing/Temporary/LastTest.log is read
--strict  fail when a test was skipped that should have run

A reason begins with "needs root: " when root could run the test, and with "not here: " when this
system or build cannot. Strict, root has to run all but the latter, and no other reason counts. See
tests/support/skip.h.
"""

import os
import pathlib
import re
import sys

NEEDS_ROOT = "needs root: "
NOT_HERE = "not here: "

# What GoogleTest prints between the beginning and the end of a test that is skipped.
SKIPPED = re.compile(r"^\[ RUN      \] (?P<test>.+)\n"
                     r"(?P<said>(?:(?!\[ RUN      \]|\[       OK \]|\[  FAILED  \]).*\n)*?)"
                     r"\[  SKIPPED \] (?P=test) \(", re.MULTILINE)
REASON = re.compile(r": Skipped\n(?P<reason>.+)$", re.MULTILINE)


def skipped_tests(log):
    """The tests that were skipped, each with its reason, in their order."""
    found = []
    for skipped in SKIPPED.finditer(log):
        reason = REASON.search(skipped["said"])
        found.append((skipped["test"], reason["reason"] if reason else "no reason"))
    return found


def is_acceptable(reason, is_root):
    return reason.startswith(NOT_HERE) or (reason.startswith(NEEDS_ROOT) and not is_root)


def main(build, strict, is_root):
    log = pathlib.Path(build) / "Testing/Temporary/LastTest.log"
    skipped = skipped_tests(log.read_text(errors="replace"))
    print(f"{len(skipped)} tests skipped")
    for test, reason in skipped:
        print(f"  {test}: {reason}")
    wrong = [test for test, reason in skipped if not is_acceptable(reason, is_root)]
    if strict and wrong:
        print(f"should have run: {', '.join(wrong)}", file=sys.stderr)
        return 1
    return 0


if __name__ == "__main__":
    words = sys.argv[1:]
    folders = [word for word in words if word != "--strict"]
    if len(folders) != 1 or len(words) > len(folders) + 1:
        sys.exit(__doc__)
    sys.exit(main(folders[0], "--strict" in words, os.geteuid() == 0))
