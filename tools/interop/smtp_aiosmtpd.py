"""aiosmtpd, in threads of this process, which asks for user and password in words of its own."""

import logging
import warnings

from aiosmtpd.controller import Controller
from aiosmtpd.smtp import SMTP, AuthResult

from mailboxes import DOMAIN, address
from net import free_port
from server import Server

# Logins here go over connections that are not encrypted, on purpose.
warnings.filterwarnings("ignore", "Requiring AUTH while not requiring TLS", module="aiosmtpd")
logging.getLogger("mail.log").setLevel(logging.ERROR)


class Prompting(SMTP):
    """AUTH LOGIN with prompts that nobody expects: a long one, and an empty one."""

    AuthLoginUsernameChallenge = "Wie heißen Sie? " * 9
    AuthLoginPasswordChallenge = ""


class Door(Controller):
    """One port. Mechanisms: those that are offered; none: mail is taken without a login."""

    def __init__(self, handler, port, mechanisms):
        self.login = {"auth_require_tls": not mechanisms, "auth_required": bool(mechanisms),
                      "auth_exclude_mechanism": {"LOGIN", "PLAIN"} - set(mechanisms),
                      "authenticator": handler.authenticate}
        super().__init__(handler, hostname="127.0.0.1", port=port)

    def factory(self):
        return Prompting(self.handler, hostname=f"mail.{DOMAIN}", **self.login)


class Aiosmtpd(Server):
    name = "aiosmtpd"
    offers = ["LOGIN", "PLAIN"]
    refuses = {
        "password": r"535 5\.7\.8 Authentication credentials invalid",
        "recipient": r"550 5\.1\.1 nobody of that name",
        "no login": r"530 5\.7\.0 Authentication required",
    }

    def __init__(self, *place):
        super().__init__(*place)
        self.ports = {service: free_port() for service in ("open", "auth", "login", "plain")}
        self.mechanisms = {"open": [], "auth": self.offers, "login": ["LOGIN"], "plain": ["PLAIN"]}
        self.doors = []
        self.last_mail = (None, 0)

    def all_ports(self):
        return self.ports.values()

    def last_login(self):
        return self.last_mail[0]

    def last_recipients(self):
        return self.last_mail[1]

    def start(self):
        for service, port in self.ports.items():
            door = Door(self, port, self.mechanisms[service])
            door.start()
            self.doors.append(door)

    def stop(self):
        for door in self.doors:
            door.stop()

    def authenticate(self, server, session, envelope, mechanism, data):
        known = self.users.get(data.login.decode())
        session.mechanism = mechanism
        return AuthResult(success=known is not None and known == data.password.decode(),
                          handled=False)

    # What aiosmtpd calls, on threads of its own.

    async def handle_RCPT(self, server, session, envelope, recipient, options):
        if recipient not in map(address, self.users):
            return "550 5.1.1 nobody of that name"
        envelope.rcpt_tos.append(recipient)
        return "250 2.1.5 ok"

    async def handle_DATA(self, server, session, envelope):
        self.last_mail = (session.mechanism if session.authenticated else None,
                          len(envelope.rcpt_tos))
        for recipient in envelope.rcpt_tos:
            self.mailboxes.put(recipient.partition("@")[0], [envelope.content])
        return "250 2.0.0 kept"
