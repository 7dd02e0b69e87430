"""Defines the functions of the module that are not functions of the library."""

from __future__ import annotations

import ctypes
import ipaddress
import re
import sys

from ._process import before_call
from ._types import library, shown


def mac(text: str) -> bytes:
    """Returns the six bytes of a MAC address such as "02:4b:49:56:00:01"."""
    if not isinstance(text, str):
        raise TypeError(f"must be a MAC address such as 02:4b:49:56:00:01, got {shown(text)}")
    if not re.fullmatch("[0-9a-fA-F]{2}(:[0-9a-fA-F]{2}){5}", text):
        raise ValueError(f"must be a MAC address such as 02:4b:49:56:00:01, got {text!r}")
    return bytes.fromhex(text.replace(":", ""))


def ip(text: str) -> int:
    """Returns an IPv4 address such as "192.168.0.21" as the int that functions take: the first octet in the lowest byte."""
    if not isinstance(text, (str, ipaddress.IPv4Address)):
        raise TypeError(f"must be an IPv4 address such as 192.168.0.21, got {shown(text)}")
    try:
        octets = ipaddress.IPv4Address(str(text)).packed
    except ValueError:
        raise ValueError(f"must be an IPv4 address such as 192.168.0.21, got {text!r}") from None
    return int.from_bytes(octets, "little", signed=True)


library.AwaitEvents.restype = ctypes.c_char_p

_LONGEST_WAIT = (2**31 - 1) / 1000


def AwaitEvents(timeout: float = 10) -> bool:
    """Waits until events can arrive. That is a moment after the first call that the server answers.

    An event that the server sends before that moment is lost.

    Returns False at once if events cannot arrive: this device has no network speakers, no call was made in this sandbox, the
    last call did not reach the server, the server's client id is not valid in a D-Bus name, the bus is gone, or
    DestroyMessageMonitor() was called.

    Returns False after the timeout, in seconds, if the process does not own its client's name by then. The bus may forbid
    the name, or another process may own it: "kivctl doctor" says why.

    A line on stderr names the reason.

    Returns True also on a bus that does not let the server's events through, because the library does not learn of that.
    "kivctl doctor" does.
    """
    allowed = f"seconds from 0 to {_LONGEST_WAIT:.0f}"
    try:
        is_allowed = 0 <= timeout <= _LONGEST_WAIT
    except TypeError:
        raise TypeError(f"timeout must be {allowed}, got {shown(timeout)}") from None
    if not is_allowed:
        raise ValueError(f"timeout must be {allowed}, got {timeout!r}")
    before_call("AwaitEvents")
    obstacle = library.AwaitEvents(round(timeout * 1000))
    if obstacle is None:
        return True
    # print() would write the line end separately, behind a line that the library logs at this moment.
    sys.stderr.write(f"kiv.AwaitEvents(): {obstacle.decode()}\n")
    return False


def DestroyMessageMonitor() -> int:
    """Calls CNSGdbus::m_DestroyMessageMonitor() of the library's own object.

    This ends the monitor thread: no callback runs after that for the life of the process. The module does this at exit in
    any case.
    """
    return int(library.DestroyMessageMonitor())
