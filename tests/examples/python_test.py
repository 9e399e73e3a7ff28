#!/usr/bin/env python3
"""The Python module of examples/python, and the program there, with the loopback mail server.

use: python_test.py EXAMPLES-FOLDER LIBRARY LOOPBACK-PROGRAM
"""

import contextlib
import gc
import os
import pathlib
import queue
import subprocess
import sys
import tempfile

if len(sys.argv) != 4:
    sys.exit(__doc__)
examples, library, loopback = sys.argv[1:]
os.environ["ZELIEML_LIBRARY"] = library
sys.dont_write_bytecode = True
sys.path.insert(0, examples)
import zelieml  # noqa: E402

SUBJECT = "用紙切れ in tray 2"
NOBODY = "nobody@b.test"
SECONDS = 60  # that a result may take; machines are slow at times


def expect(came, wanted):
    if came != wanted:
        raise AssertionError(f"{came!r}, not {wanted!r}")


@contextlib.contextmanager
def raises(kind, words=""):
    """The exception, in a list."""
    caught = []
    try:
        yield caught
    except kind as error:
        caught.append(error)
        if words not in str(error):
            raise AssertionError(f"{error}, not {words}") from error
        return
    raise AssertionError(f"no {kind.__name__}")


def message(to="anna@b.test", **more):
    return zelieml.Message("tim@a.test", to, SUBJECT, "text\n", reply_to="box@a.test", **more)


class Server:
    def __init__(self, mails):
        self.mails = mails
        self.process = subprocess.Popen([loopback, "--reject-recipient", NOBODY, "--maildir", mails],
                                        stdout=subprocess.PIPE, text=True)
        self.smtp, self.pop3 = (int(self.process.stdout.readline().rpartition(":")[2])
                                for _ in range(2))

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.process.terminate()
        self.process.communicate()

    def received(self):
        return [file.read_text() for file in (self.mails / "new").iterdir()]


def settings(work, server):
    zelieml.set_setting(work, "smtp_server", "127.0.0.1")
    zelieml.set_setting(work, "smtp_port", str(server.smtp))
    expect(zelieml.get_setting(work, "smtp_port"), str(server.smtp))
    expect(zelieml.get_setting(work, "pop_port"), None)
    expect(zelieml.check_settings(work), [])
    with raises(ValueError):
        zelieml.set_setting(work, "smtp_server", "a\nb")
    with raises(zelieml.Error, "cannot be set"):
        zelieml.set_setting(work / "nowhere", "smtp_server", "a")
    expect(len(zelieml.encrypt_password("secret")), 12)
    with raises(zelieml.Error, "empty"):
        zelieml.encrypt_password("")


def checks(work):
    spoilt = message()
    spoilt.body = "text\nto: ben@b.test\n"
    found = {(f.severity, f.line, f.field) for f in zelieml.check(spoilt)}
    expect((zelieml.Severity.ERROR, 2, "body") in found, True)
    sender, recipients, text = zelieml.preview(work, message(cc="ben@b.test"))
    expect((sender, recipients, text[:6]), ("box@a.test", ["anna@b.test", "ben@b.test"], b"Date: "))
    for broken in ({"message_id": "a\nb"}, {"cc": "a\0b"}):
        with raises(ValueError):
            zelieml.check(message(**broken))


def sends(work, server):
    result = zelieml.send(work, message())
    expect((result.sent, result.number, result.cause, result.reason, result.reply[:4]),
           (True, 0, zelieml.Cause.NONE, "", "221 "))
    expect(0 < result.seconds < SECONDS, True)
    with raises(zelieml.SendError, NOBODY) as caught:
        zelieml.send(work, message(to=NOBODY))
    result = caught[0].result
    expect((result.sent, result.number, result.cause, result.step),
           (False, 1005, zelieml.Cause.REFUSED, "recipient"))
    with raises(zelieml.SendError, "cannot be saved"):
        zelieml.send(work / "nowhere", message())
    zelieml.send(work, message(to="jp@b.test", encoding="iso-2022-jp"))
    [mail] = [mail for mail in server.received() if "jp@b.test" in mail]
    expect("=?ISO-2022-JP?B?" in mail, True)


def probes(work, server):
    steps = zelieml.probe(work, "tim@a.test", "anna@b.test")
    expect([step.name for step in steps][:3], ["settings", "look-up", "connect"])
    expect((steps[2].server, {step.cause for step in steps}),
           (f"127.0.0.1:{server.smtp}", {zelieml.Cause.NONE}))
    last = zelieml.probe(work, "tim@a.test", NOBODY)[-1]
    expect((last.name, last.outcome, last.cause),
           ("recipient", zelieml.Outcome.FAILED, zelieml.Cause.REFUSED))
    with raises(zelieml.Error, "needs a sender"):
        zelieml.probe(work, None, "anna@b.test")


def engines(work):
    results = queue.Queue()
    symbol = f"python {work}"
    raised = []
    sys.unraisablehook = raised.append
    with zelieml.Engine(work, results.put, symbol) as engine:
        gc.collect()  # would take a callback that nobody keeps
        engine.post(message())
        expect(results.get(timeout=SECONDS).sent, True)
        zelieml.post(work, message(to=NOBODY), symbol)
        result = results.get(timeout=SECONDS)
        expect((result.number, result.attempt, pathlib.Path(result.file).parent),
               (1005, 1, work))
        file = work / "waits"
        file.write_text("to: anna@b.test\nby hand\n")
        engine.queue(file)
        expect(results.get(timeout=SECONDS).sent, True)
    expect(file.exists(), False)
    engine.stop()
    with raises(zelieml.Error, "stopped"):
        engine.post(message())

    def fail_and_stop(result):
        engine.stop()
        results.put(result)
        raise RuntimeError("in a callback")

    engine = zelieml.Engine(work, fail_and_stop, symbol)
    engine.post(message())
    expect(results.get(timeout=SECONDS).sent, True)
    with raises(zelieml.Error, "no engine"):
        zelieml.Engine(work, stock_symbol="")
    zelieml.Engine(work, stock_symbol=symbol).stop()
    expect([str(one.exc_value) for one in raised], ["in a callback"])
    # Runs on: the interpreter has to end all the same.
    zelieml.Engine(work, print, symbol)


def receives(server):
    with raises(zelieml.ReceiveError, "password") as caught:
        zelieml.receive("127.0.0.1", "user", "wrong", server.pop3)
    expect((caught[0].mails, caught[0].result.number), ([], 2005))
    with raises(zelieml.ReceiveError, "TLS: pop_tls of the server record must be") as caught:
        zelieml.receive("127.0.0.1", "user", "password", server.pop3, tls="Yes")
    expect(caught[0].result.number, 2002)
    with raises(zelieml.ReceiveError, "TLS: ca_file of the server record must be a full path"):
        zelieml.receive("127.0.0.1", "user", "password", server.pop3, tls="tls", ca_file="ca.pem")
    mails = zelieml.receive("127.0.0.1", "user", "password", server.pop3, domains="a.test")
    expect({(mail.sender, mail.subject) for mail in mails} >= {("tim@a.test", SUBJECT)}, True)
    expect(zelieml.receive("127.0.0.1", "user", "password", server.pop3, apop=True), [])


def program(work):
    def run(to):
        done = subprocess.run([sys.executable, "-B", f"{examples}/status_mail.py", work,
                               "tim@a.test", to, "Printer 7"], input="text\n", text=True,
                              stdout=subprocess.PIPE, stderr=subprocess.STDOUT, check=False)
        return done.returncode, done.stdout

    status, words = run("anna@b.test")
    expect((status, "sent in" in words), (0, True))
    status, words = run(NOBODY)
    expect((status, "refused the recipient" in words), (1, True))
    status, words = run("Anna <anna@b.test>")
    expect((status, words.endswith("not sent\n")), (1, True))


with tempfile.TemporaryDirectory() as folder:
    workdir = pathlib.Path(folder, "work")
    workdir.mkdir()
    with Server(pathlib.Path(folder, "mails")) as running:
        settings(workdir, running)
        checks(workdir)
        sends(workdir, running)
        probes(workdir, running)
        program(workdir)
        receives(running)
        if sys.platform != "darwin":  # posts would need a run loop on the main thread
            engines(workdir)
    zelieml.set_setting(workdir, "smtp_port", "1")
    with raises(zelieml.SendError) as unreachable:
        zelieml.send(workdir, message())
    expect(unreachable[0].result.cause, zelieml.Cause.UNREACHABLE)
