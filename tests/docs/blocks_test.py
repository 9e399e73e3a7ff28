#!/usr/bin/env python3
"""Runs the commands of the documents, as they are written there.

use: blocks_test.py PROJECT BUILD-FOLDER CMAKE [PAGE...]

A block of commands in a page is fenced as "sh" or "python", and has a comment above it, which is not
rendered. In a manual page it is a literal display, and the comment stands above that:

    <!-- run -->                  .\\" run
    <!-- run: SET-UP, ...; a mail to ADDRESS -->
    <!-- not run: REASON -->

The blocks of a page run one after the other in a folder of their own, which is also their HOME, each
in a shell that ends at the first failure. What they leave in the background runs on to the end of the
page. A mail that is announced has to reach the mail server. As a set-up there are

    free ports              2525 is replaced by a free port
    mail.office.test        the name and port 25 are replaced by those of a mail server
    settings in FOLDER      a folder with the settings of such a server
    a service for FOLDER    a service that runs for it
    build folder            "build" is the folder in which the project was built
    mail.c                  README's first example, with a main function
    pkg-config              finds the library
    python                  finds the module in examples/python

What looks like a command elsewhere in a page, because a block begins a line in the same way, needs a
fence.
"""

import contextlib
import os
import pathlib
import random
import re
import shutil
import signal
import socket
import subprocess
import sys
import tempfile
import time

if len(sys.argv) < 4:
    sys.exit(__doc__)
project, build = (pathlib.Path(argument).resolve() for argument in sys.argv[1:3])
cmake = sys.argv[3]
SECONDS = 120  # that a block may take; machines are slow at times
MARKER = re.compile(r"run(?:: (?P<setup>[^;]*))?(?:; a mail to (?P<to>\S+))?|not run: (?P<why>.+)")
MAIN = """
#include <string.h>
int main(int argc, char **argv)
{
    if (argc != 4) return strcmp(eml_version(), EML_VERSION);
    return send_status(argv[1], argv[2], argv[3]);
}
"""


class Wrong(Exception):
    pass


class Block:
    def __init__(self, place, language, marker, code):
        self.place, self.language, self.code = place, language, code
        found = MARKER.fullmatch(marker or "")
        if not found:
            raise Wrong(f"{place}: no marker above the block, or not as it should be: {marker}")
        self.runs = found["why"] is None
        self.setup = [part.strip() for part in (found["setup"] or "").split(",") if part.strip()]
        self.recipient = found["to"]

    def commands(self):
        """The first words of its lines."""
        if self.language != "sh":
            return set()
        joined = self.code.replace("\\\n", " ")
        return {line.split()[0] for line in joined.splitlines() if re.match(r"[\w./-]+ ", line)}


# ------------------------------------------------------------------ finding blocks


def blocks_of_page(page):
    text = page.read_text()
    for found in re.finditer(r"^(?P<indent> *)```(?P<language>\w*)\n(?P<code>.*?)^(?P=indent)```$",
                             text, re.DOTALL | re.MULTILINE):
        before = text[:found.start()].rstrip(" ")
        marker = re.search(r"<!-- ((?:not )?run\b.*?) -->\n\Z", before)
        place = f"{page.relative_to(project)}:{text.count(chr(10), 0, found.start()) + 1}"
        if found["language"] in ("sh", "python"):
            code = re.sub(rf"^{found['indent']}", "", found["code"], flags=re.MULTILINE)
            yield Block(place, found["language"], marker and marker[1], code)
        elif marker:
            raise Wrong(f"{place}: a marker above a block that is neither sh nor python")


def indented_lines(page):
    """Lines of blocks without a fence, with their numbers."""
    text = re.sub(r"^( *)```.*?^\1```", lambda found: "\n" * found[0].count("\n"), page.read_text(),
                  flags=re.DOTALL | re.MULTILINE)
    for number, line in enumerate(text.splitlines(), 1):
        if re.match(r" {4}", line):
            yield number, line.strip()


def displays(page):
    """The literal displays of a manual page: place, marker, code."""
    text = page.read_text()
    for found in re.finditer(r'(?:^\.\\" ((?:not )?run\b.*)\n)?^\.Bd -literal.*\n((?:.*\n)*?)\.Ed$', text,
                             re.MULTILINE):
        yield (f"{page.relative_to(project)}:{text.count(chr(10), 0, found.start(2)) + 1}", found[1],
               found[2].replace("\\e", "\\").replace("\\&", ""))


def all_pages():
    """Lists of blocks, a list for each page."""
    pages = [project / name for name in
             subprocess.run(["find", ".", "-name", ".git", "-prune", "-o", "-path", "./build*", "-prune",
                             "-o", "-name", "*.md", "-print"], cwd=project, check=True, text=True,
                            stdout=subprocess.PIPE).stdout.split()]
    found = {page: list(blocks_of_page(page)) for page in sorted(pages)}
    commands = set().union(*(block.commands() for blocks in found.values() for block in blocks))
    for page in found:
        for number, line in indented_lines(page):
            if line.split()[0] in commands:
                raise Wrong(f"{page.relative_to(project)}:{number}: a command outside of a fence: {line}")
    for page in sorted((project / "docs/man").iterdir()):
        found[page] = [Block(place, "sh", marker, code) for place, marker, code in displays(page)
                       if marker or code.split()[0] in commands]
    return found


# ------------------------------------------------------------------ running them


def free_port():
    """One with a free one after it. No port that systems give out by themselves, which another test
    might get meanwhile."""
    for _ in range(100):
        port = random.randrange(15000, 30000)
        with contextlib.suppress(OSError), socket.socket() as one, socket.socket() as other:
            one.bind(("127.0.0.1", port))
            other.bind(("127.0.0.1", port + 1))
            return port
    raise Wrong("there is no free port")


def wait_until(holds, what):
    end = time.monotonic() + SECONDS
    while not holds():
        if time.monotonic() > end:
            raise Wrong(f"{what}: not within {SECONDS} s")
        time.sleep(0.02)


class Page:
    """Where the blocks of a page run."""

    def __init__(self, folder):
        self.folder = folder
        self.words = folder / ".output"
        self.groups = []
        self.port = None  # of the mail server that the test has started
        self.replaced = {}
        places = ["tools/zelieml", "tools", "examples"]
        self.environment = {
            "PATH": ":".join([*(str(build / place) for place in places), os.environ["PATH"]]),
            "HOME": str(folder), "TMPDIR": str(folder), "LC_ALL": "C.UTF-8",
            **{name: os.environ[name] for name in ("CC", "SDKROOT") if name in os.environ}}

    def start(self, command):
        """Runs on to the end of the page, unless it ends before."""
        with open(self.words, "ab") as words:
            process = subprocess.Popen(command, cwd=self.folder, env=self.environment, stdout=words,
                                       stderr=words, stdin=subprocess.DEVNULL, start_new_session=True)
        self.groups.append(process)
        return process

    def said(self):
        return self.words.read_text(errors="replace") if self.words.exists() else ""

    def mails_to(self, address):
        return len(re.findall(rf"^mail from:.* to:<{re.escape(address)}>", self.said(), re.MULTILINE))

    def server(self):
        if self.port is None:
            ready = self.folder / ".ports"
            self.start(["zelieml-loopback", "--ready-file", str(ready), "--envelope"])
            wait_until(ready.exists, "the mail server starts")
            self.port = re.search(r"^smtp .*:(\d+)$", ready.read_text(), re.MULTILINE)[1]
        return self.port

    def set_up(self, what):
        name, _, argument = what.rpartition(" ")
        if what == "free ports":
            self.replaced.setdefault("2525", str(free_port()))
        elif what == "mail.office.test":
            self.replaced["smtp_port 25"] = f"smtp_port {self.server()}"
            self.replaced["mail.office.test"] = "127.0.0.1"
        elif name == "settings in":
            (self.folder / argument).mkdir()
            (self.folder / argument / "zelismes.cf").write_bytes(
                b"smtp_server = 127.0.0.1\r\nsmtp_port = %s\r\n" % self.server().encode())
        elif name == "a service for":
            self.start(["zelieml", "engine", "-w", argument])
        elif what == "build folder":
            (self.folder / "build").symlink_to(build)
        elif what == "mail.c":
            example = re.search(r"^```c\n(.*?)^```", (project / "README.md").read_text(),
                                re.DOTALL | re.MULTILINE)[1]
            (self.folder / "mail.c").write_text(example + MAIN)
        elif what == "pkg-config":
            prefix = self.folder / ".installed"
            subprocess.run([cmake, "--install", build, "--prefix", prefix], check=True,
                           stdout=subprocess.DEVNULL)
            [package] = prefix.glob("**/zelieml.pc")
            self.environment["PKG_CONFIG_PATH"] = str(package.parent)
            self.environment["LD_LIBRARY_PATH"] = str(package.parent.parent)
        elif what == "python":
            [library] = (file for file in (build / "lib").iterdir()
                         if file.name in ("libzelieml.so", "libzelieml.dylib"))
            self.environment.update(ZELIEML_LIBRARY=str(library), PYTHONDONTWRITEBYTECODE="1",
                                    PYTHONPATH=str(project / "examples/python"))
        else:
            raise Wrong(f"there is no set-up '{what}'")

    def run(self, block):
        for what in block.setup:
            self.set_up(what)
        code = block.code
        for name, value in self.replaced.items():
            code = code.replace(name, value)
        # A reader types the next line later than a server needs to start.
        code = re.sub(r"^(zelieml-loopback .*--port (\d+).* &)$",
                      r"\1\nfor i in {1..1000}; do (: </dev/tcp/127.0.0.1/\2) 2>/dev/null && break; "
                      r"sleep 0.02; done", code, flags=re.MULTILINE)
        before = self.mails_to(block.recipient) if block.recipient else 0
        command = ["bash", "-euo", "pipefail", "-c", code]
        if block.language == "python":
            command = [sys.executable, "-c", code]
        process = self.start(command)
        try:
            status = process.wait(SECONDS)
        except subprocess.TimeoutExpired:
            status = f"none within {SECONDS} s"
        if status != 0:
            raise Wrong(f"exit status {status}")
        if block.recipient:
            wait_until(lambda: self.mails_to(block.recipient) > before,
                       f"a mail to {block.recipient}")

    def end(self):
        for group in self.groups:
            with contextlib.suppress(ProcessLookupError):
                os.killpg(group.pid, signal.SIGTERM)
        end = time.monotonic() + 30
        for group in self.groups:
            with contextlib.suppress(ProcessLookupError):
                while True:
                    group.poll()
                    os.killpg(group.pid, 0 if time.monotonic() < end else signal.SIGKILL)
                    time.sleep(0.02)


def try_page(blocks):
    folder = pathlib.Path(tempfile.mkdtemp(prefix="zelieml-page-"))
    page = Page(folder)
    try:
        for block in blocks:
            try:
                page.run(block)
            except Wrong as wrong:
                raise Wrong(f"{block.place}: {wrong}\n{page.said()}") from None
    finally:
        page.end()
        shutil.rmtree(folder)


def main():
    pages = all_pages()
    only = {project / name for name in sys.argv[4:]} or set(pages)
    count = 0
    for page, blocks in pages.items():
        running = [block for block in blocks if block.runs]
        if running and page in only:
            try_page(running)
            count += len(running)
            print(f"{page.relative_to(project)}: {len(running)} of {len(blocks)} blocks", flush=True)
    if not sys.argv[4:] and count < 8:
        raise Wrong(f"only {count} blocks were run")


try:
    main()
except Wrong as wrong:
    sys.exit(str(wrong))
