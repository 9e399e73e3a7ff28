"""A private Dovecot: POP3, and the check of passwords for others."""

import re
import subprocess

from net import answers, free_port, wait_until
from server import Server


class Dovecot(Server):
    name = "Dovecot"
    refuses_login = r"-ERR \[AUTH\] "

    def __init__(self, *place, authority):
        super().__init__(*place)
        self.authority = authority
        self.port = free_port()  # with STLS
        self.tls_port = free_port()
        self.conf = self.folder / "dovecot.conf"
        self.sasl_socket = self.folder / "sasl"

    def all_ports(self):
        return [self.port]

    def logged_in(self, user):
        return self.last_logged(rf"Login: user=<{user}>, method=(\w+)")

    def logins(self):
        """How many there were inside TLS, and how many in clear."""
        all_logins = re.findall(r"Login: user=<.*", self.log())
        inside = sum(", TLS" in login for login in all_logins)
        return inside, len(all_logins) - inside

    def start(self):
        passwords = self.folder / "passwords"
        passwords.write_text("".join(f"{u}:{{PLAIN}}{p}\n" for u, p in self.users.items()))
        self.conf.write_text(f"""
base_dir = {self.folder}/run
state_dir = {self.folder}/run
log_path = {self.folder}/log
protocols = pop3
listen = 127.0.0.1
ssl = yes
ssl_cert = <{self.authority.certificate}
ssl_key = <{self.authority.key}
disable_plaintext_auth = no
auth_mechanisms = plain login cram-md5 apop
auth_failure_delay = 0
login_trusted_networks = 127.0.0.1
mail_location = maildir:{self.mailboxes.folder}/%n
first_valid_uid = 1
passdb {{
  driver = passwd-file
  args = {passwords}
}}
userdb {{
  driver = static
  args = uid={self.mailboxes.UID} gid={self.mailboxes.UID} home={self.mailboxes.folder}/%n
}}
service pop3-login {{
  chroot =
  inet_listener pop3 {{
    address = 127.0.0.1
    port = {self.port}
  }}
  inet_listener pop3s {{
    address = 127.0.0.1
    port = {self.tls_port}
    ssl = yes
  }}
}}
# No waiting for those who have mistaken a password before.
service anvil {{
  unix_listener anvil-auth-penalty {{
    mode = 0
  }}
}}
service auth {{
  unix_listener {self.sasl_socket} {{
    mode = 0666
  }}
}}
""")
        # In a session of its own: it must not lose its terminal's signals to us.
        subprocess.run(["setsid", "dovecot", "-c", self.conf], stdin=subprocess.DEVNULL, check=True)

    def stop(self):
        subprocess.run(["doveadm", "-c", self.conf, "stop"],
                       stdin=subprocess.DEVNULL, capture_output=True)
        if not wait_until(lambda: not answers(self.port)):
            raise RuntimeError("Dovecot does not end")
