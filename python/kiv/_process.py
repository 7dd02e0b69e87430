"""Resets the state that the library keeps for the life of a process, and guards the system bus in tests."""

from __future__ import annotations

import ctypes
import sys

from ._types import library

_feature_is_off = ctypes.c_bool.in_dll(library, "g_KivDisabled")
_feature_is_known = ctypes.c_bool.in_dll(library, "g_GetSystemVal")

library.IsConnected.restype = ctypes.c_bool


def forget_feature() -> None:
    """Makes the next call read the device feature again."""
    # The flag is cleared last. A call on another thread that finds it cleared reads the feature, and sets both.
    _feature_is_off.value = False
    _feature_is_known.value = False


def forget_bus() -> None:
    """Makes AwaitEvents() fail until the next call reaches a server."""
    library.GiveProxy()


def is_connected() -> bool:
    """Tells whether calls would go to the bus of the last call, whatever bus the environment names.

    No other thread may be calling the library.
    """
    return bool(library.IsConnected())


def refuse_system_bus(function: str) -> None:
    """Raises RuntimeError in pytest if a call would reach the system bus of this machine."""
    # The plugin is loaded only in a process that runs pytest. Other processes may call the system bus of a real TV.
    plugin = sys.modules.get("pytest_kiv")
    if plugin is not None:
        plugin.refuse_system_bus(function)
