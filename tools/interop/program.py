"""The program zelieml, used as an administrator uses it: every command that talks to a server."""

import json
import os
import subprocess

from desk import PASSWORD, Desk
from mailboxes import address
from received_mail import decode

GOOD, NO_USER, NO_LOGIN = 0, 67, 77


class Program(Desk):
    def run(self):
        self.check()
        self.send()
        self.refusals()
        self.service()
        self.receive()

    def zelieml(self, *words, text=""):
        """Runs a command for the work directory. Returns its exit status and what it printed."""
        run = subprocess.run(self.words(*words), input=text, capture_output=True, text=True,
                             env=self.environment())
        return run.returncode, run.stdout

    def words(self, *words):
        return [self.client.programs / "zelieml", *words]

    def environment(self):
        return {**os.environ, "ZELIEML_WORKDIR": str(self.client.workdir), "LC_ALL": "C.UTF-8"}

    def configure(self, **settings):
        """Sets the settings one by one, passwords through standard input."""
        self.client.settings.unlink(missing_ok=True)
        for key, value in sorted(settings.items()):
            secret = key.endswith("_passwd")
            status, _ = self.zelieml("settings", "set", key, *([] if secret else [str(value)]),
                                     text=value if secret else "")
            self.report.equal(f"zelieml settings set {key}", status, GOOD)
        self.report.equal("zelieml settings check", self.zelieml("settings", "check")[0], GOOD)

    def mail(self, *words, to="ben", text="status: ready\n"):
        return self.zelieml("send", "--from", address("anna"), "--to", address(to), "--subject",
                            "Drucker: Papier fehlt – 用紙切れ", *words, text=text)

    def check(self):
        self.configure(**self.smtp_account("auth", smtp_auth="yes"),
                       **self.pop_account("apop", pop_before_smtp="yes"))
        status, output = self.zelieml("check", "--json")
        steps = [(step["name"], step["outcome"]) for step in json.loads(output)["steps"]]
        self.report.equal("zelieml check", (status, steps[-1:]), (GOOD, [("quit", "ok")]))
        self.mailboxes.empty()
        status, _ = self.zelieml("check", "--to", address("ben"))
        self.report.equal("zelieml check --to", status, GOOD)
        self.report.equal("zelieml check --to: arrived",
                          len(self.mailboxes.wait_for_mails("ben")), 1)

    def send(self):
        for encoding in ("utf-8", "iso-2022-jp"):
            self.mailboxes.empty()
            text = "用紙がなくなりました。\n.\nおわり"
            subject = "用紙切れ"
            status, output = self.zelieml(
                "send", "--from", address("anna"), "--to", address("ben"), "--subject", subject,
                "--encoding", encoding, "--message-id", "auto", "--json", text=text)
            self.report.equal(f"zelieml send, {encoding}", (status, json.loads(output)["code"]),
                              (GOOD, 0))
            mails = [decode(mail) for mail in self.mailboxes.wait_for_mails("ben")]
            self.report.equal(f"zelieml send, {encoding}: arrived",
                              [(mail["subject"], mail["body"]) for mail in mails],
                              [(subject, text)])

    def refusals(self):
        self.report.equal("zelieml send, an unknown recipient", self.mail(to="nobody")[0], NO_USER)
        self.configure(**self.smtp_account("auth", smtp_auth="yes", smtp_passwd="wrong"))
        self.report.equal("zelieml send, a wrong password", self.mail()[0], NO_LOGIN)
        self.report.equal("zelieml check, a wrong password", self.zelieml("check")[0], NO_LOGIN)

    def service(self):
        self.configure(**self.smtp_account("auth", smtp_auth="yes"))
        self.mailboxes.empty()
        subjects = [f"tray {i}" for i in range(5)]
        with subprocess.Popen(self.words("engine", "--json"), stdout=subprocess.PIPE, text=True,
                              env=self.environment()) as engine:
            for subject in subjects:
                status, _ = self.zelieml("post", "--from", address("anna"), "--to", address("ben"),
                                         "--subject", subject, text="status: ready\n")
                self.report.equal("zelieml post", status, GOOD)
            mails = self.mailboxes.wait_for_mails("ben", len(subjects))
            engine.terminate()
            lines = [json.loads(line) for line in engine.stdout]
        self.report.equal("zelieml engine: exit status", engine.returncode, GOOD)
        self.report.equal("zelieml engine: attempts",
                          [(line["subject"], line["code"]) for line in lines],
                          [(subject, 0) for subject in subjects])
        self.report.equal("zelieml engine: arrived",
                          sorted(decode(mail)["subject"] for mail in mails), subjects)
        self.report.equal("zelieml engine: nothing left", self.zelieml("queue", "list")[1], "")

    def receive(self):
        self.mailboxes.empty()
        self.mailboxes.put("anna", [
            b"From: =?UTF-8?B?44OX44Oq44Oz44K/?= <printer@a.test>\nSubject: =?ISO-8859-1?Q?gr=FCn?="
            b"\nMessage-Id: <1@a.test>\n\nstatus: ready\n"])
        account = ("--host", "127.0.0.1", "--port", str(self.pop.port), "--user", "anna",
                   "--delete", "--json")
        self.report.equal("zelieml receive, a wrong password",
                          self.zelieml("receive", *account, text="wrong")[0], NO_LOGIN)
        status, output = self.zelieml("receive", *account, text=PASSWORD)
        mails = json.loads(output)["mails"]
        self.report.equal("zelieml receive",
                          (status, [(m["sender"], m["subject"], m["message_id"]) for m in mails]),
                          (GOOD, [("プリンタ <printer@a.test>", "grün", "<1@a.test>")]))
        self.report.equal("zelieml receive: nothing left", self.mailboxes.count("anna"), 0)
