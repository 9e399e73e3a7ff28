"""The users' Maildirs, into which servers deliver and from which they serve."""

import itertools
import os
import shutil

from net import wait_until

DOMAIN = "zelieml.test"


def address(user):
    return f"{user}@{DOMAIN}"


class Mailboxes:
    """One Maildir for each user. All of them belong to one user id without an account."""

    UID = 5000

    def __init__(self, folder, users):
        self.folder = folder / "mail"
        self.numbers = itertools.count(1)
        self.users = users
        self.folder.mkdir()
        self.empty()

    def maildir(self, user):
        return self.folder / user

    def empty(self):
        for user in self.users:
            shutil.rmtree(self.maildir(user), ignore_errors=True)
            for folder in ("new", "cur", "tmp"):
                (self.maildir(user) / folder).mkdir(parents=True)
        self._give_away()

    def put(self, user, mails):
        """Puts mails, as bytes, into a mailbox in that order."""
        for mail in mails:
            number = next(self.numbers)
            name = f"{1700000000 + number}.M1P1Q{number}.{DOMAIN}"
            waiting = self.maildir(user) / "tmp" / name
            waiting.write_bytes(mail.replace(b"\r\n", b"\n"))
            os.chown(waiting, self.UID, self.UID)
            waiting.rename(self.maildir(user) / "new" / name)

    def files(self, user):
        """The files of the mails in a mailbox, in the order of their arrival."""
        return sorted((file for folder in ("new", "cur")
                       for file in (self.maildir(user) / folder).iterdir()),
                      key=lambda file: file.name)

    def mails(self, user):
        """The mails in a mailbox, as bytes."""
        return [file.read_bytes() for file in self.files(user)]

    def count(self, user):
        return len(self.files(user))

    def wait_for_mails(self, user, count=1):
        """The mails in a mailbox, after a while in which so many should have come."""
        wait_until(lambda: self.count(user) >= count)
        return self.mails(user)

    def _give_away(self):
        for path in (self.folder, *self.folder.rglob("*")):
            os.chown(path, self.UID, self.UID)
