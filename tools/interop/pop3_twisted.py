"""The POP3 server of Twisted, over the Maildirs, in a thread of this process."""

import threading

from twisted.cred.checkers import InMemoryUsernamePasswordDatabaseDontUse
from twisted.cred.portal import IRealm, Portal
from twisted.internet import reactor
from twisted.internet.protocol import Factory
from twisted.mail import pop3
from zope.interface import implementer

from net import free_port
from server import Server


class Mailbox(pop3.Mailbox):
    """One session's view of a Maildir; what is deleted goes when the session ends well."""

    def __init__(self, files):
        self.files = files
        self.deleted = set()

    def listMessages(self, i=None):
        if i is None:
            return [self.listMessages(i) for i in range(len(self.files))]
        return 0 if i in self.deleted else self.files[i].stat().st_size

    def getMessage(self, i):
        return self.files[i].open("rb")

    def deleteMessage(self, i):
        self.deleted.add(i)

    def undeleteMessages(self):
        self.deleted.clear()

    def sync(self):
        for i in self.deleted:
            self.files[i].unlink()


class Session(pop3.POP3):
    """Tells the factory which of the two logins is used."""

    def connectionMade(self):
        # An answer in two pieces is not to wait for the client to confirm the first.
        self.transport.setTcpNoDelay(True)
        super().connectionMade()

    def authenticateUserAPOP(self, user, digest):
        self.factory.logins[user.decode()] = "APOP"
        # Twisted compares the digest as a text, though it arrives as bytes.
        return super().authenticateUserAPOP(user, digest.decode())

    def authenticateUserPASS(self, user, password):
        self.factory.logins[user.decode()] = "PLAIN"
        return super().authenticateUserPASS(user, password)


@implementer(IRealm)
class Sessions(Factory):
    def __init__(self, users, mailboxes):
        self.mailboxes = mailboxes
        self.logins = {}
        passwords = {user: password.encode() for user, password in users.items()}
        self.portal = Portal(self, [InMemoryUsernamePasswordDatabaseDontUse(**passwords)])

    def buildProtocol(self, _):
        session = Session()
        session.factory = self
        session.portal = self.portal
        return session

    def requestAvatar(self, user, mind, *interfaces):
        return pop3.IMailbox, Mailbox(self.mailboxes.files(user.decode())), lambda: None


class Twisted(Server):
    name = "Twisted"
    refuses_login = r"-ERR Authentication failed"

    def __init__(self, *place):
        super().__init__(*place)
        self.port = free_port()
        self.sessions = Sessions(self.users, self.mailboxes)
        self.thread = threading.Thread(target=reactor.run, args=(False,))

    def all_ports(self):
        return [self.port]

    def logged_in(self, user):
        return self.sessions.logins.get(user)

    def start(self):
        reactor.listenTCP(self.port, self.sessions, interface="127.0.0.1")
        self.thread.start()

    def stop(self):
        if self.thread.ident is not None:
            reactor.callFromThread(reactor.stop)
            self.thread.join()
