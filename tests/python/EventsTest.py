"""Checks that AwaitEvents() says in time whether events can arrive."""

import inspect
import os
import subprocess
import sys
import time

import kiv
import pytest

# This is longer than a call takes on a busy machine, if the server answers.
LONG = 60


@pytest.fixture
def home(tmp_path):
    """Starts a bus that is not a sandbox, with the simulator on it. Returns the environment of its programs."""
    address = f"unix:path={tmp_path}/bus"
    environment = {**os.environ, "DBUS_SYSTEM_BUS_ADDRESS": address}
    processes = []

    def start(*command):
        processes.append(subprocess.Popen(command, stdout=subprocess.PIPE, env=environment, encoding="utf-8"))
        return processes[-1].stdout.readline()

    # The configuration of a session bus allows everything.
    assert start("dbus-daemon", "--session", f"--address={address}", "--nofork", "--print-address=1").startswith(address)
    assert start(os.environ["KIV_SIMULATOR"], "--ready-fd=1") == "ready\n"
    yield {**environment, "DBUS_DAEMON_PID": str(processes[0].pid)}
    for process in reversed(processes):
        process.kill()
        process.communicate()


def run(code, environment=None):
    """Returns the output of a program that uses the module in its own process, and the module's lines on stderr."""
    pipe = subprocess.PIPE
    done = subprocess.run(
        [sys.executable, "-c", code], env=environment, stdout=pipe, stderr=pipe, encoding="utf-8", timeout=LONG, check=True
    )
    said = [line for line in done.stderr.splitlines() if line.startswith("kiv.AwaitEvents")]
    return done.stdout, said


NO_CALL = "kiv.AwaitEvents(): no call was made on this bus, or the last one did not reach the server"
NO_SPEAKERS = "kiv.AwaitEvents(): this device has no network speakers, so the library makes no call"
NO_MONITOR = "kiv.AwaitEvents(): the monitor thread has ended, so that no event can come any more"
NO_BUS = "kiv.AwaitEvents(): the bus cannot be reached, or is gone"
NO_ID = "kiv.AwaitEvents(): the client id that the server gave is not valid in a D-Bus name"
NO_NAME = 'kiv.AwaitEvents(): the bus has not given this process its client\'s name in time: "kivctl doctor" tells why'


SUBSCRIBE_AND_WAIT = """
import kiv
print(kiv.SubscribeNamServiceCallback("test", print), kiv.AwaitEvents({}))
"""


def test_a_bus_that_denies_the_name_of_the_client_is_told_in_time():
    with kiv.Sandbox("--bus-fault", "deny-name"):
        assert run(SUBSCRIBE_AND_WAIT.format("timeout=0.5")) == ("1 False\n", [NO_NAME])


def test_without_a_timeout_there_is_one():
    assert inspect.signature(kiv.AwaitEvents).parameters["timeout"].default == 10


def test_a_bus_that_allows_it_is_told_when_the_name_is_owned(home):
    assert run(SUBSCRIBE_AND_WAIT.format(f"timeout={LONG}"), home) == ("1 True\n", [])


def test_a_bus_that_hangs_is_told_in_time(home):
    code = f"""
import kiv, os, signal
daemon = int(os.environ["DBUS_DAEMON_PID"])
print(kiv.StopNetworkSpeaker(7))
os.kill(daemon, signal.SIGSTOP)
print(kiv.AwaitEvents(timeout=0.5))
os.kill(daemon, signal.SIGCONT)
print(kiv.AwaitEvents(timeout={LONG}))
"""
    assert run(code, home) == ("7\nFalse\nTrue\n", [NO_NAME])


def test_a_name_that_another_process_owns_is_not_this_ones():
    with kiv.Sandbox("--start") as sandbox:
        sandbox.apply({"clientId": "den"})
        own = "import kiv, sys; kiv.StopNetworkSpeaker(7); print(kiv.AwaitEvents(60), flush=True); sys.stdin.read()"
        with subprocess.Popen(
            [sys.executable, "-c", own], stdin=subprocess.PIPE, stdout=subprocess.PIPE, encoding="utf-8"
        ) as other:
            assert other.stdout.readline() == "True\n"
            assert run(SUBSCRIBE_AND_WAIT.format("timeout=0.5")) == ("1 False\n", [NO_NAME])
            other.stdin.close()
        assert run(SUBSCRIBE_AND_WAIT.format(f"timeout={LONG}")) == ("1 True\n", [])


@pytest.mark.parametrize(
    "options, scenario, code, said",
    [
        ([], {}, "", NO_CALL),
        (["--feature", "off"], {}, "assert kiv.StopNetworkSpeaker(7) == -1", NO_SPEAKERS),
        ([], {}, "kiv.StopNetworkSpeaker(7); kiv.DestroyMessageMonitor()", NO_MONITOR),
        ([], {"clientId": "a b"}, "kiv.StopNetworkSpeaker(7)", NO_ID),
    ],
)
def test_where_no_event_can_come_there_is_nothing_to_wait_for(options, scenario, code, said):
    with kiv.Sandbox("--start", *options) as sandbox:
        sandbox.apply(scenario)
        assert run(f"import kiv; {code}\nprint(kiv.AwaitEvents())") == ("False\n", [said])


def test_after_a_callback_has_ended_the_monitor_there_is_nothing_to_wait_for():
    code = f"""
import errno, kiv, queue, time
ended = queue.Queue()
assert kiv.SubscribeNamServiceCallback("test", lambda *_: ended.put(kiv.DestroyMessageMonitor())) == 1
assert kiv.AwaitEvents({LONG})
kiv.GetNetSpkVolume(kiv.mac("02:4b:49:56:00:01"), 0)
print(ended.get(timeout={LONG}) == errno.EDEADLK)
begin = time.monotonic()
print(kiv.AwaitEvents({LONG}), time.monotonic() - begin < {LONG} / 2)
"""
    with kiv.Sandbox():
        assert run(code) == ("True\nFalse True\n", [NO_MONITOR])


def test_a_bus_that_is_gone_is_told(home):
    code = """
import kiv, os, signal
kiv.StopNetworkSpeaker(7)
assert kiv.AwaitEvents(60)
os.kill(int(os.environ["DBUS_DAEMON_PID"]), signal.SIGKILL)
print(kiv.AwaitEvents(60))
"""
    assert run(code, home) == ("False\n", [NO_BUS])


def test_a_failed_test_shows_why_no_event_comes(tmp_path):
    (tmp_path / "test_use.py").write_text("import kiv\ndef test_it(kiv_sandbox):\n    assert kiv.AwaitEvents()\n")
    done = subprocess.run(
        [sys.executable, "-m", "pytest", "-q", "-p", "no:cacheprovider", str(tmp_path)], stdout=subprocess.PIPE, encoding="utf-8"
    )
    assert done.returncode == 1 and NO_CALL in done.stdout, done.stdout


@pytest.mark.parametrize("sandbox", ["first", "second", "third"])
def test_before_the_first_call_of_any_sandbox_there_is_nothing_to_wait_for(kiv_sandbox, sandbox):
    begin = time.monotonic()
    assert kiv.AwaitEvents(timeout=2 * LONG) is False
    assert time.monotonic() - begin < LONG
    assert kiv.SubscribeNamServiceCallback("test", print) == 1
    assert kiv.AwaitEvents(timeout=LONG) is True
    kiv.UnsubscribeNamServiceCallback("test")


def test_a_sandbox_is_not_entered_with_a_connection_to_another_bus(home):
    code = """
import kiv, os, signal, subprocess
print(kiv.StopNetworkSpeaker(7))
before = dict(os.environ)
try:
    kiv.Sandbox().__enter__()
except RuntimeError as error:
    print("connected to another bus" in str(error), os.environ == before)
print(kiv.StopNetworkSpeaker(8))
os.kill(int(os.environ["DBUS_DAEMON_PID"]), signal.SIGKILL)
with kiv.Sandbox() as sandbox:
    print(kiv.StopNetworkSpeaker(9), sandbox.calls[-1].arguments)
"""
    assert run(code, home) == ("7\nTrue True\n8\n9 (9,)\n", [])


@pytest.mark.parametrize("timeout", [-1, -0.001, float("nan"), float("inf"), 2**31])
def test_a_timeout_is_a_number_of_seconds(timeout):
    with pytest.raises(ValueError, match="timeout must be seconds from 0 to 2147484, got"):
        kiv.AwaitEvents(timeout=timeout)


@pytest.mark.parametrize("timeout", ["1", None])
def test_a_timeout_of_another_type_is_refused(timeout):
    with pytest.raises(TypeError, match=f"timeout must be seconds from 0 to 2147484, got {timeout!r}"):
        kiv.AwaitEvents(timeout=timeout)
