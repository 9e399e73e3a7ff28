#!/usr/bin/env python3
"""counts.py BUILD-FOLDER - system calls and instructions of one mail, and memory, held to limits

Counts with strace and valgrind's callgrind. What does not belong to a mail, such as the program's
start, drops out of the difference of two runs. The name and the hosts file of the machine count
too, since every session looks the name up: root runs this in namespaces in which both are fixed.
"""

import contextlib
import os
import pathlib
import re
import socket
import subprocess
import sys
import tempfile
import time

HOST = "bench"
HOSTS = f"127.0.0.1 localhost\n127.0.1.1 {HOST}\n"
FEW, MANY = 20, 120
# The counts are exact for one version of compiler and C library; others may be off by this.
ROOM = 1.03

# What, the program's words, and at most how many system calls and instructions a mail, in this
# order: what is received must be all that there is. Without the room, these are the figures of
# Debian 12 on amd64.
LIMITS = [
    ("a received mail", ["receive"], 47, None),
    ("a mail", ["post", "plain"], 67, 65_200),
    ("a mail, with a CRAM-MD5 login", ["post", "login"], 77, 89_600),
]
# Kilobytes of memory that a program takes at its peak which sends mails, all its libraries included.
MOST_KILOBYTES = 4_500


def in_fixed_surroundings():
    """Starts this program anew with the machine's name and hosts file fixed, unless it was."""
    if socket.gethostname() == HOST and pathlib.Path("/etc/hosts").read_text() == HOSTS:
        return
    if os.geteuid() != 0:
        sys.exit("counts.py: needs root, to give the machine another name for this program only")
    for needed in (["unshare", "--mount", "--uts", "true"], ["strace", "-o", os.devnull, "true"]):
        if subprocess.run(needed, check=False).returncode != 0:
            print(f"nothing is counted: '{' '.join(needed)}' is not permitted here")
            sys.exit(0)
    with tempfile.TemporaryDirectory() as folder:
        hosts = pathlib.Path(folder, "hosts")
        hosts.write_text(HOSTS)
        switch = pathlib.Path(folder, "nsswitch.conf")
        switch.write_text("hosts: files\n")
        script = ('mount --bind "$1" /etc/hosts && mount --bind "$2" /etc/nsswitch.conf && '
                  'hostname "$3" && shift 3 && exec "$@"')
        done = subprocess.run(
            ["unshare", "--mount", "--uts", "sh", "-c", script, "sh", hosts, switch, HOST,
             sys.executable, *sys.argv], check=False)
    sys.exit(done.returncode)


@contextlib.contextmanager
def server(build, scratch):
    """A loopback mail server; gives its ports."""
    ready = scratch / "ready"
    with open(scratch / "log", "w", encoding="utf-8") as log:
        running = subprocess.Popen(
            [build / "tools/zelieml-loopback", "--port", "0", "--ready-file", ready], stdout=log)
    try:
        for _ in range(200):
            if ready.exists() and "pop3" in ready.read_text():
                break
            time.sleep(0.05)
        ports = dict(re.findall(r"^(\w+) 127\.0\.0\.1:(\d+)", ready.read_text(), re.M))
        yield ports["smtp"], ports["pop3"]
    finally:
        running.terminate()
        running.wait()


def commands(build, words, ports, mails):
    """What must run first, and what is counted."""
    if words[0] == "post":
        return [], [build / "bench/post_bench", ports[0], str(mails), words[1], "library"]
    program = [build / "bench/receive_bench", *ports, str(mails)]
    return [*program, "fill"], [*program, "empty"]


def system_calls(command, scratch):
    """How many, by name.

    A receive that finds nothing yet, and the wait after it, depend on how fast the server is, and
    do not count.
    """
    output = scratch / "strace"
    subprocess.run(["strace", "-c", "-f", "-o", output, *command], check=True,
                   stdout=subprocess.DEVNULL)
    lines = re.findall(r"^ *[\d.]+ +[\d.]+ +\d+ +(\d+) +(\d*) +(\w+)$", output.read_text(), re.M)
    calls = {name: int(count) for count, _, name in lines if name != "total"}
    waits = sum(int(errors) for _, errors, name in lines if name == "recvfrom" and errors)
    calls["recvfrom"] -= waits
    calls["poll"] -= waits
    return calls


def instructions(command, scratch):
    """How many in user mode."""
    done = subprocess.run(
        ["valgrind", "--tool=callgrind", f"--callgrind-out-file={scratch / 'callgrind'}", *command],
        check=True, capture_output=True, text=True)
    return int(re.search(r"Collected : (\d+)", done.stderr)[1])


def peak(command):
    """Kilobytes of memory at the peak."""
    return int(subprocess.run(command, check=True, capture_output=True, text=True).stdout)


def count(build, words, ports, scratch, counter):
    """The results of a counter for few and for many mails."""
    results = []
    for mails in (FEW, MANY):
        before, command = commands(build, words, ports, mails)
        if before:
            subprocess.run(before, check=True)
        results.append(counter(command, scratch))
    return results


def main():
    in_fixed_surroundings()
    build = pathlib.Path(sys.argv[1]).resolve()
    good = True
    with tempfile.TemporaryDirectory() as folder:
        scratch = pathlib.Path(folder)
        with server(build, scratch) as ports:
            for name, words, most_calls, most_instructions in LIMITS:
                few, many = count(build, words, ports, scratch, system_calls)
                each = {call: (many[call] - few.get(call, 0)) / (MANY - FEW) for call in many}
                calls = sum(each.values())
                good = calls <= ROOM * most_calls and good
                print(f"{name}: {calls:.1f} system calls (at most {most_calls})")
                print("    " + ", ".join(f"{n:.1f} {call}" for call, n in
                                         sorted(each.items(), key=lambda one: -one[1]) if n >= 0.1))
                if most_instructions is not None:
                    few, many = count(build, words, ports, scratch, instructions)
                    each = (many - few) / (MANY - FEW)
                    good = each <= ROOM * most_instructions and good
                    print(f"{name}: {each:,.0f} instructions (at most {most_instructions:,})")
            _, command = commands(build, ["post", "plain"], ports, MANY)
            kilobytes = min(peak(command) for _ in range(5))
            good = kilobytes <= ROOM * MOST_KILOBYTES and good
            print(f"{MANY} mails: {kilobytes:,} KB of memory at the peak (at most "
                  f"{MOST_KILOBYTES:,})")
    return 0 if good else 1


if __name__ == "__main__":
    sys.exit(main())
