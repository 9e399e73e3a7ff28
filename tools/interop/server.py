"""What the servers have in common: they are started, answer, and are stopped whatever happens.

A server of either protocol has a name, start(), stop(), all_ports() and log(). stop() may come
after a start() that has failed. A server of SMTP also has

    ports     "open" takes mail without authentication and offers none; "auth" takes mail only after
              it and offers all mechanisms; "login" and "plain" offer one
    offers    the mechanisms of "auth", the strongest first
    refuses   patterns of its answers to a wrong password, an unknown recipient (nobody), and a mail
              without the login that is wanted
    last_login()       the mechanism by which the sender of the last mail had logged in, or None
    last_recipients()  how many recipients the server was told of for the last mail

and one of POP3

    port
    refuses_login        the pattern of its answer to a wrong password
    logged_in(user)      the last login that the log tells of: "PLAIN" or "APOP", or None
"""

import re

from net import answers, wait_until


class Server:
    """A server with a folder of its own, for a dictionary of users and passwords."""

    def __init__(self, folder, users, mailboxes):
        self.folder = folder / self.name
        self.folder.mkdir()
        self.users = users
        self.mailboxes = mailboxes

    def __enter__(self):
        try:
            self.start()
            for port in self.all_ports():
                if not wait_until(lambda port=port: answers(port)):
                    raise RuntimeError(f"{self.name} does not answer on port {port}")
        except BaseException:
            print(self.log())
            self.stop()
            raise
        return self

    def __exit__(self, *_):
        self.stop()

    def log(self):
        """All that the server has logged."""
        return "".join(path.read_text(errors="replace")
                       for path in sorted(self.folder.glob("*log")))

    def last_logged(self, pattern):
        """The group of the pattern where the log has it last, or None."""
        found = re.findall(pattern, self.log())
        return found[-1] if found else None
