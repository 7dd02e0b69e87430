"""Resets the state that the library keeps for the life of a process, and guards the system bus in tests."""

from __future__ import annotations

import ctypes
import os
import sys

from ._types import library

_feature_is_off = ctypes.c_bool.in_dll(library, "g_KivDisabled")
_feature_is_known = ctypes.c_bool.in_dll(library, "g_GetSystemVal")

library.IsConnected.restype = ctypes.c_bool


# The process that made the first call, or 0 before.
_caller = 0


def refuse_fork(function: str) -> None:
    """Raises RuntimeError in a child of os.fork() if its parent has made a call.

    The child lacks the threads that read from the bus, so it would wait forever.
    """
    if _caller not in (0, os.getpid()):
        raise RuntimeError(
            f"{function}() must not be called in a child that os.fork() made after a call, got process {os.getpid()}, a child "
            f'of process {_caller}; start a new program: by subprocess, or by multiprocessing.get_context("spawn")'
        )


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


def before_call(function: str) -> None:
    """Raises RuntimeError if a call must not be made here. Notes that this process makes one."""
    global _caller
    refuse_system_bus(function)
    refuse_fork(function)
    _caller = os.getpid()
