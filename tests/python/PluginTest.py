"""Checks that pytest finds the plugin, also by a conftest.py, and that it guards the machine's system bus."""

import os
import subprocess
import sys
from pathlib import Path

import kiv
import pytest

USE = """
import kiv, pytest

@pytest.mark.kiv_sandbox("--scenario", "no-speakers")
def test_the_fixture(kiv_sandbox):
    assert kiv_sandbox.home["speakers"] == []
"""


def run(path, *options, use=USE, **environment):
    (path / "test_use.py").write_text(use)
    command = [sys.executable, "-m", "pytest", "-q", "--strict-markers", "-p", "no:cacheprovider", *options, str(path)]
    return subprocess.run(
        command, env={**os.environ, **environment}, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, encoding="utf-8"
    )


@pytest.mark.parametrize(
    "conftest, options, environment",
    [
        pytest.param("", [], {}, id="by itself"),
        pytest.param('pytest_plugins = ["kiv.pytest_plugin"]', [], {}, id="by a conftest.py of before"),
        pytest.param('pytest_plugins = ["pytest_kiv"]', [], {}, id="by a conftest.py"),
        pytest.param("", ["-p", "pytest_kiv"], {"PYTEST_DISABLE_PLUGIN_AUTOLOAD": "1"}, id="by an option"),
    ],
)
def test_the_fixture_and_the_option_are_there(tmp_path, conftest, options, environment):
    (tmp_path / "conftest.py").write_text(conftest)
    done = run(tmp_path, *options, "--kiv-system-bus", **environment)
    assert done.returncode == 0, done.stdout


def test_it_can_be_switched_off(tmp_path):
    done = run(tmp_path, "-p", "no:pytest_kiv")
    assert done.returncode != 0 and "kiv_sandbox" in done.stdout


@pytest.mark.parametrize(
    "options, got",
    [
        ('scenario="no-speakers"', "scenario='no-speakers'"),
        ('"no-speakers"', "'no-speakers'"),
        ('["--scenario", "no-speakers"]', "['--scenario', 'no-speakers']"),
        ('"--", "true"', "'--', 'true'"),
        ("5", "5"),
    ],
)
def test_options_that_are_not_options_are_told(tmp_path, options, got):
    module = 'import pytest\npytestmark = pytest.mark.kiv_sandbox("--feature", "on")\n'
    done = run(tmp_path, use=module + USE.replace('"--scenario", "no-speakers"', options))
    assert done.returncode == 1
    told = 'Error: the marker kiv_sandbox takes options of kiv-sandbox, such as "--scenario", "no-speakers"'
    [line] = [line for line in done.stdout.splitlines() if line.startswith("E ") and told in line]
    assert line.endswith(f", got {got}")


# Each test records a call. Its marker names the file.
RECORD = """
import kiv, pytest

@pytest.fixture
def broken(kiv_sandbox):
    kiv.StopNetworkSpeaker(1)
    raise KeyError

@pytest.mark.kiv_sandbox("--record", "passes")
def test_passes(kiv_sandbox):
    kiv.StopNetworkSpeaker(1)

@pytest.mark.kiv_sandbox("--record", "fails")
def test_fails(kiv_sandbox):
    assert kiv.StopNetworkSpeaker(1) == 2

@pytest.mark.kiv_sandbox("--record", "skips")
def test_skips(kiv_sandbox):
    kiv.StopNetworkSpeaker(1)
    pytest.skip()

@pytest.mark.kiv_sandbox("--record", "has_a_broken_fixture")
def test_has_a_broken_fixture(broken):
    pass
"""


def test_only_a_test_that_passes_replaces_a_recording(tmp_path, monkeypatch):
    monkeypatch.chdir(tmp_path)
    names = ["passes", "fails", "skips", "has_a_broken_fixture"]
    for name in names:
        Path(name).write_text("older")
    done = run(tmp_path, use=RECORD)
    assert "1 failed, 1 passed, 1 skipped, 1 error" in done.stdout
    assert "fails stays as it was: the command failed, and is recorded in" in done.stdout
    assert [name for name in names if Path(name).read_text() != "older"] == ["passes"]


# Two of the markers are on tests without the fixture. One of these marks a class in which other tests use the fixture.
UNUSED = """
import pytest

@pytest.mark.kiv_sandbox("--lazy")
def test_without():
    pass

@pytest.fixture
def den(kiv_sandbox):
    pass

@pytest.mark.kiv_sandbox("--lazy")
class TestClass:
    def test_with(self, kiv_sandbox):
        pass

    def test_of_it(self):
        pass

    @pytest.mark.kiv_sandbox("--lazy")
    def test_by_another(self, den):
        pass
"""


def test_a_marker_without_the_fixture_is_told(tmp_path):
    done = run(tmp_path, use=UNUSED)
    assert done.returncode == 0, done.stdout
    assert "has no effect on test_without, which does not use the fixture kiv_sandbox" in done.stdout
    assert "4 passed, 1 warning" in done.stdout


# The documented fixture for events, with a wait that fails, and an event that arrives after the test and its fixtures
# have ended.
LEAK = """
import kiv, pytest, queue

@pytest.fixture(autouse=True)
def watch(monkeypatch, kiv_sandbox):
    told, received, subscribe = [], queue.Queue(), kiv.SubscribeNamServiceCallback
    with monkeypatch.context() as patch:
        patch.setattr(kiv, "SubscribeNamServiceCallback", lambda name, _: subscribe(name, lambda *event: told.append(event)))
        patch.setattr(kiv, "AwaitEvents", lambda: False)
        yield
    assert subscribe("z, after all others", lambda *event: received.put(event)) == 1
    assert kiv.AwaitEvents(60)
    kiv_sandbox.control("event", 0x11)
    assert received.get(timeout=60)[0] == 0x11
    assert told == []

def test_events(events):
    pass
"""


def test_the_recipe_for_events_leaves_no_subscription(tmp_path):
    examples = Path(__file__).parents[2] / "examples"
    (tmp_path / "conftest.py").write_text((examples / "conftest.py").read_text())
    done = run(tmp_path, use=LEAK)
    # The only error is that of the wait.
    assert done.returncode == 1 and done.stdout.splitlines()[-1].startswith("1 error"), done.stdout


def test_the_library_is_not_loaded_before_it_is_used():
    code = "import pytest_kiv, sys; print('kiv' in sys.modules)"
    assert subprocess.check_output([sys.executable, "-c", code]) == b"False\n"


# Calls that would reach a bus outside a sandbox. No bus exists there, so the calls fail if they are not refused.
OUTSIDE = """
import kiv, pytest

@pytest.fixture(autouse=True)
def bus(monkeypatch):
    monkeypatch.setenv("DBUS_SYSTEM_BUS_ADDRESS", {address!r})

def test_a_call():
    assert kiv.StopNetworkSpeaker(7) == -1

def test_a_call_after_a_sandbox():
    with kiv.Sandbox():
        assert kiv.StopNetworkSpeaker(8) == 8
    assert kiv.StopNetworkSpeaker(7) == -1

def test_a_call_after_a_run_within_this_run():
    assert pytest.main(["--markers"]) == 0
    assert kiv.StopNetworkSpeaker(7) == -1

def test_a_wait():
    assert kiv.AwaitEvents() is False
"""
MACHINE = OUTSIDE.format(address="unix:path=/no/such/run/dbus/system_bus_socket,guid=00")
REFUSAL = "must be called in a sandbox, got the system bus of this machine; use the fixture kiv_sandbox"


def test_a_call_outside_a_sandbox_is_refused(tmp_path):
    done = run(tmp_path, "--tb=line", "-rN", use=MACHINE)
    assert done.returncode == 1 and "4 failed" in done.stdout, done.stdout
    assert done.stdout.count(f"StopNetworkSpeaker() {REFUSAL}") == 3
    assert done.stdout.count(f"AwaitEvents() {REFUSAL}") == 1


def test_without_an_address_the_bus_is_that_of_the_machine(monkeypatch):
    monkeypatch.delenv("DBUS_SYSTEM_BUS_ADDRESS", raising=False)
    # This function is refused like all others, although it would not use the bus.
    with pytest.raises(RuntimeError, match=f"GetWhetherKivDisabled.. {REFUSAL}.*--kiv-system-bus"):
        kiv.GetWhetherKivDisabled()


@pytest.mark.parametrize(
    "options, use",
    [
        pytest.param(["--kiv-system-bus"], MACHINE, id="by the option"),
        pytest.param([], OUTSIDE.format(address="unix:path=/no/such/bus"), id="to a bus that is not the machine's"),
    ],
)
def test_a_call_outside_a_sandbox_is_allowed(tmp_path, options, use):
    done = run(tmp_path, *options, use=use)
    assert done.returncode == 0 and "4 passed" in done.stdout, done.stdout


def test_outside_of_pytest_no_call_is_refused():
    code = "import kiv, pytest_kiv; print(kiv.StopNetworkSpeaker(7), kiv.AwaitEvents())"
    address = {"DBUS_SYSTEM_BUS_ADDRESS": "unix:path=/no/such/run/dbus/system_bus_socket"}
    assert subprocess.check_output([sys.executable, "-c", code], env={**os.environ, **address}) == b"-1 False\n"
