"""The probe talks to the servers as a mail would, and finds nothing wrong."""

from desk import Desk
from mailboxes import address

POP_STEPS = [f"pop {step}" for step in ("look-up", "connect", "greeting", "login", "quit", "wait")]
SMTP_STEPS = ["look-up", "connect", "greeting"]


class Probing(Desk):
    def run(self):
        self.client.configure(**self.smtp_account("open"))
        self.probe("no login", [*SMTP_STEPS, "helo", "offer", "quit"])
        mail = ["sender", "recipient", "reset"]
        for pop_type in ("pop", "apop"):
            self.client.configure(**self.smtp_account("auth", smtp_auth="yes"),
                                  **self.pop_account(pop_type, pop_before_smtp="yes"))
            self.probe(f"login after {pop_type}",
                       [*POP_STEPS, *SMTP_STEPS, "ehlo", "login", *mail, "quit"],
                       address("anna"), address("ben"))

    def probe(self, name, steps, *addresses):
        self.report.equal(f"probe, {name}", self.client.probe(*addresses),
                          [(step, "ok") for step in ["settings", *steps]])
