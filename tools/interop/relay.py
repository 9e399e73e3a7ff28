"""A private Postfix as a null client, as docs/TLS.md configures one."""

import pathlib
import re
import shutil
import subprocess

import postfix
from desk import PASSWORD
from net import free_port
from server import Server

DOCUMENT = pathlib.Path(__file__).resolve().parents[2] / "docs/TLS.md"


def documented():
    """The settings in the document."""
    part = DOCUMENT.read_text().partition("## A relay on the same machine")[2]
    return re.findall(r"^    (\w+) = ?(.*)$", part, re.MULTILINE)


class Relay(Server):
    name = "Relay"

    def __init__(self, *place, provider, authority):
        super().__init__(*place)
        self.provider = provider  # its port with TLS from the first byte
        self.authority = authority
        self.port = free_port()
        self.etc = self.folder / "etc"

    def all_ports(self):
        return [self.port]

    def start(self):
        folders = {"queue_directory": self.folder / "queue", "data_directory": self.folder / "data"}
        for folder in (self.etc, *folders.values()):
            folder.mkdir()
        shutil.chown(folders["data_directory"], "postfix", "postfix")
        hop = f"[localhost]:{self.provider}"
        passwords = self.etc / "sasl_passwd"
        passwords.write_text(f"{hop} anna:{PASSWORD}\n")
        settings = {**dict(documented()),
                    # What is of this run.
                    "relayhost": hop, "smtp_tls_CAfile": self.authority.ca_file,
                    "smtp_sasl_password_maps": f"hash:{passwords}",
                    # A Postfix of its own, where localhost is no name of the name server's.
                    **folders, "compatibility_level": "3.6", "smtp_host_lookup": "native",
                    "inet_protocols": "ipv4", "alias_maps": "", "alias_database": "",
                    "maillog_file": self.folder / "log", "maillog_file_prefixes": self.folder,
                    "command_directory": "/usr/sbin",
                    "daemon_directory": "/usr/lib/postfix/sbin"}
        (self.etc / "main.cf").write_text("".join(f"{k} = {v}\n" for k, v in settings.items()))
        subprocess.run(["postmap", "-c", self.etc, f"hash:{passwords}"], check=True)
        postfix.start(self.etc, f"127.0.0.1:{self.port} inet n - n - - smtpd\n")

    def stop(self):
        postfix.stop(self.etc)
