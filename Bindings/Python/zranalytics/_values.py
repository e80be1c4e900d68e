"""Python objects as values of the library."""

import collections.abc
import ctypes
import datetime
import json
import typing

from . import _library as lib


class Location(typing.NamedTuple):
    """A place, in degrees."""

    latitude: float
    longitude: float


class URL(str):
    """The text of a URL, as an attribute."""


_null = lib.make("zr_value_null")
_bool = lib.make("zr_value_bool", "i")
_integer = lib.make("zr_value_integer", "l")
_double = lib.make("zr_value_double", "d")
_string = lib.make("zr_value_string", "t")
_bytes = lib.make("zr_value_bytes", "t")
_date = lib.make("zr_value_date", "d")
_url = lib.make("zr_value_url", "t")
_location = lib.make("zr_value_location", "dd")
_list = lib.make("zr_value_list")
_map = lib.make("zr_value_map")
_from_json = lib.make("zr_value_from_json", "t")
_append = lib.call("zr_value_append", "pp")
_set = lib.call("zr_value_set", "ptp")
_properties_from_map = lib.make("zr_properties_from_map", "p")
_set_non_interactive = lib.call("zr_properties_set_non_interactive", "pi")
_source_is_valid = lib.ask("zr_source_is_valid", "p")


def seconds(moment):
    """Seconds since 1970; a datetime without a time zone is local time."""
    return moment.timestamp()


def _pointer(value):
    if value is None:
        return _null()
    if isinstance(value, bool):
        return _bool(value)
    if isinstance(value, int):
        return _integer(value) if -2**63 <= value < 2**63 else _double(value)
    if isinstance(value, float):
        return _double(value)
    if isinstance(value, URL):
        return _url(*lib.text(value))
    if isinstance(value, str):
        return _string(*lib.text(value))
    if isinstance(value, (bytes, bytearray, memoryview)):
        return _bytes(bytes(value), len(value))
    if isinstance(value, datetime.datetime):
        return _date(seconds(value))
    if isinstance(value, Location):
        return _location(*value)
    raise TypeError(f"{type(value).__name__} is no attribute")


def value_of(value):
    """The object as a value of the library: None, bool, int, float, str, URL, bytes, datetime, Location; lists, tuples
    and mappings of these."""
    if isinstance(value, collections.abc.Mapping):
        handle = lib.Handle(_map(), "value")
        update_map(handle, value)
        return handle
    if isinstance(value, (list, tuple)) and not isinstance(value, Location):
        handle = lib.Handle(_list(), "value")
        for item in value:
            _append(handle, value_of(item))
        return handle
    return lib.Handle(_pointer(value), "value")


def is_json(value):
    """Whether JSON can hold the containers. json.dumps would make a list of a Location, and a text of any key."""
    if isinstance(value, Location):
        return False
    if isinstance(value, dict):
        return all(isinstance(key, str) and is_json(item) for key, item in value.items())
    return not isinstance(value, (list, tuple)) or all(map(is_json, value))


def python_of(pointer):
    """A value of the library as JSON has it."""
    return json.loads(lib.json_of(pointer))


def update_map(pointer, changes):
    """Sets these pairs in a map of the library."""
    for key, item in changes.items():
        if not isinstance(key, str):
            raise TypeError(f"{key!r} is no name of an attribute")
        _set(pointer, *lib.text(key), value_of(item))


class Properties(lib.Handle):
    """Attributes of an event, made once for several events. attributes: a mapping from names to what value_of takes."""

    def __init__(self, attributes=None, *, non_interactive=False):
        super().__init__(_properties_from_map(value_of(attributes or {})), "properties")
        if non_interactive:
            _set_non_interactive(self, 1)


class Source(lib.Handle):
    """A traffic source: of a URL, a push message's mapping, or a mapping with keys such as "utm_source"."""

    _of_url = lib.make("zr_source_from_url", "t")
    _of_push = lib.make("zr_source_from_push", "p")
    _of_service_push = lib.make("zr_source_from_service_push", "p")
    _of_map = lib.make("zr_source_from_map", "p")

    @classmethod
    def from_url(cls, url):
        return cls(cls._of_url(*lib.text(url)), "source")

    @classmethod
    def from_push(cls, payload, *, of_service=False):
        return cls((cls._of_service_push if of_service else cls._of_push)(value_of(payload)), "source")

    @classmethod
    def from_map(cls, names):
        return cls(cls._of_map(value_of(names)), "source")

    @property
    def is_valid(self):
        """Whether it names a source."""
        return bool(_source_is_valid(self))


class Condition(lib.Handle):
    """A condition of the service, given as the mapping or the JSON text that it sends."""

    _of_json = lib.make("zr_condition_from_json", "t")

    def __init__(self, condition):
        encoded = condition if isinstance(condition, str) else json.dumps(condition)
        super().__init__(self._of_json(*lib.text(encoded)), "condition")

    def is_satisfied_by(self, name, record):
        """record: as a trigger gets it, or of Analytics.event_record. Only between start and close."""
        satisfied = ctypes.c_int()
        lib.condition_check(self, *lib.text(name), value_of(record), ctypes.byref(satisfied))
        return bool(satisfied.value)
