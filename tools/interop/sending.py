"""Mails are posted through a server, and what lies in the mailbox is compared with them."""

from desk import Desk
from mailboxes import address
from received_mail import decode, differences


class Sending(Desk):
    def run(self):
        self.logins()
        self.refusals()
        self.contents()
        self.ten_recipients()

    def configure(self, service, **more):
        self.client.configure(**self.smtp_account(service, **more))

    def post(self, body="status: ready\n", **fields):
        return self.client.send(body, **{"from": address("anna"), "replyto": address("anna"),
                                         "to": address("ben"), "subject": "status", **fields})

    def delivered(self, name, body="status: ready\n", login=None, **fields):
        """Posts a mail and compares what ben finds in his mailbox with it."""
        self.mailboxes.empty()
        result = self.post(body, **fields)
        self.report.expect(f"{name}: accepted", result, "ok", r"221 ")
        if result[0] != "ok":
            return
        mails = self.mailboxes.wait_for_mails("ben")
        split = lambda text: [a.strip() for a in text.split(",")] if text else []
        posted = {"from": address("anna"), "replyto": address("anna"), "subject": "status",
                  **fields, "to": split(fields.get("to", address("ben"))),
                  "cc": split(fields.get("cc", "")), "body": body}
        if posted.pop("encoding", "utf-8") == "iso-2022-jp":
            posted.update({"charset": "iso-2022-jp", "transfer encoding": "7bit"})
        else:
            posted.update({"charset": "utf-8", "transfer encoding": "base64"})
        problems = differences(posted, decode(mails[0])) if mails else ["nothing arrived"]
        self.report.check(f"{name}: arrived as posted", problems)
        self.report.becomes(f"{name}: login", self.smtp.last_login, login)

    def logins(self):
        self.configure("open")
        self.delivered("HELO alone")
        for method in self.smtp.offers:
            self.configure("auth", smtp_auth="yes", smtp_auth_type=method.lower())
            self.delivered(f"AUTH {method}", login=method)
        strongest = self.smtp.offers[0]
        for service, method in (("auth", strongest), ("login", "LOGIN"), ("plain", "PLAIN")):
            self.configure(service, smtp_auth="yes", smtp_auth_type="auto")
            self.delivered(f"auto, server offers {service}", login=method)
        self.configure("auth", smtp_auth="yes")
        self.delivered("no type set", login=strongest)

        for pop_type, method in (("pop", "PLAIN"), ("apop", "APOP")):
            self.configure("open", pop_before_smtp="yes",
                           **self.pop_account(pop_type, pop_wait_time=50))
            self.delivered(f"after POP3 login by {method}")
            self.report.becomes(f"POP3 login by {method}", lambda: self.pop.logged_in("anna"),
                                method)

    def refusals(self):
        for method in self.smtp.offers:
            self.configure("auth", smtp_auth="yes", smtp_auth_type=method.lower(),
                           smtp_passwd="wrong")
            self.report.expect(f"AUTH {method} with a wrong password", self.post(), "auth",
                               self.smtp.refuses["password"])
        for pop_type in ("pop", "apop"):
            self.configure("open", pop_before_smtp="yes",
                           **self.pop_account(pop_type, pop_passwd="wrong"))
            self.report.expect(f"POP3 type {pop_type} with a wrong password", self.post(), "auth",
                               self.pop.refuses_login)

        self.configure("open")
        self.report.expect("an unknown recipient", self.post(to=address("nobody")), "other",
                           self.smtp.refuses["recipient"])
        self.report.expect("a recipient elsewhere, then none is told",
                           self.post(to=f"{address('nobody')},{address('ben')}"), "other",
                           self.smtp.refuses["recipient"])
        self.configure("auth")
        self.report.expect("no login where one is wanted", self.post(), "other",
                           self.smtp.refuses["no login"])
        self.configure("open", smtp_port=1)
        self.report.expect("nobody listens", self.post(), "connection", r"nothing")

    def contents(self):
        self.configure("open")
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
        self.configure("open", subject_use_encoding="no")
        self.delivered("a subject that is not encoded", subject="paper jam in tray 2")

    def ten_recipients(self):
        self.configure("open")
        self.mailboxes.empty()
        users = [f"user{i}" for i in range(10)]
        to = " , ".join(address(u) for u in users[:6] + users[:2])
        cc = ",".join(address(u) for u in users[6:] + users[4:7])
        result = self.post(to=to, cc=cc)
        self.report.expect("ten recipients with duplicates: accepted", result, "ok", r"221 ")
        if result[0] != "ok":
            return
        problems = []
        for user in users:
            mails = self.mailboxes.wait_for_mails(user)
            if len(mails) != 1:
                problems.append(f"{user} got {len(mails)} mails")
            wanted = {"to": to.replace(" ", "").split(","), "cc": cc.split(",")}
            for mail in mails:
                problems += differences(wanted, decode(mail))
        self.report.check("ten recipients with duplicates: one mail each", problems)
        self.report.becomes("ten recipients with duplicates: the server is told of ten",
                            self.smtp.last_recipients, 10)
