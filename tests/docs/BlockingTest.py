"""Checks that calls take the time that the documentation says. Each function runs in its own process, all at once."""

import contextlib
import os
import re
import signal
import time
from pathlib import Path

import kiv
import pytest
from kiv import _declarations as declared

PAGE = Path(__file__).parents[2] / "docs/threads-and-blocking.md"

# This is long enough for a busy machine, and shorter than the server's time for an answer.
PATIENCE = 7

ARGUMENTS = {
    "int": lambda: 1,
    "unsigned int": lambda: 1,
    "const char*": lambda: "example",
    "char*": lambda: bytearray(4096),
    "const unsigned char*": lambda: bytes(kiv.NETSPK_MAC_LEN),
    "unsigned char*": lambda: bytearray(4096),
    "STNetSpkListInfo*": lambda: (kiv.STNetSpkListInfo * 64)(),
    "NamEventCallback": lambda: print,
    "AtmosSupportCallback": lambda: print,
    "void*": lambda: None,
}


def seconds(column):
    """Returns the entries of a column of the page's table, by function. The row without names stands for all functions that no row names."""
    found, others = {}, None
    for line in PAGE.read_text().splitlines():
        cells = line.strip("| ").split(" | ")
        if len(cells) == 6 and cells[column].isdigit():
            names = re.findall(r"`([\w*]+)`", cells[0])
            found.update({name: int(cells[column]) for name in names})
            others = others if names else int(cells[column])
    assert others is not None
    # All of SPK_* return a fixed value.
    del found["SPK_*"]
    return {name: others for name in declared.FUNCTIONS if not name.startswith("SPK_")} | found


def arguments(name):
    parameters = declared.FUNCTIONS[name][1] or []
    return [[] if "vector" in type_ else ARGUMENTS[type_]() for type_, _ in parameters]


def start(name, go, connected):
    """Calls the function in a new process, once it reads the end of go. Returns how its duration can be read."""
    result, its_result = os.pipe()
    ready, its_ready = os.pipe()
    if os.fork() == 0:
        try:
            os.close(go[1])
            if connected:
                kiv.StopNetworkSpeaker(0)
            if name == "unregister_atmos_support_cb":
                kiv.register_atmos_support_cb(print, None)
            os.write(its_ready, b"x")
            os.read(go[0], 1)
            begin = time.monotonic()
            getattr(kiv, name)(*arguments(name))
            os.write(its_result, str(time.monotonic() - begin).encode())
        finally:
            os._exit(0)
    os.close(its_result)
    os.close(its_ready)
    assert os.read(ready, 1) == b"x", name
    return result


def durations(names, prepare, connected):
    go = os.pipe()
    try:
        results = {name: start(name, go, connected) for name in names}
        prepare()
    finally:
        os.close(go[1])
    return {name: float(os.read(result, 100)) for name, result in results.items()}


def check(column, prepare, connected=False):
    expected = seconds(column)
    assert len(expected) > 50
    measured = durations(expected, prepare, connected)
    # The limit is slightly lower, because the clocks are read at different moments.
    wrong = {name: took for name, took in measured.items() if not -0.1 < took - expected[name] < PATIENCE}
    assert wrong == {}


def test_without_a_server():
    with kiv.Sandbox("--no-server"):
        check(1, lambda: None)


@pytest.mark.parametrize(
    "column, faults",
    [
        pytest.param(2, {"*": {"silent": True}}, id="nothing is answered"),
        pytest.param(3, {"*": {"silent": True}, "check_dbus_connection": {"delay": 0}}, id="only the id is answered"),
    ],
)
def test_with_a_server_that_does_not_answer(column, faults):
    with kiv.Sandbox("--start") as sandbox:
        check(column, lambda: [sandbox.fault(method, **fault) for method, fault in faults.items()])


def bus_daemon():
    """Returns the process id of the sandbox's dbus-daemon. Its configuration is beside its socket."""
    directory = Path(os.environ["DBUS_SYSTEM_BUS_ADDRESS"].removeprefix("unix:path=")).parent
    for process in Path("/proc").glob("[0-9]*"):
        with contextlib.suppress(OSError):
            command = (process / "cmdline").read_bytes().split(b"\0")
            if command[0] == b"dbus-daemon" and f"--config-file={directory}/bus.conf".encode() in command:
                return int(process.name)
    raise LookupError(f"no dbus-daemon runs with {directory}/bus.conf")


def test_with_a_bus_daemon_that_hangs():
    with kiv.Sandbox("--start"):
        daemon = bus_daemon()
        try:
            check(4, lambda: os.kill(daemon, signal.SIGSTOP), connected=True)
        finally:
            os.kill(daemon, signal.SIGCONT)
