"""Reads records by a layout file, which says which bytes hold which field.

The server and the application agree on the content of these records. kivctl reads the same files.
"""

from __future__ import annotations

import json
import os
import re
from collections.abc import Callable
from pathlib import Path
from typing import Any, NamedTuple, NoReturn

from ._types import RECORDS, Record, shown

_LONGEST_FILE = 1 << 20
_LONGEST_RECORD = 1 << 16

# The names that layouts have for the records of the library's functions.
_NAMES = {RECORDS["spk_info_s"]: "speaker", RECORDS["STNetSpkListInfo"]: "list", RECORDS["CNetSpkNodeInfo"]: "node"}

Reader = Callable[[bytes], Any]


def _text(data: bytes) -> str:
    return data.partition(b"\0")[0].decode("utf-8", "replace")


def _dotted(data: bytes) -> str:
    return ".".join(map(str, data))


def _integer(signed: bool) -> Reader:
    return lambda data: int.from_bytes(data, "little", signed=signed)


# The types of fields: those of any length, and those of a fixed one, with their length in bytes.
_OF_ANY_LENGTH: dict[str, Reader] = {"text": _text, "bytes": bytes.hex}
_OF_FIXED_LENGTH: dict[str, tuple[int, Reader]] = {"mac": (6, lambda data: data.hex(":")), "ipv4": (4, _dotted)}
_INTEGERS = {f"{kind}{8 * length}": (length, _integer(kind == "i")) for kind in "ui" for length in (1, 2, 4)}
_OF_FIXED_LENGTH.update(_INTEGERS)
_TYPES = [*_OF_ANY_LENGTH, *_OF_FIXED_LENGTH, "records"]

_KEYS = {"name", "offset", "type"}
_KEYS_BY_TYPE = {"text": {"length"}, "bytes": {"length"}, "records": {"record", "count"}}
_ALL_KEYS = {*_KEYS, "length", "record", "count", "filled"}


class LayoutError(ValueError):
    """Is raised if a layout cannot be used, or does not describe a record. The text says where, and what is wrong."""


class DecodedEvent(NamedTuple):
    """An event as a layout describes it. If the layout does not, the name is None and there are no records."""

    name: str | None
    records: list[dict[str, Any]]


class _Node:
    """A value of the file, with its place there for error messages."""

    def __init__(self, file: str, place: str, value: Any) -> None:
        self._file = file
        self._place = place
        self.value = value

    def refuse(self, expected: str, *got: Any) -> NoReturn:
        (refused,) = got or (self.value,)
        raise LayoutError(f"{self._file}: {self._place or '/'}: {expected}, got {shown(refused)}")

    def entries(self) -> dict[str, _Node]:
        if not isinstance(self.value, dict):
            self.refuse("must be an object")
        return {key: _Node(self._file, f"{self._place}/{key}", value) for key, value in self.value.items()}

    def keys(self, required: set[str], allowed: set[str]) -> dict[str, _Node]:
        entries = self.entries()
        for key in entries:
            if key not in required | allowed:
                self.refuse(f"a key must be one of {', '.join(sorted(required | allowed))}", key)
        for key in sorted(required - entries.keys()):
            self.refuse(f"must have the key {key}")
        return entries

    def elements(self) -> list[_Node]:
        if not isinstance(self.value, list):
            self.refuse("must be an array")
        return [_Node(self._file, f"{self._place}/{index}", value) for index, value in enumerate(self.value)]

    def text(self) -> str:
        if not isinstance(self.value, str):
            self.refuse("must be a text")
        text: str = self.value
        return text

    def integer(self, low: int, high: int | None = None) -> int:
        is_integer = isinstance(self.value, int) and not isinstance(self.value, bool)
        if not is_integer or self.value < low or (high is not None and self.value > high):
            self.refuse(f"must be an integer of {low} or more" + (f", {high} at most" if high is not None else ""))
        integer: int = self.value
        return integer

    def key_of(self, known: dict[str, Any]) -> str:
        key = self.text()
        if key not in known:
            self.refuse(f"must be one of {', '.join(known)}" if known else "there is none that could be named")
        return key


class _Described:
    """A record as the file describes it."""

    def __init__(self, node: _Node, find: Callable[[_Node], _Described]) -> None:
        keys = node.keys({"size", "fields"}, set())
        self.size = keys["size"].integer(1, _LONGEST_RECORD)
        self._fields: dict[str, dict[str, _Node]] = {}
        for element in keys["fields"].elements():
            type_ = element.keys(_KEYS, _ALL_KEYS)["type"].text()
            field = element.keys(_KEYS | _KEYS_BY_TYPE.get(type_, set()), _ALL_KEYS)
            name = field["name"].text()
            if not name or name in self._fields:
                field["name"].refuse("must be a name that no other field of the record has")
            self._fields[name] = field
        self._readers: dict[str, Reader] = {}
        for name, field in self._fields.items():
            self._readers[name] = self._reader(field, find)

    def read(self, data: bytes) -> dict[str, Any]:
        return {name: read(data) for name, read in self._readers.items()}

    def read_all(self, data: bytes) -> list[dict[str, Any]]:
        """Returns all whole records in the bytes, which lie back to back."""
        return [self.read(data[at : at + self.size]) for at in range(0, len(data) - self.size + 1, self.size)]

    def _reader(self, field: dict[str, _Node], find: Callable[[_Node], _Described]) -> Reader:
        type_ = field["type"].value
        if type_ in _OF_FIXED_LENGTH:
            length, read = _OF_FIXED_LENGTH[type_]
        elif type_ in _OF_ANY_LENGTH:
            length, read = field["length"].integer(1), _OF_ANY_LENGTH[type_]
        elif type_ == "records":
            part = find(field["record"])
            length, read = field["count"].integer(1) * part.size, part.read_all
        else:
            field["type"].refuse(f"must be one of {', '.join(_TYPES)}")
        begin = field["offset"].integer(0)
        end = begin + length
        if end > self.size:
            field["offset"].refuse(f"the field's {length} bytes must lie within the record's {self.size}")
        if type_ != "records" or "filled" not in field:
            return lambda data: read(data[begin:end])
        filled = field["filled"].key_of(
            {name: other for name, other in self._fields.items() if other["type"].value in _INTEGERS}
        )
        return lambda data: read(data[begin:end])[: max(self._readers[filled](data), 0)]


def _read(file: str) -> _Node:
    try:
        with Path(file).open("rb") as opened:
            data = opened.read(_LONGEST_FILE + 1)
    except OSError as error:
        raise LayoutError(f"{file}: cannot be read: {error.strerror}") from None
    if len(data) > _LONGEST_FILE:
        raise LayoutError(f"{file}: must have {_LONGEST_FILE} bytes at most")
    try:
        return _Node(file, "", json.loads(data))
    except (ValueError, RecursionError) as error:
        raise LayoutError(f"{file}: must be JSON: {error}") from None


class Layout:
    """A layout. Layout() without an argument reads the file that the environment variable KIV_LAYOUT names."""

    def __init__(self, file: str | os.PathLike[str] | None = None) -> None:
        if not isinstance(file, (str, os.PathLike, type(None))):
            raise TypeError(f"file must be the path of a layout file, got {shown(file)}")
        self._file = os.fspath(file) if file else os.environ.get("KIV_LAYOUT", "")
        if not self._file:
            raise LayoutError("there is no layout: name a file, or set KIV_LAYOUT")
        keys = _read(self._file).keys({"records"}, {"description", "events"})
        if "description" in keys:
            keys["description"].text()
        self._records = self._read_records(keys["records"])
        self._events = self._read_events(keys["events"]) if "events" in keys else {}

    def record(self, record: Record) -> dict[str, Any]:
        """Returns the fields of a record that a function of the library has filled."""
        if type(record) not in _NAMES:
            raise TypeError(f"record must be one of {', '.join(type_.__name__ for type_ in _NAMES)}, got {shown(record)}")
        return self.decode(_NAMES[type(record)], bytes(record))

    def event(self, event: int, data: bytes, length: int) -> DecodedEvent:
        """Returns the name and the records of an event, from the arguments of its callback."""
        name, record = self._events.get(event & 0xFFFFFFFF, (None, None))
        return DecodedEvent(name, record.read_all(data[: max(length, 0)]) if record else [])

    def decode(self, name: str, data: bytes) -> dict[str, Any]:
        """Returns the fields of a record, from its name in the layout file and its bytes."""
        if name not in self._records:
            raise LayoutError(f"{self._file}: /records: has no record {name!r}, but {', '.join(self._records) or 'none'}")
        record = self._records[name]
        if len(data) != record.size:
            raise ValueError(f"data must be the {record.size} bytes of a record {name!r}, got {len(data)}")
        return record.read(data)

    @staticmethod
    def _read_records(node: _Node) -> dict[str, _Described]:
        entries = node.entries()
        records: dict[str, _Described] = {}
        begun: set[str] = set()

        def described(name: str) -> _Described:
            if name not in records:
                begun.add(name)
                records[name] = _Described(entries[name], part)
            return records[name]

        def part(named: _Node) -> _Described:
            name = named.key_of(entries)
            if name in begun - records.keys():
                named.refuse("must not be a record that contains this one")
            return described(name)

        for name in entries:
            described(name)
        for type_, name in _NAMES.items():
            size = len(bytes(type_()))
            if name in records and records[name].size != size:
                entries[name].entries()["size"].refuse(f"must be {size}, which is the size of {type_.__name__}")
        return {name: records[name] for name in entries}

    def _read_events(self, node: _Node) -> dict[int, tuple[str | None, _Described]]:
        events = {}
        for event, entry in node.entries().items():
            if not re.fullmatch("0x[0-9a-fA-F]{8}", event):
                node.refuse("a key must be an event id, 0x and eight hex digits", event)
            keys = entry.keys({"record"}, {"name"})
            name = keys["name"].text() if "name" in keys else None
            events[int(event, 16)] = name, self._records[keys["record"].key_of(self._records)]
        return events
