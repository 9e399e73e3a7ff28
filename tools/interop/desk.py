"""Where a set of checks sits: a client, a server of each protocol, and the mailboxes."""

from dataclasses import dataclass

from client import Client
from mailboxes import Mailboxes
from report import Report
from server import Server

PASSWORD = "correct horse"
USERS = {name: PASSWORD for name in ("anna", "ben", *(f"user{i}" for i in range(10)))}


@dataclass
class Desk:
    client: Client
    smtp: Server
    pop: Server
    mailboxes: Mailboxes
    report: Report

    def pop_account(self, auth_type, **more):
        """What names anna's mailbox, for settings and server records."""
        return {"pop_server": "127.0.0.1", "pop_port": self.pop.port, "pop_account": "anna",
                "pop_passwd": PASSWORD, "pop_auth_type": auth_type, **more}

    def smtp_account(self, service, **more):
        """What names anna's account at one of the SMTP server's ports."""
        return {"smtp_server": "127.0.0.1", "smtp_port": self.smtp.ports[service],
                "smtp_account": "anna", "smtp_passwd": PASSWORD, **more}
