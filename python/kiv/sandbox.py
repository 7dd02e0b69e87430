"""Runs a private system bus with a simulated network-speaker server, for the time of a with statement."""

from __future__ import annotations

import contextlib
import json
import os
import shutil
import subprocess
import threading
from collections import deque
from collections.abc import Sequence
from typing import IO, Any, ClassVar, NamedTuple, Union

from ._process import forget_bus, forget_feature, is_connected
from ._types import shown

# A word of a command line, as callers may give it.
Word = Union[str, int, "os.PathLike[str]"]

# This command runs in the sandbox. It prints the environment there, and ends with the exit code that it reads from its
# stdin. If this process ends without one, the command fails.
_TENANT = ["sh", "-c", r"env -0; printf '\0'; exec >/dev/null; read -r code; exit ${code:-1}"]

# The variables that a shell sets for itself.
_SHELL = {"_", "OLDPWD", "PWD", "SHLVL"}


class ControlError(subprocess.CalledProcessError):
    """Is raised when "kiv-sandbox control" fails. The text contains the program's stderr, which is also in .stderr."""

    def __str__(self) -> str:
        said = self.stderr.strip() or "kiv-sandbox control said nothing on stderr"
        return f"{said} (exit code {self.returncode})"


class ReceivedCall(NamedTuple):
    """A call that the server has received."""

    number: int  #: 1 for the first
    sender: str  #: unique bus name of the caller
    method: str
    arguments: str  #: a tuple in GVariant text form, such as "(7,)"


# These commands print JSON.
_JSON = (["show"], ["show", "--json"], ["calls", "--json"])

# These commands can change the device feature.
_CHANGE_FEATURE = ("apply", "feature")


def _program() -> str:
    named = os.environ.get("KIV_SANDBOX")
    found = shutil.which(named or "kiv-sandbox")
    if found:
        return found
    if named:
        raise FileNotFoundError(f"KIV_SANDBOX must name the program kiv-sandbox, got {named!r}")
    raise FileNotFoundError("kiv-sandbox is not in the PATH; name it with KIV_SANDBOX")


def _words(values: Sequence[Word]) -> list[str]:
    for value in values:
        if not isinstance(value, (str, int, os.PathLike)) or isinstance(value, bool):
            raise TypeError(f"an argument must be a str, an int or a path, got {shown(value)}")
    return [str(int(value)) if isinstance(value, int) else os.fsdecode(value) for value in values]


def option_words(taker: str, options: Sequence[Any], named: dict[str, Any]) -> list[str]:
    """Returns the options of a sandbox as words. Refuses, in the taker's name, words that are not such options."""
    allowed = f'{taker} takes options of kiv-sandbox, such as "--scenario", "no-speakers"'
    if named:
        raise TypeError(f"{allowed}, got {', '.join(f'{name}={shown(value)}' for name, value in named.items())}")
    try:
        words = _words(options)
    except TypeError as error:
        raise TypeError(f"{allowed}: {error}") from None
    if words and not words[0].startswith("-") or "--" in words:
        kind = TypeError if isinstance(options[0], int) else ValueError
        raise kind(f"{allowed}, got {', '.join(map(shown, options))}")
    return words


def _with_event_id(words: list[str], arguments: Sequence[Word]) -> list[str]:
    """Returns the words of the command "event" with the id in hexadecimal, the only form that the program takes."""
    at = 1
    while at < len(words) and words[at].startswith("--"):
        at += 2 if words[at] == "--client" else 1
    if at < len(words) and isinstance(event := arguments[at], int):
        if not -(2**31) <= event < 2**32:
            raise OverflowError(f"the id of an event must be from {-(2**31)} to {2**32 - 1}, got {event}")
        # Callbacks get ids of 0x80000000 and more as negative ints.
        words[at] = f"{event % 2**32:#010x}"
    return words


def _json(value: Any) -> str:
    """Returns the JSON of a fault or a scenario, with bytes in hexadecimal."""

    def other(part: object) -> str:
        if isinstance(part, bytes):
            return part.hex()
        raise TypeError(f"a value must be bytes, or of a type that JSON has, got {shown(part)}")

    return json.dumps(value, default=other)


class _Stderr(threading.Thread):
    """Copies a program's stderr to this process's stderr, line by line, and keeps the last lines."""

    def __init__(self, stream: IO[bytes]) -> None:
        super().__init__(name="stderr of kiv-sandbox", daemon=True)
        self._stream = stream
        self._last: deque[bytes] = deque(maxlen=20)
        self.start()

    def run(self) -> None:
        with self._stream:
            for line in self._stream:
                self._last.append(line)
                # If nobody reads stderr any more, writing fails. That must not end this thread.
                with contextlib.suppress(OSError), open(2, "wb", closefd=False) as stderr:
                    stderr.write(line)

    def last(self) -> str:
        return b"".join(self._last).decode("utf-8", "replace").strip()


class Sandbox:
    """Runs kiv-sandbox for a with statement. This process and all programs that it starts use the sandbox's bus meanwhile.

    The arguments are options of kiv-sandbox: Sandbox("--scenario", "surround-set"). If an exception leaves the with
    statement, the file of "--record" stays as it was, and the new recording stays beside it.
    """

    # The sandbox in use. A process can use one at a time, because it has one connection to the system bus.
    _entered: ClassVar[Sandbox | None] = None

    def __init__(self, *options: Word) -> None:
        self._options = option_words("Sandbox()", options, {})

    def __enter__(self) -> Sandbox:
        if Sandbox._entered is not None:
            raise RuntimeError("another sandbox is in use in this process; leave it first")
        if is_connected():
            raise RuntimeError(
                "this process is connected to another bus, whose server the library would go on calling; enter the sandbox "
                "before the first call, or in a process of its own"
            )
        self._program = _program()
        # kiv-sandbox gets a session of its own, so that Ctrl-C reaches only the tests. They then leave the sandbox in
        # order.
        self._process = subprocess.Popen(
            [self._program, *self._options, "--", *_TENANT],
            stdin=subprocess.PIPE,
            stdout=subprocess.PIPE,
            stderr=subprocess.PIPE,
            start_new_session=True,
        )
        self._stderr = _Stderr(self._process.stderr)  # type: ignore[arg-type]
        self._environment = self._read_environment()
        self._replaced = {name: os.environ.get(name) for name in self._environment}
        os.environ.update(self._environment)
        forget_feature()
        Sandbox._entered = self
        return self

    def __exit__(self, exception: type[BaseException] | None, *_: object) -> None:
        Sandbox._entered = None
        # If an exception leaves the sandbox, its command fails, so that an older recording stays.
        code = self._end(0 if exception is None else 1)
        for name, value in self._replaced.items():
            if value is None:
                os.environ.pop(name, None)
            else:
                os.environ[name] = value
        forget_feature()
        forget_bus()
        # kiv-sandbox fails at its end with --strict if a call was not recorded, for example.
        if code != 0 and exception is None:
            raise self._failure(code)

    def control(self, *arguments: Word) -> Any:
        """Runs "kiv-sandbox control" with these arguments: sandbox.control("away", 2000).

        Returns .home for "show", .calls for "calls", and the parsed JSON for "calls", "--json". For another command, returns
        the text that it prints, or None if it prints nothing. Raises ControlError if the program fails.
        """
        words = _words(arguments)
        if words == ["calls"]:
            return self.calls
        if words[:1] == ["event"]:
            words = _with_event_id(words, arguments)
        text = self._control(words)
        return json.loads(text) if words in _JSON else text or None

    @property
    def home(self) -> dict[str, Any]:
        """The home and the clients as they are now, as a dict: sandbox.home["speakers"][0]["volume"]."""
        home: dict[str, Any] = self.control("show")
        return home

    @property
    def calls(self) -> list[ReceivedCall]:
        """The calls that the server has received, in the order of their arrival."""
        calls = self.control("calls", "--json")
        return [ReceivedCall(*(call[field] for field in ReceivedCall._fields)) for call in calls]

    def apply(self, scenario: str | os.PathLike[str] | dict[str, Any]) -> None:
        """Changes what a scenario mentions. The scenario is a file, the name of an installed scenario, or its content."""
        if isinstance(scenario, dict):
            self._control(["apply", "-"], _json(scenario))
        elif isinstance(scenario, (str, os.PathLike)):
            self._control(["apply", os.fsdecode(scenario)])
        else:
            raise TypeError(f"scenario must be the name of one, a file or a dict, got {shown(scenario)}")

    def fault(self, method: str, **fault: Any) -> None:
        """Gives a method of the server a fault: sandbox.fault("StopNetworkSpeaker", error="org.example.Bad", count=1).

        The keys are those of a scenario's faults: error, message, silent, reply, bytes, append, exit, delay, every and
        count. bytes and append are bytes, and reply is a tuple in GVariant text form. The method "*" stands for all methods
        that have no fault of their own. A method has one fault, and a new fault replaces it.
        """
        if not fault:
            raise TypeError("a fault must have a key, such as error, silent or delay; clear_faults() removes faults")
        self.control("fault", method, _json(fault))

    def clear_faults(self) -> None:
        """Removes every fault."""
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
                raise self._failure(self._end(1))
            text += byte
        pairs = (entry.decode().partition("=") for entry in text.split(b"\0") if entry)
        return {name: value for name, _, value in pairs if os.environ.get(name) != value and name not in _SHELL}

    def _end(self, outcome: int) -> int:
        # kiv-sandbox may have ended already. Closing writes what is buffered, and fails then, too.
        with contextlib.suppress(BrokenPipeError), self._process.stdin as stdin:  # type: ignore[union-attr]
            stdin.write(b"%d\n" % outcome)
        self._process.stdout.close()  # type: ignore[union-attr]
        code = self._process.wait()
        self._stderr.join()
        return code

    def _failure(self, code: int) -> RuntimeError:
        command = " ".join([self._program, *self._options])
        if code == 0:
            return RuntimeError(f"{command} started no sandbox; give options that do, such as --scenario no-speakers")
        return RuntimeError(f"{command} ended with {code}: {self._stderr.last() or 'it wrote nothing to stderr'}")
