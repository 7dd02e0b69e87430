"""pytest finds the plugin by itself, and by the ways of before. The plugin keeps tests off the machine's system bus."""

import os
import subprocess
import sys

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


def test_options_that_are_not_options_are_told(tmp_path):
    (tmp_path / "test_named.py").write_text(USE.replace('"--scenario", "no-speakers"', 'scenario="no-speakers"'))
    done = run(tmp_path)
    assert done.returncode == 1
    assert "unexpected keyword argument 'scenario'" in done.stdout


def test_the_library_is_not_loaded_before_it_is_used():
    code = "import pytest_kiv, sys; print('kiv' in sys.modules)"
    assert subprocess.check_output([sys.executable, "-c", code]) == b"False\n"


# Calls that would reach a bus outside a sandbox. There is none, so that they fail where they are not refused.
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
    done = run(tmp_path, "--tb=line", use=MACHINE)
    assert done.returncode == 1 and "4 failed" in done.stdout, done.stdout
    assert done.stdout.count(f"StopNetworkSpeaker() {REFUSAL}") == 3
    assert done.stdout.count(f"AwaitEvents() {REFUSAL}") == 1


def test_without_an_address_the_bus_is_that_of_the_machine(monkeypatch):
    monkeypatch.delenv("DBUS_SYSTEM_BUS_ADDRESS", raising=False)
    # This function is refused as all are, but would not use the bus.
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
