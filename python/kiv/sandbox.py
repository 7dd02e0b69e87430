"""A private system bus with a simulated network-speaker server, for as long as a with statement."""

import os
import shutil
import subprocess

# Says in which environment commands of the sandbox run, and lives until its stdin ends.
_TENANT = ["sh", "-c", r"env -0; printf '\0'; exec >/dev/null; while read -r _; do :; done"]

# What a shell keeps in the environment for itself.
_SHELL = {"_", "OLDPWD", "PWD", "SHLVL"}


def _program():
    found = os.environ.get("KIV_SANDBOX") or shutil.which("kiv-sandbox")
    if not found:
        raise FileNotFoundError("kiv-sandbox is not in the PATH; name it with KIV_SANDBOX")
    return found


class Sandbox:
    """Runs kiv-sandbox, and has this process and those that it starts use its bus.

    The options are those of the program: Sandbox("--scenario", "surround-set").
    """

    def __init__(self, *options):
        self._options = options
        self._replaced = {}

    def __enter__(self):
        self._program = _program()
        # A session of its own: a Ctrl-C is for the tests, which then leave the sandbox in order.
        self._process = subprocess.Popen(
            [self._program, *self._options, "--", *_TENANT],
            stdin=subprocess.PIPE,
            stdout=subprocess.PIPE,
            start_new_session=True,
        )
        environment = self._read_environment()
        self._replaced = {name: os.environ.get(name) for name in environment}
        os.environ.update(environment)
        return self

    def __exit__(self, *_):
        self._end()
        for name, value in self._replaced.items():
            if value is None:
                del os.environ[name]
            else:
                os.environ[name] = value

    def control(self, *arguments):
        """Runs "kiv-sandbox control" and returns what it prints; subprocess.CalledProcessError if it fails."""
        return subprocess.run(
            [self._program, "control", *arguments], check=True, stdout=subprocess.PIPE, encoding="utf-8"
        ).stdout

    def _read_environment(self):
        text = b""
        while not text.endswith(b"\0\0"):
            byte = self._process.stdout.read(1)
            if not byte:
                raise RuntimeError(f"{self._program} ended with {self._end()}")
            text += byte
        pairs = (entry.decode().partition("=") for entry in text.split(b"\0") if entry)
        return {name: value for name, _, value in pairs if os.environ.get(name) != value and name not in _SHELL}

    def _end(self):
        self._process.stdin.close()
        self._process.stdout.close()
        return self._process.wait()
