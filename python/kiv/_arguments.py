"""Converts Python values to arguments of the library's functions.

Refuses values with which a function would read or write beyond a buffer. A converter is called with a value and a Call,
and returns the argument to pass.
"""

import ctypes
import functools
import mmap
from contextlib import ExitStack

from ._types import RECORDS, SCALARS, declared, integer, library, readable, shown

_MAC_LENGTH = declared.CONSTANTS["NETSPK_MAC_LEN"]

# The sizes in bytes of buffers of fixed length, by the names of the parameters. If the header has a buffer that is in
# neither of these tables, importing the module fails.
_LENGTHS = {
    "pMac": _MAC_LENGTH,
    "soundbarMAC": _MAC_LENGTH,
    "pDisplayName": declared.CONSTANTS["NETSPK_LIST_NAME_LEN"],
    "pSpeakerType": declared.CONSTANTS["NETSPK_SPEAKER_TYPE_LEN"] + 1,
    "soundbarDeviceInfo": declared.CONSTANTS["KIV_SOUNDBAR_DEVICE_INFO_LEN"],
    "soundmodeData": declared.CONSTANTS["KIV_SOUND_MODE_LEN"],
}

# The other buffers: the parameter that counts their elements, and the size of an element in bytes.
_COUNTED = {
    "pParam": ("nParamLen", 1),
    "pData": ("nDataLen", 1),
    "pSoundModeVersion": ("nSoundModeVersionLen", 1),
    "connectNewSpeakersMacAddrLists": ("nNewSpeakersCount", _MAC_LENGTH),
}

# These functions throw an exception if the parameter is null, which would end the process.
_NEVER_NULL = {("UnsubscribeNamServiceCallback", "name")}

# D-Bus carries at most this number of bytes in an array.
_LONGEST_ARRAY = 1 << 26


class Call(ExitStack):
    """One call of a function. The callbacks of the stack always run, also if an argument is refused."""

    def __init__(self, arguments):
        super().__init__()
        self.arguments = arguments
        self.before = []  # functions that run when all arguments have been converted
        self.after = []  # functions that get the result of the call


def _scalar(name, type_):
    return lambda value, call: type_(integer(value, name, type_))


def _pointer(name):
    return lambda value, call: None if value is None else ctypes.c_void_p(integer(value, name, ctypes.c_size_t))


def _text(name, may_be_null):
    kinds = "str, bytes or None" if may_be_null else "str or bytes"

    def convert(value, call):
        if value is None and may_be_null:
            return None
        text = value.encode() if isinstance(value, str) else value
        if not isinstance(text, bytes):
            raise TypeError(f"{name} must be {kinds}, got {shown(value)}")
        if 0 in text:
            raise ValueError(f"{name} must not contain a NUL, with which a C text ends, got {shown(value)}")
        return ctypes.c_char_p(text)

    return convert


def _check_count(name, length, call):
    counter, size = _COUNTED[name]

    def check():
        count = call.arguments[counter]
        if count * size > length:
            elements = "bytes" if size == 1 else f"times {size} bytes"
            raise ValueError(f"{name} must have the {count} {elements} that {counter} tells, got {length} bytes")

    call.before.append(check)


def _to_read(value, name, element):
    data = readable(value, name, element)
    return (ctypes.c_ubyte * len(data)).from_buffer_copy(data)


def _to_fill(value, name):
    try:
        buffer = memoryview(value).cast("B")
        return (ctypes.c_ubyte * len(buffer)).from_buffer(buffer)
    except TypeError:
        raise TypeError(f"{name} must be a bytearray, got {shown(value)}") from None


def _buffer(name, is_filled):
    length = None if name in _COUNTED else _LENGTHS[name]
    element = _COUNTED[name][1] if name in _COUNTED else length

    def convert(value, call):
        if value is None and (length is None or not is_filled):
            return None
        data = _to_fill(value, name) if is_filled else _to_read(value, name, element)
        if length is None:
            _check_count(name, len(data), call)
        elif is_filled and len(data) < length:
            raise ValueError(f"{name} must have room for {length} bytes, got {len(data)}")
        elif not is_filled and len(data) != length:
            raise ValueError(f"{name} must be {length} bytes, got {len(data)}")
        return data

    return convert


def _array(name, record):
    """The function does not say how many records it will write, so it gets room for as many as D-Bus can carry."""

    def convert(value, call):
        if not (isinstance(value, ctypes.Array) and value._type_ is record):
            example = f"(kiv.{record.__name__} * 8)()"
            raise TypeError(f"{name} must be an array such as {example}, got {shown(value)}")
        room = (ctypes.c_ubyte * _LONGEST_ARRAY).from_buffer(mmap.mmap(-1, _LONGEST_ARRAY))

        def take_over(count):
            if count > len(value):
                raise ValueError(f"{name} must have room for the {count} records that there are, got {len(value)}")
            ctypes.memmove(value, room, max(count, 0) * ctypes.sizeof(record))

        call.after.append(take_over)
        return room

    return convert


def _vector(name, record, may_be_null):
    functions = ("NewVectorOf", "RecordsOf", "CountOf", "DeleteVectorOf")
    new, records, count, delete = (getattr(library, f"{function}_{record.__name__}") for function in functions)
    new.restype = records.restype = ctypes.c_void_p
    count.restype = ctypes.c_size_t
    new.argtypes = [ctypes.c_void_p, ctypes.c_size_t]
    records.argtypes = count.argtypes = delete.argtypes = [ctypes.c_void_p]
    size = ctypes.sizeof(record)
    kinds = f"a list of {record.__name__}{' or None' if may_be_null else ''}"
    fields = 'mac=kiv.mac("02:4b:49:56:00:01")' if hasattr(record, "mac") else ""
    such_as = f"such as kiv.{record.__name__}({fields})"

    def convert(value, call):
        if value is None and may_be_null:
            return None
        if not isinstance(value, list):
            raise TypeError(f"{name} must be {kinds}, got {shown(value)}")
        for index, element in enumerate(value):
            if not isinstance(element, record):
                raise TypeError(f"{name}[{index}] must be a {record.__name__} {such_as}, got {shown(element)}")
        vector = new((record * len(value))(*value), len(value))
        call.callback(delete, vector)

        def take_back(_):
            number = count(vector)
            value[:] = (record * number).from_buffer_copy(ctypes.string_at(records(vector), number * size))

        call.after.append(take_back)
        return ctypes.c_void_p(vector)

    return convert


def _event_callback(function):
    def call(event, data, length):
        function(event, ctypes.string_at(data, declared.CONSTANTS["NAMSERVICE_EVENT_DATA_MAX"]), length)

    return ctypes.CFUNCTYPE(None, ctypes.c_int, ctypes.c_void_p, ctypes.c_int)(call)


# The library tells callbacks apart by their addresses, and may call one at any time. So each Python function has one C
# callback, for the life of the process.
_CALLBACKS = {
    "NamEventCallback": functools.cache(_event_callback),
    "AtmosSupportCallback": functools.cache(ctypes.CFUNCTYPE(None, ctypes.c_int, ctypes.c_void_p)),
}


def _callback(name, made):
    def convert(value, call):
        if value is None:
            return None
        if not callable(value):
            raise TypeError(f"{name} must be a function or None, got {shown(value)}")
        return made(value)

    return convert


def converter(function, name, type_):
    """Returns the converter for a parameter of a function."""
    element = type_.partition("std::vector<")[2].partition(">")[0]
    if element:
        return _vector(name, RECORDS[element], may_be_null=type_.endswith("*"))
    if type_ == "const char*":
        return _text(name, may_be_null=(function, name) not in _NEVER_NULL)
    if type_ in ("const unsigned char*", "char*", "unsigned char*"):
        return _buffer(name, is_filled=not type_.startswith("const"))
    if type_ == "void*":
        return _pointer(name)
    if type_ in _CALLBACKS:
        return _callback(name, _CALLBACKS[type_])
    if type_.endswith("*"):
        return _array(name, RECORDS[type_[:-1]])
    return _scalar(name, SCALARS[type_])
