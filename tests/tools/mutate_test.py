#!/usr/bin/env python3
"""What tools/mutate.py changes, and how it counts what the tests make of it.

use: mutate_test.py PROJECT
"""

import pathlib
import sys
import tempfile
import threading
import unittest

sys.path.insert(0, str(pathlib.Path(sys.argv.pop(1)) / "tools"))
sys.dont_write_bytecode = True
import mutate  # noqa: E402

FUNCTION = """int f(int a)
{
    %s
    return a;
}
"""


def changes(line):
    """What becomes of a line in a function."""
    source = mutate.Source("f.cpp", FUNCTION % line)
    return [change.after for change in source.changes() if change.line == 3]


class Changes(unittest.TestCase):
    def test_are_made_to_operators_and_numbers(self):
        for line, wanted in {
            "if (a == b) {": ["if (a != b) {"],
            "if (a < b) {": ["if (a <= b) {", "if (a >= b) {"],
            "if (a && b) {": ["if (a || b) {"],
            "if (!a) {": ["if (a) {"],
            "if (a) {": ["if (!(a)) {"],
            "if (f(a).empty()) {": ["if (!(f(a).empty())) {"],
            "int const b = a - c;": ["int const b = a + c;"],
            "int const b = 1000;": ["int const b = 1001;", "int const b = 999;"],
            "int const b = 0;": ["int const b = 1;"],
            "int const b = a - 1;": ["int const b = a + 1;", "int const b = a - 0;",
                                     "int const b = a - 2;"],
            "int const b = -1;": ["int const b = -0;"],
            "int const b = 0777;": ["int const b = 01000;", "int const b = 0776;"],
            "int const b = 0x10U;": ["int const b = 0x11U;", "int const b = 0xfU;"],
            "bool const b = true;": ["bool const b = false;"],
            "int const b = A | B | C;": ["int const b = A | C;", "int const b = A | B;"],
        }.items():
            self.assertEqual(changes(line + "}" * line.count("{")),
                             [after + "}" * line.count("{") for after in wanted], line)

    def test_remove_calls_assignments_and_ways_out(self):
        for line in ("g(a);", "a = b;", "*a = b;", "a->b.c();", "++a;", "::close(a);", "delete a;",
                     "std::move(a, b);", "a[b] = c;", "g(\n h);", "trace(\"a;b\");"):
            self.assertIn("(removed)", changes(line), line)
        self.assertIn("if (a) { }", changes("if (a) { return b; }"))

    def test_keep_declarations_and_the_last_result(self):
        for line in ("int b = c;", "auto const* b = c;", "std::string b(c);", "char* b = c;",
                     "std::vector<int> b;", "b const c(d);", "if (a) { g(b); }"):
            self.assertNotIn("(removed)", changes(line), line)
        for last in ("return a;", "if (b) {\n c();\n } else if (d) {\n return a;\n }",
                     "try {\n return a;\n } catch (e const&) {\n }"):
            source = mutate.Source("f.cpp", f"int f(int a)\n{{\n{last}\n}}\n")
            self.assertNotIn("return a;", [change.before for change in source.changes()], last)
        self.assertIn("for (;;) { }", changes("for (;;) { return b; }"))

    def test_leave_out_what_is_no_code(self):
        for line in ("// a == b", "/* 1 */", "#define A 1", "char const* b = \"a == 1\";",
                     "char b = '1';", "std::vector<std::pair<a, b>>&& c;", "static_assert(a == 1);",
                     "g<a>&& b;"):
            self.assertEqual(changes(line), [], line)

    def test_know_their_place(self):
        text = FUNCTION % "g([&] {\n        b = 1;\n    });"
        found = mutate.Source("f.cpp", text).changes()
        self.assertEqual([(change.name, change.function) for change in found],
                         [("f.cpp:3:5:1", "f"), ("f.cpp:4:9:1", "f"), ("f.cpp:4:13:1", "f"),
                          ("f.cpp:4:13:2", "f")])
        self.assertEqual(text[found[2].begin:found[2].end], "1")

    def test_are_known_in_every_unit(self):
        for unit in mutate.UNITS.values():
            self.assertGreater(len(mutate.files_of(unit)), 0)


class Explanations(unittest.TestCase):
    def test_belong_to_changes(self):
        self.assertEqual(mutate.read_explanations("# what\n"
                                                  "[f.cpp f]\n"
                                                  "a  =>  b\n"
                                                  "c  =>  d\n"
                                                  "    one\n"
                                                  "    reason\n"
                                                  "\n"
                                                  "e  =>  f\n"
                                                  "    another\n"
                                                  "[g.cpp ]\n"
                                                  "a  =>  (removed)\n"
                                                  "    a third\n"),
                         {("f.cpp", "f", "a", "b"): "one reason",
                          ("f.cpp", "f", "c", "d"): "one reason",
                          ("f.cpp", "f", "e", "f"): "another",
                          ("g.cpp", "", "a", "(removed)"): "a third"})

    def test_are_well_formed(self):
        with self.assertRaises(SystemExit):
            mutate.read_explanations("[f.cpp f]\nno arrow\n")


class Shop:
    """A workshop whose tests notice what the table says."""

    closed = False

    def __init__(self, outcomes):
        self.outcomes, self.change, self.ran = outcomes, None, []

    def apply(self, change):
        self.change = change.after

    def undo(self, _):
        self.change = None

    def make(self, _):
        return self.outcomes[self.change] != mutate.NOT_COMPILED

    def run(self, test, _):
        self.ran.append(test.name)
        return self.outcomes[self.change] != test.name


class Counting(unittest.TestCase):
    TESTS = [mutate.Test("slow", (), "slow", 2), mutate.Test("quick", (), "quick", 1)]

    def score(self, outcomes, explained=()):
        made = [mutate.Change("f.cpp", 1, 1, 1, "f", 0, 0, "", "a", after) for after in outcomes]
        shop = Shop(outcomes)
        score = mutate.try_changes(made, [shop], {shop: self.TESTS},
                                   {("f.cpp", "f", "a", after) for after in explained},
                                   lambda *_: None)
        return score, shop.ran

    def test_tells_the_outcomes_apart(self):
        score, _ = self.score({"1": "quick", "2": "slow", "3": mutate.NOT_COMPILED,
                               "4": mutate.SURVIVED, "5": mutate.SURVIVED, "6": "quick"},
                              explained=("5", "6"))
        self.assertEqual((score.noticed, score.not_compiled, score.explained), (3, 1, 1))
        self.assertEqual([change.after for change in score.survivors], ["4"])
        self.assertEqual([change.after for change in score.wrongly_explained], ["6"])
        self.assertEqual(score.row("unit", 9), "| unit | 9 | 5 | 3 | 60 % | 1 | 1 |")

    def test_begins_with_what_noticed_a_change_before_and_stops_there(self):
        self.assertEqual(self.score({"1": "slow", "2": "slow"})[1], ["quick", "slow", "slow"])


class Commands(unittest.TestCase):
    def setUp(self):
        self.folder = tempfile.TemporaryDirectory()
        self.shop = mutate.Workshop(pathlib.Path(self.folder.name))

    def tearDown(self):
        self.shop.close()
        self.folder.cleanup()
        self.assertFalse(self.shop.temporary.exists())

    def run_shell(self, text, limit=60):
        return self.shop.run(mutate.Test("test", ("sh", "-c", text), "test", 0), limit)

    def test_pass_and_fail(self):
        self.assertTrue(self.run_shell("exit 0"))
        self.assertFalse(self.run_shell("exit 1"))
        self.assertFalse(self.run_shell("kill -SEGV $$"))

    def test_that_take_too_long_fail(self):
        self.assertFalse(self.run_shell("sleep 60", limit=0.2))

    def test_end_when_the_shop_is_closed(self):
        threading.Timer(0.2, self.shop.close).start()
        self.assertFalse(self.run_shell("sleep 60"))

    def test_leave_nothing_behind(self):
        self.assertTrue(self.run_shell("mkdir -p $TMPDIR/a/b && touch $TMPDIR/c"))
        self.assertEqual(list(self.shop.temporary.iterdir()), [])

    def test_meet_the_changed_copy(self):
        file = self.shop.copy / "f.cpp"
        file.parent.mkdir()
        file.write_text("a == b")
        change = mutate.Change("f.cpp", 1, 3, 1, "", 2, 4, "!=", "", "")
        self.shop.apply(change)
        self.assertEqual(file.read_text(), "a != b")
        self.shop.undo(change)
        self.assertEqual(file.read_text(), "a == b")


if __name__ == "__main__":
    unittest.main()
