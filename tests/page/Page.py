"""Runs a sandbox with a page, and sends requests to it."""

import contextlib
import http.client
import json
import os
import re
import subprocess
import threading
import time
import urllib.parse

PROGRAM = os.environ["KIV_SANDBOX"]
LONGEST_WAIT = 120  # so long that a busy machine does not reach it


def wait_for(condition, what, limit=LONGEST_WAIT):
    """Waits until the condition returns a true value, and returns that. What is awaited may be a function of no argument."""
    end = time.monotonic() + limit
    while not (value := condition()):
        assert time.monotonic() < end, f"waited {limit} s for {what() if callable(what) else what}"
        time.sleep(0.01)
    return value


class Page:
    """A running kiv-sandbox that has printed the address of its page."""

    def __init__(self, process):
        self.process = process
        self.errors = []
        self._reader = threading.Thread(target=self._read, daemon=True)
        self._reader.start()
        self.address = wait_for(self._find_address, "the address of the page")
        self.parts = urllib.parse.urlsplit(self.address)

    def _read(self):
        for line in self.process.stderr:
            self.errors.append(line)

    def _find_address(self):
        assert self.process.poll() is None or self.errors, "the sandbox has ended"
        found = re.search(r"the page is (http://\S+)", "".join(self.errors))
        return found and found[1]

    def say(self, line):
        """Makes the shell in the sandbox run a line."""
        self.process.stdin.write(line + "\n")
        self.process.stdin.flush()

    def run(self, line):
        """Runs a line in the shell, and returns its output."""
        self.say(f"{line}; echo; echo --- done")
        printed = []
        while (read := self.process.stdout.readline()) != "--- done\n":
            assert read, "the shell has ended"
            printed.append(read)
        return "".join(printed).strip()

    def send(self, path="", method="GET", body=None, **headers):
        """Sends a request. A header that is None is left out."""
        connection = http.client.HTTPConnection(self.parts.hostname or "", self.parts.port, timeout=LONGEST_WAIT)
        given = {"Host": self.parts.netloc, "Origin": f"http://{self.parts.netloc}" if method == "POST" else None, **headers}
        connection.putrequest(method, self.parts.path + path if not path.startswith("/") else path, skip_host=True)
        for name, value in given.items():
            if value is not None:
                connection.putheader(name.replace("_", "-"), value)
        if body is not None:
            connection.putheader("Content-Length", str(len(body.encode())))
        connection.endheaders(body.encode() if body is not None else None)
        return connection

    def ask(self, path="", method="GET", body=None, **headers):
        """Sends a request, and returns the answer."""
        return self.send(path, method, body, **headers).getresponse()

    def control(self, *words):
        """Sends the request of a button."""
        response = self.ask("control", "POST", json.dumps(words))
        assert response.status == 200, response.status
        return json.loads(response.read())

    def events(self, **headers):
        """Yields each line and each state that a viewer gets."""
        response = self.ask("events", **headers)
        assert response.status == 200, response.status
        end = time.monotonic() + LONGEST_WAIT
        for line in response:
            assert time.monotonic() < end, "the awaited line did not arrive"
            if line.startswith(b"data: "):
                yield json.loads(line[len(b"data: ") :])

    def child(self, name):
        """Returns the id of a process of the sandbox that runs this program."""
        for pid in filter(str.isdigit, os.listdir("/proc")):
            with contextlib.suppress(OSError):
                with open(f"/proc/{pid}/comm", encoding="utf-8") as comm, open(f"/proc/{pid}/environ", "rb") as environ:
                    if comm.read().strip() == name[:15] and f"KIV_PAGE_TEST={self.process.pid}".encode() in environ.read():
                        return int(pid)
        raise AssertionError(f"no process {name}")


@contextlib.contextmanager
def sandbox(*options, command=("sh", "-s"), **environment):
    """Runs a sandbox with a page, and a shell in it."""
    process = subprocess.Popen(
        ["sh", "-c", 'KIV_PAGE_TEST=$$ exec "$0" "$@"', PROGRAM, *options, *(("--", *command) if command else ())],
        stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.PIPE, encoding="utf-8",
        env={**os.environ, **environment}, start_new_session=True)
    try:
        yield Page(process)
    finally:
        process.stdin.close()
        if not command:
            process.terminate()
        try:
            process.wait(LONGEST_WAIT)
        except subprocess.TimeoutExpired:
            process.kill()
            raise
