#!/usr/bin/env python3
"""Every export of zelieml_ext.h called from Python, which knows only its types.

use: ctypes_test.py LIBRARY EXPORTS-FILE LOOPBACK-PROGRAM VERSION

LIBRARY is the shared library, EXPORTS-FILE the list of what it exports.
"""

import contextlib
import ctypes
import pathlib
import re
import subprocess
import sys
import tempfile
from ctypes import POINTER, byref, c_char_p, c_double, c_int, c_size_t, c_uint, c_void_p

REASON_SIZE = 1024
SUBJECT = "用紙切れ in tray 2"
PROBE_FAILED = 1
CAUSE_NONE, CAUSE_SETTINGS, CAUSE_REFUSED = 0, 4, 8
SEVERITY_ERROR = 3
SEND_OK, SEND_ERROR_CONNECTION, SEND_ERROR_AUTH = 0, 2, 3


class Step(ctypes.Structure):
    _fields_ = [("struct_size", c_uint), ("outcome", c_int), ("number", c_int), ("name", c_char_p),
                ("server", c_char_p), ("seconds", c_double), ("reply", c_char_p),
                ("reason", c_char_p), ("cause", c_int)]


class Preview(ctypes.Structure):
    _fields_ = [("struct_size", c_uint), ("sender", c_char_p), ("recipients", POINTER(c_char_p)),
                ("recipient_count", c_int), ("text", c_char_p), ("text_size", c_size_t)]


class Finding(ctypes.Structure):
    _fields_ = [("struct_size", c_uint), ("severity", c_int), ("line", c_int),
                ("field", c_char_p), ("text", c_char_p)]


STEP_PROC = ctypes.CFUNCTYPE(None, POINTER(Step), c_void_p)
PREVIEW_PROC = ctypes.CFUNCTYPE(None, POINTER(Preview), c_void_p)
FINDING_PROC = ctypes.CFUNCTYPE(None, POINTER(Finding), c_void_p)

# What each function takes. All return an int but eml_version; enumerations are ints.
GET_TEXT = [c_void_p, c_char_p, c_int]
GET_FIELD = [c_void_p, c_int, c_char_p, c_int]
BUFFERS = [c_char_p, c_int, c_char_p, c_int]
ARGUMENTS = {
    "eml_version": [],
    "eml_cb_get_number": [c_void_p, POINTER(c_int)],
    "eml_cb_get_attempt": [c_void_p, POINTER(c_int)],
    "eml_cb_get_seconds": [c_void_p, POINTER(c_double)],
    "eml_cb_get_file": GET_TEXT,
    "eml_cb_get_reason": GET_TEXT,
    "eml_cb_get_cause": [c_void_p, POINTER(c_int)],
    "eml_cb_get_step": GET_TEXT,
    "server_info_set_tls": [c_void_p, c_char_p, c_char_p, c_char_p],
    "test_pop_auth_sized": [c_void_p, *BUFFERS],
    "test_smtp_auth_sized": [c_void_p, c_char_p, *BUFFERS],
    "eml_receive_mails_sized": [c_void_p, c_void_p, c_char_p, *BUFFERS],
    "eml_receive_mails_result": [c_void_p, c_void_p, c_char_p, POINTER(c_void_p)],
    "eml_receive_msg_get_sender_utf8": GET_FIELD,
    "eml_receive_msg_get_subject_utf8": GET_FIELD,
    "eml_receive_msg_get_messageid": GET_FIELD,
    "eml_receive_msg_get_date": GET_FIELD,
    "eml_probe": [c_char_p, c_char_p, c_char_p, STEP_PROC, c_void_p],
    "eml_msg_preview": [c_char_p, c_void_p, PREVIEW_PROC, c_void_p],
    "eml_msg_check": [c_void_p, FINDING_PROC, c_void_p],
    "eml_settings_check": [c_char_p, FINDING_PROC, c_void_p],
    "eml_queue_message_file": [c_void_p, c_char_p],
    # of zelieml.h
    "eml_msg_create": [POINTER(c_void_p)],
    "eml_msg_destroy": [c_void_p],
    **{f"eml_msg_set_{field}": [c_void_p, c_char_p]
       for field in ("from", "to", "replyto", "subject", "messageid", "body")},
    "eml_post_sync": [c_char_p, c_void_p, POINTER(c_void_p)],
    "eml_cb_delete": [c_void_p],
    "server_info_create": [POINTER(c_void_p)],
    "server_info_destroy": [c_void_p],
    "server_info_set_pop": [c_void_p, c_char_p, c_char_p, c_char_p, c_char_p, c_int, c_int],
    "server_info_set_smtp": [c_void_p, c_char_p, c_char_p, c_char_p, c_char_p, c_int],
    "eml_receive_msg_create": [POINTER(c_void_p)],
    "eml_receive_msg_destroy": [c_void_p],
    "eml_receive_msg_count": [c_void_p],
}


class Library:
    """The functions as attributes; remembers which were called."""

    def __init__(self, path):
        self.library = ctypes.CDLL(path)
        self.called = set()

    def __getattr__(self, name):
        function = self.library[name]
        function.argtypes = ARGUMENTS[name]
        function.restype = c_char_p if name == "eml_version" else c_int
        self.called.add(name)
        return function

    @contextlib.contextmanager
    def handle(self, create, destroy):
        made = c_void_p()
        expect(getattr(self, create)(byref(made)), 0)
        yield made
        expect(getattr(self, destroy)(made), 0)


def expect(came, wanted):
    if came != wanted:
        raise AssertionError(f"{came!r}, not {wanted!r}")


def text_of(getter, *arguments, size=REASON_SIZE):
    buffer = ctypes.create_string_buffer(size)
    expect(getter(*arguments, buffer, size), 0)
    return buffer.value.decode()


# An exception in a callback is only printed: the finding or step is then not kept, and missed.


def check(lib, msg, work):
    found = []

    def keep(finding, user):
        f = finding.contents
        expect((f.struct_size, user, len(f.text) > 0), (ctypes.sizeof(Finding), 7, True))
        found.append((f.severity, f.line, f.field))

    proc = FINDING_PROC(keep)
    expect(lib.eml_msg_check(msg, proc, 7), 0)
    expect(found, [])
    lib.eml_msg_set_body(msg, b"text\nto: ben@b.test\n")
    expect(lib.eml_msg_check(msg, proc, 7), SEVERITY_ERROR)
    expect(found, [(SEVERITY_ERROR, 2, b"body")])
    lib.eml_msg_set_body(msg, b"text\n")

    found.clear()
    settings = work / "zelismes.cf"
    expect(lib.eml_settings_check(bytes(settings), proc, 7), 0)
    other = work / "other.cf"
    other.write_bytes(settings.read_bytes() + b"smtp_auth = Yes\r\n")
    expect(lib.eml_settings_check(bytes(other), proc, 7), SEVERITY_ERROR)
    expect([f for f in found if f[0] == SEVERITY_ERROR], [(SEVERITY_ERROR, 3, b"smtp_auth")])


def probe(lib, work, server):
    steps = []

    def keep(step, user):
        s = step.contents
        expect((s.struct_size, user, s.seconds >= 0), (ctypes.sizeof(Step), 7, True))
        expect(s.server, b"" if s.name == b"settings" else server)
        steps.append((s.name, s.outcome, s.number, s.reply, s.reason, s.cause))

    proc = STEP_PROC(keep)
    expect(lib.eml_probe(bytes(work), b"tim@a.test", b"anna@b.test", proc, 7), 0)
    expect([s[0] for s in steps],
           [b"settings", b"look-up", b"connect", b"greeting", b"helo", b"sender", b"recipient",
            b"reset", b"offer", b"quit"])
    expect({s[1] for s in steps} & {PROBE_FAILED}, set())
    expect({s[5] for s in steps}, {CAUSE_NONE})
    steps.clear()
    expect(lib.eml_probe(bytes(work), b"tim@a.test", b"nobody@b.test", proc, 7), -1)
    name, outcome, number, reply, reason, cause = steps[-1]
    expect((name, outcome, number, reply[:4], reply.strip() in reason, cause),
           (b"recipient", PROBE_FAILED, 1005, b"550 ", True, CAUSE_REFUSED))


def preview(lib, msg, work):
    shown = []

    def keep(preview, user):
        p = preview.contents
        expect((p.struct_size, user), (ctypes.sizeof(Preview), 7))
        shown.append((p.sender, p.recipients[:p.recipient_count], p.text, p.text_size))

    expect(lib.eml_msg_preview(bytes(work), msg, PREVIEW_PROC(keep), 7), 0)
    [(sender, recipients, text, size)] = shown
    expect((sender, recipients), (b"box@a.test", [b"anna@b.test"]))
    expect((text[:6], b"\r\nTo: anna@b.test\r\n" in text, size), (b"Date: ", True, len(text)))


def send(lib, msg, work, to, number):
    result = c_void_p()
    came = c_int(-1)
    attempt = c_int(-1)
    seconds = c_double(-1)
    lib.eml_msg_set_to(msg, to)
    expect(lib.eml_post_sync(bytes(work), msg, byref(result)), -1 if number else 0)
    expect(lib.eml_cb_get_number(result, byref(came)), 0)
    expect(lib.eml_cb_get_attempt(result, byref(attempt)), 0)
    expect(lib.eml_cb_get_seconds(result, byref(seconds)), 0)
    expect((came.value, attempt.value, 0 < seconds.value < 60), (number, 1, True))
    expect(lib.eml_cb_get_cause(result, byref(came)), 0)
    expect((came.value, text_of(lib.eml_cb_get_step, result)),
           (CAUSE_REFUSED, "recipient") if number else (CAUSE_NONE, ""))
    file = pathlib.Path(text_of(lib.eml_cb_get_file, result))
    expect((file.parent, file.suffix), (work, ".sme"))
    expect(to.decode() in text_of(lib.eml_cb_get_reason, result), bool(number))
    expect(lib.eml_cb_delete(result), 0)


def test_logins(lib, server):
    reply = ctypes.create_string_buffer(b"?" * 8)
    reason = ctypes.create_string_buffer(REASON_SIZE)
    buffers = (reply, 4, reason, REASON_SIZE)

    def logins(password, code, replies, told):
        lib.server_info_set_pop(server.record, b"127.0.0.1", b"user", password, b"pop",
                                server.pop3, 0)
        lib.server_info_set_smtp(server.record, b"127.0.0.1", b"user", password, b"on",
                                 server.smtp)
        for test, start in ((lambda: lib.test_pop_auth_sized(server.record, *buffers), replies[0]),
                            (lambda: lib.test_smtp_auth_sized(server.record, b"off", *buffers),
                             replies[1])):
            expect(test(), code)
            expect(reply.raw[:5], start + b"\0?")
            expect(b"user" in reason.value, told)

    logins(b"password", SEND_OK, (b"+OK", b"221"), False)
    logins(b"wrong", SEND_ERROR_AUTH, (b"-ER", b"535"), True)

    # Nobody is asked without TLS.
    expect(lib.server_info_set_tls(server.record, b"yes", None, None), 0)
    expect(lib.test_smtp_auth_sized(server.record, b"off", *buffers), SEND_ERROR_CONNECTION)
    expect(reason.value[:14], b"TLS: smtp_tls ")
    expect(lib.server_info_set_tls(server.record, None, b"no", None), 0)


def receive(lib, server):
    reply = ctypes.create_string_buffer(REASON_SIZE)
    reason = ctypes.create_string_buffer(b"?", REASON_SIZE)
    lib.server_info_set_pop(server.record, b"127.0.0.1", b"user", b"password", b"pop",
                            server.pop3, 0)
    with lib.handle("eml_receive_msg_create", "eml_receive_msg_destroy") as mails:
        expect(lib.eml_receive_mails_sized(server.record, mails, b"a.test", reply, REASON_SIZE,
                                           reason, REASON_SIZE), 0)
        expect((reply.value[:3], reason.value), (b"+OK", b""))
        expect(lib.eml_receive_msg_count(mails), 1)
        expect(text_of(lib.eml_receive_msg_get_sender_utf8, mails, 0), "tim@a.test")
        expect(text_of(lib.eml_receive_msg_get_subject_utf8, mails, 0), SUBJECT)
        expect(text_of(lib.eml_receive_msg_get_messageid, mails, 0), "<1@a.test>")
        expect(re.search(r"\d\d:\d\d:\d\d", text_of(lib.eml_receive_msg_get_date, mails, 0))
               is not None, True)
        lib.server_info_set_pop(server.record, None, b"user", b"password", b"pop", 0, 0)
        result = c_void_p()
        cause = c_int(-1)
        expect(lib.eml_receive_mails_result(server.record, mails, b"a.test", byref(result)), -1)
        expect(lib.eml_cb_get_cause(result, byref(cause)), 0)
        expect((cause.value, text_of(lib.eml_cb_get_step, result)),
               (CAUSE_SETTINGS, "pop look-up"))
        expect(lib.eml_cb_delete(result), 0)


class Server:
    """The loopback mail server, its ports, and a server record to fill."""

    def __init__(self, program, record):
        self.process = subprocess.Popen([program, "--reject-recipient", "nobody@b.test"],
                                        stdout=subprocess.PIPE, text=True)
        lines = [self.process.stdout.readline() for _ in range(2)]
        self.smtp, self.pop3 = (int(line.rpartition(":")[2]) for line in lines)
        self.record = record

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.process.terminate()
        self.process.communicate()


def main():
    if len(sys.argv) != 5:
        sys.exit(__doc__)
    library, exports, loopback, version = sys.argv[1:]
    lib = Library(library)
    expect(lib.eml_version(), version.encode())
    with tempfile.TemporaryDirectory() as folder, \
            lib.handle("server_info_create", "server_info_destroy") as record, \
            lib.handle("eml_msg_create", "eml_msg_destroy") as msg, \
            Server(loopback, record) as server:
        work = pathlib.Path(folder)
        (work / "zelismes.cf").write_bytes(
            b"smtp_server = 127.0.0.1\r\nsmtp_port = %d\r\n" % server.smtp)
        for field, value in (("from", "tim@a.test"), ("to", "anna@b.test"),
                             ("replyto", "box@a.test"), ("subject", SUBJECT),
                             ("messageid", "<1@a.test>"), ("body", "text\n")):
            expect(getattr(lib, f"eml_msg_set_{field}")(msg, value.encode()), 0)
        check(lib, msg, work)
        preview(lib, msg, work)
        probe(lib, work, b"127.0.0.1:%d" % server.smtp)
        send(lib, msg, work, b"nobody@b.test", 1005)
        send(lib, msg, work, b"anna@b.test", 0)
        expect(lib.eml_queue_message_file(None, b"/a.sme"), -1)
        test_logins(lib, server)
        receive(lib, server)
    second_header = pathlib.Path(exports).read_text().partition("# zelieml_ext.h")[2]
    names = re.findall(r"^\w+$", second_header, re.MULTILINE)
    expect(len(names) > 0, True)
    missing = sorted(set(names) - lib.called)
    if missing:
        sys.exit(f"not called: {' '.join(missing)}")


main()
