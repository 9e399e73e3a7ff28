#!/usr/bin/env python3
"""Sends a mail, and says why not when it cannot.

use: status_mail.py WORKDIR FROM TO SUBJECT < BODY
"""

import sys

import zelieml


def main():
    if len(sys.argv) != 5:
        sys.exit(__doc__)
    workdir, sender, to, subject = sys.argv[1:]
    message = zelieml.Message(sender, to, subject, sys.stdin.read(), reply_to=sender)
    findings = zelieml.check(message)
    for finding in findings:
        print(f"{finding.field}, line {finding.line}: {finding.text}", file=sys.stderr)
    if any(finding.severity == zelieml.Severity.ERROR for finding in findings):
        sys.exit("not sent")
    try:
        result = zelieml.send(workdir, message)
    except zelieml.SendError as error:
        print(error, file=sys.stderr)
        if error.result.cause in (zelieml.Cause.UNREACHABLE, zelieml.Cause.LOST):
            for step in zelieml.probe(workdir):
                print(f"{step.name:10} {step.seconds:6.2f} s  {step.reason or 'ok'}",
                      file=sys.stderr)
        sys.exit(1)
    print(f"sent in {result.seconds:.2f} s")


if __name__ == "__main__":
    main()
