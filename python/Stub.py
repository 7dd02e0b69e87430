"""Writes the type stub of the module, for type checkers and editors.

usage: Stub.py DECLARATIONS OUTPUT
"""

import runpy
import sys
from pathlib import Path

HEAD = '''\
"""Controls wireless network speakers, for tests. The build writes this file."""

import ctypes
from collections.abc import Callable
from typing import Union

from ._own import AwaitEvents as AwaitEvents, DestroyMessageMonitor as DestroyMessageMonitor, ip as ip, mac as mac
from ._types import Record
from .layout import DecodedEvent as DecodedEvent, Layout as Layout, LayoutError as LayoutError
from .sandbox import ControlError as ControlError, ReceivedCall as ReceivedCall, Sandbox as Sandbox

_Text = Union[str, bytes]
_Bytes = Union[bytes, bytearray, memoryview]
_Buffer = Union[bytearray, memoryview]

__version__: str
'''

VALUES = {"int": "int", "int32_t": "int", "unsigned int": "int", "bool": "bool", "void": "None"}
ARGUMENTS = {
    **VALUES,
    "const char*": "_Text | None",
    "const unsigned char*": "_Bytes | None",
    "char*": "_Buffer",
    "unsigned char*": "_Buffer",
    "void*": "int | None",
    "NamEventCallback": "Callable[[int, bytes, int], object] | None",
    "AtmosSupportCallback": "Callable[[int, int | None], object] | None",
}
SCALARS = {"bool": "ctypes.c_bool", "char": "ctypes.c_char", "pthread_t": "ctypes.c_ulong"}


def argument(type_):
    if type_ in ARGUMENTS:
        return ARGUMENTS[type_]
    element = type_.partition("std::vector<")[2].partition(">")[0]
    if element:
        return f"list[{element}]{' | None' if type_.endswith('*') else ''}"
    return f"ctypes.Array[{type_[:-1]}]"


def record(name, fields):
    types = [(field, "bytes" if count else VALUES[type_]) for field, type_, count in fields]
    attributes = "".join(f"    {field}: {type_}\n" for field, type_ in types)
    arguments = ", ".join(f"{field}: {type_} = ..." for field, type_ in types)
    return f"class {name}(Record):\n{attributes}    def __init__(self, {arguments}) -> None: ...\n"


def function(name, result, parameters, documentation):
    arguments = "*_: object"
    if parameters is not None:
        arguments = ", ".join(f"{parameter}: {argument(type_)}" for type_, parameter in parameters)
    return f"def {name}({arguments}) -> {VALUES[result]}: ...\n"


def variable(name, kind, count):
    return f"{name}: {f'ctypes.Array[{SCALARS[kind]}]' if count else SCALARS[kind]}\n"


def main(declarations, output):
    declared = runpy.run_path(declarations)
    parts = [
        HEAD,
        *(f"{name}: int\n" for name in declared["CONSTANTS"]),
        *(record(name, fields) for name, fields in declared["RECORDS"].items()),
        *(f"{name} = {original}\n" for name, original in declared["ALIASES"].items()),
        *(variable(name, *declaration) for name, declaration in declared["GLOBALS"].items()),
        *(function(name, *declaration) for name, declaration in declared["FUNCTIONS"].items()),
    ]
    Path(output).write_text("".join(parts))


if __name__ == "__main__":
    main(*sys.argv[1:])
