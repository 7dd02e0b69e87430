#!/usr/bin/env python3
"""Counts instructions and allocations of a call and of an event, under callgrind, where they are the same every time.

counts.py BUILD check    compares with the committed table; exit code 1 if something costs more
counts.py BUILD record   makes what is counted the committed table
counts.py BUILD profile  prints where instructions are spent, as JSON

The environment's KIV_SANDBOX takes the place of the sandbox in BUILD, which is not counted.
"""

import collections
import json
import os
import pathlib
import re
import subprocess
import sys
import tempfile

TABLE = pathlib.Path(__file__).with_name("counts.json")

# OURS is the library with the libraries that work for it alone: the C++ runtime, which nothing else uses in these
# calls, and the platform's two functions.
OURS = re.compile(r"/(libkiv-[^/]*|libstdc\+\+)\.so")
ALLOCATION = re.compile(r"^(malloc|calloc|realloc|memalign|posix_memalign|aligned_alloc|operator new.*|_Zn[wa].*)(@.*)?$")
PARTS = [
    ("library", OURS),
    ("GIO", re.compile(r"/libgio-")),
    ("GLib", re.compile(r"/lib(glib|gobject|gmodule)-")),
    ("C library", re.compile(r"/(libc|ld-linux[^/]*|libpthread)[.-][^/]*$")),
]

# Differences up to these are not reported. What GLib does depends on how threads meet; what the library does hardly
# depends on that.
MARGINS = {"ours": 0.02, "all": 0.10, "allocations": 0.0}


TITLE = "desc: Trigger: Client Request: "


class Dump:
    """One part of a callgrind file: self cost by function, and calls between functions."""

    def __init__(self, path):
        self.cost = collections.Counter()  # by (object, function)
        self.calls = collections.Counter()  # by (object, function, object called, function called)
        self.name, self.count = "", 1
        names = {"object": {}, "function": {}}

        def resolve(kind, text):
            number, name = re.match(r"\((\d+)\)(?: (.*))?$", text).groups()
            if name is not None:
                names[kind][number] = name
            return names[kind][number]

        here, called, called_object = ["", ""], "", ""
        skip_next = False
        for line in path.read_text(errors="replace").splitlines():
            if line.startswith(TITLE):
                what, which, count = line.removeprefix(TITLE).split("/")
                self.name, self.count = f"{what}: {which}", int(count)
            elif line.startswith("ob="):
                here[0] = resolve("object", line[3:])
            elif line.startswith("fn="):
                here[1] = resolve("function", line[3:])
                called_object = here[0]
            elif line.startswith("cob="):
                called_object = resolve("object", line[4:])
            elif line.startswith("cfn="):
                called = resolve("function", line[4:])
            elif line.startswith("calls="):
                self.calls[here[0], here[1], called_object, called] += int(line[6:].split()[0])
                called_object = here[0]
                skip_next = True  # the line has the cost of the called function and of those that it calls
            elif re.match(r"[+\-*\d]", line):
                if not skip_next:
                    self.cost[here[0], here[1]] += int(line.split()[1])
                skip_next = False

    def instructions(self, objects):
        return sum(cost for (name, _), cost in self.cost.items() if objects.search(name)) / self.count

    def allocations(self):
        """Returns the number of allocations that the library makes itself, for each call or event."""
        return sum(
            count
            for (name, function, _, called), count in self.calls.items()
            if OURS.search(name) and ALLOCATION.match(called) and not ALLOCATION.match(function)
        ) / self.count

    def parts(self):
        parts = {name: self.instructions(objects) for name, objects in PARTS}
        parts["others"] = sum(self.cost.values()) / self.count - sum(parts.values())
        return parts

    def most_expensive(self, number):
        return [
            (cost / self.count, pathlib.Path(name).name, function) for (name, function), cost in self.cost.most_common(number)
        ]


def count(build):
    """Returns the dumps by name, one for each kind of call and event."""
    with tempfile.TemporaryDirectory() as directory:
        command = [
            os.environ.get("KIV_SANDBOX", build / "tools/sandbox/kiv-sandbox"), "--simulator", build / "bench/kiv-bench-server", "--start", "--",
            "valgrind", "--quiet", "--tool=callgrind", f"--callgrind-out-file={directory}/dump",
            build / "bench/kiv-bench-counted", build / "src/libkiv-interface-api.so",
        ]
        environment = dict(os.environ, LD_BIND_NOW="1", KIV_LOG_LEVEL="fatal", G_SLICE="always-malloc")
        subprocess.run(list(map(str, command)), env=environment, check=True)
        dumps = [Dump(path) for path in pathlib.Path(directory).glob("dump.*")]
    return {dump.name: dump for dump in sorted(dumps, key=lambda dump: dump.name) if dump.name}


def figures(dumps):
    table = {
        name: {
            "ours": round(dump.instructions(OURS)),
            "all": round(sum(dump.cost.values()) / dump.count),
            "allocations": round(dump.allocations(), 2),
        }
        for name, dump in dumps.items()
    }
    return {name: row for name, row in table.items() if not name.startswith("GIO")}


def print_table(table, recorded):
    print(f"{'':52}{'ours':>8}{'all':>12}{'allocations':>13}")
    for name, row in table.items():
        was = recorded.get(name)
        print(f"{name:52}{row['ours']:>8}{row['all']:>12}{row['allocations']:>13}")
        if was and was != row:
            print(f"{'    in the table':52}{was['ours']:>8}{was['all']:>12}{was['allocations']:>13}")


def regressions(table, recorded):
    for name in sorted(table.keys() | recorded.keys()):
        if name not in table or name not in recorded:
            yield f"{name}: counted or in the table, but not both"
            continue
        for figure, margin in MARGINS.items():
            now, was = table[name][figure], recorded[name][figure]
            if now > was * (1 + margin):
                yield f"{name}: {figure} {was} -> {now}, more than {margin:.0%} above the table"


def main(build, what):
    dumps = count(pathlib.Path(build))
    if what == "profile":
        print(json.dumps({name: {"parts": dump.parts(), "top": dump.most_expensive(10)} for name, dump in dumps.items()}))
        return 0
    table = figures(dumps)
    recorded = json.loads(TABLE.read_text()) if TABLE.exists() else {}
    print_table(table, recorded)
    if what == "record":
        TABLE.write_text(json.dumps(table, indent=2) + "\n")
        return 0
    found = list(regressions(table, recorded))
    for line in found:
        print(f"REGRESSION {line}")
    if found:
        print("If that is meant: ./dev bench counts record")
    return 1 if found else 0


if __name__ == "__main__":
    if len(sys.argv) != 3 or sys.argv[2] not in ("check", "record", "profile"):
        sys.exit(__doc__)
    sys.exit(main(*sys.argv[1:]))
