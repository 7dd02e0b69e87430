#!/usr/bin/env python3
"""Runs test suites with the GLib of several Debian releases and on dbus-broker, and writes a page about it.

usage: matrix.py BUILD WORK PAGE

BUILD is a build tree that has the suites, WORK a folder for what is unpacked, and PAGE the file to write. What is in
WORK is used again; remove the folder to have the packages of today.

The programs are those of BUILD, which this machine's compiler made. They run in a root that mmdebstrap has unpacked,
in a mount namespace that ends with them. A release that is older than this machine cannot run them, because its C
library is too old; of such a one, GLib alone is unpacked and found through LD_LIBRARY_PATH.

The GLib and the bus that a column names are those that the tests themselves have printed.
"""

import os
import re
import shutil
import socket
import subprocess
import sys
import textwrap
import threading
import uuid
import xml.etree.ElementTree as ElementTree
from dataclasses import dataclass, field
from pathlib import Path

SUITES = ("unit", "contract", "lifecycle")
# The packages besides GLib: programs that the tests run, and ctest, which runs the tests.
ROOT_PACKAGES = ["cmake", "coreutils", "dash", "dbus-daemon", "libstdc++6"]
GLIB_FILES = ["libglib-2*", "libgobject-2*", "libgio-2*", "libgmodule-2*", "libgthread-2*", "libffi.so*", "libpcre.so*"]
SECONDS_A_TEST = 120


@dataclass
class Column:
    glib: str  # the first two numbers of the version that each test must print
    debian: str
    root: str
    suites: tuple = SUITES
    libraries: str = ""
    bus: str = "dbus-daemon"  # the name that the daemon's process must have; the kernel keeps 15 letters
    bus_version: tuple = ("dbus-daemon", "--version")
    not_applicable: dict = field(default_factory=dict)


COLUMNS = [
    Column(glib="2.66", debian="bullseye", root="bookworm", libraries="bullseye-glib"),
    Column(glib="2.74", debian="bookworm", root="bookworm"),
    Column(glib="2.84", debian="trixie", root="trixie"),
    Column(
        glib="2.74",
        debian="bookworm",
        root="bookworm",
        suites=("contract",),
        bus="dbus-broker-lau",
        bus_version=("dbus-broker", "--version"),
        not_applicable={
            "MessageLengthTest.OneThatIsLongerCostsTheConnectionAndTheNextCallFindsAnother":
                "The test needs a bus that drops a sender for a message of over 32 MiB. dbus-broker carries such a message.",
            "LooseBusTest.RepliesThatNobodyAskedForAreNoAnswers":
                "The test needs a bus whose policy lets replies through that nobody asked for. dbus-broker ignores "
                "such a policy and never delivers them.",
            "SmallBusTest.AMessageForWhichTheBusDropsUsCostsOneCall":
                "The test needs a bus that drops a sender for a message above a small `max_message_size`. "
                "dbus-broker ignores that limit.",
        },
    ),
]


def run(command, **options):
    return subprocess.run([str(word) for word in command], check=True, **options)


def as_root(*command):
    return [*([] if os.geteuid() == 0 else ["sudo"]), *command]


def mirror():
    """Returns the mirror from which this machine installs its packages."""
    release = re.search("VERSION_CODENAME=(.*)", Path("/etc/os-release").read_text())[1]
    command = ["apt-get", "indextargets", "--format", "$(REPO_URI)", f"Codename: {release}", "Component: main",
               "Identifier: Packages"]
    return run(command, stdout=subprocess.PIPE, text=True).stdout.split()[0]


def unpack(release, packages, directory, *tar_options):
    """Unpacks packages and their dependencies, unless the directory exists."""
    if directory.exists():
        return
    print(f"Unpacking packages of Debian {release} into {directory}", flush=True)
    part = directory.with_name(directory.name + ".part")
    shutil.rmtree(part, ignore_errors=True)
    part.mkdir(parents=True)
    archive = directory.with_name(directory.name + ".tar")
    log = directory.with_name(directory.name + ".log")
    command = as_root("mmdebstrap", "--variant=extract", "--hook-dir=/usr/share/mmdebstrap/hooks/merged-usr",
                      f"--include={','.join(packages)}", release, "-", mirror())
    with archive.open("wb") as output, log.open("wb") as messages:
        if subprocess.run(command, stdout=output, stderr=messages).returncode != 0:
            sys.exit(f"{log.read_text()}\nmatrix: cannot unpack Debian {release}; the reason stands above")
    run(["tar", "--extract", "--file", archive, "--directory", part, "--exclude=./dev/*", *tar_options])
    archive.unlink()
    part.rename(directory)


def unpack_root(release, glib, further, directory):
    unpack(release, [glib, *further, *ROOT_PACKAGES], directory)
    for name in ("proc", "run/systemd/journal"):
        (directory / name).mkdir(parents=True, exist_ok=True)
    # A bus daemon refuses users that these files do not have.
    for name in ("passwd", "group"):
        shutil.copy(f"/etc/{name}", directory / "etc")
    # dbus-broker-launch does not start without this file.
    (directory / "etc/machine-id").write_text(uuid.uuid4().hex + "\n")


def copy_libraries(programs, root):
    """Copies libraries that programs need and the root lacks, because its release has other versions of them."""
    for line in run(["ldd", *programs], stdout=subprocess.PIPE, text=True).stdout.splitlines():
        library = re.search(r"=> (/(?:usr/)?lib/\S+)", line)
        if library and not any((root / "usr/lib").glob(f"**/{Path(library[1]).name}")):
            shutil.copy(library[1], root / "usr/lib")


# Arguments: root, source tree, user and group, command. All mounts end with the last process of the namespace.
ENTER = """
set -e
root=$1 tree=$2 user=$3
shift 3
mount -t tmpfs tmpfs "$root/tmp"
mount --rbind /proc "$root/proc"
mount --rbind /dev "$root/dev"
mkdir -p "$root$tree"
mount --bind "$tree" "$root$tree"
exec chroot --userspec="$user" "$root" "$@"
"""


def in_root(root, environment, command):
    return as_root("unshare", "--mount", "sh", "-c", ENTER, "-", str(root), os.getcwd(),
                   f"{os.geteuid()}:{os.getegid()}", "/usr/bin/env", "-i",
                   *(f"{name}={value}" for name, value in environment.items()), *map(str, command))


class Journal:
    """Receives the log of dbus-broker, which does not start without a receiver."""

    def __init__(self, directory, file):
        self._file = file.open("wb")
        self._socket = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        (directory / "socket").unlink(missing_ok=True)
        # The path is short, because the name of a socket can have at most 107 characters.
        descriptor = os.open(directory, os.O_PATH)
        self._socket.bind(f"/proc/self/fd/{descriptor}/socket")
        os.close(descriptor)
        threading.Thread(target=self._follow, daemon=True).start()

    def _follow(self):
        while True:
            self._file.write(self._socket.recv(1 << 16) + b"\n")
            self._file.flush()


@dataclass
class Cell:
    passed: int
    run: int
    not_applicable: int
    problems: list  # a line each
    glib: set  # versions that the tests printed


def run_suite(column, suite, build, work, name):
    """Runs the tests of a suite, without those that do not apply."""
    root = work / column.root
    environment = {"PATH": "/usr/bin", "LC_ALL": "C.UTF-8"}
    if column.libraries:
        environment["LD_LIBRARY_PATH"] = (work / column.libraries).absolute()
    if column.bus != "dbus-daemon":
        environment["PATH"] = f"{(build / 'tests/matrix').absolute()}:/usr/bin"
    ctest = ["ctest", "--test-dir", (build / "tests" / suite).absolute()]

    listing = run(in_root(root, environment, [*ctest, "-N"]), stdout=subprocess.PIPE, text=True).stdout
    existing = re.findall(r"^ *Test +#\d+: (\S+)", listing, re.MULTILINE)
    problems = [f"`{test}` is listed as not applicable, but does not exist"
                for test in column.not_applicable if test not in existing]
    if column.not_applicable:
        ctest += ["--exclude-regex", f"^({'|'.join(map(re.escape, column.not_applicable))})$"]

    results, log = work / f"{name}-{suite}.xml", work / f"{name}-{suite}.log"
    results.unlink(missing_ok=True)
    with log.open("wb") as output:
        code = subprocess.run(
            in_root(root, environment,
                    [*ctest, "--parallel", os.cpu_count(), "--timeout", SECONDS_A_TEST, "--no-tests=error",
                     "--output-on-failure", "--output-junit", results.absolute(),
                     "--test-output-size-passed", 1 << 20]),
            stdout=output, stderr=subprocess.STDOUT).returncode
    tests = list(ElementTree.parse(results).iter("testcase")) if results.exists() else []
    passed = [test for test in tests if test.get("status") == "run"]
    problems += [f"`{test.get('name')}`" + (" failed" if test.get("status") == "fail" else " did not run")
                 for test in tests if test.get("status") != "run"]
    expected = len(existing) - len(set(column.not_applicable) & set(existing))
    if not tests:
        problems.append("no test ran")
    elif len(tests) != expected:
        problems.append(f"{len(tests)} tests ran, of {expected}")
    elif code != 0 and not problems:
        problems.append(f"ctest ended with {code}")

    printed = [test.findtext("system-out") or "" for test in tests]
    glib = [re.search(r"^GLib: (\S+)$", text, re.MULTILINE) for text in printed]
    for test, version in zip(tests, glib):
        if test in passed and not (version and version[1].startswith(column.glib + ".")):
            problems.append(f"`{test.get('name')}` ran with GLib {version[1] if version else 'of an unknown version'}")
    bus = set(re.findall(r"^Bus: (\S+)$", "\n".join(printed), re.MULTILINE))
    # Only tests of the suite contract must print their bus.
    if bus != {column.bus} and (bus or suite == "contract"):
        problems.append(f"the tests ran on {', '.join(sorted(bus)) or 'an unknown bus'}, not on {column.bus}")
    return Cell(len(passed), len(tests), len(column.not_applicable), problems, {version[1] for version in glib if version})


def bus_version(column, work):
    text = run(in_root(work / column.root, {"PATH": "/usr/bin"}, column.bus_version), stdout=subprocess.PIPE, text=True)
    return f"{column.bus_version[0]} {re.search(r'[0-9][0-9.]*', text.stdout)[0]}"


PARAGRAPHS = """# Compatibility

`./dev matrix` runs the test suites with several versions of GLib, and the contract suite also on dbus-broker, the other
bus daemon that Linux systems have. It writes this page. A cell says how many tests passed, and how many ran.

{table}

The versions of GLib are those that the tests printed while they ran. The programs were built with GLib {built}, by
{compiler}. GLib and the daemons are Debian's packages. The C library is that of bookworm, or of trixie for trixie's GLib.

## Not applicable to dbus-broker

{not_applicable}

dbus-broker-launch starts services through systemd. No systemd runs on the tests' buses, so a program of the tests stands
in for it and starts the service. The tests of a server that the bus starts therefore run on dbus-broker, too.
"""


def fill(paragraph):
    if paragraph.startswith(("#", "|")):
        return paragraph
    return textwrap.fill(paragraph, 120, subsequent_indent="  " if paragraph.startswith("- ") else "",
                         break_long_words=False, break_on_hyphens=False)


def row(*texts):
    return f"| {' | '.join(texts)} |"


def text_of(cell):
    if cell is None:
        return "not run"
    counts = {"not applicable": cell.not_applicable, "problems": len(cell.problems)}
    return ", ".join([f"{cell.passed} of {cell.run}", *(f"{count} {what}" for what, count in counts.items() if count)])


def main(build, work, page):
    work.mkdir(parents=True, exist_ok=True)
    unpack("bullseye", ["libglib2.0-0"], work / "bullseye-glib", "--transform=s,.*/,,", "--wildcards",
           *(f"*/{name}" for name in GLIB_FILES))
    unpack_root("bookworm", "libglib2.0-0", ["dbus-broker"], work / "bookworm")
    unpack_root("trixie", "libglib2.0-0t64", [], work / "trixie")
    programs = [*build.glob("tests/*/*_test"), build / "simulator/kiv-simulator"]
    for root in {column.root for column in COLUMNS}:
        copy_libraries(programs, work / root)
    Journal(work / "bookworm/run/systemd/journal", work / "journal.log")

    cells = {}
    versions = []
    buses = []
    for number, column in enumerate(COLUMNS):
        buses.append(bus_version(column, work))
        for suite in column.suites:
            print(f"Running {suite} with GLib {column.glib} on {buses[-1]}", flush=True)
            name = f"{column.debian}-{column.bus_version[0]}"
            cells[number, suite] = run_suite(column, suite, build, work, name)
        found = set().union(*(cells[number, suite].glib for suite in column.suites))
        versions.append(", ".join(sorted(found)) or "of an unknown version")

    table = [
        row("", *(f"GLib {version}" for version in versions)),
        "|---" * (len(COLUMNS) + 1) + "|",
        row("of Debian", *(column.debian for column in COLUMNS)),
        row("bus", *buses),
        *(row(suite, *(text_of(cells.get((number, suite))) for number in range(len(COLUMNS)))) for suite in SUITES),
    ]
    paragraphs = PARAGRAPHS.format(
        table="\n".join(table),
        built=run(["pkg-config", "--modversion", "glib-2.0"], stdout=subprocess.PIPE, text=True).stdout.strip(),
        compiler=run(["g++", "--version"], stdout=subprocess.PIPE, text=True).stdout.splitlines()[0],
        not_applicable="\n\n".join(
            f"- `{test}`: {why}" for column in COLUMNS for test, why in column.not_applicable.items()),
    )
    text = "\n\n".join(map(fill, paragraphs.strip().split("\n\n"))) + "\n"
    failed = [f"- {suite}, GLib {COLUMNS[number].glib}, {COLUMNS[number].bus_version[0]}: {problem}"
              for (number, suite), cell in cells.items() for problem in cell.problems]
    if failed:
        text += "\n## Problems\n\n" + "\n".join(failed) + "\n"
    page.write_text(text)
    print(text)
    if failed:
        sys.exit(f"matrix: {len(failed)} problems, listed above; what the tests said is in {work}/*.log")


if __name__ == "__main__":
    main(*map(Path, sys.argv[1:]))
