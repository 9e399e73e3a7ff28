#!/usr/bin/env python3
"""The library against third-party mail servers, in pairs of one for SMTP and one for POP3.

use: interop.py BUILD-FOLDER EXIM-PROGRAM [WORD...]     (as root: Postfix and Dovecot want to be)

With words only the checks that are called so: of servers ("exim"), of a kind ("tls"), or both.

Every server listens on free ports of 127.0.0.1, keeps to a directory of this run, and is stopped at
its end. Nothing of the system's own mail configuration is read or changed.
"""

import contextlib
import pathlib
import signal
import sys
import tempfile

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent / "interop"))
from authority import Authority  # noqa: E402
from client import Client  # noqa: E402
from desk import USERS  # noqa: E402
from login_tests import LoginTests  # noqa: E402
from mailboxes import Mailboxes  # noqa: E402
from pop3_dovecot import Dovecot  # noqa: E402
from pop3_twisted import Twisted  # noqa: E402
from probing import Probing  # noqa: E402
from program import Program  # noqa: E402
from receiving import Receiving  # noqa: E402
from relay import Relay  # noqa: E402
from report import Report  # noqa: E402
from sending import Sending  # noqa: E402
from smtp_aiosmtpd import Aiosmtpd  # noqa: E402
from smtp_exim import Exim  # noqa: E402
from smtp_postfix import Postfix  # noqa: E402
from tls import Cost, Tls  # noqa: E402


ALL = (Probing, Sending, LoginTests, Receiving, Program)


def check_pairs(report, client, mailboxes, pairs, wanted):
    for smtp, pop, several in pairs:
        report.title = f"{smtp.name} and {pop.name}"
        failed_before = report.failed
        for checks in several:
            if wanted(report.title, checks.__name__):
                checks(client, smtp, pop, mailboxes, report).run()
        if report.failed > failed_before:
            for server in (smtp, pop):
                print(f"--- what {server.name} has logged\n{server.log()}")


def main():
    if len(sys.argv) < 3:
        print(__doc__)
        return 2
    words = [word.lower() for word in sys.argv[3:]]

    def wanted(*names):
        return all(word in " ".join(names).lower().split() for word in words)

    signal.signal(signal.SIGTERM, lambda *_: sys.exit(1))
    report = Report()
    with contextlib.ExitStack() as stack:
        folder = pathlib.Path(stack.enter_context(tempfile.TemporaryDirectory(prefix="interop-")))
        folder.chmod(0o755)
        workdir = folder / "work"
        workdir.mkdir()
        mailboxes = Mailboxes(folder, USERS)

        def start(kind, **more):
            return stack.enter_context(kind(folder, USERS, mailboxes, **more))

        authority = Authority(folder)
        dovecot = start(Dovecot, authority=authority)
        twisted = start(Twisted)
        postfix = start(Postfix, sasl_socket=dovecot.sasl_socket, authority=authority)
        exim = start(Exim, program=sys.argv[2], authority=authority)
        aiosmtpd = start(Aiosmtpd)
        client = Client(sys.argv[1], workdir)
        check_pairs(report, client, mailboxes,
                    [(postfix, dovecot, (*ALL, Tls, Cost)), (exim, twisted, ALL),
                     (exim, dovecot, [Tls]), (aiosmtpd, dovecot, ALL)], wanted)
        if wanted("Relay", "Tls"):
            with Relay(folder, USERS, mailboxes, provider=postfix.ports["tls"],
                       authority=authority) as relay:
                report.title = "a relay"
                Tls(client, postfix, dovecot, mailboxes, report).relayed(relay)
    print(f"{report.checks - report.failed} passed, {report.failed} failed")
    return 1 if report.failed or report.checks == 0 else 0


if __name__ == "__main__":
    sys.exit(main())
