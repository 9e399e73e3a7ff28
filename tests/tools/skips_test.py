#!/usr/bin/env python3
"""What tools/skips.py makes of a log.

use: skips_test.py PROJECT
"""

import contextlib
import io
import pathlib
import sys
import tempfile
import unittest

sys.path.insert(0, str(pathlib.Path(sys.argv.pop(1)) / "tools"))
sys.dont_write_bytecode = True
import skips  # noqa: E402

HEAD = """1/2 Testing: place_test
Command: "/build/place_test"
Output:
----------------------------------------------------------
[----------] 2 tests from Place
[ RUN      ] Place.IsShared
[       OK ] Place.IsShared (3 ms)
"""
TAIL = """[  PASSED  ] 1 test.
[  SKIPPED ] 1 test, listed below:
[  SKIPPED ] Place.IsAnothers
<end of output>
Test Passed.
"""


def skip(reason, test="Place.IsAnothers"):
    return f"[ RUN      ] {test}\n{reason}\n[  SKIPPED ] {test} (0 ms)\n"


def said(reason):
    return f"../tests/place_test.cpp:12: Skipped\n{reason}\n"


NEEDS_ROOT = skip(said("needs root: two users"))
NOT_HERE = skip(said("not here: the thread sanitizer"))
UNKNOWN = skip(said("not today"))


class Skips(unittest.TestCase):
    def run_with(self, log, strict, is_root):
        """The exit status, and what is printed."""
        with tempfile.TemporaryDirectory() as build:
            folder = pathlib.Path(build) / "Testing/Temporary"
            folder.mkdir(parents=True)
            (folder / "LastTest.log").write_text(HEAD + log + TAIL)
            out = io.StringIO()
            with contextlib.redirect_stdout(out), contextlib.redirect_stderr(out):
                return skips.main(build, strict, is_root), out.getvalue()

    def test_shows_each_test_with_its_reason(self):
        _, shown = self.run_with(NEEDS_ROOT + skip(said("not here: macOS"), "A/Table.Has/row_1"),
                                 strict=False, is_root=True)
        self.assertEqual(shown, "2 tests skipped\n"
                                "  Place.IsAnothers: needs root: two users\n"
                                "  A/Table.Has/row_1: not here: macOS\n")

    def test_shows_that_there_is_none(self):
        self.assertEqual(self.run_with("", strict=True, is_root=True), (0, "0 tests skipped\n"))

    def test_takes_no_test_that_was_run_for_a_skipped_one(self):
        ran = f"[ RUN      ] Place.Ran\nSkipped\n[       OK ] Place.Ran (1 ms)\n"
        self.assertEqual(self.run_with(ran, strict=True, is_root=True)[1], "0 tests skipped\n")

    def test_fails_strictly_for_what_should_have_run(self):
        for log, is_root, status, why in (
                (NEEDS_ROOT, False, 0, "an ordinary user cannot run it"),
                (NEEDS_ROOT, True, 1, "root can"),
                (NOT_HERE, True, 0, "nobody can run it here"),
                (NOT_HERE + NEEDS_ROOT, True, 1, "one of two"),
                (UNKNOWN, False, 1, "no reason that counts"),
                (skip("output of its own"), False, 1, "no reason at all")):
            with self.subTest(why):
                self.assertEqual(self.run_with(log, True, is_root)[0], status)
                self.assertEqual(self.run_with(log, False, is_root)[0], 0)


unittest.main()
