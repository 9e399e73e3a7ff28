#!/usr/bin/env python3
"""Sends through a real Postfix and Dovecot and reads what lies in the mailbox.

use: interop.py BUILD-FOLDER        (as root: Postfix wants to be)
"""

import pathlib
import re
import sys
import tempfile

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent / "interop"))
from client import Client  # noqa: E402
from mail_servers import DOMAIN, MailServers  # noqa: E402
from received_mail import decode, differences  # noqa: E402

PASSWORD = "correct horse"
USERS = {name: PASSWORD for name in ("anna", "ben", *(f"user{i}" for i in range(10)))}
ACCOUNT = {"smtp_auth": "yes", "smtp_account": "anna", "smtp_passwd": PASSWORD}

checks = 0
failures = []


def check(name, problems):
    global checks
    checks += 1
    print(f"{'ok  ' if not problems else 'FAIL'} {name}", flush=True)
    for problem in problems:
        print(f"       {problem}")
    failures.extend(problems)


def expect(name, result, code, text):
    """A result is a code and the server's last reply, matched against a pattern."""
    got_code, got_text = result
    problems = []
    if got_code != code:
        problems.append(f"code {got_code!r}, wanted {code!r}; server said {got_text!r}")
    if not re.match(text, got_text, re.DOTALL):
        problems.append(f"server said {got_text!r}, wanted {text!r}")
    check(name, problems)


def address(user):
    return f"{user}@{DOMAIN}"


class Interop:
    def __init__(self, servers, client):
        self.servers = servers
        self.client = client

    def smtp(self, service, **more):
        self.client.configure(smtp_server="127.0.0.1", smtp_port=self.servers.smtp_ports[service],
                              **more)

    def pop(self, **more):
        self.smtp("open", pop_before_smtp="yes", pop_server="127.0.0.1",
                  pop_port=self.servers.pop_port, pop_account="anna",
                  **{"pop_passwd": PASSWORD, **more})

    def post(self, body="status: ready\n", **fields):
        return self.client.send(body, **{"from": address("anna"), "replyto": address("anna"),
                                         "to": address("ben"), "subject": "status", **fields})

    def delivered(self, name, body="status: ready\n", sasl=None, **fields):
        """Posts a mail and compares what ben finds in his mailbox with it."""
        self.servers.empty_mailboxes()
        result = self.post(body, **fields)
        expect(f"{name}: accepted", result, "ok", r"221 ")
        if result[0] != "ok":
            return
        raw = self.servers.wait_for_mail("ben")[0]
        split = lambda text: [a.strip() for a in text.split(",")] if text else []
        posted = {"from": address("anna"), "replyto": address("anna"), "subject": "status",
                  **fields, "to": split(fields.get("to", address("ben"))),
                  "cc": split(fields.get("cc", "")), "body": body}
        if posted.pop("encoding", "utf-8") == "iso-2022-jp":
            posted.update({"charset": "iso-2022-jp", "transfer encoding": "7bit"})
        else:
            posted.update({"charset": "utf-8", "transfer encoding": "base64"})
        problems = differences(posted, decode(raw))
        if sasl is not None and f"sasl_method={sasl}," not in self.servers.logs():
            problems.append(f"the server does not tell of a login by {sasl}")
        check(f"{name}: arrived as posted", problems)

    def logins(self):
        self.smtp("open")
        self.delivered("HELO alone")
        for setting, method in (("cram-md5", "CRAM-MD5"), ("login", "LOGIN"), ("plain", "PLAIN")):
            self.smtp("auth", smtp_auth_type=setting, **ACCOUNT)
            self.delivered(f"AUTH {method}", sasl=method)
        for service, method in (("auth", "CRAM-MD5"), ("login", "LOGIN"), ("plain", "PLAIN")):
            self.smtp(service, smtp_auth_type="auto", **ACCOUNT)
            self.delivered(f"auto, server offers {service}", sasl=method)
        self.smtp("auth", **ACCOUNT)
        self.delivered("no type set", sasl="CRAM-MD5")

        for pop_type, method in (("pop", "PLAIN"), ("apop", "APOP")):
            self.pop(pop_auth_type=pop_type, pop_wait_time=50)
            self.delivered(f"after POP3 login by {method}")
            if f"Login: user=<anna>, method={method}" not in self.servers.logs():
                check(f"POP3 login by {method}", ["Dovecot does not tell of it"])

    def refusals(self):
        for setting, method in (("cram-md5", "CRAM-MD5"), ("login", "LOGIN"), ("plain", "PLAIN")):
            self.smtp("auth", smtp_auth_type=setting, **{**ACCOUNT, "smtp_passwd": "wrong"})
            expect(f"AUTH {method} with a wrong password", self.post(), "auth",
                   r"535 5\.7\.8 Error: authentication failed")
        self.pop(pop_auth_type="pop", pop_passwd="wrong")
        expect("POP3 with a wrong password", self.post(), "auth", r"-ERR \[AUTH\]")
        self.pop(pop_auth_type="apop", pop_passwd="wrong")
        expect("APOP with a wrong password", self.post(), "auth", r"-ERR \[AUTH\]")

        self.smtp("open")
        expect("an unknown recipient", self.post(to=address("nobody")), "other",
               r"550 5\.1\.1 <nobody@")
        expect("a recipient elsewhere, then none is told",
               self.post(to=f"{address('nobody')},{address('ben')}"), "other", r"550 5\.1\.1 ")
        self.smtp("auth")
        expect("no login where one is wanted", self.post(), "other", r"554 5\.7\.1 ")
        self.client.configure(smtp_server="127.0.0.1", smtp_port=1)
        expect("nobody listens", self.post(), "connection", r"nothing")

    def contents(self):
        self.smtp("open")
        self.delivered("Japanese and emoji in UTF-8",
                       "用紙がなくなりました。\nトレイ 2 🖨️📄\n.\n..dots\nÄrger, café\n",
                       subject="プリンタ「3階」: 用紙切れ 🖨️ café")
        line = "0123456789 abcdefghijklmnopqrstuvwxyz ÄÖÜ\n"
        self.delivered("a body of 10 KB", line * (10240 // len(line.encode())))
        for size in (55, 56, 57, 58, 114):
            self.delivered(f"a body of {size} bytes", "x" * size)
        self.delivered("ISO-2022-JP with lines that begin with a dot",
                       "用紙切れ\n.一行目\n..二行目\n.\nおわり\n", subject="印刷が終わりました",
                       encoding="iso-2022-jp")
        self.delivered("ISO-2022-JP, plain ASCII text", ".hello\nworld\n", encoding="iso-2022-jp")
        self.delivered("a message id", messageid="<42.7@printer.zelieml.test>")
        self.smtp("open", subject_use_encoding="no")
        self.delivered("a subject that is not encoded", subject="paper jam in tray 2")

    def ten_recipients(self):
        self.smtp("open")
        self.servers.empty_mailboxes()
        users = [f"user{i}" for i in range(10)]
        to = " , ".join(address(u) for u in users[:6] + users[:2])
        cc = ",".join(address(u) for u in users[6:] + users[4:7])
        expect("ten recipients with duplicates: accepted", self.post(to=to, cc=cc), "ok", r"221 ")
        problems = []
        for user in users:
            mails = self.servers.wait_for_mail(user)
            if len(mails) != 1:
                problems.append(f"{user} got {len(mails)} mails")
            received = decode(mails[0])
            wanted = {"to": to.replace(" ", "").split(","), "cc": cc.split(",")}
            problems += differences(wanted, received)
        if not re.search(r"disconnect from .* rcpt=10 ", self.servers.logs()):
            problems.append("the server was not told of ten recipients exactly")
        check("ten recipients with duplicates: one mail each", problems)


def main():
    if len(sys.argv) != 2:
        print(__doc__)
        return 2
    with MailServers(USERS) as servers, tempfile.TemporaryDirectory() as workdir:
        interop = Interop(servers, Client(sys.argv[1], workdir))
        interop.logins()
        interop.refusals()
        interop.contents()
        interop.ten_recipients()
        if failures:
            print(servers.logs())
    print(f"{checks - len(failures)} passed, {len(failures)} failed")
    return 1 if failures or checks == 0 else 0


if __name__ == "__main__":
    sys.exit(main())
