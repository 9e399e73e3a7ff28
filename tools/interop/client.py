"""The library, driven through its example programs as a user would.

Results are a code ("ok", "other", "connection", "auth") and the server's last reply.
"""

import pathlib
import re
import subprocess

CODES = ["ok", "other", "connection", "auth"]
WORDS = dict(zip(["accepted", "failed", "no connection", "login refused"], CODES))


class Client:
    """A work directory with its settings file."""

    def __init__(self, build, workdir):
        build = pathlib.Path(build).resolve()  # the library finds no plug-in by a relative path
        self.examples = build / "examples"
        self.programs = build / "tools/zelieml"
        self.library = build / "lib/libzelieml.so"
        self.workdir = pathlib.Path(workdir)
        self.settings = self.workdir / "zelismes.cf"

    def run(self, example, *arguments, body=b""):
        """Runs an example. Returns its exit status and what it wrote to its standard output."""
        run = subprocess.run([self.examples / example, *arguments], input=body,
                             stdout=subprocess.PIPE, stderr=subprocess.DEVNULL)
        return run.returncode, run.stdout.decode(errors="replace")

    @staticmethod
    def arguments(fields, encoding="utf-8"):
        return [f"{name}={value}".encode(encoding) for name, value in fields.items()]

    def configure(self, **settings):
        """Writes the settings file anew. A key that is part of another has to stand first."""
        self.settings.unlink(missing_ok=True)
        status, _ = self.run("configure", self.settings,
                             *self.arguments(dict(sorted(settings.items()))))
        if status != 0:
            raise RuntimeError(f"configure ended with {status}")

    def send(self, body, **fields):
        """Posts a mail; body and fields are texts in UTF-8, converted to the mail's encoding.

        Returns the result.
        """
        encoding = fields.get("encoding", "utf-8")
        status, output = self.run("send_and_wait", self.workdir,
                                  *self.arguments(fields, encoding), body=body.encode(encoding))
        match = re.fullmatch(r"result code: (\d)\nserver said: (.*)", output, re.DOTALL)
        if match is None:
            raise RuntimeError(f"send_and_wait ended with {status}: {output!r}")
        left = list(self.workdir.glob("*.sme"))
        if left:
            raise RuntimeError(f"message files left behind: {left}")
        return CODES[int(match[1])], match[2]

    def test(self, **fields):
        """Tests settings. Returns the results as a dictionary: POP3, SMTP, or both."""
        status, output = self.run("test_settings", "--trust", *self.arguments(fields))
        found = re.findall(r"(POP3|SMTP): ([a-z ]+)\nserver said: (.*?)(?=(?:POP3|SMTP): |\Z)",
                           output, re.DOTALL)
        results = {protocol: (WORDS[words], text) for protocol, words, text in found}
        good = bool(results) and all(code == "ok" for code, _ in results.values())
        if status != (0 if good else 1):
            raise RuntimeError(f"test_settings ended with {status}: {output!r}")
        return results

    def probe(self, *addresses):
        """Probes the settings, with a sender and a recipient or without. Returns pairs of a step
        and what became of it: "ok", "FAILED" or "remark".
        """
        status, output = self.run("probe", self.workdir, *addresses)
        steps = re.findall(r"^([a-z0-9 -]+?) +(ok|FAILED|remark) ", output, re.MULTILINE)
        good = bool(steps) and all(outcome != "FAILED" for _, outcome in steps)
        if status != (0 if good else 1):
            raise RuntimeError(f"probe ended with {status}: {output!r}")
        return steps

    def receive(self, **fields):
        """Empties a mailbox. Returns pairs of sender and subject, or None for a failure."""
        status, output = self.run("receive", "--delete", *self.arguments(fields))
        if status != 0:
            return None
        count, *lines = output.split("\n")[:-1]
        mails = [(sender.removeprefix("From: "), subject.removeprefix("Subject: "))
                 for sender, subject in zip(lines[::2], lines[1::2])]
        if count != f"mails: {len(mails)}" or len(lines) != 2 * len(mails):
            raise RuntimeError(f"receive wrote {output!r}")
        return mails
