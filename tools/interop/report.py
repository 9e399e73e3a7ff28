"""Counting and printing of checks."""

import re

from net import wait_until


class Report:
    def __init__(self):
        self.checks = 0
        self.failed = 0
        self.title = ""

    def check(self, name, problems):
        """One check; it has failed when there are problems, which are lines of text."""
        self.checks += 1
        self.failed += bool(problems)
        print(f"{'FAIL' if problems else 'ok  '} {self.title}: {name}", flush=True)
        for problem in problems:
            print(f"       {problem}")

    def expect(self, name, result, code, text):
        """A result is a code and the server's last reply, matched against a pattern."""
        got_code, got_text = result
        problems = []
        if got_code != code:
            problems.append(f"code {got_code!r}, wanted {code!r}; server said {got_text!r}")
        if not re.match(text, got_text, re.DOTALL):
            problems.append(f"server said {got_text!r}, wanted {text!r}")
        self.check(name, problems)

    def equal(self, name, got, wanted):
        self.check(name, [] if got == wanted else [f"got {got!r}, wanted {wanted!r}"])

    def becomes(self, name, get, wanted):
        """What a server has logged can come a little after the client has its answer."""
        wait_until(lambda: get() == wanted, seconds=5)
        self.equal(name, get(), wanted)
