"""Writes the declarations of the public header into the module's folder: as Python data, which the module reads when it is
imported, and as the module's type stub, for type checkers and editors.

usage: Declarations.py HEADER VERSION FOLDER
"""

import re
import sys
from pathlib import Path
from pprint import pformat

# A function with its comment, which stands before or behind it.
FUNCTION = r"""
    (?: /\*\* (?P<before> (?: (?!\*/). )* ) \*/ \s* )?
    (?<!extern\ ) KIV_API \s+ (?P<result>\w+) \s+ (?P<name>\w+) \( (?P<parameters>[^)]*) \);
    (?: [ ]* /\*\*< (?P<behind> (?: (?!\*/). )* ) \*/ )?
"""


STUB = '''\
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


def documentation(match):
    text = match["before"] or match["behind"] or ""
    return re.sub(r"^ *\* ?|@p ", "", text, flags=re.MULTILINE).strip()


def parameters(text):
    """Returns (type, name) of each parameter, or None for a function that takes any arguments."""
    if text == "KIV_ANY_ARGUMENTS":
        return None
    split = (re.fullmatch(r"(.+?)\s*(\w+)", one.strip(), re.DOTALL) for one in text.split(","))
    return [] if text in ("", "void") else [(match[1], match[2]) for match in split]


def constants(header):
    values = {}
    for match in re.finditer(r"#define (\w+) +(\([^)]*\)|0x[0-9a-f]+|\d+)", header):
        values[match[1]] = eval(match[2], {}, values)  # the text is an expression from the header
    return values


def fields(text, values):
    """Returns (name, type, length of the array or None) of each field."""
    found = re.finditer(r"^\s*([\w ]+?) (\w+)(?:\[(\w+)\])?;", text, re.MULTILINE)
    return [(one[2], one[1], one[3] and int(values.get(one[3], one[3]))) for one in found]


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


def stub(declared):
    return "".join([
        STUB,
        *(f"{name}: int\n" for name in declared["CONSTANTS"]),
        *(record(name, fields) for name, fields in declared["RECORDS"].items()),
        *(f"{name} = {original}\n" for name, original in declared["ALIASES"].items()),
        *(variable(name, *declaration) for name, declaration in declared["GLOBALS"].items()),
        *(function(name, *declaration) for name, declaration in declared["FUNCTIONS"].items()),
    ])


def main(header, version, folder):
    header, folder = Path(header).read_text(), Path(folder)
    values = constants(header)
    declared = {
        "VERSION": version,
        "CONSTANTS": values,
        "RECORDS": {one[1]: fields(one[2], values) for one in re.finditer(r"\nstruct (\w+) \{\n([^}]*)\n\};", header)},
        "ALIASES": {one[1]: one[2] for one in re.finditer(r"\nusing (\w+) = (\w+);", header)},
        "GLOBALS": {
            one[2]: (one[1], one[3] and int(one[3]))
            for one in re.finditer(r"extern KIV_API (\w+) (\w+)(?:\[(\d+)\])?;", header)
        },
        "FUNCTIONS": {
            one["name"]: (one["result"], parameters(one["parameters"]), documentation(one))
            for one in re.finditer(FUNCTION, header, re.DOTALL | re.VERBOSE)
        },
    }
    text = "".join(f"{name} = {pformat(value, width=120, sort_dicts=False)}\n" for name, value in declared.items())
    title = '"""Lists the declarations of the public header. The build writes this file."""'
    (folder / "_declarations.py").write_text(f"{title}\n\n{text}")
    (folder / "__init__.pyi").write_text(stub(declared))


if __name__ == "__main__":
    main(*sys.argv[1:])
