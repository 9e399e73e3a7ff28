"""A mailbox is filled, and emptied through POP3; the Maildir shows that nothing is left."""

from desk import Desk
from mailboxes import address


def mail(sender, subject, body="status: ready\n"):
    return f"From: {sender}\nTo: {address('anna')}\nSubject: {subject}\n\n{body}".encode()


class Receiving(Desk):
    def run(self):
        for auth_type in ("pop", "apop"):
            for count in (0, 1, 3, 100):
                sent = [(f"Printer {i} <printer{i}@{'a' if i % 2 else 'b'}.test>", f"tray {i}")
                        for i in range(count)]
                self.emptied(f"a mailbox of {count}", auth_type, sent, sent)
            self.emptied("two of three are of the domain", auth_type, *self.some_of_the_domain(),
                         domains="nowhere.test, a.test")
            self.emptied("one, and not of the domain", auth_type, [("x@b.test", "x")], [],
                         domains="a.test")
        self.odd_mails()
        self.refused()
        self.what_was_posted()

    def emptied(self, name, auth_type, sent, wanted, **more):
        """Receives mails, given as sender and subject, and looks into the Maildir."""
        self.mailboxes.empty()
        self.mailboxes.put("anna", [mail(*m) for m in sent])
        received = self.client.receive(**self.pop_account(auth_type, **more))
        name = f"receiving by {auth_type}, {name}"
        self.report.equal(name, received, wanted)
        self.report.equal(f"{name}: nothing left", self.mailboxes.count("anna"), 0)

    @staticmethod
    def some_of_the_domain():
        sent = [("Tim <tim@a.test>", "paper"), ("anna@b.test", "no"), ("x@mail.a.test", "toner")]
        return sent, [sent[0], sent[2]]

    def odd_mails(self):
        encoded = "=?UTF-8?B?44OI44OK44O8?="
        self.emptied("an encoded subject", "pop", [("a@b.test", encoded)], [("a@b.test", encoded)])
        self.mailboxes.put("anna", [
            b"Subject: nobody wrote this\n\n.\n..\nend\n",
            mail("a@b.test", "too long", "x\n" * 3000),
            b"From: c@d.test\n\nno subject\n",
        ])
        received = self.client.receive(**self.pop_account("pop"))
        self.report.equal("receiving odd mails", received,
                          [("", "nobody wrote this"), ("c@d.test", "")])
        self.report.equal("receiving odd mails: nothing left", self.mailboxes.count("anna"), 0)

    def refused(self):
        self.mailboxes.put("anna", [mail("a@b.test", "x")] * 2)
        received = self.client.receive(**self.pop_account("pop", pop_passwd="wrong"))
        self.report.equal("receiving with a wrong password", received, None)
        self.report.equal("receiving with a wrong password: all left",
                          self.mailboxes.count("anna"), 2)

    def what_was_posted(self):
        """The whole way: posted through SMTP, and received by POP3."""
        self.mailboxes.empty()
        self.client.configure(**self.smtp_account("open", subject_use_encoding="no"))
        sent = [(address("ben"), "paper"), (address("user1"), "toner")]
        for sender, subject in sent:
            self.client.send("status\n", **{"from": sender, "replyto": sender, "subject": subject,
                                            "to": address("anna")})
        self.mailboxes.wait_for_mails("anna", len(sent))
        received = self.client.receive(**self.pop_account("apop"))
        self.report.equal("what was posted is received", sorted(received or []), sorted(sent))
        self.report.equal("what was posted is received: nothing left",
                          self.mailboxes.count("anna"), 0)
