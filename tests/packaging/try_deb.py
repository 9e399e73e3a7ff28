#!/usr/bin/env python3
"""Installs the Debian packages in a minimal Debian of their own, uses, upgrades and removes them.

use: try_deb.py FOLDER

FOLDER has the packages; the Debian is made in it and removed again. Needs root. What this starts
and mounts ends with its namespaces of processes and mounts, which its caller makes (unshare).

Packages come from where apt has those of this machine. Mails stay on this machine.
"""

import contextlib
import json
import os
import pathlib
import re
import shutil
import socket
import subprocess
import sys
import time

PROJECT = pathlib.Path(__file__).resolve().parent.parent.parent
WORKDIR = "/var/spool/zelieml/office"
POSTER, NEIGHBOUR = "printer", "scanner"  # both may post
REFUSED = "nobody@office.test"  # by the mail server
ENVIRONMENT = {"PATH": "/usr/sbin:/usr/bin:/sbin:/bin", "LC_ALL": "C.UTF-8",
               "DEBIAN_FRONTEND": "noninteractive"}
SECONDS = 60  # that anything may take; machines are slow at times


class Wrong(Exception):
    """Something is not as it has to be."""


def must(holds, what):
    if not holds:
        raise Wrong(what)


def wait_until(holds, what):
    end = time.monotonic() + SECONDS
    while not holds():
        must(time.monotonic() < end, f"{what}: not within {SECONDS} s")
        time.sleep(0.1)


@contextlib.contextmanager
def step(what):
    print(f"{what} ...", flush=True)
    start = time.monotonic()
    yield
    print(f"    {time.monotonic() - start:.0f} s", flush=True)


def run(command, **options):
    """Runs a command, and returns what it says; raises Wrong with that when it fails."""
    done = subprocess.run([str(word) for word in command], stdin=subprocess.DEVNULL, text=True,
                          stdout=subprocess.PIPE, stderr=subprocess.STDOUT, check=False, **options)
    must(done.returncode == 0, f"{' '.join(map(str, command))}: exit status {done.returncode}\n"
         + "\n".join(done.stdout.splitlines()[-20:]))
    return done.stdout


def source_of_packages():
    """The address and the suite from which apt gets this machine's own system."""
    suite = re.search(r"^VERSION_CODENAME=(\w+)", pathlib.Path("/etc/os-release").read_text(),
                      re.MULTILINE).group(1)
    for line in run(["apt-get", "indextargets", "--format", "$(REPO_URI) $(RELEASE)",
                     "Created-By: Packages"]).splitlines():
        address, _, name = line.partition(" ")
        if name == suite:
            return address, suite
    raise Wrong(f"apt has no source of {suite}")


class Debian:
    """A minimal Debian in a folder."""

    def __init__(self, root):
        self.root = root
        address, suite = source_of_packages()
        run(["debootstrap", "--variant=minbase", suite, root, address])
        shutil.copy("/etc/hosts", root / "etc/hosts")  # a mail's first step is the own name
        # It is removed soon: no file of it needs to be on the disk before the next is written.
        (root / "etc/dpkg/dpkg.cfg.d/quick").write_text("force-unsafe-io\n")
        run(["mount", "-t", "proc", "proc", root / "proc"])

    def path(self, inside):
        return self.root / inside.lstrip("/")

    def _command(self, words, user):
        become = ["setpriv", "--reuid", user, "--regid", user, "--init-groups"] if user else []
        return ["chroot", str(self.root), *become, *words]

    def run(self, *words, user=None, **environment):
        """Runs a command there, and returns what it says."""
        return run(self._command(words, user), env={**ENVIRONMENT, **environment})

    def start(self, *words, user=None, **environment):
        return subprocess.Popen(self._command(words, user), stdout=subprocess.DEVNULL,
                                env={**ENVIRONMENT, **environment})

    def apt(self, *words):
        return self.run("apt-get", "-q", "-y", "--no-install-recommends", *words)

    def install(self, packages):
        """From files outside, all at once."""
        folder = self.path("/packages")
        folder.mkdir()
        for package in packages:
            shutil.copy(package, folder)
        # A lower version is never put in place of a higher one.
        self.apt("install", *(f"/packages/{package.name}" for package in packages))
        shutil.rmtree(folder)

    def user_id(self, name):
        """None when there is no such user."""
        for line in self.path("/etc/passwd").read_text().splitlines():
            fields = line.split(":")
            if fields[0] == name:
                return int(fields[2])
        return None


class MailServer:
    """zelieml-loopback, as installed."""

    def __init__(self, debian):
        self.new = debian.path("/srv/mails/new")
        ready = debian.path("/srv/ports")
        debian.start("zelieml-loopback", "--port", "0", "--ready-file", "/srv/ports",
                     "--maildir", "/srv/mails", "--reject-recipient", REFUSED)
        wait_until(lambda: ready.exists() and ready.read_text().count("\n") == 2,
                   "the mail server starts")
        self.port = re.search(r"^smtp .*:(\d+)$", ready.read_text(), re.MULTILINE).group(1)

    def has_mail_to(self, address):
        return any(address in file.read_text() for file in self.new.iterdir())

    def expect_mail_to(self, address):
        wait_until(lambda: self.has_mail_to(address), f"the mail to {address} arrives")


class Service:
    """The command of the unit, run by its user as systemd would."""

    def __init__(self, debian):
        unit = debian.path("/usr/lib/systemd/system/zelieml@.service").read_text()
        setting = dict(re.findall(r"^(ExecStart|User|Type)=(.*)", unit, re.MULTILINE))
        must(setting["Type"] == "notify", "the unit's type is not notify")
        words = setting["ExecStart"].replace("%i", pathlib.Path(WORKDIR).name).split()
        address = debian.path("/run/manager")
        self.manager = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        self.manager.settimeout(SECONDS)
        # By a short name: that of a socket has 107 bytes.
        before = os.getcwd()
        os.chdir(address.parent)
        self.manager.bind(address.name)
        os.chdir(before)
        address.chmod(0o777)
        self.address = address
        self.process = debian.start(*words, user=setting["User"], NOTIFY_SOCKET="/run/manager")
        self._expect("READY=1")

    def _expect(self, word):
        while word not in self.manager.recv(4096).decode().splitlines():
            pass

    def stop(self):
        self.process.terminate()
        self._expect("STOPPING=1")
        must(self.process.wait(SECONDS) == 0, "the service does not end well")
        self.manager.close()
        self.address.unlink()


def with_higher_version(package, folder):
    """The same package as the next version."""
    tree = folder / package.stem
    run(["dpkg-deb", "-R", package, tree])
    control = tree / "DEBIAN/control"
    text = control.read_text()
    version = re.search(r"^Version: (.*)", text, re.MULTILINE).group(1)
    control.write_text(text.replace(version, f"{version}+next"))
    return pathlib.Path(run(["dpkg-deb", "-Zgzip", "-b", tree, folder]).split("'")[-2])


def post(debian, address):
    """As a user who may post, and whose files are for that user only."""
    debian.run("sh", "-c", f"umask 077; echo paper jam | zelieml post -w {WORKDIR} "
               f"--from printer7@office.test --to {address} --subject 'Printer 7'", user=POSTER)


def configure(debian, port):
    """What docs/PACKAGES.md tells an administrator to do."""
    debian.run("install", "-d", "-o", "zelieml", "-g", "zelieml", "-m", "0700", WORKDIR)
    for key, value in (("smtp_server", "127.0.0.1"), ("smtp_port", port)):
        debian.run("zelieml", "settings", "set", "-w", WORKDIR, key, value, user="zelieml")
    debian.run("systemd-tmpfiles", "--create", "zelieml.conf")
    for user in (POSTER, NEIGHBOUR):
        debian.run("useradd", "--groups", "zelieml", user)


def look_at_the_unit(debian):
    unit = "zelieml@office.service"
    words = debian.run("systemd-analyze", "verify", "--man=no", unit)
    must(words == "", f"systemd-analyze verify: {words}")
    words = debian.run("systemd-analyze", "security", "--offline=true", "--threshold=20", unit)
    print(f"    {words.splitlines()[-1].strip()}")


def run_their_tests(debian):
    """Those of debian/tests, as autopkgtest would."""
    folder = debian.path("/srv/source")
    shutil.copytree(PROJECT / "packaging/debian", folder / "debian")
    shutil.copy(PROJECT / "README.md", folder)
    control = (folder / "debian/tests/control").read_text()
    needed = {word for line in re.findall(r"^Depends: (.*)", control, re.MULTILINE)
              for word in line.split(", ")}
    debian.apt("install", *sorted(needed))
    for test in re.findall(r"^Tests: (.*)", control, re.MULTILINE):
        debian.path(f"/srv/{test}").mkdir()
        debian.run("sh", "-c", f"cd /srv/source && debian/tests/{test}",
                   AUTOPKGTEST_TMP=f"/srv/{test}")
        shutil.rmtree(debian.path(f"/srv/{test}"))
    shutil.rmtree(folder)


def kept(debian):
    """Settings and messages: what an upgrade must not touch."""
    workdir = debian.path(WORKDIR)
    files = [file for file in workdir.rglob("*") if file.is_file()]
    return {str(file.relative_to(workdir)): (file.read_bytes(), file.stat().st_mode,
                                             file.stat().st_uid, file.stat().st_mtime_ns)
            for file in files}


def queue(debian):
    """The messages that are not sent, as the program tells the user of the service."""
    return json.loads(debian.run("zelieml", "queue", "list", "-w", WORKDIR, "--json",
                                 user="zelieml"))


def recipients(debian):
    return sorted(message["to"] for message in queue(debian))


def fail_to_send(debian):
    """Has the service, which runs, keep a message for its second attempt."""
    post(debian, REFUSED)
    wait_until(lambda: any(message["reason"] for message in queue(debian)),
               f"the attempt to send to {REFUSED} fails")


def traces(debian, ids):
    """What is left of the packages: by its name, its owner, or in a list of users."""
    found = [line for name in ("passwd", "group", "shadow", "gshadow")
             for line in debian.path(f"/etc/{name}").read_text().splitlines() if "zelieml" in line]
    for folder, folders, files in os.walk(debian.root):
        inside = pathlib.Path("/") / pathlib.Path(folder).relative_to(debian.root)
        if str(inside) in ("/proc", "/srv"):  # the mails that arrived
            folders.clear()
            continue
        for name in folders + files:
            status = os.lstat(pathlib.Path(folder) / name)
            if "zelieml" in name or "zelismes" in name or status.st_uid in ids:
                found.append(str(inside / name))
    return found


def try_all(debian, packages, scratch):
    program = [package for package in packages if package.name.startswith(("zelieml_", "libz"))]
    with step("installing the packages"):
        debian.apt("update")
        debian.install(program)
    with step("looking at the unit"):
        look_at_the_unit(debian)
    with step("running the packages' own tests"):
        run_their_tests(debian)
    with step("posting to the service as another user"):
        server = MailServer(debian)
        configure(debian, server.port)
        service = Service(debian)
        post(debian, "anna@office.test")
        server.expect_mail_to("anna@office.test")
        fail_to_send(debian)
        service.stop()
    with step("upgrading while messages wait"):
        post(debian, "ben@office.test")
        debian.run("sh", "-c", f"cd {WORKDIR} && ls *.sme && ! cat *.sme && ! rm -f *.sme",
                   user=NEIGHBOUR)
        before = kept(debian)
        must(recipients(debian) == ["ben@office.test", REFUSED], f"the queue is {queue(debian)}")
        debian.install([with_higher_version(package, scratch) for package in program])
        must(kept(debian) == before, f"the upgrade leaves {kept(debian)} of {before}")
        service = Service(debian)
        server.expect_mail_to("ben@office.test")
        service.stop()
        must(recipients(debian) == [REFUSED], f"the new version's queue is {queue(debian)}")
    with step("removing and purging them"):
        debian.run("systemctl", "enable", "zelieml@office.service")
        post(debian, "chef@office.test")
        before = kept(debian)
        names = [package.name.partition("_")[0] for package in program]
        debian.apt("remove", *names)
        must(kept(debian) == before, f"removing leaves {kept(debian)} of {before}")
        must(not debian.path("/usr/bin/zelieml").exists(), "the program is still there")
        ids = {debian.user_id("zelieml")}
        debian.apt("purge", "zelieml")  # the others have left nothing behind to be purged
        left = traces(debian, ids)
        must(left == [], "purging leaves " + ", ".join(left))


def main():
    if len(sys.argv) != 2:
        print(__doc__)
        return 2
    folder = pathlib.Path(sys.argv[1]).resolve()
    packages = sorted(file for file in folder.glob("*.deb") if "-dbgsym_" not in file.name)
    root, scratch = folder / "debian", folder / "next"
    scratch.mkdir()
    try:
        with step("making a minimal Debian"):
            debian = Debian(root)
        try_all(debian, packages, scratch)
    except (Wrong, OSError, subprocess.SubprocessError) as problem:
        print(f"WRONG: {problem}", file=sys.stderr)
        return 1
    finally:
        subprocess.run(["umount", "--lazy", root / "proc"], stderr=subprocess.DEVNULL, check=False)
        shutil.rmtree(root, ignore_errors=True)
        shutil.rmtree(scratch)
    print("all is well")
    return 0


if __name__ == "__main__":
    sys.exit(main())
