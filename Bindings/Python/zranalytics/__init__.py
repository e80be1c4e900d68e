"""Analytics of an application: events, sessions, users.

    with Analytics(endpoint="https://collect.example", app_id="SHOP", folder="data") as analytics:
        analytics.track("Purchase", {"price": 10.5, "sku": "A1"})
"""

import atexit
import concurrent.futures
import ctypes
import datetime
import enum
import json

from . import _library as lib
from ._library import AnalyticsError, Request, Status, Task
from ._values import URL, Condition, Location, Properties, Source, is_json, python_of, seconds, update_map, value_of

__all__ = ["URL", "Advertising", "Analytics", "AnalyticsError", "Condition", "Lifecycle", "LocaleQuestion", "Location",
           "Properties", "Request", "Slot", "Source", "State", "Status", "Task"]
__version__ = lib.version


class State(enum.IntEnum):
    """Of the application."""

    ACTIVE = 0
    INACTIVE = 1
    BACKGROUND = 2


class Lifecycle(enum.IntEnum):
    """What happens to the application."""

    DID_BECOME_ACTIVE = 1
    WILL_RESIGN_ACTIVE = 2
    WILL_ENTER_FOREGROUND = 3
    DID_ENTER_BACKGROUND = 4
    WILL_TERMINATE = 5


class LocaleQuestion(enum.IntEnum):
    """What a locale is asked; the names have an argument, a code or an identifier."""

    IDENTIFIER = 0
    COUNTRY_CODE = 1
    LANGUAGE_CODE = 2
    COUNTRY_NAME = 3
    LANGUAGE_NAME = 4
    IDENTIFIER_NAME = 5


class Advertising(enum.IntEnum):
    """The permission to use an advertising identifier."""

    UNAVAILABLE = 0
    DENIED = 1
    LIMITED = 2
    ALLOWED = 3


class Slot(enum.IntEnum):
    """Of a trigger; the in-app one is called first."""

    IN_APP = 0
    MESSAGING = 1


def _future(function, *arguments):
    future = concurrent.futures.Future()
    function(*arguments, lib.complete, lib.keep(lib.Completion(future)), lib.release)
    return future


class Analytics:
    """The module. A process has one: it starts when this object is made, and closes once.

    endpoint, app_id: the collection service, and this application. folder: where its files stand; default
    ~/.local/share/zorvane. remote_configuration: a mapping with keys of docs/formats.md. app_status: 1 if an
    application without the module was updated to one with it. state: of the application at the start. journal: the
    bytes of a journal's file, 0 for 1 MiB; an event is then not lost by a kill; None keeps no journal. journal_sync: a
    sync after so many seconds, 0 for none. close_timeout: seconds that the end of a "with" block waits.

    Callbacks, all on any thread; None has a portable default:
    log: True for standard error, or a function of the line; it must not call this object.
    transport: a function of a Request; default HTTP of the library, if has_http().
    main_loop: an object with post(task), where the task is callable, and is_main_thread().
    background_tasks: an object with begin(number, name) and end(number).
    locale: a function of a LocaleQuestion's number and its argument; returns text or None.
    time_zone: a function of seconds since 1970; returns the offset from UTC in seconds.
    advertising: a function; returns an Advertising and the identifier or None.

    Every method may be called on any thread; it raises AnalyticsError if the library refuses. Operations with an answer
    return a Future of a boolean, which is cancelled if no answer comes. Wait for it on a thread of your own, never in a
    callback."""

    def __init__(self, *, endpoint, app_id, folder=None, remote_configuration=None, app_status=0, state=State.ACTIVE,
                 journal=None, journal_sync=0, close_timeout=10, log=None, transport=None, main_loop=None,
                 background_tasks=None, locale=None, time_zone=None, advertising=None):
        self._close_timeout = close_timeout
        self._sent = False
        options = lib.Handle(_options_new(), "options")
        _set_endpoint(options, *lib.text(endpoint))
        _set_app_id_option(options, *lib.text(app_id))
        _set_app_status(options, app_status)
        _set_state(options, state)
        if folder is not None:
            _set_folder(options, *lib.text(str(folder)))
        if remote_configuration is not None:
            _set_remote_configuration(options, *lib.text(json.dumps(remote_configuration)))
        if journal is not None:
            _set_journal(options, journal, journal_sync)
        if log is True:
            _set_log_to_stderr(options)
            log = None
        for given, name, functions in (
                (log, "log", [lib.log]), (transport, "transport", [lib.send]),
                (main_loop, "main_loop", [lib.post, lib.is_main]),
                (background_tasks, "background_tasks", [lib.begin, lib.end]), (locale, "locale", [lib.locale]),
                (time_zone, "time_zone", [lib.zone]), (advertising, "advertising", [lib.advertising])):
            if given is not None:
                lib.set_option[name](options, *functions, lib.keep(given), lib.release)
        _start(options)
        # A thread of the library must not enter an interpreter that has ended.
        atexit.register(self._close_at_exit)

    def __enter__(self):
        return self

    def __exit__(self, *_exception):
        self.close(self._close_timeout)

    def close(self, timeout=10):
        """Saves and sends what is recorded, waits at most that many seconds. True if the service accepted everything;
        the rest goes with the next launch. Afterwards no callback comes. A second close returns the same, or False
        while the first runs. Raises AnalyticsError in a callback, and if a callback does not end in time; the module is
        closed in the latter case, too."""
        sent = ctypes.c_int()
        try:
            lib.close(timeout, ctypes.byref(sent))
        except AnalyticsError as error:
            if error.status == Status.CLOSED:
                return self._sent
            raise
        self._sent = bool(sent.value)
        atexit.unregister(self._close_at_exit)
        return self._sent

    def _close_at_exit(self):
        try:
            self.close(1)
        except AnalyticsError:
            pass

    @staticmethod
    def has_http():
        """Whether the library sends requests by itself. If not, give a transport."""
        return bool(_has_http())

    # --- Events

    def track(self, name, properties=None):
        """Records an event. properties: a mapping (None, bool, int, float, str, bytes, datetime, URL, Location, lists
        and mappings of these), or a Properties object. Returns at once."""
        if properties is None:
            return _track(*lib.text(name), None)
        if isinstance(properties, Properties):
            return _track(*lib.text(name), properties)
        try:
            encoded = json.dumps(properties, allow_nan=False).encode() if is_json(properties) else None
        except (TypeError, ValueError):
            # Dates, bytes, not-a-number.
            encoded = None
        if encoded is None:
            return _track(*lib.text(name), Properties(properties))
        return _track_json(*lib.text(name), encoded, len(encoded))

    def flush(self):
        """Saves and sends the events recorded so far. True: the service accepted all, or there were none."""
        return _future(_flush)

    def set_flush_interval(self, interval):
        """Seconds; ignored unless above the remote minimum."""
        _set_flush_interval(interval)

    def disable_periodic_flush(self):
        _disable_periodic_flush()

    def event_record(self, name, properties=None):
        """The record that such an event would have now, as a dictionary."""
        return python_of(lib.Handle(_event_record(*lib.text(name), Properties(properties)), "value"))

    def set_trigger(self, function, slot=Slot.IN_APP):
        """Calls function(name, record) after each recorded event; None removes it. The record is a dictionary. A
        mapping that the function returns is set in the record, for the messaging trigger to see."""
        if function is None:
            lib.set_trigger(slot, lib.TRIGGER(), None, lib.RELEASE())
            return

        def called(name, record):
            update_map(record, function(name, python_of(record)) or {})
        lib.set_trigger(slot, lib.trigger, lib.keep(called), lib.release)

    # --- The user

    def login(self, unique_id):
        """Another user is logged out first."""
        _login(*lib.text(unique_id))

    def set_alias(self, unique_id):
        """Renames the user without a logout. Writes a file."""
        _set_alias(*lib.text(unique_id))

    def reset_user(self):
        """Logs the user out and begins the next. True: requests were made and all accepted."""
        return _future(_reset_user)

    def init_new_user(self):
        """The second part of a reset, for a host that begins a new user itself."""
        _init_new_user()

    def set_user_attribute(self, key, value):
        """A str, bool, int, float, datetime or Location."""
        if isinstance(value, datetime.datetime):
            _set_user_attribute_date(*lib.text(key), seconds(value))
        elif isinstance(value, Location):
            _set_user_attribute_location(*lib.text(key), *value)
        else:
            _set_user_attribute(*lib.text(key), value_of(value))

    def set_push_preference(self, wanted):
        _set_push_preference(wanted)

    # --- Consent

    def opt_out_of_data_tracking(self, opt_out=True):
        """Deletes stored events and cached attributes, and stops all events but the excepted ones."""
        _opt_out_of_data_tracking(opt_out)

    def opt_out_of_idfv_tracking(self, opt_out=True):
        _opt_out_of_idfv_tracking(opt_out)

    def opt_out_of_idfa_tracking(self, opt_out=True):
        _opt_out_of_idfa_tracking(opt_out)

    def update_opt_out_events(self, names):
        """Events that are tracked even while data tracking is opted out."""
        _update_opt_out_events(value_of(list(names)))

    def set_push_consent(self, key, value):
        _set_push_consent(*lib.text(key), value_of(value))

    def set_sdk_enabled(self, enabled):
        _set_sdk_enabled(enabled)

    # --- Lifecycle and links

    def lifecycle(self, event):
        """A Lifecycle. A program without a lifecycle calls none."""
        _lifecycle(event)

    def enter_foreground(self):
        _enter_foreground()

    def enter_background(self):
        _enter_background()

    def background_task_expired(self, number):
        _background_task_expired(number)

    def open_url(self, url):
        """A URL opened the application."""
        _open_url(*lib.text(url))

    def process_url(self, url):
        """As open_url, but nothing while the module intercepts opened URLs."""
        _process_url(*lib.text(url))

    def update_sources(self, sources):
        """Source objects of the current visit."""
        sources = list(sources)
        array = (ctypes.c_void_p * len(sources))(*[source._as_parameter_ for source in sources])
        lib.update_sources(array, len(sources))

    # --- Device, installation, core

    def update_device(self):
        """Registers the device. True: the service accepted."""
        return _future(_update_device)

    def push_token_updated(self):
        _push_token_updated()

    def app_status(self, status):
        _app_status(status)

    def smart_trigger_for_app_status(self, status):
        _smart_trigger(status)

    def track_sdk_version(self):
        _track_sdk_version()

    def track_reinstall(self):
        _track_reinstall()

    def set_device_model_attributes(self):
        _set_device_model_attributes()

    def track_locale(self):
        _track_locale()

    def track_advertising_identifier(self):
        _track_advertising_identifier()

    @property
    def tracked_idfa(self):
        """The advertising identifier tracked last; None if there is none."""
        identifier = _copy_tracked_idfa(None)
        return (lib.taken_text(identifier) or None) if identifier else None

    @property
    def device_registration(self):
        """The body of a device registration, as a dictionary."""
        return json.loads(lib.taken_text(_copy_device_registration(None)))

    @property
    def configuration(self):
        """The remote configuration in effect, as a dictionary."""
        return json.loads(lib.taken_text(_copy_configuration(None)))

    def update_remote_configuration(self, changes):
        _update_remote_configuration(*lib.text(json.dumps(changes)))

    def set_app_id(self, app_id):
        """Switches to another application identifier: flushes, resets the user."""
        return _future(_set_app_id, *lib.text(app_id))

    def update_modules(self):
        _update_modules()

    def session_started(self):
        """Tracks the session's start; the lifecycle does."""
        _session_started()


_options_new = lib.make("zr_options_new")
_set_endpoint = lib.call("zr_options_set_endpoint", "pt")
_set_app_id_option = lib.call("zr_options_set_app_id", "pt")
_set_app_status = lib.call("zr_options_set_app_status", "pl")
_set_state = lib.call("zr_options_set_state", "pi")
_set_folder = lib.call("zr_options_set_folder", "pt")
_set_remote_configuration = lib.call("zr_options_set_remote_configuration", "pt")
_set_journal = lib.call("zr_options_set_journal", "pud")
_set_log_to_stderr = lib.call("zr_options_set_log_to_stderr", "p")
_start = lib.call("zr_start", "p")
_track = lib.call("zr_track", "tp")
_track_json = lib.call("zr_track_json", "tt")
_flush = lib.call("zr_flush", "c")
_set_flush_interval = lib.call("zr_set_flush_interval", "l")
_disable_periodic_flush = lib.call("zr_disable_periodic_flush")
_event_record = lib.make("zr_event_record", "tp")
_login = lib.call("zr_login", "t")
_set_alias = lib.call("zr_set_alias", "t")
_reset_user = lib.call("zr_reset_user", "c")
_init_new_user = lib.call("zr_init_new_user")
_set_user_attribute = lib.call("zr_set_user_attribute", "tp")
_set_user_attribute_date = lib.call("zr_set_user_attribute_date", "td")
_set_user_attribute_location = lib.call("zr_set_user_attribute_location", "tdd")
_set_push_preference = lib.call("zr_set_push_preference", "i")
_opt_out_of_data_tracking = lib.call("zr_opt_out_of_data_tracking", "i")
_opt_out_of_idfv_tracking = lib.call("zr_opt_out_of_idfv_tracking", "i")
_opt_out_of_idfa_tracking = lib.call("zr_opt_out_of_idfa_tracking", "i")
_update_opt_out_events = lib.call("zr_update_opt_out_events", "p")
_set_push_consent = lib.call("zr_set_push_consent", "tp")
_set_sdk_enabled = lib.call("zr_set_sdk_enabled", "i")
_lifecycle = lib.call("zr_lifecycle", "i")
_enter_foreground = lib.call("zr_enter_foreground")
_enter_background = lib.call("zr_enter_background")
_background_task_expired = lib.call("zr_background_task_expired", "u")
_open_url = lib.call("zr_open_url", "t")
_process_url = lib.call("zr_process_url", "t")
_update_device = lib.call("zr_update_device", "c")
_push_token_updated = lib.call("zr_push_token_updated")
_app_status = lib.call("zr_app_status", "l")
_smart_trigger = lib.call("zr_smart_trigger_for_app_status", "l")
_track_sdk_version = lib.call("zr_track_sdk_version")
_track_reinstall = lib.call("zr_track_reinstall")
_set_device_model_attributes = lib.call("zr_set_device_model_attributes")
_track_locale = lib.call("zr_track_locale")
_track_advertising_identifier = lib.call("zr_track_advertising_identifier")
_copy_tracked_idfa = lib.find("zr_copy_tracked_idfa", "p")
_copy_device_registration = lib.make("zr_copy_device_registration", "p")
_copy_configuration = lib.make("zr_copy_configuration", "p")
_update_remote_configuration = lib.call("zr_update_remote_configuration", "t")
_set_app_id = lib.call("zr_set_app_id", "tc")
_update_modules = lib.call("zr_update_modules")
_session_started = lib.call("zr_session_started")
_has_http = lib.ask("zr_has_http")
