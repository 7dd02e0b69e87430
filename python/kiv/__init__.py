"""Control of wireless network speakers, for tests: the functions of libkiv-interface-api by their own names.

What a function does, returns and how long it can block is what its help() says, which is the text of the C++ header.
Arguments are what one expects: a list of records for a vector, bytes for what a function reads, a bytearray of
sufficient length for what it fills, a function for a callback. A vector's new content is in the list afterwards.

Other threads run on during a call. Callbacks run on the library's monitor thread.
"""

import atexit
import ctypes
import functools
import inspect
from contextlib import ExitStack
from pathlib import Path

from . import _declarations as _declared
from .sandbox import Sandbox

__all__ = ["AwaitEvents", "DestroyMessageMonitor", "Sandbox", "ip", "mac"]

# The library comes with it, being what it is linked with.
_library = ctypes.CDLL(str(Path(__file__).with_name("_kiv.so")))


def _export(name, value):
    globals()[name] = value
    __all__.append(name)


def mac(text):
    """The bytes of "02:4b:49:56:00:01"."""
    octets = bytes.fromhex(text.replace(":", ""))
    if len(octets) != _declared.CONSTANTS["NETSPK_MAC_LEN"]:
        raise ValueError(f"{text} is no MAC address")
    return octets


def ip(text):
    """The int for "192.168.0.21", as functions take it: the first octet in the lowest byte."""
    octets = bytes(int(octet) for octet in text.split("."))
    if len(octets) != _declared.CONSTANTS["NETSPK_IP_LEN"]:
        raise ValueError(f"{text} is no IPv4 address")
    return int.from_bytes(octets, "little", signed=True)


# --- Types ---

_SCALARS = {
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


def _type(name, count):
    scalar = _SCALARS[name]
    return scalar if count is None else scalar * count


class _Record(ctypes.Structure):
    """A record; bytes(record) is what travels, and fields of bytes can be set from bytes."""

    def __setattr__(self, name, value):
        super().__setattr__(name, tuple(value) if isinstance(value, (bytes, bytearray)) else value)


_records = {}
for _name, _fields in _declared.RECORDS.items():
    _layout = {"_pack_": 1, "_fields_": [(field, _type(name, count)) for field, name, count in _fields]}
    _records[_name] = type(_name, (_Record,), {**_layout, "__module__": __name__})
for _name, _original in _declared.ALIASES.items():
    _records[_name] = _records[_original]


# --- Arguments: each makes of a value what is passed; what is to be done after the call goes on the stack. ---


def _scalar(type_):
    return lambda value, after: type_(value)


def _text(value, after):
    return ctypes.c_char_p(value.encode() if isinstance(value, str) else value)


def _bytes_to_read(value, after):
    return None if value is None else (ctypes.c_ubyte * len(value)).from_buffer_copy(value)


def _bytes_to_fill(value, after):
    return None if value is None else (ctypes.c_ubyte * len(value)).from_buffer(value)


def _array(value, after):
    return value


def _vector(name):
    record = _records[name]
    new = getattr(_library, f"NewVectorOf_{record.__name__}")
    records = getattr(_library, f"RecordsOf_{record.__name__}")
    count = getattr(_library, f"CountOf_{record.__name__}")
    delete = getattr(_library, f"DeleteVectorOf_{record.__name__}")
    new.restype, new.argtypes = ctypes.c_void_p, [ctypes.c_void_p, ctypes.c_size_t]
    records.restype, records.argtypes = ctypes.c_void_p, [ctypes.c_void_p]
    count.restype, count.argtypes = ctypes.c_size_t, [ctypes.c_void_p]
    delete.restype, delete.argtypes = None, [ctypes.c_void_p]

    def convert(value, after):
        if value is None:
            return None
        vector = new((record * len(value))(*value), len(value))
        after.callback(delete, vector)

        def take_back():
            number = count(vector)
            value[:] = (record * number).from_buffer_copy(ctypes.string_at(records(vector), number * size))

        size = ctypes.sizeof(record)
        after.callback(take_back)
        return ctypes.c_void_p(vector)

    return convert


def _callback(prototype, adapt):
    # The library may call it at any time from now on, and tells callbacks apart by their address.
    made = functools.cache(lambda function: prototype(adapt(function)))
    return lambda value, after: prototype() if value is None else made(value)


def _event_callback(function):
    def call(event, data, length):
        function(event, ctypes.string_at(data, _declared.CONSTANTS["NAMSERVICE_EVENT_DATA_MAX"]), length)

    return call


_ARGUMENTS = {
    "const char*": _text,
    "char*": _bytes_to_fill,
    "const unsigned char*": _bytes_to_read,
    "unsigned char*": _bytes_to_fill,
    "STNetSpkListInfo*": _array,
    "NamEventCallback": _callback(
        ctypes.CFUNCTYPE(None, ctypes.c_int, ctypes.c_void_p, ctypes.c_int), _event_callback
    ),
    "AtmosSupportCallback": _callback(ctypes.CFUNCTYPE(None, ctypes.c_int, ctypes.c_void_p), lambda function: function),
}


def _argument(type_):
    if type_ in _ARGUMENTS:
        return _ARGUMENTS[type_]
    element = type_.partition("std::vector<")[2].partition(">")[0]
    return _vector(element) if element else _scalar(_SCALARS[type_])


# --- Functions ---


def _function(name, result, parameters, documentation):
    function = getattr(_library, name)
    function.restype = _SCALARS[result]
    if parameters is None:

        def call(*arguments):
            return function(*arguments)

    else:
        converters = [_argument(type_) for type_, _ in parameters]
        signature = inspect.Signature(
            [inspect.Parameter(parameter, inspect.Parameter.POSITIONAL_OR_KEYWORD) for _, parameter in parameters]
        )

        def call(*arguments, **named):
            values = signature.bind(*arguments, **named).args
            with ExitStack() as after:
                return function(*(convert(value, after) for convert, value in zip(converters, values)))

        call.__signature__ = signature
    call.__name__ = call.__qualname__ = name
    call.__doc__ = documentation
    return call


for _name, _value in _declared.CONSTANTS.items():
    _export(_name, _value)
for _name, _value in _records.items():
    _export(_name, _value)
for _name, (_kind, _count) in _declared.GLOBALS.items():
    _export(_name, _type(_kind, _count).in_dll(_library, _name))
for _name, _declaration in _declared.FUNCTIONS.items():
    _export(_name, _function(_name, *_declaration))


_library.AwaitEvents.restype = ctypes.c_bool


def AwaitEvents():
    """Waits until events can arrive, which is a moment after the first call that the server answers.

    What the server sends before that is lost. False if events cannot arrive: the last call did not reach the server, its
    client id is no name, the bus is gone, or DestroyMessageMonitor() was called.
    """
    return _library.AwaitEvents()


def DestroyMessageMonitor():
    """CNSGdbus::m_DestroyMessageMonitor() of the library's one object.

    Ends the monitor thread: no callback runs after that, for the life of the process. Done at exit in any case.
    """
    return _library.DestroyMessageMonitor()


# A callback must not find an interpreter that is going away.
atexit.register(DestroyMessageMonitor)
