"""Declares the library for ctypes, and the scalars and records of the public header."""

import ctypes
import inspect
import operator
import reprlib
from pathlib import Path

from . import _declarations as declared

# This loads libkiv-interface-api as well, because _kiv.so is linked with it.
library = ctypes.CDLL(str(Path(__file__).with_name("_kiv.so")))

SCALARS = {
    "int": ctypes.c_int,
    "int32_t": ctypes.c_int32,
    "unsigned int": ctypes.c_uint,
    "unsigned char": ctypes.c_ubyte,
    "bool": ctypes.c_bool,
    "char": ctypes.c_char,
    "pthread_t": ctypes.c_ulong,
    "void": None,
    "void*": ctypes.c_void_p,
}


def type_of(name, count):
    scalar = SCALARS[name]
    return scalar if count is None else scalar * count


_repr = reprlib.Repr()
_repr.maxother = _repr.maxstring = 80
shown = _repr.repr


def integer(value, name, type_):
    """Returns the value as an int that the C type can hold. ctypes would drop the upper bits of a larger one."""
    try:
        number = operator.index(value)
    except TypeError:
        raise TypeError(f"{name} must be an int, got {shown(value)}") from None
    bits = 8 * ctypes.sizeof(type_)
    low, high = (-(1 << bits - 1), (1 << bits - 1) - 1) if type_(-1).value == -1 else (0, (1 << bits) - 1)
    if not low <= number <= high:
        raise OverflowError(f"{name} must be from {low} to {high}, got {shown(number)}")
    return number


def readable(value, name):
    """Returns the bytes of a bytes-like object."""
    try:
        return bytes(memoryview(value))
    except TypeError:
        raise TypeError(f"{name} must be bytes, got {shown(value)}") from None


def _field(name, type_, raw):
    """Returns the property for a field of a record: an int, or bytes for an array. Refuses values that do not fit."""
    is_array = issubclass(type_, ctypes.Array)
    size = ctypes.sizeof(type_)

    def get(record):
        value = raw.__get__(record)
        return bytes(value) if is_array else value

    def set_(record, value):
        if not is_array:
            raw.__set__(record, integer(value, name, type_))
            return
        data = readable(value, name)
        if len(data) != size:
            raise ValueError(f"{name} must be {size} bytes, got {len(data)}")
        raw.__set__(record, type_.from_buffer_copy(data))

    return property(get, set_)


class Record(ctypes.Structure):
    """A record. bytes(record) are its bytes on the bus. Two records are equal if all their bytes are equal."""

    __slots__ = ()
    __hash__ = None  # type: ignore[assignment]

    def __init__(self, *arguments, **named):
        super().__init__()
        for name, value in self.__signature__.bind(*arguments, **named).arguments.items():
            setattr(self, name, value)

    def __eq__(self, other):
        return bytes(self) == bytes(other) if type(other) is type(self) else NotImplemented

    def __repr__(self):
        values = ((name, getattr(self, name)) for name, _ in self._fields_)
        return f"{type(self).__name__}({', '.join(f'{name}={_shown(value)}' for name, value in values)})"


# repr() shows at most this number of bytes of a field.
_SHOWN = 32


def _shown(value):
    if isinstance(value, int):
        return str(value)
    if len(value) == declared.CONSTANTS["NETSPK_MAC_LEN"]:
        return value.hex(":")
    begin = value[:_SHOWN].rstrip(b"\0")
    return f"<{len(value)} bytes: {begin!r}...>" if any(value) else f"<{len(value)} bytes of zero>"


def _record(name, fields):
    types = [(field, type_of(type_, count)) for field, type_, count in fields]
    made = type(name, (Record,), {"__slots__": (), "__module__": "kiv", "_pack_": 1, "_fields_": types})
    made.__signature__ = inspect.Signature(
        [inspect.Parameter(field, inspect.Parameter.POSITIONAL_OR_KEYWORD, default=None) for field, _ in types]
    )
    for field, type_ in types:
        setattr(made, field, _field(field, type_, made.__dict__[field]))
    return made


RECORDS = {name: _record(name, fields) for name, fields in declared.RECORDS.items()}
RECORDS.update({alias: RECORDS[original] for alias, original in declared.ALIASES.items()})
