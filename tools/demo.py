#!/usr/bin/env python3
"""Shows the main job: an engine in one process sends what another process posts. Then the same with
the program, as a service.

The mail server is the loopback server of this project; nothing leaves this machine.

use: demo.py BUILD-FOLDER
"""

import os
import pathlib
import shlex
import subprocess
import sys
import tempfile
import time

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent / "interop"))
from client import Client  # noqa: E402
from received_mail import decode, differences  # noqa: E402

STOCK_SYMBOL = "zelieml demo"
REFUSED = "nobody@office.test"

MAILS = [
    {
        "title": "a mail in UTF-8, with a Base64 body",
        "fields": {"from": "printer7@office.test", "replyto": "helpdesk@office.test",
                   "to": "anna@office.test, ben@office.test", "cc": "chef@office.test",
                   "subject": "プリンタ「3階」: 用紙切れ – papier épuisé", "encoding": "utf-8"},
        "body": "用紙がなくなりました。トレイ 2 を補充してください。\n"
                "Le bac 2 est vide, merci de le remplir. Über alles: ¡gracias! 🖨️\n",
    },
    {
        "title": "a mail in ISO-2022-JP, with a 7bit body and lines that begin with a dot",
        "fields": {"from": "printer7@office.test", "replyto": "helpdesk@office.test",
                   "to": "anna@office.test", "subject": "印刷が終わりました",
                   "encoding": "iso-2022-jp"},
        "body": "印刷が終わりました。\n.\n..点で始まる行\nおわり\n",
    },
    {
        "title": "a mail to somebody whom the server does not know",
        "fields": {"from": "printer7@office.test", "replyto": "helpdesk@office.test",
                   "to": REFUSED, "subject": "paper jam", "encoding": "utf-8"},
        "body": "This one is refused.\n",
    },
]

# What the engine's callback has to print for each of them.
RESULTS = ["result 0 (sent): 221 ", "result 0 (sent): 221 ", "result 1 (not sent): 550 5.1.1 "]


def start_server(build, scratch):
    transcript = open(scratch / "transcript", "wb")
    ready = scratch / "ready"
    server = subprocess.Popen(
        [build / "tools/zelieml-loopback", "--port", "0", "--ready-file", ready, "--show",
         "--user", "printer7", "--password", "secret", "--require-auth",
         "--reject-recipient", REFUSED, "--maildir", scratch / "maildir"], stdout=transcript)
    for _ in range(200):
        if ready.exists() and ready.read_text().count("\n") == 2:
            break
        time.sleep(0.02)
    ports = dict(line.split() for line in ready.read_text().splitlines())
    return server, {name: where.rpartition(":")[2] for name, where in ports.items()}


def headline(text):
    print(f"\n\033[1m== {text}\033[0m" if sys.stdout.isatty() else f"\n== {text}", flush=True)


def indented(text):
    return "".join(f"    {line}\n" for line in text.splitlines())


class Engine:
    """The engine, in a process of its own; what its callback prints comes line by line."""

    def __init__(self, build, workdir):
        self.process = subprocess.Popen([build / "examples/engine", workdir, STOCK_SYMBOL],
                                        stdout=subprocess.PIPE, text=True)
        if self.process.stdout.readline() != "ready\n":
            raise RuntimeError("the engine did not start")
        if sys.platform == "darwin":
            time.sleep(1)  # until the system knows that the engine wants to hear other processes

    def next_result(self):
        return self.process.stdout.readline().rstrip("\n")

    def stop(self):
        self.process.terminate()
        return self.process.wait(30)


def post_all(build, client, engine):
    """Posts each mail from a process of its own; returns whether all results were right."""
    good = True
    for mail, wanted in zip(MAILS, RESULTS):
        headline(f"another process posts {mail['title']}")
        arguments = [client.workdir, STOCK_SYMBOL, *client.arguments(mail["fields"])]
        encoding = mail["fields"]["encoding"]
        subprocess.run([build / "examples/post", *arguments], input=mail["body"].encode(encoding),
                       check=True)
        print("posted; the engine's callback says:", flush=True)
        result = engine.next_result()
        print(f"    {result}", flush=True)
        if not result.startswith(wanted):
            print(f"    WRONG: it should begin with {wanted!r}")
            good = False
    return good


def show_service(build, scratch, settings):
    """The program as a service; returns whether all went well."""
    program = build / "tools/zelieml/zelieml"
    workdir = scratch / "spool"
    workdir.mkdir()
    (workdir / "zelismes.cf").write_bytes(settings)
    environment = {**os.environ, "ZELIEML_WORKDIR": str(workdir), "LC_ALL": "C.UTF-8"}

    def zelieml(*words, text=""):
        print(f"$ {shlex.join(['zelieml', *words])}", flush=True)
        return subprocess.run([program, *words], input=text, env=environment, check=True,
                              stdout=subprocess.PIPE, text=True).stdout

    headline("the program: a mail is posted before its service runs, and two afterwards")
    fields = ["--from", "printer7@office.test", "--subject", "tray 2 is empty"]
    zelieml("post", *fields, "--to", "anna@office.test", text="Please refill it.\n")
    print("$ zelieml engine &", flush=True)
    with subprocess.Popen([program, "engine"], stdout=subprocess.PIPE, env=environment,
                          text=True) as engine:
        results = [engine.stdout.readline()]
        print(indented(results[0]), end="")
        for recipient in ("ben@office.test", REFUSED):
            zelieml("post", *fields, "--to", recipient, text="Please refill it.\n")
            results.append(engine.stdout.readline())
            print(indented(results[-1]), end="", flush=True)
        waiting = zelieml("queue", "list")
        print(indented(waiting), end="")
        engine.terminate()
    good = (engine.returncode == 0 and ["sent" in line.split() for line in results] ==
            [True, True, False] and REFUSED in waiting and "550 5.1.1" in waiting)
    print("the mail that was refused waits for its second attempt; then it would lie in "
          f"{workdir.name}/undelivered" if good else "NOT as it should be")
    return good


def show(mail, raw):
    headline(f"what arrived: {mail['title']}")
    print(indented(raw.decode("ascii", errors="backslashreplace")))
    received = decode(raw)
    print("  decoded:")
    for name, value in received.items():
        print(indented(f"{name}: {value}"), end="")
    fields = mail["fields"]
    posted = {"from": fields["from"], "replyto": fields["replyto"], "subject": fields["subject"],
              "to": fields["to"].replace(" ", "").split(","),
              "cc": [fields["cc"]] if "cc" in fields else [],
              "body": mail["body"], "charset": fields["encoding"]}
    problems = differences(posted, received)
    print("  equal to what was posted" if not problems else
          "  NOT as posted:\n" + indented("\n".join(problems)))
    return not problems


def mails_in(scratch):
    return sorted((scratch / "maildir/new").iterdir(), key=lambda file: file.stat().st_mtime_ns)


def main():
    if len(sys.argv) != 2:
        print(__doc__)
        return 2
    build = pathlib.Path(sys.argv[1]).resolve()
    with tempfile.TemporaryDirectory() as folder:
        scratch = pathlib.Path(folder)
        workdir = scratch / "work"
        workdir.mkdir()
        server, ports = start_server(build, scratch)
        engine = None
        try:
            client = Client(build, workdir)
            client.configure(smtp_server="127.0.0.1", smtp_port=ports["smtp"], smtp_auth="yes",
                             smtp_account="printer7", smtp_passwd="secret")
            headline("the settings file, with the password encrypted")
            print(indented(client.settings.read_text()), end="")
            engine = Engine(build, workdir)
            good = post_all(build, client, engine)
            arrived = mails_in(scratch)
            good = show_service(build, scratch, client.settings.read_bytes()) and good
        finally:
            if engine is not None and engine.stop() != 0:
                good = False
            server.terminate()
            server.wait(10)
        headline("the conversations")
        print(indented((scratch / "transcript").read_text(errors="backslashreplace")), end="")
        sent = MAILS[:2]
        if len(arrived) != len(sent):
            print(f"{len(arrived)} mails arrived instead of {len(sent)}")
            return 1
        good = all([show(m, f.read_bytes()) for m, f in zip(sent, arrived)]) and good
        waiting = list(workdir.glob("*.sme"))
        headline("what waits in the work directory for a second attempt")
        print(indented("\n".join(f.name for f in waiting)), end="")
        good = good and len(waiting) == 1
    headline("all is well" if good else "something is wrong")
    return 0 if good else 1


if __name__ == "__main__":
    sys.exit(main())
