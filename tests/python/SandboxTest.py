"""The sandbox from Python."""

import os
import subprocess
import sys

import kiv
import pytest


def in_a_process(code):
    """What a program prints that has the module for itself."""
    done = subprocess.run([sys.executable, "-c", code], stdout=subprocess.PIPE, encoding="utf-8", check=True)
    return done.stdout


def test_its_bus_is_gone_afterwards():
    before = dict(os.environ)
    with kiv.Sandbox():
        address = os.environ["DBUS_SYSTEM_BUS_ADDRESS"]
        assert kiv.StopNetworkSpeaker(7) == 7
    assert dict(os.environ) == before
    assert not os.path.exists(address.partition("path=")[2].partition(",")[0])


def test_it_is_left_when_something_goes_wrong():
    with pytest.raises(KeyError):
        with kiv.Sandbox() as sandbox:
            raise KeyError
    assert sandbox._process.poll() == 0


def test_programs_started_meanwhile_are_in_it():
    with kiv.Sandbox("--start"):
        assert in_a_process("import kiv; print(kiv.StopNetworkSpeaker(7))") == "7\n"


def test_the_device_feature_is_read_by_the_next_process():
    with kiv.Sandbox("--feature", "off"):
        assert in_a_process("import kiv; print(kiv.GetWhetherKivDisabled())") == "True\n"


def test_wrong_options_are_an_error():
    with pytest.raises(RuntimeError, match="125"):
        with kiv.Sandbox("--no-such-option"):
            pass


def test_control_changes_what_the_server_does():
    with kiv.Sandbox("--start") as sandbox:
        sandbox.control("fault", "StopNetworkSpeaker", '{"error": "org.example.Bad", "count": 1}')
        assert kiv.StopNetworkSpeaker(7) == -1
        assert kiv.StopNetworkSpeaker(7) == 7
        with pytest.raises(subprocess.CalledProcessError):
            sandbox.control("no-such-command")


def test_the_program_is_looked_for_in_the_path(monkeypatch, tmp_path):
    monkeypatch.delenv("KIV_SANDBOX")
    monkeypatch.setenv("PATH", str(tmp_path))
    with pytest.raises(FileNotFoundError, match="KIV_SANDBOX"):
        kiv.Sandbox().__enter__()


def test_a_process_that_ends_takes_its_monitor_thread_with_it():
    with kiv.Sandbox("--start"):
        code = "import kiv; print(kiv.SubscribeNamServiceCallback('x', print), kiv.DestroyMessageMonitor())"
        assert in_a_process(code) == "1 0\n"
        assert in_a_process("import kiv; print(kiv.SubscribeNamServiceCallback('x', print))") == "1\n"
