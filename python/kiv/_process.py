"""State that the library keeps for the life of a process, and the bus that a process may call."""

from __future__ import annotations

import ctypes
import sys

from ._types import library

_feature_is_off = ctypes.c_bool.in_dll(library, "g_KivDisabled")
_feature_is_known = ctypes.c_bool.in_dll(library, "g_GetSystemVal")

library.GiveProxy.restype = None
library.GiveProxy.argtypes = []
library.IsConnected.restype = ctypes.c_bool
library.IsConnected.argtypes = []


def forget_feature() -> None:
    """Has the next call read the device feature anew."""
    # Cleared last: a call on another thread that finds it cleared reads the feature, and sets both.
    _feature_is_off.value = False
    _feature_is_known.value = False


def forget_bus() -> None:
    """Has AwaitEvents() know that no call has reached a server since."""
    library.GiveProxy()


def is_connected() -> bool:
    """Tells whether calls go on to the bus of the last one, wherever the environment points. No call may be under way."""
    return bool(library.IsConnected())


def refuse_system_bus(function: str) -> None:
    """Raises RuntimeError in pytest if a call would reach the system bus of this machine."""
    # The plugin is there in a process that runs pytest. Elsewhere the module is for real TVs, too.
    plugin = sys.modules.get("pytest_kiv")
    if plugin is not None:
        plugin.refuse_system_bus(function)
