"""A private system bus with a simulated network-speaker server, for as long as a with statement."""

from __future__ import annotations

import json
import os
import re
import shutil
import subprocess
from collections.abc import Callable, Sequence
from typing import Any, ClassVar, NamedTuple

from ._process import forget_bus, forget_feature, is_connected

# Says in which environment commands of the sandbox run, and lives until its stdin ends.
_TENANT = ["sh", "-c", r"env -0; printf '\0'; exec >/dev/null; while read -r _; do :; done"]

# What a shell keeps in the environment for itself.
_SHELL = {"_", "OLDPWD", "PWD", "SHLVL"}


class ControlError(subprocess.CalledProcessError):
    """A "kiv-sandbox control" that failed. Its text has what the program said on stderr, which is in .stderr, too."""

    def __str__(self) -> str:
        said = self.stderr.strip() or "kiv-sandbox control said nothing on stderr"
        return f"{said} (exit code {self.returncode})"


class ReceivedCall(NamedTuple):
    """A call that the server has received."""

    number: int  #: 1 for the first
    sender: str  #: unique bus name of the caller
    method: str
    arguments: str  #: a tuple in GVariant text form, such as "(7,)"


def _read_calls(text: str) -> list[ReceivedCall]:
    """The lines that "kiv-sandbox control calls" prints."""
    found = re.findall(r"^(\d+) (\S+) (\w+)(\(.*\))$", text, re.MULTILINE)
    return [ReceivedCall(int(number), *others) for number, *others in found]


# These readers parse the output of the commands that print something.
_RESULTS: dict[str, Callable[[str], Any]] = {"calls": _read_calls, "show": json.loads}


# These commands can change the device feature.
_CHANGE_FEATURE = ("apply", "feature")


def _program() -> str:
    found = os.environ.get("KIV_SANDBOX") or shutil.which("kiv-sandbox")
    if not found:
        raise FileNotFoundError("kiv-sandbox is not in the PATH; name it with KIV_SANDBOX")
    return found


class Sandbox:
    """Runs kiv-sandbox, and has this process and those that it starts use its bus.

    The options are those of the program: Sandbox("--scenario", "surround-set").
    """

    # A process has one connection to the system bus, so the library would call the server of the first.
    _entered: ClassVar[Sandbox | None] = None

    def __init__(self, *options: str) -> None:
        self._options = options

    def __enter__(self) -> Sandbox:
        if Sandbox._entered is not None:
            raise RuntimeError("another sandbox is in use in this process; leave it first")
        if is_connected():
            raise RuntimeError(
                "this process is connected to another bus, whose server the library would go on calling; enter the sandbox "
                "before the first call, or in a process of its own"
            )
        self._program = _program()
        # A session of its own: a Ctrl-C is for the tests, which then leave the sandbox in order.
        self._process = subprocess.Popen(
            [self._program, *self._options, "--", *_TENANT],
            stdin=subprocess.PIPE,
            stdout=subprocess.PIPE,
            start_new_session=True,
        )
        self._environment = self._read_environment()
        self._replaced = {name: os.environ.get(name) for name in self._environment}
        os.environ.update(self._environment)
        forget_feature()
        Sandbox._entered = self
        return self

    def __exit__(self, exception: type[BaseException] | None, *_: object) -> None:
        Sandbox._entered = None
        code = self._end()
        for name, value in self._replaced.items():
            if value is None:
                os.environ.pop(name, None)
            else:
                os.environ[name] = value
        forget_feature()
        forget_bus()
        # As with --strict, when a call was not recorded.
        if code != 0 and exception is None:
            raise RuntimeError(f"{self._program} {' '.join(self._options)} ended with {code}; its stderr tells why")

    def control(self, *arguments: str) -> Any:
        """Runs "kiv-sandbox control".

        Returns what "show" and "calls" print, as .home and .calls do; for other commands, the text that they print, or
        None. Raises ControlError if the program fails.
        """
        text = self._control(arguments)
        read = _RESULTS.get(arguments[0]) if len(arguments) == 1 else None
        return read(text) if read else text or None

    @property
    def home(self) -> dict[str, Any]:
        """The home and the clients as they are now: sandbox.home["speakers"][0]["volume"]."""
        home: dict[str, Any] = self.control("show")
        return home

    @property
    def calls(self) -> list[ReceivedCall]:
        """The calls that the server has received, in their order."""
        calls: list[ReceivedCall] = self.control("calls")
        return calls

    def apply(self, scenario: str | dict[str, Any]) -> None:
        """Changes what a scenario mentions: a file, the name of a scenario that comes along, or its content."""
        if isinstance(scenario, str):
            self._control(["apply", scenario])
        else:
            self._control(["apply", "-"], json.dumps(scenario))

    def fault(self, method: str, **fault: Any) -> None:
        """Has a method of the server go wrong: sandbox.fault("StopNetworkSpeaker", error="org.example.Bad", count=1).

        The keys are those of a scenario's faults: error, message, silent, reply, bytes, append, exit, delay, every and
        count. bytes and append are bytes, reply is a tuple in GVariant text form. The method "*" stands for all that have
        no fault of their own. A method has one fault: the next one replaces it.
        """
        if not fault:
            raise TypeError("a fault must have a key, such as error, silent or delay; clear_faults() takes faults back")
        values = {key: value.hex() if isinstance(value, bytes) else value for key, value in fault.items()}
        self.control("fault", method, json.dumps(values))

    def clear_faults(self) -> None:
        """Takes every fault back."""
        self.control("clear-faults")

    def _control(self, arguments: Sequence[str], text: str = "") -> str:
        if Sandbox._entered is not self:
            raise RuntimeError("the sandbox is not in use: control it inside its with statement")
        done = subprocess.run(
            [self._program, "control", *arguments],
            env={**os.environ, **self._environment},
            input=text,
            stdout=subprocess.PIPE,
            stderr=subprocess.PIPE,
            encoding="utf-8",
        )
        if done.returncode != 0:
            raise ControlError(done.returncode, done.args, done.stdout, done.stderr)
        if arguments[0] in _CHANGE_FEATURE:
            forget_feature()
        return done.stdout

    def _read_environment(self) -> dict[str, str]:
        text = b""
        while not text.endswith(b"\0\0"):
            byte = self._process.stdout.read(1)  # type: ignore[union-attr]
            if not byte:
                options = " ".join(self._options)
                raise RuntimeError(f"{self._program} {options} ended with {self._end()}; its stderr tells why")
            text += byte
        pairs = (entry.decode().partition("=") for entry in text.split(b"\0") if entry)
        return {name: value for name, _, value in pairs if os.environ.get(name) != value and name not in _SHELL}

    def _end(self) -> int:
        self._process.stdin.close()  # type: ignore[union-attr]
        self._process.stdout.close()  # type: ignore[union-attr]
        return self._process.wait()
