#!/usr/bin/env python3
"""Changes the library in one place at a time, and counts which changes the tests notice.

use: mutate.py [--list] [--sample N] [--seed N] [--jobs N] [WHAT...]

WHAT      a unit, a file of one, or a change as --list names it (FILE:LINE:COLUMN:N); all units unless
          given
--list    show the changes and build nothing
--sample  N changes of each unit, or all when it has fewer
--seed    another sample, 1 unless given
--jobs    how many changes are tried at once, each in a folder of its own; unless given, one for each
          processor

Works on copies of the sources in build-mutate/. The tests of the unit run in the order of their
time, up to the first that fails; one that takes much longer than without the change fails too. For
root they run in a network of their own.

Changes that nothing notices are listed. Those that tools/mutate.survivors explains are only counted;
an explanation that fits no change of the files looked at, or a change that is noticed, is an error.
"""

import argparse
import collections
import ctypes
import dataclasses
import fcntl
import fnmatch
import json
import os
import pathlib
import queue
import random
import re
import resource
import shutil
import signal
import socket
import struct
import subprocess
import sys
import tempfile
import threading
import time

PROJECT = pathlib.Path(__file__).resolve().parent.parent
FOLDER = PROJECT / "build-mutate"
MOST_MEMORY = 8 << 30
EXPLAINED = PROJECT / "tools/mutate.survivors"


@dataclasses.dataclass(frozen=True)
class Unit:
    files: tuple  # patterns below lib/
    tests: tuple  # patterns of programs below tests/

    def has_test(self, program):
        return any(fnmatch.fnmatchcase(program, f"tests/{pattern}") for pattern in self.tests)


UNITS = {
    "messages": Unit(("libmsg/*",), ("libmsg/*",)),
    "settings": Unit(("libconf/*",), ("libconf/*",)),
    "notifications": Unit(("platform/linux/notification_[dp]*",), ("platform/notification_*",)),
    "queue": Unit(("libqueue/*", "libemlw/send.*", "libemlw/salvage.*", "libemlw/thread.*"),
                  ("libqueue/*", "libemlw/*")),
    "replies": Unit(("libsendw/smtp.*", "libsendw/pop.*", "libsendw/sock.*"), ("libsendw/*",)),
    "driver": Unit(("libsendw/libsendw.*", "libsendw/send_settings.*", "libsendw/smtp_converse.*",
                    "libsendw/smtpmsg.*", "libsendw/session_holder.*", "libsendw/digest_text.*"), ("libsendw/*",)),
    "receiving": Unit(("libreceive/*",), ("libreceive/*",)),
}


# --- the changes --------------------------------------------------------------------------------

@dataclasses.dataclass(frozen=True)
class Change:
    file: str      # relative to the project
    line: int
    column: int
    number: int    # among those that begin there
    function: str
    begin: int     # the bytes that are replaced
    end: int
    text: str      # what replaces them
    before: str    # the line, for people
    after: str

    @property
    def name(self):
        return f"{self.file}:{self.line}:{self.column}:{self.number}"

    @property
    def key(self):
        """What an explanation names it by: lines move."""
        return self.file, self.function, self.before, self.after

    def __str__(self):
        return f"{self.name} {self.function}\n    {self.before}  =>  {self.after}"


@dataclasses.dataclass
class Token:
    kind: str
    text: str
    begin: int
    end: int
    function: str = ""


TOKEN = re.compile(r"""
    (?P<space>\s+)
  | (?P<comment>//[^\n]*|/\*.*?\*/)
  | (?P<directive>\#(?:\\\n|[^\n])*)
  | (?P<string>R"(?P<mark>[^(]*)\(.*?\)(?P=mark)"|"(?:[^"\\\n]|\\.)*"|'(?:[^'\\\n]|\\.)+')
  | (?P<number>\d(?:['.]?\w)*)
  | (?P<word>[A-Za-z_]\w*)
  | (?P<sign>->|::|\+\+|--|&&|\|\||<<=|>>=|[<>=!+\-*/%&|^]=|<<|.)
    """, re.VERBOSE | re.DOTALL)

INTEGER = re.compile(r"(?P<digits>0[xX][0-9a-fA-F']+|[0-9']+)(?P<suffix>[uUlL]*)")

# Signs with a blank on both sides: so "<" and "&&" are operators and no parts of a type.
SIGNS = {
    "==": ("!=",), "!=": ("==",),
    "<": ("<=", ">="), ">=": (">", "<"), ">": (">=", "<="), "<=": ("<", ">"),
    "&&": ("||",), "||": ("&&",),
    "+": ("-",), "-": ("+",), "+=": ("-=",), "-=": ("+=",),
}
WORDS = {"true": ("false",), "false": ("true",), "break": ("continue",), "continue": ("break",)}
OPEN, CLOSE = {"(": ")", "[": "]", "{": "}"}, set(")]}")
CONTROL = {"if", "for", "while", "switch"}
COMPOUND = CONTROL | {"else", "do", "try", "catch", "case", "default"}
DECISIVE = {"==", "!=", "<", ">", "<=", ">=", "&&", "||", "!", ";"}


def tokens_of(source):
    """The tokens that are no blanks, comments, strings or directives."""
    found = []
    for match in TOKEN.finditer(source):
        if match.lastgroup == "mark" or match.lastgroup in ("space", "comment", "directive"):
            continue
        found.append(Token(match.lastgroup, match[0], match.start(), match.end()))
    return found


class Source:
    """One file, and the changes that can be made to it."""

    def __init__(self, file, text):
        self.file, self.text = file, text
        self.tokens = tokens_of(text)
        self.partner = self._partners()
        self.blocks = self._blocks()
        self.found = []

    def changes(self):
        for at in range(len(self.tokens)):
            if self.tokens[at].function is not None:
                self._operator(at)
                self._number(at)
                self._flag(at)
                self._condition(at)
                self._statement(at)
        counts = collections.Counter()
        numbered = []
        for change in sorted(self.found, key=lambda c: (c.begin, c.end, c.text)):
            counts[change.begin] += 1
            numbered.append(dataclasses.replace(change, number=counts[change.begin]))
        return numbered

    # What is where.

    def _partners(self):
        """For each bracket the index of the other one."""
        partner, waiting = {}, []
        for at, token in enumerate(self.tokens):
            if token.kind == "sign" and token.text in OPEN:
                waiting.append(at)
            elif token.kind == "sign" and token.text in CLOSE and waiting:
                partner[at] = waiting.pop()
                partner[partner[at]] = at
        return partner

    def _blocks(self):
        """For each "{" what it begins; and each token learns which function it is in.

        "control" is the body of an if or a loop, "function" that of a function or lambda, "other"
        a namespace, a class or a list of values. Tokens that are never changed have no function.
        """
        blocks, function_ends, start = {}, -1, 0
        name = ""
        for at, token in enumerate(self.tokens):
            if at > function_ends:
                name = ""
            token.function = name
            if token.text == "{" and at in self.partner:
                blocks[at] = self._block(at)
                if blocks[at] == "function" and not name:
                    name = self._function_name(start, at)
                    function_ends = self.partner[at]
            if token.text in ("{", "}", ";"):
                start = at + 1
        at = 0
        while at < len(self.tokens):
            end = at
            if self.tokens[at].text in ("static_assert", "template", "using", "operator"):
                end = self._end_of_unchanged(at)
            for token in self.tokens[at:end]:
                token.function = None
            at = max(end, at + 1)
        return blocks

    def _end_of_unchanged(self, at):
        if self.tokens[at].text in ("template", "operator"):
            return at + 2
        while self.tokens[at].text != ";":
            at += 1
        return at + 1

    def _block(self, at):
        before = self.tokens[at - 1] if at > 0 else None
        if before is None:
            return "other"
        if before.text in ("else", "do", "try"):
            return "control"
        if before.text == ")":
            head = self.tokens[self.partner[at - 1] - 1].text
            return "control" if head in CONTROL | {"catch"} else "function"
        if before.text in ("const", "noexcept", "override", "]", "mutable"):
            return "function"
        # A constructor whose last member is initialised with braces or parentheses is met above.
        return "other"

    def _function_name(self, start, end):
        for at in range(start + 1, end):
            if self.tokens[at].text == "(":
                return self.tokens[at - 1].text
        return ""

    def _spaced(self, at):
        token = self.tokens[at]
        return self.text[token.begin - 1].isspace() and self.text[token.end].isspace()

    def _is_operand(self, at):
        """Whether a value ends here, so that a "-" after it subtracts."""
        token = self.tokens[at]
        return token.text in (")", "]") or token.kind == "number" or (
            token.kind == "word" and token.text not in ("return", "case"))

    def _add(self, begin, end, text):
        token = next(t for t in self.tokens if t.end > begin)
        first = self.text.rfind("\n", 0, begin) + 1
        last = self.text.find("\n", end)
        after = self.text[first:begin] + text + self.text[end:last]
        self.found.append(Change(
            self.file, self.text.count("\n", 0, begin) + 1, begin - first + 1, 0,
            token.function or "", begin, end, text,
            _shown(self.text[first:last]), _shown(after)))

    def _replace(self, at, text):
        self._add(self.tokens[at].begin, self.tokens[at].end, text)

    # The kinds of changes.

    def _operator(self, at):
        token = self.tokens[at]
        if token.kind == "word":
            for text in WORDS.get(token.text, ()):
                self._replace(at, text)
        if token.kind != "sign":
            return
        if token.text in SIGNS and self._spaced(at) and self._is_operand(at - 1):
            for text in SIGNS[token.text]:
                self._replace(at, text)
        elif token.text == "!":
            self._replace(at, "")
        elif token.text in ("++", "--"):
            self._replace(at, "--" if token.text == "++" else "++")

    def _number(self, at):
        token = self.tokens[at]
        integer = INTEGER.fullmatch(token.text) if token.kind == "number" else None
        if integer is None:
            return
        digits = integer["digits"].replace("'", "")
        octal = len(digits) > 1 and digits.isdigit() and digits[0] == "0"
        value = int(digits, 8 if octal else 0)
        form = "{:#o}" if octal else "{:#x}" if digits[:2] in ("0x", "0X") else "{}"
        if value == 0:
            others = (1,)
        elif value == 1 and self.tokens[at - 1].text == "-" and not self._is_operand(at - 2):
            others = (0,)  # -2 would be a failure too
        else:
            others = (value + 1, value - 1)
        for other in others:
            text = form.format(other).replace("0o", "0") + integer["suffix"]
            self._replace(at, text)

    def _flag(self, at):
        """One of several flags less."""
        if self.tokens[at].text == "|" and self._spaced(at) and \
                self.tokens[at + 1].kind == "word" and self.tokens[at + 2].text in "|);,":
            self._add(self.tokens[at - 1].end, self.tokens[at + 1].end, "")

    def _condition(self, at):
        """A condition without an operator of its own that would be changed."""
        if self.tokens[at].text not in ("if", "while") or self.tokens[at + 1].text != "(":
            return
        end = self.partner[at + 1]
        if all(token.text not in DECISIVE for token in self.tokens[at + 2:end]):
            condition = self.text[self.tokens[at + 2].begin:self.tokens[end].begin]
            self._add(self.tokens[at + 2].begin, self.tokens[end].begin, f"!({condition})")

    def _statement(self, at):
        """A call, an assignment or a way out less."""
        token = self.tokens[at]
        if not token.function or token.text in COMPOUND or not self._begins_statement(at):
            return
        end = at
        while self.tokens[end].text != ";":
            if self.tokens[end].text in CLOSE:
                return
            end = self.partner.get(end, end) + 1
        if token.text in ("return", "break", "continue"):
            # The last one of a function would leave without a result.
            removable = token.text != "return" or not self._ends_function(end) or end == at + 1
        else:
            removable = token.text == "delete" or self._does_something(at, end)
        if removable:
            self._add(token.begin, self.tokens[end].end, "")

    def _begins_statement(self, at):
        before = self.tokens[at - 1].text
        if before in (";", "}"):
            return self._in_parentheses(at) is False
        return before == "{" and self.blocks.get(at - 1) != "other"

    def _in_parentheses(self, at):
        """Whether the innermost bracket that is open here is a round one, as in for (;;)."""
        while at > 0:
            at -= 1
            text = self.tokens[at].text
            if text in CLOSE and at in self.partner:
                at = self.partner[at]
            elif text in OPEN:
                return text != "{"
        return False

    def _ends_function(self, end):
        """Whether nothing of the function follows this statement."""
        after = end + 1
        while self.tokens[after].text == "}":
            opening = self.partner[after]
            if self.blocks[opening] != "control" or self._is_loop(opening):
                return self.blocks[opening] == "function"
            after += 1
            while self.tokens[after].text in ("else", "catch"):
                while self.tokens[after].text != "{":
                    after = self.partner.get(after, after) + 1
                after = self.partner[after] + 1
        return False

    def _is_loop(self, opening):
        if self.tokens[opening - 1].text != ")":
            return self.tokens[opening - 1].text == "do"
        return self.tokens[self.partner[opening - 1] - 1].text in ("for", "while")

    def _does_something(self, at, end):
        """Whether it is a call or an assignment, and no declaration."""
        words = 0
        while at < end:
            token = self.tokens[at]
            if token.text in ("(", "[") and words:
                if token.text == "(" and self.tokens[self.partner[at] + 1].text == ";":
                    return True
                at = self.partner[at]
            elif token.text in ("=", "+=", "-=", "|=", "&=", "++", "--"):
                return True
            elif token.kind == "word":
                if words and self.tokens[at - 1].kind == "word":
                    return False  # a type and a name
                words += 1
            elif token.text == "<":
                return False  # a type
            elif token.text in ("*", "&") and words and self._spaced(at) is False and \
                    self.tokens[at + 1].kind == "word" and self.tokens[at - 1].kind == "word":
                return False  # a pointer or reference
            at += 1
        return False


def _shown(text):
    """Code for people: its first line, without a comment."""
    first, *more = text.strip().split("\n")
    line = " ".join(re.sub("//.*", "", first).split())
    return f"{line} ..." if more else line or "(removed)"


def changes_of(file):
    return Source(file, (PROJECT / file).read_text()).changes()


# --- the explanations ---------------------------------------------------------------------------

def read_explanations(text):
    """The keys of the changes that are explained, each with its reason.

    A line "[FILE FUNCTION]" precedes changes "BEFORE  =>  AFTER", which precede the reason they
    share, in lines that begin with a blank. Lines that begin with "#" say nothing.
    """
    explained, place, open_keys = {}, ("", ""), []
    for line in text.splitlines():
        if line.startswith("#") or not line.strip():
            continue
        if line.startswith(" "):
            for key in open_keys:
                explained[key] = f"{explained.get(key, '')} {line.strip()}".strip()
            continue
        if open_keys and open_keys[-1] in explained:
            open_keys = []
        if line.startswith("["):
            file, _, function = line.strip("[]").partition(" ")
            place = (file, function)
        else:
            before, arrow, after = line.partition("  =>  ")
            if not arrow:
                sys.exit(f"{EXPLAINED.name}: neither a place, a change nor a reason: {line}")
            open_keys.append((*place, before, after))
    return explained


# --- trying -------------------------------------------------------------------------------------

NOTICED, NOT_COMPILED, SURVIVED = "noticed", "not compiled", "survived"


@dataclasses.dataclass(frozen=True)
class Test:
    name: str
    command: tuple
    target: str     # for ninja
    seconds: float  # without a change


class Trial:
    """The tests of a unit, with one change after the other."""

    def __init__(self, tests, build, run):
        """build(target) and run(test, limit) return whether that succeeded."""
        self.tests, self.build, self.run = tests, build, run
        self.noticed_by = collections.Counter()

    def outcome(self):
        """The outcome, and the test that noticed the change. What noticed others goes first."""
        for test in sorted(self.tests, key=lambda t: (-self.noticed_by[t.name], t.seconds)):
            if not self.build(test.target):
                return NOT_COMPILED, ""
            if not self.run(test, 20 + 10 * test.seconds):
                self.noticed_by[test.name] += 1
                return NOTICED, test.name
        return SURVIVED, ""


def sources():
    """Paths of the project's files, without git's and builds; as an archive has them, too."""
    for folder, folders, files in os.walk(PROJECT):
        place = pathlib.Path(folder).relative_to(PROJECT)
        folders[:] = [name for name in folders if name not in (".git", "__pycache__")
                      and not (name.startswith("build") and place == pathlib.Path())]
        for name in files:
            yield str(place / name)


class Workshop:
    """A copy of the sources, its build and a folder for the files of the tests."""

    def __init__(self, folder):
        self.folder = folder
        self.copy, self.build_folder = folder / "copy", folder / "build"
        self.temporary = pathlib.Path(tempfile.mkdtemp(prefix="mutate-"))
        self.temporary.chmod(0o1777)  # like /tmp: some tests are other users, too
        self.process = None
        self.original = ""
        self.closed = False
        self.environment = dict(
            os.environ, TMPDIR=str(self.temporary), GTEST_FAIL_FAST="1",
            # The copies are the same to ccache, and a change is not worth keeping.
            CCACHE_BASEDIR=str(folder), CCACHE_NOHASHDIR="1", CCACHE_READONLY="1",
            MALLOC_PERTURB_="165")  # memory that is not yet or no longer in use shows

    def bring_up_to_date(self):
        """The copy, which then stays as it is whatever happens to the sources."""
        wanted = set(sources())
        for file in wanted:
            source, target = PROJECT / file, self.copy / file
            if not target.exists() or source.read_bytes() != target.read_bytes():
                target.parent.mkdir(parents=True, exist_ok=True)
                shutil.copy(source, target)
        for target in [path for path in self.copy.rglob("*") if path.is_file()]:
            if str(target.relative_to(self.copy)) not in wanted:
                target.unlink()

    def build_tests(self, unit):
        self._must(["cmake", "-S", self.copy, "-B", self.build_folder, "-G", "Ninja",
                    "-DCMAKE_BUILD_TYPE=Debug", "-DCMAKE_C_FLAGS_DEBUG=-O0",
                    "-DCMAKE_CXX_FLAGS_DEBUG=-O0", "-DCMAKE_C_FLAGS=-w",
                    "-DCMAKE_CXX_FLAGS=-w -D_GLIBCXX_ASSERTIONS", "-DZELIEML_TESTS=ON"])
        targets = self._must(["ninja", "-C", self.build_folder, "-t", "targets", "all"])
        programs = re.findall(r"^(tests/.*): \w*EXECUTABLE_LINKER", targets, re.MULTILINE)
        self._must(["ninja", "-C", self.build_folder,
                    *(program for program in programs if unit.has_test(program))])

    def _must(self, command):
        environment = {name: value for name, value in self.environment.items()
                       if name != "CCACHE_READONLY"}
        done = subprocess.run(command, env=environment, stdout=subprocess.PIPE,
                              stderr=subprocess.STDOUT, text=True, check=False)
        if done.returncode != 0:
            sys.exit(f"{done.stdout[-4000:]}\nfailed: {' '.join(map(str, command))}")
        return done.stdout

    def tests_of(self, unit):
        """The tests of a unit, with their times; all must pass."""
        said = subprocess.run(["ctest", "--test-dir", self.build_folder, "--show-only=json-v1"],
                              check=True, capture_output=True, text=True).stdout
        tests = []
        for test in json.loads(said)["tests"]:
            command = tuple(test.get("command", ["-"]))
            target = os.path.relpath(command[0], self.build_folder)
            if not unit.has_test(target):
                continue
            begin = time.monotonic()
            if not self.run(Test(test["name"], command, target, 0), 600):
                sys.exit(f"{test['name']} fails without any change: ./run test")
            tests.append(Test(test["name"], command, target, time.monotonic() - begin))
        return tests

    def own(self, test):
        """The same test in this build."""
        program = str(self.build_folder / test.target)
        return dataclasses.replace(test, command=(program, *test.command[1:]))

    def make(self, target):
        return self._passes(["ninja", "-C", str(self.build_folder), target], 600)

    def run(self, test, limit):
        passed = self._passes(test.command, limit)
        for left in self.temporary.glob("*"):
            if left.is_dir() and not left.is_symlink():
                shutil.rmtree(left, ignore_errors=True)
            else:
                left.unlink()
        return passed

    def _passes(self, command, limit):
        if self.closed:
            return False
        self.process = subprocess.Popen(
            ["nice", "-n", "19", *command], cwd=self.temporary, env=self.environment, stdin=subprocess.DEVNULL,
            stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, start_new_session=True)
        try:
            return self.process.wait(limit) == 0
        except subprocess.TimeoutExpired:
            return False
        finally:
            self._end_process()

    def _end_process(self):
        """Nothing that the test started is left."""
        try:
            os.killpg(self.process.pid, signal.SIGKILL)
        except ProcessLookupError:
            pass
        self.process.wait()

    def apply(self, change):
        self.original = (self.copy / change.file).read_text()
        (self.copy / change.file).write_text(
            self.original[:change.begin] + change.text + self.original[change.end:])

    def undo(self, change):
        (self.copy / change.file).write_text(self.original)

    def close(self):
        self.closed = True
        if self.process is not None and self.process.poll() is None:
            self._end_process()
        shutil.rmtree(self.temporary, ignore_errors=True)


def fence_network():
    """A network of this process and its children alone: only they hear what a change sends."""
    new_network = 0x40000000
    if ctypes.CDLL(None, use_errno=True).unshare(new_network) != 0:
        print("not root: the tests run in the machine's network")
        return
    get_flags, set_flags, is_up = 0x8913, 0x8914, 1
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as any_socket:
        answer = fcntl.ioctl(any_socket, get_flags, struct.pack("16sH22x", b"lo", 0))
        flags = struct.unpack("16sH22x", answer)[1]
        fcntl.ioctl(any_socket, set_flags, struct.pack("16sH22x", b"lo", flags | is_up))


@dataclasses.dataclass
class Score:
    noticed: int = 0
    not_compiled: int = 0
    explained: int = 0
    survivors: list = dataclasses.field(default_factory=list)
    wrongly_explained: list = dataclasses.field(default_factory=list)

    def count(self, change, outcome, is_explained):
        if outcome == NOT_COMPILED:
            self.not_compiled += 1
        elif outcome == NOTICED:
            self.noticed += 1
            if is_explained:
                self.wrongly_explained.append(change)
        elif is_explained:
            self.explained += 1
        else:
            self.survivors.append(change)

    @property
    def tried(self):
        return self.noticed + self.explained + len(self.survivors)

    def row(self, unit, of):
        share = f"{100 * self.noticed / self.tried:.0f} %" if self.tried else "-"
        return (f"| {unit} | {of} | {self.tried} | {self.noticed} | {share} | {self.explained} "
                f"| {len(self.survivors)} |")


def try_changes(changes, shops, tests, explained, show):
    """Try changes in all workshops at once."""
    score, waiting, done = Score(), queue.SimpleQueue(), threading.Lock()
    for change in changes:
        waiting.put(change)

    def work(shop):
        trial = Trial(tests[shop], shop.make, shop.run)
        last_file = None
        while not shop.closed:
            try:
                change = waiting.get_nowait()
            except queue.Empty:
                return
            if change.file != last_file:
                trial.noticed_by.clear()
                last_file = change.file
            shop.apply(change)
            outcome, test = trial.outcome()
            shop.undo(change)
            if shop.closed:
                return
            with done:
                score.count(change, outcome, change.key in explained)
                show(change, outcome, test)

    threads = [threading.Thread(target=work, args=(shop,)) for shop in shops]
    for thread in threads:
        thread.start()
    try:
        for thread in threads:
            thread.join()
    except BaseException:
        for shop in shops:
            shop.close()
        raise
    return score


# --- the command --------------------------------------------------------------------------------

def files_of(unit):
    files = (path for pattern in unit.files for path in (PROJECT / "lib").glob(pattern))
    return sorted(str(path.relative_to(PROJECT)) for path in files if path.suffix in (".cpp", ".h"))


def select(words):
    """For each unit its changes, less what the words do not name."""
    everything = {unit: [change for file in files_of(UNITS[unit]) for change in changes_of(file)]
                  for unit in UNITS}
    chosen = {}
    for word in words or UNITS:
        found = {unit: [change for change in changes if word in (unit, change.file, change.name)]
                 for unit, changes in everything.items()}
        if not any(found.values()):
            sys.exit(f"'{word}' is no unit ({', '.join(UNITS)}), no file of one and no change")
        for unit, changes in found.items():
            if changes:
                chosen.setdefault(unit, []).extend(changes)
    return everything, chosen


def main(arguments):
    options = parse(arguments)
    everything, chosen = select(options.what)
    if options.sample:
        for unit, changes in chosen.items():
            count = min(options.sample, len(changes))
            sample = random.Random(options.seed).sample(range(len(changes)), count)
            chosen[unit] = [changes[at] for at in sorted(sample)]
    if options.list:
        for change in (change for changes in chosen.values() for change in changes):
            print(change)
        return 0

    explained = read_explanations(EXPLAINED.read_text())
    known = {change.key for changes in everything.values() for change in changes}
    stale = [key for key in explained if key not in known]
    for file, function, before, after in stale:
        print(f"explained, and there is no such change: [{file} {function}] {before}  =>  {after}")

    signal.signal(signal.SIGTERM, lambda *_: sys.exit("ended"))
    # A change may make a loop endless: it fails before it has the machine's memory.
    resource.setrlimit(resource.RLIMIT_AS, (MOST_MEMORY, MOST_MEMORY))
    fence_network()
    shops = [Workshop(FOLDER / str(number)) for number in range(1, options.jobs + 1)]
    try:
        scores = try_units(chosen, shops, explained)
    finally:
        for shop in shops:
            shop.close()

    print("\n| unit | changes | tried | noticed | share | explained | left |\n"
          "|---|---|---|---|---|---|---|")
    for unit, score in scores.items():
        print(score.row(unit, len(everything[unit])))
    survivors = [change for score in scores.values() for change in score.survivors]
    wrong = [change for score in scores.values() for change in score.wrongly_explained]
    print_list("explained, and noticed", wrong)
    print_list("not noticed", survivors)
    return 1 if stale or wrong or survivors else 0


def print_list(title, changes):
    if changes:
        print(f"\n{title}:", *changes, sep="\n")


def try_units(chosen, shops, explained):
    begin = time.monotonic()
    scores = {}
    for shop in shops:
        shop.bring_up_to_date()
    for unit, changes in chosen.items():
        print(f"{unit}: building and running its tests without a change", flush=True)
        for shop in shops:
            shop.build_tests(UNITS[unit])
        tests = {shops[0]: shops[0].tests_of(UNITS[unit])}
        for shop in shops[1:]:
            tests[shop] = [shop.own(test) for test in tests[shops[0]]]
        count = 0

        def show(change, outcome, test):
            nonlocal count
            count += 1
            if outcome == SURVIVED or len(changes) <= 10:
                print(f"{outcome}{' by ' + test if test else ''}: {change}", flush=True)
            if count % 20 == 0 or count == len(changes):
                print(f"{unit}: {count} of {len(changes)}, {time.monotonic() - begin:.0f} s",
                      flush=True)

        scores[unit] = try_changes(changes, shops, tests, explained, show)
        print(f"{unit}: {scores[unit].noticed} noticed, {scores[unit].not_compiled} not compiled, "
              f"{scores[unit].explained} explained, {len(scores[unit].survivors)} left", flush=True)
    return scores


def parse(arguments):
    parser = argparse.ArgumentParser(usage=__doc__.split("\n\n")[1][5:], add_help=False)
    parser.add_argument("what", nargs="*")
    parser.add_argument("--list", action="store_true")
    parser.add_argument("--sample", type=int)
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--jobs", type=int, default=os.cpu_count())
    return parser.parse_args(arguments)


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
