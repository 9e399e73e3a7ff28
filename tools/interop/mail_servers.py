"""A private Postfix and a private Dovecot, on free ports of 127.0.0.1.

Both run from a directory of their own and are stopped with it; the system's own mail
configuration is neither read nor changed. Needs root: Postfix changes its user ids.
"""

import os
import pathlib
import shutil
import socket
import subprocess
import tempfile
import time

DOMAIN = "zelieml.test"
MAIL_UID = 5000


def free_port():
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


def wait_for_port(port, seconds=20):
    end = time.monotonic() + seconds
    while time.monotonic() < end:
        try:
            with socket.create_connection(("127.0.0.1", port), timeout=1) as s:
                s.recv(1)
                return
        except OSError:
            time.sleep(0.05)
    raise RuntimeError(f"nothing answers on port {port}")


class MailServers:
    """users: a dictionary of names and passwords; each has a Maildir <name>@zelieml.test."""

    def __init__(self, users):
        self.users = users
        self.dir = pathlib.Path(tempfile.mkdtemp(prefix="zelieml-interop-"))
        self.dir.chmod(0o755)
        self.mail = self.dir / "mail"
        self.mail.mkdir()
        os.chown(self.mail, MAIL_UID, MAIL_UID)
        # open: takes mail without authentication; auth: only with, all mechanisms;
        # login, plain: offer one mechanism.
        self.smtp_ports = {name: free_port() for name in ("open", "auth", "login", "plain")}
        self.pop_port = free_port()

    def __enter__(self):
        try:
            self._start_dovecot()
            self._start_postfix()
            for port in (self.pop_port, *self.smtp_ports.values()):
                wait_for_port(port)
        except BaseException:
            self.__exit__()
            raise
        return self

    def __exit__(self, *_):
        subprocess.run(["postfix", "-c", self.dir / "postfix", "stop"],
                       stdin=subprocess.DEVNULL, capture_output=True)
        subprocess.run(["doveadm", "-c", self.dir / "dovecot.conf", "stop"],
                       stdin=subprocess.DEVNULL, capture_output=True)
        shutil.rmtree(self.dir, ignore_errors=True)

    def maildir(self, user):
        return self.mail / user

    def wait_for_mail(self, user, count=1, seconds=20):
        """The mails in a user's Maildir, as bytes, once there are so many."""
        new = self.maildir(user) / "new"
        end = time.monotonic() + seconds
        while time.monotonic() < end:
            names = sorted(new.iterdir()) if new.is_dir() else []
            if len(names) >= count:
                return [name.read_bytes() for name in names]
            time.sleep(0.02)
        raise RuntimeError(f"{user} has not got {count} mail(s):\n{self.logs()}")

    def empty_mailboxes(self):
        for user in self.users:
            shutil.rmtree(self.maildir(user), ignore_errors=True)

    def logs(self):
        texts = []
        for name in ("postfix.log", "dovecot.log"):
            path = self.dir / name
            if path.exists():
                texts.append(f"--- {name}\n" + path.read_text(errors="replace"))
        return "\n".join(texts)

    def _start_dovecot(self):
        passwords = self.dir / "passwords"
        passwords.write_text("".join(f"{u}:{{PLAIN}}{p}\n" for u, p in self.users.items()))
        conf = self.dir / "dovecot.conf"
        conf.write_text(f"""
base_dir = {self.dir}/dovecot-run
state_dir = {self.dir}/dovecot-run
log_path = {self.dir}/dovecot.log
protocols = pop3
listen = 127.0.0.1
ssl = no
disable_plaintext_auth = no
auth_mechanisms = plain login cram-md5 apop
auth_failure_delay = 0
login_trusted_networks = 127.0.0.1
mail_location = maildir:{self.mail}/%n
first_valid_uid = 1
passdb {{
  driver = passwd-file
  args = {passwords}
}}
userdb {{
  driver = static
  args = uid={MAIL_UID} gid={MAIL_UID} home={self.mail}/%n
}}
service pop3-login {{
  chroot =
  inet_listener pop3 {{
    address = 127.0.0.1
    port = {self.pop_port}
  }}
  inet_listener pop3s {{
    port = 0
  }}
}}
service auth {{
  unix_listener {self.dir}/sasl {{
    mode = 0666
  }}
}}
""")
        # In a session of its own: it must not lose its terminal's signals to us.
        subprocess.run(["setsid", "dovecot", "-c", conf], stdin=subprocess.DEVNULL, check=True)

    def _start_postfix(self):
        etc = self.dir / "postfix"
        queue = self.dir / "queue"
        data = self.dir / "data"
        for folder in (etc, queue, data):
            folder.mkdir()
        shutil.chown(data, "postfix", "postfix")
        (etc / "mailboxes").write_text("".join(f"{u}@{DOMAIN} {u}/\n" for u in self.users))
        (etc / "main.cf").write_text(f"""
compatibility_level = 3.6
queue_directory = {queue}
data_directory = {data}
command_directory = /usr/sbin
daemon_directory = /usr/lib/postfix/sbin
maillog_file = {self.dir}/postfix.log
maillog_file_prefixes = {self.dir}
inet_interfaces = 127.0.0.1
inet_protocols = ipv4
myhostname = mail.{DOMAIN}
mydestination =
local_recipient_maps =
alias_maps =
alias_database =
mynetworks = 127.0.0.0/8
relay_domains =
default_transport = error:nothing leaves this machine
relay_transport = error:nothing leaves this machine
virtual_mailbox_domains = {DOMAIN}
virtual_mailbox_base = {self.mail}
virtual_mailbox_maps = texthash:{etc}/mailboxes
virtual_uid_maps = static:{MAIL_UID}
virtual_gid_maps = static:{MAIL_UID}
smtpd_sasl_type = dovecot
smtpd_sasl_path = {self.dir}/sasl
smtpd_peername_lookup = no
smtpd_client_restrictions =
smtpd_error_sleep_time = 0
smtpd_recipient_restrictions = reject_unlisted_recipient, permit
""")
        auth = ("  -o smtpd_sasl_auth_enable=yes\n  -o mynetworks=\n"
                "  -o {smtpd_recipient_restrictions=reject_unlisted_recipient, "
                "permit_sasl_authenticated, reject}\n")
        extra = {
            "open": "",
            "auth": auth,
            "login": auth + "  -o smtpd_sasl_mechanism_filter=login\n",
            "plain": auth + "  -o smtpd_sasl_mechanism_filter=plain\n",
        }
        smtpd = "".join(f"127.0.0.1:{port} inet n - n - - smtpd\n{extra[name]}"
                        for name, port in self.smtp_ports.items())
        (etc / "master.cf").write_text(smtpd + """
pickup    unix  n  -  n  60   1  pickup
cleanup   unix  n  -  n  -    0  cleanup
qmgr      unix  n  -  n  300  1  qmgr
rewrite   unix  -  -  n  -    -  trivial-rewrite
bounce    unix  -  -  n  -    0  bounce
defer     unix  -  -  n  -    0  bounce
trace     unix  -  -  n  -    0  bounce
verify    unix  -  -  n  -    1  verify
proxymap  unix  -  -  n  -    -  proxymap
error     unix  -  -  n  -    -  error
retry     unix  -  -  n  -    -  error
virtual   unix  -  n  n  -    -  virtual
anvil     unix  -  -  n  -    1  anvil
postlog   unix-dgram n - n - 1 postlogd
""")
        subprocess.run(["setsid", "postfix", "-c", etc, "start"], stdin=subprocess.DEVNULL,
                       stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, check=True)
