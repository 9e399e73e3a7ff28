"""Reading what arrived, with Python's own mail parser: nothing of the library takes part."""

import email
import email.policy


def decode(raw):
    """The parts of a mail that a person reads, from the bytes that lie in a mailbox."""
    mail = email.message_from_bytes(raw, policy=email.policy.default)
    body = mail.get_content()
    return {
        "from": str(mail["From"]),
        "to": addresses(mail["To"]),
        "cc": addresses(mail["Cc"]),
        "replyto": str(mail["Reply-To"]),
        "subject": str(mail["Subject"]),
        "messageid": str(mail["Message-Id"] or ""),
        "body": one_line_end(body),
        "charset": mail.get_content_charset(),
        "transfer encoding": str(mail["Content-Transfer-Encoding"]),
        "defects": [str(d) for d in mail.defects],
    }


def addresses(header):
    return [] if header is None else [a.addr_spec for a in header.addresses]


def one_line_end(text):
    """Line ends as LF, and none at the end: servers and mailboxes change both."""
    return text.replace("\r\n", "\n").rstrip("\n")


def differences(posted, received):
    """What is not as posted, one line each; fields that were not posted are not compared."""
    found = []
    for field, wanted in posted.items():
        got = received[field]
        if field == "body":
            wanted = one_line_end(wanted)
        if got != wanted:
            found.append(f"{field}: wanted {wanted!r}, got {got!r}")
    if received["defects"]:
        found.append(f"not a sound mail: {received['defects']}")
    return found
