"""Everything inside TLS, and that nothing is said without it."""

import ctypes
import resource
import time

from desk import PASSWORD
from mailboxes import address
from program import GOOD, Program
from receiving import mail
from sending import Sending

WAYS = ("tls", "starttls")


class Tls(Sending):
    def run(self):
        inside, in_clear = self.pop.logins()
        for way in WAYS:
            self.sent(way)
            self.refused(way)
            self.tested(way)
            self.received(way)
        now_inside, now_in_clear = self.pop.logins()
        self.report.equal("POP3 logins inside TLS, and none in clear",
                          (now_inside > inside, now_in_clear), (True, in_clear))
        self.only_inside()

    def relayed(self, relay):
        """What the relay gets in clear, it passes on with a login, inside TLS."""
        self.client.configure(smtp_server="127.0.0.1", smtp_port=relay.port)
        self.delivered("through the relay", login=self.smtp.offers[0])

    def trust(self):
        return {"tls_ca_file": self.smtp.authority.ca_file}

    def pop_inside(self, way, auth_type, **more):
        port = self.pop.tls_port if way == "tls" else self.pop.port
        return self.pop_account(auth_type, **{"pop_port": port, "pop_tls": way, **self.trust(),
                                              **more})

    def configure_inside(self, way, **more):
        self.configure(way, **{"smtp_tls": way, "smtp_auth": "yes", **self.trust(), **more})

    def sent(self, way):
        for method in self.smtp.offers:
            self.configure_inside(way, smtp_auth_type=method.lower())
            self.delivered(f"AUTH {method} inside {way}", login=method)
        line = "0123456789 abcdefghijklmnopqrstuvwxyz ÄÖÜ\n"
        self.delivered(f"a body of 5 MB inside {way}", line * (5000000 // len(line.encode())),
                       login=self.smtp.offers[-1])
        for auth_type in ("pop", "apop"):
            self.configure_inside(way, pop_before_smtp="yes", **self.pop_inside(way, auth_type))
            self.delivered(f"after a POP3 login with {auth_type} inside {way}",
                           login=self.smtp.offers[0])
        self.report.equal(f"probe inside {way}", self.client.probe()[-1], ("quit", "ok"))

    def refused(self, way):
        for name, more in (("no file of authorities", {"tls_ca_file": "/nonexistent"}),
                           ("another name", {"smtp_server": "127.1"}),
                           ("another value", {"smtp_tls": way.upper()})):
            self.configure_inside(way, **more)
            self.report.expect(f"{name}, {way}", self.post(), "connection", r"nothing")
        if way == "starttls":
            self.configure_inside("tls", smtp_port=self.smtp.ports[way])
            self.report.expect("TLS from the first byte, on the port of STARTTLS", self.post(),
                               "connection", r"nothing")

    def tested(self, way):
        smtp = self.client.test(**self.smtp_account(way, smtp_auth="on", smtp_tls=way,
                                                    **self.trust()))["SMTP"]
        self.report.expect(f"SMTP test inside {way}", smtp, "ok", r"221 ")
        for auth_type in ("pop", "apop"):
            pop = self.client.test(**self.pop_inside(way, auth_type))["POP3"]
            self.report.expect(f"POP3 test by {auth_type} inside {way}", pop, "ok", r"\+OK")

    def received(self, way):
        """Also what DELE and QUIT have to do after the last command."""
        for count in (1, 100):
            sent = [(f"printer{i}@a.test", f"tray {i}") for i in range(count)]
            self.mailboxes.empty()
            self.mailboxes.put("anna", [mail(*m) for m in sent])
            received = self.client.receive(**self.pop_inside(way, "pop"))
            self.report.equal(f"receiving {count} inside {way}", received, sent)
            self.report.equal(f"receiving {count} inside {way}: nothing left",
                              self.mailboxes.count("anna"), 0)

        program = Program(self.client, self.smtp, self.pop, self.mailboxes, self.report)
        self.mailboxes.put("anna", [mail("a@b.test", "x")])
        port = self.pop.tls_port if way == "tls" else self.pop.port
        status, _ = program.zelieml("receive", "--host", "127.0.0.1", "--port", str(port), "--user",
                                    "anna", "--delete", "--tls", way, "--ca-file",
                                    str(self.smtp.authority.ca_file), text=PASSWORD)
        self.report.equal(f"zelieml receive inside {way}", (status, self.mailboxes.count("anna")),
                          (GOOD, 0))

    def only_inside(self):
        """The servers of SMTP take no login in clear: what was delivered was delivered inside."""
        self.configure("starttls", smtp_auth="yes", smtp_auth_type="plain")
        self.report.equal("no login in clear", self.post(to=address("ben"))[0], "auth")


class Cost(Tls):
    """What a mail costs this process, its client, without TLS and inside: docs/TESTING.md."""

    def run(self, mails=100):
        library = ctypes.CDLL(self.client.library)
        msg, result = ctypes.c_void_p(), ctypes.c_void_p()
        library.eml_msg_create(ctypes.byref(msg))
        for name, value in (("from", address("anna")), ("replyto", address("anna")),
                            ("to", address("ben")), ("subject", "status"), ("body", "ready\n")):
            getattr(library, f"eml_msg_set_{name}")(msg, value.encode())
        workdir = str(self.client.workdir).encode()
        for way in ("plain", *WAYS):
            if way == "plain":
                self.configure(way, smtp_auth="yes")
            else:
                self.configure_inside(way)
            begin, before = time.monotonic(), resource.getrusage(resource.RUSAGE_SELF)
            failed = 0
            for _ in range(mails):
                failed += library.eml_post_sync(workdir, msg, ctypes.byref(result)) != 0
                library.eml_cb_delete(result)
            seconds, after = time.monotonic() - begin, resource.getrusage(resource.RUSAGE_SELF)
            cpu = sum(after[:2]) - sum(before[:2])
            self.report.equal(f"{mails} mails, {way}: {seconds / mails * 1000:.1f} ms each, "
                              f"{cpu / mails * 1000:.2f} ms of processor time", failed, 0)
        library.eml_msg_destroy(msg)
