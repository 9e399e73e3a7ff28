"""A private Exim: a copy of the program alone, which needs no installation.

It runs without any rights under the user id of the mailboxes. Exim insists on an account by the
name of Debian-exim; nss_wrapper shows it one.
"""

import os
import shutil
import subprocess

from mailboxes import DOMAIN
from net import free_port
from server import Server


class Exim(Server):
    name = "Exim"
    offers = ["CRAM-MD5", "LOGIN", "PLAIN"]
    refuses = {
        "password": r"535 Incorrect authentication data",
        "recipient": r"550 Unrouteable address",
        "no login": r"550 log in first",
    }

    def __init__(self, *place, program, authority):
        super().__init__(*place)
        self.authority = authority
        os.chown(self.folder, self.mailboxes.UID, self.mailboxes.UID)
        # Where the user id of the mailboxes can run it, and without a set-user-id bit.
        self.program = shutil.copyfile(program, self.folder / "exim")
        self.program.chmod(0o755)
        self.process = None
        self.ports = {service: free_port()
                      for service in ("open", "auth", "login", "plain", "starttls", "tls")}

    def all_ports(self):
        return [port for service, port in self.ports.items() if service != "tls"]

    def last_login(self):
        driver = self.last_logged(r" <= \S+(?: H=.*)? P=\w+(?: X=\S+)?(?: CV=\w+)?(?: A=(\w+))?")
        return driver.replace("_", "-").upper() if driver else None

    def last_recipients(self):
        return len((self.last_logged(r" <= .* for (.*)") or "").split())

    def offered_on(self, *services):
        """A condition of Exim's: the client has come in by the port of one of the services, or is
        inside TLS."""
        ports = " : ".join(str(self.ports[service]) for service in services)
        return f"${{if or{{{{inlist{{$received_port}}{{{ports}}}}}{{def:tls_in_cipher}}}}}}"

    def own_copy(self, file):
        """A file of root's, readable for Exim."""
        copy = shutil.copyfile(file, self.folder / file.name)
        os.chown(copy, self.mailboxes.UID, self.mailboxes.UID)
        copy.chmod(0o600)
        return copy

    def start(self):
        uid = self.mailboxes.UID
        passwords = self.folder / "passwords"
        passwords.write_text("".join(f"{u}: {p}\n" for u, p in self.users.items()))
        password = f"${{lookup{{$auth%d}}lsearch{{{passwords}}}{{$value}}fail}}"
        conf = self.folder / "exim.conf"
        conf.write_text(f"""
exim_path = {self.program}
exim_user = {uid}
exim_group = {uid}
deliver_drop_privilege
keep_environment = LD_PRELOAD : ^NSS_WRAPPER_
spool_directory = {self.folder}/spool
log_file_path = {self.folder}/%slog
log_selector = +received_recipients
primary_hostname = mail.{DOMAIN}
disable_ipv6
local_interfaces = 127.0.0.1
daemon_smtp_ports = {" : ".join(map(str, self.ports.values()))}
host_lookup =
helo_lookup_domains =
rfc1413_hosts =
tls_certificate = {self.own_copy(self.authority.certificate)}
tls_privatekey = {self.own_copy(self.authority.key)}
tls_advertise_hosts = ${{if eq{{$received_port}}{{{self.ports["starttls"]}}}{{*}}}}
tls_on_connect_ports = {self.ports["tls"]}
acl_smtp_rcpt = recipient

begin acl

recipient:
  deny
    condition = ${{if !eq{{$received_port}}{{{self.ports["open"]}}}}}
    !authenticated = *
    message = log in first
  accept
    verify = recipient

begin routers

mailbox:
  driver = accept
  domains = {DOMAIN}
  local_parts = {" : ".join(self.users)}
  transport = maildir

begin transports

maildir:
  driver = appendfile
  directory = {self.mailboxes.folder}/$local_part_data
  maildir_format

begin authenticators

cram_md5:
  driver = cram_md5
  public_name = CRAM-MD5
  server_secret = {password % 1}
  server_set_id = $auth1
  server_advertise_condition = {self.offered_on("auth")}

login:
  driver = plaintext
  public_name = LOGIN
  server_prompts = Username:: : Password::
  server_condition = ${{if eq{{$auth2}}{{{password % 1}}}}}
  server_set_id = $auth1
  server_advertise_condition = {self.offered_on("auth", "login")}

plain:
  driver = plaintext
  public_name = PLAIN
  server_prompts = :
  server_condition = ${{if eq{{$auth3}}{{{password % 2}}}}}
  server_set_id = $auth2
  server_advertise_condition = {self.offered_on("auth", "plain")}
""")
        accounts = self.folder / "accounts"
        accounts.write_text(f"Debian-exim:x:{uid}:{uid}::/:/bin/false\n")
        groups = self.folder / "groups"
        groups.write_text(f"Debian-exim:x:{uid}:\n")
        self.process = subprocess.Popen(
            [self.program, "-C", conf, "-bdf"], user=uid, group=uid, extra_groups=[],
            stdin=subprocess.DEVNULL,
            env={"LD_PRELOAD": "libnss_wrapper.so", "NSS_WRAPPER_PASSWD": str(accounts),
                 "NSS_WRAPPER_GROUP": str(groups)})

    def stop(self):
        if self.process is not None:
            self.process.terminate()
            self.process.wait(20)
