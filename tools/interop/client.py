"""The library, driven through its example programs as a user would."""

import pathlib
import re
import subprocess

CODES = {0: "ok", 1: "other", 2: "connection", 3: "auth"}


class Client:
    """A work directory with its settings file."""

    def __init__(self, build, workdir):
        self.examples = pathlib.Path(build) / "examples"
        self.workdir = pathlib.Path(workdir)
        self.settings = self.workdir / "zelismes.cf"

    def configure(self, **settings):
        """Writes the settings file anew. A key that is part of another has to stand first."""
        self.settings.unlink(missing_ok=True)
        pairs = [f"{key}={settings[key]}" for key in sorted(settings)]
        subprocess.run([self.examples / "configure", self.settings, *pairs], check=True)

    @staticmethod
    def arguments(fields):
        """The fields of a mail as the example programs take them, in the mail's encoding."""
        encoding = fields.get("encoding", "utf-8")
        return [f"{name}={value}".encode(encoding) for name, value in fields.items()]

    def send(self, body, **fields):
        """Posts a mail; body and fields are texts in UTF-8, converted to the mail's encoding.

        Returns the code's name and the server's last reply.
        """
        run = subprocess.run([self.examples / "send_and_wait", self.workdir,
                              *self.arguments(fields)],
                             input=body.encode(fields.get("encoding", "utf-8")),
                             stdout=subprocess.PIPE)
        output = run.stdout.decode(errors="replace")
        match = re.fullmatch(r"result code: (\d)\nserver said: (.*)", output, re.DOTALL)
        if match is None:
            raise RuntimeError(f"send_and_wait ended with {run.returncode}: {output!r}")
        left = list(self.workdir.glob("*.sme"))
        if left:
            raise RuntimeError(f"message files left behind: {left}")
        return CODES[int(match[1])], match[2]
