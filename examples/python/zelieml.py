"""zelieml from Python: the library's C interface over ctypes.

    import zelieml

    message = zelieml.Message("p7@office.test", "anna@office.test", "Printer 7", "Tray 2 is empty.")
    zelieml.set_setting("/var/lib/p7", "smtp_server", "mail.office.test")
    zelieml.set_setting("/var/lib/p7", "smtp_port", "25")
    zelieml.send("/var/lib/p7", message)          # waits; raises SendError
    zelieml.post("/var/spool/office", message)    # does not wait; a service or an Engine sends it

Copy this file into your program: it needs Python 3.8 and nothing but the shared library, which is
looked for under the name in ZELIEML_LIBRARY, then where the system keeps libraries.

Every failure is an exception. Texts are str, paths are whatever os.fspath takes. All calls let other
Python threads run while they wait. The manual pages of the C functions say what each does.
"""

import atexit
import contextlib
import ctypes
import ctypes.util
import dataclasses
import enum
import os
import sys
import threading
from ctypes import POINTER, byref, c_char_p, c_double, c_int, c_size_t, c_uint, c_void_p

STOCK_SYMBOL = "zelieml_stocksymbol"  # of an engine that is started without one


# ------------------------------------------------------------------ what can go wrong


class Error(Exception):
    """A call failed. Its own classes say more where the library does."""


class SendError(Error):
    """A mail was not sent; `result` says why. At the step "quit" the server has taken it."""

    def __init__(self, result):
        super().__init__(result.reason or f"not sent: number {result.number}")
        self.result = result


class ReceiveError(SendError):
    """Receiving failed; `mails` came before, and are deleted on the server."""

    def __init__(self, result, mails):
        super().__init__(result)
        self.mails = mails


class _Number(enum.IntEnum):
    """An enumeration of the library; a number that a later version adds is kept as an int."""

    @classmethod
    def of(cls, number):
        try:
            return cls(number)
        except ValueError:
            return number


class Cause(_Number):
    NONE = 0
    MEMORY = 1
    FILE = 2
    MESSAGE = 3
    SETTINGS = 4
    UNREACHABLE = 5
    LOST = 6
    REFUSED_NOW = 7
    REFUSED = 8
    PROTOCOL = 9
    TLS = 10


class Severity(_Number):
    NONE = 0
    NOTE = 1
    WARNING = 2
    ERROR = 3


class Outcome(_Number):
    OK = 0
    FAILED = 1
    REMARK = 2


# ------------------------------------------------------------------ what goes in and comes out


@dataclasses.dataclass
class Message:
    """A mail. Recipients are plain addresses, with commas between them."""

    sender: str  # the From header
    to: str
    subject: str = ""
    body: str = ""
    cc: str = ""
    reply_to: str = ""  # also the envelope sender; empty: bounces go nowhere
    message_id: str = ""
    encoding: str = "utf-8"  # or "iso-2022-jp"


@dataclasses.dataclass(frozen=True)
class Result:
    """What became of an attempt to send."""

    code: int  # 0: sent
    number: int
    cause: Cause
    step: str
    reason: str  # one sentence; empty when it was sent
    reply: str  # the server's last
    attempt: int
    seconds: float
    file: str

    @property
    def sent(self):
        return self.code == 0


@dataclasses.dataclass(frozen=True)
class Step:
    """A step of a probe."""

    name: str
    server: str
    outcome: Outcome
    number: int
    cause: Cause
    seconds: float
    reply: str
    reason: str


@dataclasses.dataclass(frozen=True)
class Finding:
    """What a check has found."""

    severity: Severity
    line: int
    field: str
    text: str


@dataclasses.dataclass(frozen=True)
class Mail:
    """A mail that was received."""

    sender: str
    subject: str
    message_id: str
    date: str


# ------------------------------------------------------------------ the C interface


class _Step(ctypes.Structure):
    _fields_ = [("struct_size", c_uint), ("outcome", c_int), ("number", c_int), ("name", c_char_p),
                ("server", c_char_p), ("seconds", c_double), ("reply", c_char_p),
                ("reason", c_char_p), ("cause", c_int)]


class _Preview(ctypes.Structure):
    _fields_ = [("struct_size", c_uint), ("sender", c_char_p), ("recipients", POINTER(c_char_p)),
                ("recipient_count", c_int), ("text", c_void_p), ("text_size", c_size_t)]


class _Finding(ctypes.Structure):
    _fields_ = [("struct_size", c_uint), ("severity", c_int), ("line", c_int), ("field", c_char_p),
                ("text", c_char_p)]


_RESULT_PROC = ctypes.CFUNCTYPE(c_int, c_void_p, c_void_p)
_STEP_PROC = ctypes.CFUNCTYPE(None, POINTER(_Step), c_void_p)
_PREVIEW_PROC = ctypes.CFUNCTYPE(None, POINTER(_Preview), c_void_p)
_FINDING_PROC = ctypes.CFUNCTYPE(None, POINTER(_Finding), c_void_p)

_HANDLE = POINTER(c_void_p)
_HEADERS = ("from", "to", "cc", "subject", "replyto", "messageid")
_GET_TEXT = [c_void_p, c_char_p, c_int]
_GET_FIELD = [c_void_p, c_int, c_char_p, c_int]

# Name: result, arguments. Enumerations are ints.
_FUNCTIONS = {
    "eml_version": (c_char_p, []),
    "eml_msg_create": (c_int, [_HANDLE]),
    "eml_msg_destroy": (c_int, [c_void_p]),
    **{f"eml_msg_set_{name}": (c_int, [c_void_p, c_char_p]) for name in (*_HEADERS, "body")},
    "eml_msg_set_encoding": (c_int, [c_void_p, c_int]),
    "eml_msg_check": (c_int, [c_void_p, _FINDING_PROC, c_void_p]),
    "eml_msg_preview": (c_int, [c_char_p, c_void_p, _PREVIEW_PROC, c_void_p]),
    "eml_post_with_stocksymbol": (c_int, [c_char_p, c_char_p, c_void_p]),
    "eml_post_sys": (c_int, [c_void_p, c_void_p]),
    "eml_post_sync": (c_int, [c_char_p, c_void_p, _HANDLE]),
    "eml_start_with_stocksymbol": (c_int, [c_char_p, c_char_p, _HANDLE]),
    "eml_stop": (c_int, [c_void_p]),
    "eml_set_callback": (c_int, [c_void_p, _RESULT_PROC, c_void_p]),
    "eml_queue_message_file": (c_int, [c_void_p, c_char_p]),
    "eml_cb_get_code": (c_int, [c_void_p, POINTER(c_int)]),
    "eml_cb_get_number": (c_int, [c_void_p, POINTER(c_int)]),
    "eml_cb_get_cause": (c_int, [c_void_p, POINTER(c_int)]),
    "eml_cb_get_attempt": (c_int, [c_void_p, POINTER(c_int)]),
    "eml_cb_get_seconds": (c_int, [c_void_p, POINTER(c_double)]),
    "eml_cb_get_step": (c_int, _GET_TEXT),
    "eml_cb_get_reason": (c_int, _GET_TEXT),
    "eml_cb_get_message": (c_int, _GET_TEXT),
    "eml_cb_get_file": (c_int, _GET_TEXT),
    "eml_cb_delete": (c_int, [c_void_p]),
    "eml_cf_get_string": (c_int, [c_char_p, c_char_p, POINTER(c_uint), c_char_p]),
    "eml_cf_set_string": (c_int, [c_char_p, c_char_p, c_char_p]),
    "eml_encrypt_passwd": (c_void_p, [c_char_p]),
    "eml_encrypt_free_passwd": (None, [c_void_p]),
    "eml_settings_check": (c_int, [c_char_p, _FINDING_PROC, c_void_p]),
    "eml_probe": (c_int, [c_char_p, c_char_p, c_char_p, _STEP_PROC, c_void_p]),
    "server_info_create": (c_int, [_HANDLE]),
    "server_info_destroy": (c_int, [c_void_p]),
    "server_info_set_pop": (c_int, [c_void_p, c_char_p, c_char_p, c_char_p, c_char_p, c_int, c_int]),
    "server_info_set_tls": (c_int, [c_void_p, c_char_p, c_char_p, c_char_p]),
    "eml_receive_msg_create": (c_int, [_HANDLE]),
    "eml_receive_msg_destroy": (c_int, [c_void_p]),
    "eml_receive_msg_count": (c_int, [c_void_p]),
    "eml_receive_mails_result": (c_int, [c_void_p, c_void_p, c_char_p, _HANDLE]),
    "eml_receive_msg_get_sender_utf8": (c_int, _GET_FIELD),
    "eml_receive_msg_get_subject_utf8": (c_int, _GET_FIELD),
    "eml_receive_msg_get_messageid": (c_int, _GET_FIELD),
    "eml_receive_msg_get_date": (c_int, _GET_FIELD),
}


def _load():
    usual = "libzelieml.1.dylib" if sys.platform == "darwin" else "libzelieml.so.1"
    path = os.environ.get("ZELIEML_LIBRARY") or ctypes.util.find_library("zelieml") or usual
    library = ctypes.CDLL(path)  # lets other threads run during a call
    for name, (result, arguments) in _FUNCTIONS.items():
        function = getattr(library, name)
        function.restype, function.argtypes = result, arguments
    return library


_c = _load()


def _bytes(text, charset="utf-8", header=False):
    """What C gets, which would end at a NUL."""
    data = text if isinstance(text, bytes) else text.encode(charset)
    if b"\0" in data or header and (b"\n" in data or b"\r" in data):
        raise ValueError(f"a NUL, or a line break in a header or a setting: {text!r}")
    return data


def _path(path):
    return _bytes(os.fsencode(path))


def _workdir(path):
    """As the library needs it: absolute, and without a separator at its end."""
    return _path(os.path.abspath(path))


def _succeed(status, what):
    if status != 0:
        raise Error(what)


@contextlib.contextmanager
def _handle(create, destroy):
    """What a create function makes, destroyed in the end."""
    handle = c_void_p()
    _succeed(create(byref(handle)), "there is no memory")
    try:
        yield handle
    finally:
        destroy(handle)


def _text(getter, *arguments):
    """What a getter copies. The length cannot be asked for, and a getter that fails says no more."""
    for size in (1024, 1 << 16, 1 << 22):
        buffer = ctypes.create_string_buffer(size)
        if getter(*arguments, buffer, size) == 0:
            return buffer.value.decode(errors="replace")
    raise Error("a text cannot be got")


def _number(getter, record, kind=c_int):
    number = kind()
    _succeed(getter(record, byref(number)), "a result record cannot be read")
    return number.value


class _Calls:
    """Calls Python from C, keeps what it gives, and raises later what it raised: C cannot."""

    def __init__(self, kind, take):
        self.taken, self._error = [], None

        def call(pointer, _):
            if self._error is None:
                try:
                    self.taken.append(take(pointer.contents))
                except BaseException as error:  # also an interrupt: nothing may get into C
                    self._error = error

        self.proc = kind(call)  # alive as long as this object

    def all(self):
        if self._error is not None:
            raise self._error
        return self.taken


def _decoded(text):
    return text.decode(errors="replace")


@contextlib.contextmanager
def _made(message):
    """A message record with what a Message says."""
    charset = {"utf-8": "utf-8", "iso-2022-jp": "iso2022_jp"}.get(message.encoding.lower())
    if charset is None:
        raise ValueError(f"the encoding of a message is utf-8 or iso-2022-jp, not {message.encoding}")
    headers = zip(_HEADERS, (message.sender, message.to, message.cc, message.subject,
                             message.reply_to, message.message_id))
    values = [(name, _bytes(text, charset, header=True)) for name, text in headers]
    values.append(("body", _bytes(message.body, charset)))
    with _handle(_c.eml_msg_create, _c.eml_msg_destroy) as record:
        _succeed(_c.eml_msg_set_encoding(record, charset != "utf-8"), "there is no memory")
        for name, value in values:
            _succeed(getattr(_c, f"eml_msg_set_{name}")(record, value), "there is no memory")
        yield record


def _result(record):
    return Result(
        code=_number(_c.eml_cb_get_code, record),
        number=_number(_c.eml_cb_get_number, record),
        cause=Cause.of(_number(_c.eml_cb_get_cause, record)),
        step=_text(_c.eml_cb_get_step, record),
        reason=_text(_c.eml_cb_get_reason, record),
        reply=_text(_c.eml_cb_get_message, record),
        attempt=_number(_c.eml_cb_get_attempt, record),
        seconds=_number(_c.eml_cb_get_seconds, record, c_double),
        file=_text(_c.eml_cb_get_file, record),
    )


def _taken_result(record):
    """A result that is the caller's, and freed here."""
    if not record:
        raise Error("there is no memory")
    try:
        return _result(record)
    finally:
        _c.eml_cb_delete(record)


# ------------------------------------------------------------------ the functions


def version():
    """The library's, such as "1.0.0"."""
    return _c.eml_version().decode()


def send(workdir, message):
    """Sends a mail and waits. Returns the Result; raises SendError when it was not sent."""
    with _made(message) as record:
        got = c_void_p()
        status = _c.eml_post_sync(_workdir(workdir), record, byref(got))
        result = _taken_result(got)
    if status != 0:
        raise SendError(result)
    return result


def post(workdir, message, stock_symbol=STOCK_SYMBOL):
    """Leaves a mail in a work directory, for the service or an engine, and does not wait.

    Raises Error when it cannot be saved there.
    """
    with _made(message) as record:
        _succeed(_c.eml_post_with_stocksymbol(_workdir(workdir), _bytes(stock_symbol), record),
                 f"the message cannot be saved in {workdir}")


class Engine:
    """An engine of this process: sends what is posted to a work directory, while it runs.

        with Engine("/var/lib/p7", on_result=print) as engine:
            engine.post(message)
            ...

    It DELETES ALL MESSAGES IN THE WORK DIRECTORY WHEN IT STARTS, and one that has failed twice: the
    service, "zelieml engine", does neither.

    on_result is called with the Result of each attempt, on a thread of the engine: nothing is sent
    meanwhile. What it raises is printed (sys.unraisablehook), and goes no further. It may stop the
    engine. An engine that still runs when the interpreter ends is stopped then.

    On macOS a post reaches it only while a run loop runs on the main thread; queue() needs none.
    """

    _calls = {}  # what C may still call

    def __init__(self, workdir, on_result=None, stock_symbol=STOCK_SYMBOL):
        self._eml = c_void_p()
        self._lock = threading.Lock()
        self._thread = None  # that a callback is running on
        self._call = None
        _succeed(_c.eml_start_with_stocksymbol(_workdir(workdir), _bytes(stock_symbol),
                                               byref(self._eml)),
                 f"no engine can be started for {workdir}")
        atexit.register(self.stop)
        if on_result is not None:
            self._call = self._calling(on_result)
            self._calls[id(self._call)] = self._call
            if _c.eml_set_callback(self._eml, self._call, None) != 0:
                self.stop()
                raise Error("there is no memory")

    def _calling(self, on_result):
        def call(record, _):
            self._thread = threading.get_ident()
            try:
                on_result(_result(record))
            finally:
                self._thread = None
            return 0

        return _RESULT_PROC(call)

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.stop()

    def post(self, message):
        """Posts a mail to this engine."""
        with _made(message) as record:
            _succeed(_c.eml_post_sys(self._running(), record), "the message cannot be saved")

    def queue(self, file):
        """Gives the engine a message file, by its absolute path, without a notification."""
        _succeed(_c.eml_queue_message_file(self._running(), _path(file)), f"{file}: not queued")

    def _running(self):
        if not self._eml:
            raise Error("the engine is stopped")
        return self._eml

    def stop(self):
        """Ends the attempt in progress, and begins no other. A second call does nothing."""
        with self._lock:
            eml, self._eml = self._eml, c_void_p()
        if not eml:
            return
        inside = self._thread == threading.get_ident()
        _c.eml_stop(eml)
        atexit.unregister(self.stop)
        if not inside:  # else C comes back to it
            self._calls.pop(id(self._call), None)


def probe(workdir, sender=None, recipient=None):
    """Talks to the servers as a mail would. Returns the Steps; the last one may have FAILED."""
    calls = _Calls(_STEP_PROC, lambda step: Step(
        name=_decoded(step.name), server=_decoded(step.server), outcome=Outcome.of(step.outcome),
        number=step.number, cause=Cause.of(step.cause), seconds=step.seconds,
        reply=_decoded(step.reply), reason=_decoded(step.reason)))
    addresses = [None if text is None else _bytes(text) for text in (sender, recipient)]
    status = _c.eml_probe(_workdir(workdir), *addresses, calls.proc, None)
    steps = calls.all()
    if status != 0 and (not steps or steps[-1].outcome != Outcome.FAILED):
        raise Error("the servers cannot be tried: a recipient needs a sender, without line breaks")
    return steps


def preview(workdir, message):
    """The mail as it would be sent: the envelope's sender, its recipients, and the text as bytes."""
    calls = _Calls(_PREVIEW_PROC, lambda shown: (
        _decoded(shown.sender), [_decoded(shown.recipients[i]) for i in range(shown.recipient_count)],
        ctypes.string_at(shown.text, shown.text_size)))
    with _made(message) as record:
        _succeed(_c.eml_msg_preview(_workdir(workdir), record, calls.proc, None), "there is no memory")
    return calls.all()[0]


def _findings(check, what):
    calls = _Calls(_FINDING_PROC, lambda finding: Finding(
        severity=Severity.of(finding.severity), line=finding.line, field=_decoded(finding.field),
        text=_decoded(finding.text)))
    if check(what, calls.proc, None) < 0:
        raise Error("there is no memory")
    return calls.all()


def check(message):
    """What would go wrong with a message: Findings."""
    with _made(message) as record:
        return _findings(_c.eml_msg_check, record)


def check_settings(workdir):
    """What would go wrong with the settings of a work directory: Findings."""
    return _findings(_c.eml_settings_check, _settings(workdir))


def _settings(workdir):
    return _workdir(workdir) + b"/zelismes.cf"


def get_setting(workdir, key):
    """The value of a setting, or None when there is none or the file cannot be read."""
    buffer = ctypes.create_string_buffer(1026)  # a line has 1023 bytes at most
    size = c_uint(len(buffer))
    if _c.eml_cf_get_string(_bytes(key), buffer, byref(size), _settings(workdir)) != 0:
        return None
    return _decoded(buffer.value)


def set_setting(workdir, key, value):
    """Sets a setting. One program at a time; set the shorter of two keys first."""
    _succeed(_c.eml_cf_set_string(_bytes(key, header=True), _bytes(value, header=True),
                                  _settings(workdir)),
             f"{key} cannot be set in {workdir}")


def encrypt_password(password):
    """A password as the settings store it."""
    text = _c.eml_encrypt_passwd(_bytes(password))
    if not text:
        raise Error("the password is empty, or there is no memory")
    try:
        return ctypes.string_at(text).decode()
    finally:
        _c.eml_encrypt_free_passwd(text)


def receive(host, user, password, port=110, apop=False, domains="", tls="no", ca_file=None):
    """Empties a POP3 mailbox: THE MAILS ARE DELETED THERE, also those that are not returned.

    domains: only mails from senders whose domain contains one of these, with commas between them
    tls:     "tls", TLS from the first byte, usually on port 995; "starttls"; or "no"
    ca_file: the full path of a file with the authorities to trust, instead of the system's

    Returns the Mails. Raises ReceiveError, which has those that came before the failure.
    """
    # The record keeps pointers to the texts.
    texts = [_bytes(text) for text in (host, user, password, "apop" if apop else "pop")]
    with _handle(_c.server_info_create, _c.server_info_destroy) as server, \
            _handle(_c.eml_receive_msg_create, _c.eml_receive_msg_destroy) as got:
        _succeed(_c.server_info_set_pop(server, *texts, port, 0), "there is no server record")
        authorities = None if ca_file is None else _bytes(ca_file)
        _succeed(_c.server_info_set_tls(server, b"no", _bytes(tls), authorities),
                 "there is no memory")
        record = c_void_p()
        status = _c.eml_receive_mails_result(server, got, _bytes(domains), byref(record))
        result = _taken_result(record)
        mails = [Mail(*(_text(getter, got, index) for getter in (
            _c.eml_receive_msg_get_sender_utf8, _c.eml_receive_msg_get_subject_utf8,
            _c.eml_receive_msg_get_messageid, _c.eml_receive_msg_get_date)))
            for index in range(_c.eml_receive_msg_count(got))]
    if status != 0:
        raise ReceiveError(result, mails)
    return mails
