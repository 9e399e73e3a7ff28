"""A private Postfix, which has passwords checked by Dovecot. As root: it changes its user ids."""

import shutil

import postfix
from mailboxes import DOMAIN, address
from net import free_port
from server import Server


class Postfix(Server):
    name = "Postfix"
    offers = ["CRAM-MD5", "LOGIN", "PLAIN"]
    refuses = {
        "password": r"535 5\.7\.8 Error: authentication failed",
        "recipient": r"550 5\.1\.1 <nobody@",
        "no login": r"554 5\.7\.1 ",
    }

    def __init__(self, *place, sasl_socket, authority):
        super().__init__(*place)
        self.sasl_socket = sasl_socket
        self.authority = authority
        self.ports = {service: free_port()
                      for service in ("open", "auth", "login", "plain", "starttls", "tls")}
        self.etc = self.folder / "etc"

    def all_ports(self):
        return [port for service, port in self.ports.items() if service != "tls"]

    def last_login(self):
        return self.last_logged(r"smtpd\[.*: client=[^,\n]*(?:, sasl_method=([A-Z0-9-]+))?") or None

    def last_recipients(self):
        return int(self.last_logged(r"disconnect from .* rcpt=(\d+)") or 0)

    def start(self):
        queue = self.folder / "queue"
        data = self.folder / "data"
        for folder in (self.etc, queue, data):
            folder.mkdir()
        shutil.chown(data, "postfix", "postfix")
        (self.etc / "mailboxes").write_text("".join(f"{address(u)} {u}/\n" for u in self.users))
        (self.etc / "main.cf").write_text(f"""
compatibility_level = 3.6
queue_directory = {queue}
data_directory = {data}
command_directory = /usr/sbin
daemon_directory = /usr/lib/postfix/sbin
maillog_file = {self.folder}/log
maillog_file_prefixes = {self.folder}
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
virtual_mailbox_base = {self.mailboxes.folder}
virtual_mailbox_maps = texthash:{self.etc}/mailboxes
virtual_uid_maps = static:{self.mailboxes.UID}
virtual_gid_maps = static:{self.mailboxes.UID}
smtpd_sasl_type = dovecot
smtpd_sasl_path = {self.sasl_socket}
smtpd_peername_lookup = no
smtpd_client_restrictions =
smtpd_error_sleep_time = 0
smtpd_tls_cert_file = {self.authority.certificate}
smtpd_tls_key_file = {self.authority.key}
smtpd_tls_session_cache_database =
smtpd_recipient_restrictions = reject_unlisted_recipient, permit
""")
        auth = ("  -o smtpd_sasl_auth_enable=yes\n  -o mynetworks=\n"
                "  -o {smtpd_recipient_restrictions=reject_unlisted_recipient, "
                "permit_sasl_authenticated, reject}\n")
        extra = {
            "open": "",
            "auth": auth,
            "login": auth + "  -o smtpd_sasl_mechanism_filter=login\n",
            "starttls": auth + "  -o smtpd_tls_security_level=encrypt\n",
            "tls": auth + "  -o smtpd_tls_wrappermode=yes\n",
            "plain": auth + "  -o smtpd_sasl_mechanism_filter=plain\n",
        }
        smtpd = "".join(f"127.0.0.1:{port} inet n - n - - smtpd\n{extra[name]}"
                        for name, port in self.ports.items())
        postfix.start(self.etc, smtpd)

    def stop(self):
        postfix.stop(self.etc)
