"""Writes the declarations of the public header as Python data. The module reads them when it is imported.

usage: Declarations.py HEADER VERSION OUTPUT
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


def main(header, version, output):
    header = Path(header).read_text()
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
    Path(output).write_text(f'"""Lists the declarations of the public header. The build writes this file."""\n\n{text}')


if __name__ == "__main__":
    main(*sys.argv[1:])
