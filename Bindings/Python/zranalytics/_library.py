"""libzranalytics.so through ctypes: its functions, errors as exceptions, and the callbacks.

A callback's data is a number; the Python object stands under it in a table until the library releases the number. So
each type of callback needs one C function only, which lives as long as the process.
"""

import ctypes
import enum
import itertools
import os
import threading
from ctypes import POINTER, c_char_p, c_double, c_int, c_int32, c_int64, c_size_t, c_uint64, c_void_p


class Status(enum.IntEnum):
    """What went wrong; the members are described in zranalytics.h."""

    OK = 0
    ARGUMENT = 1
    UTF8 = 2
    JSON = 3
    NOT_STARTED = 4
    STARTED = 5
    CLOSED = 6
    CONFIGURATION = 7
    CALLBACK = 8
    THREAD = 9
    TIMEOUT = 10
    SYSTEM = 11


class AnalyticsError(Exception):
    """A call that the library refused; `status` is a Status."""

    def __init__(self, status, message):
        super().__init__(message)
        self.status = Status(status)


def _load():
    beside = os.path.join(os.path.dirname(os.path.abspath(__file__)), "libzranalytics.so.1")
    name = beside if os.path.exists(beside) else "libzranalytics.so.1"
    return ctypes.CDLL(os.environ.get("ZRANALYTICS_LIBRARY") or name)


_c = _load()
_c.zr_last_error.restype = c_char_p
_c.zr_version.restype = c_char_p
_c.zr_value_free.argtypes = _c.zr_properties_free.argtypes = _c.zr_options_free.argtypes = [c_void_p]
_c.zr_condition_free.argtypes = _c.zr_source_free.argtypes = _c.zr_free.argtypes = [c_void_p]
_c.zr_request_header_name.argtypes = _c.zr_request_header_value.argtypes = [c_void_p, c_size_t]
_c.zr_request_header_name.restype = _c.zr_request_header_value.restype = c_char_p

# One letter for each argument: p pointer or handle, t text (two arguments), i int, l int64, u uint64, d double,
# c completion with data and release (three arguments).
RELEASE = ctypes.CFUNCTYPE(None, c_void_p)
COMPLETION = ctypes.CFUNCTYPE(None, c_void_p, c_int)
_TYPES = {"p": [c_void_p], "t": [c_char_p, c_size_t], "i": [c_int], "l": [c_int64], "u": [c_uint64], "d": [c_double],
          "c": [COMPLETION, c_void_p, RELEASE]}


def _check_status(status, _function, _arguments):
    if status != 0:
        raise AnalyticsError(status, _c.zr_last_error().decode())


def _check_pointer(pointer, _function, _arguments):
    if not pointer:
        raise AnalyticsError(_c.zr_last_status(), _c.zr_last_error().decode())
    return pointer


def _prepared(name, arguments, result, check):
    function = getattr(_c, name)
    function.argtypes = [kind for letter in arguments for kind in _TYPES[letter]]
    function.restype = result
    if check:
        function.errcheck = check
    return function


def call(name, arguments=""):
    """The function of that name, which returns a zr_status."""
    return _prepared(name, arguments, c_int, _check_status)


def make(name, arguments=""):
    """The function of that name, which returns a pointer."""
    return _prepared(name, arguments, c_void_p, _check_pointer)


def find(name, arguments=""):
    """The function of that name, which returns a pointer, or None if there is nothing."""
    return _prepared(name, arguments, c_void_p, None)


def ask(name, arguments=""):
    """The function of that name, which returns an int that is no status."""
    return _prepared(name, arguments, c_int, None)


def text(value):
    """The two arguments of a text."""
    encoded = value.encode()
    return encoded, len(encoded)


_to_json = make("zr_value_to_json", "pp")


def taken_text(pointer):
    """The text of a zr_copy_ function, which is freed."""
    try:
        return ctypes.string_at(pointer).decode()
    finally:
        _c.zr_free(pointer)


def json_of(value):
    return taken_text(_to_json(value, None))


class Handle:
    """Owns what a function made. Pass the object itself, so that it lives as long as the call."""

    def __init__(self, pointer, kind):
        self._as_parameter_ = pointer
        self._free = getattr(_c, f"zr_{kind}_free")

    def __del__(self):
        if hasattr(self, "_free"):
            self._free(self)


version = _c.zr_version().decode()

# --- Callbacks

_objects = {}
_objects_lock = threading.Lock()
_numbers = itertools.count(1)


def keep(thing):
    """The data of a callback: the number of the object."""
    with _objects_lock:
        number = next(_numbers)
        _objects[number] = thing
    return number


def kept():
    """How many objects the library holds."""
    return len(_objects)


@RELEASE
def release(number):
    with _objects_lock:
        thing = _objects.pop(number)
    if isinstance(thing, Completion):
        thing.end()


class Completion:
    """The future of an operation. It takes the last answer when the library releases the callback; without an answer it
    is cancelled."""

    def __init__(self, future):
        self._future = future
        self._answer = None

    def answer(self, success):
        self._answer = bool(success)

    def end(self):
        if self._answer is None:
            self._future.cancel()
        # False if cancelled, here or by the host; wakes those that wait for it.
        if self._future.set_running_or_notify_cancel():
            self._future.set_result(self._answer)


@COMPLETION
def complete(number, success):
    _objects[number].answer(success)


LOG = ctypes.CFUNCTYPE(None, c_void_p, c_int, c_void_p, c_size_t, c_char_p, c_int32, c_char_p)
TRANSPORT = ctypes.CFUNCTYPE(None, c_void_p, c_void_p)
POST = ctypes.CFUNCTYPE(None, c_void_p, c_void_p)
IS_MAIN = ctypes.CFUNCTYPE(c_int, c_void_p)
BEGIN = ctypes.CFUNCTYPE(None, c_void_p, c_uint64, c_char_p)
END = ctypes.CFUNCTYPE(None, c_void_p, c_uint64)
LOCALE = ctypes.CFUNCTYPE(None, c_void_p, c_int, c_char_p, c_void_p)
ZONE = ctypes.CFUNCTYPE(c_int64, c_void_p, c_double)
ADVERTISING = ctypes.CFUNCTYPE(c_int, c_void_p, c_void_p)
TRIGGER = ctypes.CFUNCTYPE(None, c_void_p, c_void_p, c_size_t, c_void_p)
set_option = {}
for _name, _callbacks in (("log", [LOG]), ("transport", [TRANSPORT]), ("main_loop", [POST, IS_MAIN]),
                          ("background_tasks", [BEGIN, END]), ("locale", [LOCALE]), ("time_zone", [ZONE]),
                          ("advertising", [ADVERTISING])):
    set_option[_name] = call(f"zr_options_set_{_name}")
    set_option[_name].argtypes = [c_void_p, *_callbacks, c_void_p, RELEASE]
set_trigger = call("zr_set_trigger")
set_trigger.argtypes = [c_int, TRIGGER, c_void_p, RELEASE]
update_sources = call("zr_update_sources")
update_sources.argtypes = [POINTER(c_void_p), c_size_t]
close = call("zr_close")
close.argtypes = [c_double, POINTER(c_int)]
condition_check = call("zr_condition_check")
condition_check.argtypes = [c_void_p, c_char_p, c_size_t, c_void_p, POINTER(c_int)]
_respond = call("zr_request_respond")
_respond.argtypes = [c_void_p, c_int32, c_char_p, c_size_t, c_char_p]
_request_url = make("zr_request_url", "pp")
_request_body = make("zr_request_body", "pp")
_text_set = call("zr_text_set", "pt")
_run_task = call("zr_task_run", "p")


class Request:
    """A request that a transport sends: POST `body` with `headers` to `url`, then `respond`, on any thread."""

    def __init__(self, pointer):
        self._pointer = pointer
        self.url = ctypes.string_at(_request_url(pointer, None)).decode()
        self.headers = {"Content-Type": "application/json; charset=utf-8"}
        for index in itertools.count():
            name = _c.zr_request_header_name(pointer, index)
            if name is None:
                break
            self.headers[name.decode()] = _c.zr_request_header_value(pointer, index).decode()

    @property
    def body(self):
        """Bytes; made by the first use, so ask just before sending. If that raises, for instance because the user opted
        out, respond with status 0."""
        return ctypes.string_at(_request_body(self._pointer, None))

    def respond(self, status, body=b"", error=None):
        """status: of HTTP, or 0 if no response came; then error says why."""
        # A wrong argument raises before the request is given up.
        answer = c_int32(status), bytes(memoryview(body)), error.encode() if error else None
        pointer, self._pointer = self._pointer, None
        _respond(pointer, answer[0], answer[1], len(answer[1]), answer[2])

    def __del__(self):
        if self._pointer:
            self.respond(0, error="the transport dropped the request")


class Task:
    """Work for the main thread: call it there, once."""

    def __init__(self, pointer):
        self._pointer = pointer

    def __call__(self):
        _run_task(self._pointer)


def set_text(pointer, answer):
    if answer is not None:
        _text_set(pointer, *text(answer))


@LOG
def log(number, kind, message, length, _file, _line, operation):
    line = ctypes.string_at(message, length).decode(errors="replace")
    _objects[number](line if kind == 1 else f"error: {line} ({operation.decode()})")


@TRANSPORT
def send(number, request):
    _objects[number](Request(request))


@POST
def post(number, task):
    _objects[number].post(Task(task))


@IS_MAIN
def is_main(number):
    return int(_objects[number].is_main_thread())


@BEGIN
def begin(number, task, name):
    _objects[number].begin(task, name.decode())


@END
def end(number, task):
    _objects[number].end(task)


@LOCALE
def locale(number, question, argument, answer):
    set_text(answer, _objects[number](question, argument.decode()))


@ZONE
def zone(number, seconds):
    return int(_objects[number](seconds))


@ADVERTISING
def advertising(number, identifier):
    permission, value = _objects[number]()
    set_text(identifier, value)
    return permission


@TRIGGER
def trigger(number, name, length, record):
    _objects[number](ctypes.string_at(name, length).decode(), record)
