"""Checks the class Sandbox of the Python module."""

import os
import re
import select
import subprocess
import sys
from pathlib import Path

import kiv
import pytest


def in_a_process(code):
    """Returns the output of a program that uses the module in its own process."""
    done = subprocess.run([sys.executable, "-c", code], stdout=subprocess.PIPE, encoding="utf-8", check=True)
    return done.stdout


def names(sandbox):
    return [speaker["name"] for speaker in sandbox.home["speakers"]]


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
    assert sandbox._process.poll() == 1


def test_programs_started_meanwhile_are_in_it():
    with kiv.Sandbox("--start"):
        assert in_a_process("import kiv; print(kiv.StopNetworkSpeaker(7))") == "7\n"


def forking(lines):
    """Returns what a program prints that may call fork(text), which evaluates the text in a forked child."""
    return in_a_process(
        """
import multiprocessing, os, signal, kiv

def child(text):
    signal.alarm(60)
    try:
        print(eval(text), flush=True)
    except RuntimeError as error:
        print("refused:", error, flush=True)

def fork(text):
    process = multiprocessing.get_context("fork").Process(target=child, args=[text])
    process.start()
    process.join()
"""
        + lines
    )


def test_a_child_is_refused_what_hangs_after_a_call_of_its_parent():
    printed = forking(
        """
with kiv.Sandbox():
    kiv.StopNetworkSpeaker(7)
    fork("kiv.StopNetworkSpeaker(8)")
    fork("kiv.AwaitEvents()")
    print(kiv.StopNetworkSpeaker(7))
fork("kiv.Sandbox().__enter__()")
"""
    )
    refusal = r'refused: {}\(\) must not be called in a child that os\.fork\(\) made .*\("spawn"\)\n'
    expected = [refusal.format("StopNetworkSpeaker"), refusal.format("AwaitEvents"), "7\n", refusal.format("Sandbox")]
    assert re.fullmatch("".join(expected), printed)


def test_a_child_may_make_the_first_call():
    printed = forking(
        """
with kiv.Sandbox():
    fork("kiv.StopNetworkSpeaker(8)")
    print(kiv.StopNetworkSpeaker(7))
"""
    )
    assert printed == "8\n7\n"


def test_a_child_that_leaves_the_sandbox_does_not_end_it():
    printed = forking(
        """
with kiv.Sandbox():
    kiv.StopNetworkSpeaker(7)
    process = os.fork()
    if process == 0:
        signal.alarm(60)
        raise SystemExit(3)
    print(os.waitstatus_to_exitcode(os.waitpid(process, 0)[1]), kiv.StopNetworkSpeaker(7))
"""
    )
    assert printed == "3 7\n"


def test_the_device_feature_is_read_by_the_next_process():
    with kiv.Sandbox("--feature", "off"):
        assert in_a_process("import kiv; print(kiv.GetWhetherKivDisabled())") == "True\n"


@pytest.mark.parametrize("feature, disabled", [("off", True), ("on", False), ("absent", False), ("off", True)])
def test_the_device_feature_is_that_of_the_sandbox(feature, disabled):
    with kiv.Sandbox("--feature", feature):
        assert kiv.GetWhetherKivDisabled() is disabled
        assert kiv.StopNetworkSpeaker(7) == (-1 if disabled else 7)
    assert kiv.g_GetSystemVal.value is False and kiv.g_KivDisabled.value is False


def test_the_device_feature_can_be_changed():
    with kiv.Sandbox() as sandbox:
        assert kiv.StopNetworkSpeaker(7) == 7
        sandbox.control("feature", "off")
        assert kiv.StopNetworkSpeaker(7) == -1
        sandbox.control("feature", "absent")
        assert kiv.StopNetworkSpeaker(7) == 7
        sandbox.apply({"feature": "off"})
        assert kiv.StopNetworkSpeaker(7) == -1
        sandbox.apply({"feature": "on"})
        assert kiv.StopNetworkSpeaker(7) == 7


def test_the_words_of_a_sandbox_that_does_not_start_are_in_the_exception(tmp_path, capfd):
    with pytest.raises(RuntimeError, match="--no-such-option ended with 125: kiv-sandbox: .*--no-such-option"):
        kiv.Sandbox("--no-such-option").__enter__()
    scenario = tmp_path / "bad.json"
    scenario.write_text('{"home": {"speakers": [{"mac": "zz"}]}}')
    with pytest.raises(RuntimeError, match="bad.json ended with 125: kiv-sandbox: .*/mac: must be a MAC address") as raised:
        kiv.Sandbox("--scenario", scenario).__enter__()
    assert str(raised.value).partition(": ")[2].strip() in capfd.readouterr().err


def test_an_option_after_which_no_sandbox_starts_is_an_error():
    for option in ("--version", "--help"):
        with pytest.raises(RuntimeError, match=f"{option} started no sandbox; give options that do, such as --scenario"):
            kiv.Sandbox(option).__enter__()


@pytest.mark.parametrize(
    "options", [("no-speakers",), (5,), (5, "--lazy"), ("--", "true"), ("--lazy", "--", "true"), (["--lazy"],)]
)
def test_what_is_no_option_is_refused(options):
    text = r'Sandbox\(\) takes options of kiv-sandbox, such as "--scenario", "no-speakers".* got .*'
    with pytest.raises(TypeError if 5 in options else (TypeError, ValueError), match=text + re.escape(repr(options[-1]))):
        kiv.Sandbox(*options)


def test_stderr_is_passed_on_while_the_sandbox_runs():
    """Checks that stderr is passed on at once, because output at the end would be lost in a crash."""
    code = """
import kiv, select, sys
with kiv.Sandbox("--trace"):
    kiv.StopNetworkSpeaker(7)
    select.select([sys.stdin], [], [], 60)
    print("at the end", file=sys.stderr, flush=True)
"""
    pipe = subprocess.PIPE
    with subprocess.Popen([sys.executable, "-c", code], stdin=pipe, stderr=pipe, encoding="utf-8") as process:
        found = next(line for line in process.stderr if " bus: " in line or line == "at the end\n")
        process.stdin.close()
        process.stderr.read()
        assert process.wait() == 0
    assert " bus: " in found


def test_a_stderr_that_nobody_reads_any_more_costs_no_words(tmp_path):
    code = """
import kiv, sys
sys.stdin.read()
with kiv.Sandbox("--record", sys.argv[1]):
    kiv.StopNetworkSpeaker(1)
try:
    with kiv.Sandbox("--replay", sys.argv[1], "--strict"):
        kiv.StopNetworkSpeaker(7)
except RuntimeError as error:
    print("kiv-sandbox: --strict: " in str(error) and " not in" in str(error))
"""
    pipe = subprocess.PIPE
    command = [sys.executable, "-c", code, str(tmp_path / "recording.jsonl")]
    with subprocess.Popen(command, stdin=pipe, stdout=pipe, stderr=pipe) as process:
        process.stderr.close()
        process.stdin.close()
        assert process.stdout.read() == b"True\n"


def test_control_changes_what_the_server_does():
    with kiv.Sandbox("--start") as sandbox:
        sandbox.control("fault", "StopNetworkSpeaker", '{"error": "org.example.Bad", "count": 1}')
        assert kiv.StopNetworkSpeaker(7) == -1
        assert kiv.StopNetworkSpeaker(7) == 7
        with pytest.raises(subprocess.CalledProcessError):
            sandbox.control("no-such-command")


@pytest.mark.parametrize(
    "named, text",
    [
        (None, "kiv-sandbox is not in the PATH; name it with KIV_SANDBOX"),
        ("/no/such/program", "KIV_SANDBOX must name the program kiv-sandbox, got '/no/such/program'"),
    ],
)
def test_a_program_that_is_not_found_is_told(monkeypatch, tmp_path, named, text):
    monkeypatch.setenv("PATH", str(tmp_path))
    monkeypatch.setenv("KIV_SANDBOX", named) if named else monkeypatch.delenv("KIV_SANDBOX")
    with pytest.raises(FileNotFoundError, match=text):
        kiv.Sandbox().__enter__()


def test_a_process_that_ends_takes_its_monitor_thread_with_it():
    with kiv.Sandbox("--start"):
        code = "import kiv; print(kiv.SubscribeNamServiceCallback('x', print), kiv.DestroyMessageMonitor())"
        assert in_a_process(code) == "1 0\n"
        assert in_a_process("import kiv; print(kiv.SubscribeNamServiceCallback('x', print))") == "1\n"


def test_sandboxes_do_not_overlap():
    with kiv.Sandbox():
        with pytest.raises(RuntimeError, match="another sandbox is in use in this process; leave it first"):
            kiv.Sandbox().__enter__()
    with kiv.Sandbox():
        assert kiv.StopNetworkSpeaker(7) == 7


def test_a_sandbox_that_is_not_in_use_is_told():
    sandbox = kiv.Sandbox()
    with pytest.raises(RuntimeError, match="control it inside its with statement"):
        sandbox.control("show")
    with sandbox:
        pass
    with pytest.raises(RuntimeError, match="control it inside its with statement"):
        sandbox.home


def test_the_home_is_what_it_is_now():
    with kiv.Sandbox() as sandbox:
        for volumes in ([20, 20, 15, 10], [33, 20, 15, 10]):
            assert [speaker["volume"] for speaker in sandbox.home["speakers"]] == volumes
            kiv.SetNetSpkVolume(kiv.mac("02:4b:49:56:00:01"), kiv.ip("192.168.0.21"), 33)
        assert sandbox.control("show") == sandbox.home
        assert sandbox.control("show", "--json") == sandbox.home
        assert sandbox.control("show", "--text").startswith("Home\n")


def test_the_calls_are_those_of_the_server():
    with kiv.Sandbox() as sandbox:
        assert sandbox.calls == []
        kiv.StopNetworkSpeaker(7)
        kiv.SetNetSpkName(kiv.mac("02:4b:49:56:00:01"), 0, "(a) 'b'\n2 :1.1 c()")
        kiv.DisableSurround()
        asked, stop, *_, rename, _, disable = sandbox.calls
        assert (asked.number, asked.method, asked.arguments) == (1, "check_dbus_connection", f"({os.getpid()},)")
        assert (stop.number, stop.method, stop.arguments) == (2, "StopNetworkSpeaker", "(7,)")
        assert stop.sender == asked.sender and stop.sender.startswith(":1.")
        assert rename.method == "SetNetSpkName" and rename.arguments.startswith("(0x02, 0x4b, 0x49")
        assert (disable.method, disable.arguments) == ("DisableSurround", "()")
        assert [call.number for call in sandbox.calls] == list(range(1, disable.number + 1))
        assert sandbox.control("calls") == sandbox.calls


def test_the_calls_are_there_as_json():
    with kiv.Sandbox() as sandbox:
        kiv.StopNetworkSpeaker(7)
        calls = sandbox.control("calls", "--json")
        assert [call["method"] for call in calls] == ["check_dbus_connection", "StopNetworkSpeaker"]
        assert list(calls[1]) == ["number", "sender", "method", "flags", "arguments"]
        assert (calls[1]["number"], calls[1]["arguments"]) == (2, "(7,)")
        assert [tuple(call[field] for field in kiv.ReceivedCall._fields) for call in calls] == sandbox.calls


def test_arguments_may_be_numbers_and_paths(tmp_path):
    scenario = tmp_path / "hall.json"
    scenario.write_text('{"home": {"speakers": [{"name": "Hall", "mac": "02:4b:49:56:00:31"}]}}')
    with kiv.Sandbox("--scenario", scenario) as sandbox:
        assert names(sandbox) == ["Hall"]
        sandbox.control("apply", Path("no-speakers"))
        assert sandbox.home["speakers"] == []
        sandbox.apply(scenario)
        assert names(sandbox) == ["Hall"]
        sandbox.control("away", 1)
        sandbox.control("await-server")
        for value in (True, 1.5, None, b"on"):
            with pytest.raises(TypeError, match=f"an argument must be a str, an int or a path, got {value!r}"):
                sandbox.control("atmos", value)
    with pytest.raises(TypeError, match="an argument must be a str, an int or a path, got 4.5"):
        kiv.Sandbox("--scenario", 4.5)


@pytest.mark.parametrize("event", [kiv.NAMSERVICE_EXIT_STATE, 1, 2**31 - 1, -1, -(2**31)])
def test_the_id_of_an_event_may_be_an_int(kiv_sandbox, events, event):
    kiv_sandbox.control("event", event)
    assert events.get(timeout=60)[0] == event


def test_the_id_of_an_event_may_follow_an_option(kiv_sandbox, events):
    client = kiv_sandbox.home["clients"][0]["id"]
    for words, event, data in [
        (("--client", client, 0x02020040, "07"), 0x02020040, b"\x07"),
        ((f"--client={client}", -2, 11), -2, b"\x11"),
        (("0x12", 11, "--client", client), 0x12, b"\x11"),
    ]:
        kiv_sandbox.control("event", *words)
        received = events.get(timeout=60)
        assert (received[0], received[1][:1]) == (event, data)


@pytest.mark.parametrize("event", [2**32, 2**40, -(2**31) - 1])
def test_an_int_that_is_no_id_of_an_event_is_refused(event):
    with kiv.Sandbox() as sandbox:
        with pytest.raises(OverflowError, match=f"id of an event must be from -2147483648 to 4294967295, got {event}"):
            sandbox.control("event", event)


def test_a_fault_makes_a_method_go_wrong():
    with kiv.Sandbox("--start") as sandbox:
        sandbox.fault("StopNetworkSpeaker", error="org.example.Bad", message="a 'reason'", count=1)
        assert [kiv.StopNetworkSpeaker(7) for _ in range(2)] == [-1, 7]
        sandbox.fault("StopNetworkSpeaker", reply="(9,)")
        sandbox.fault("*", delay=0)
        assert kiv.StopNetworkSpeaker(7) == 9
        sandbox.fault("GetNetSpkNodeList", bytes=b"\xab" * 134)
        nodes = []
        assert kiv.GetNetSpkNodeList(nodes) == 1
        assert nodes[0].opaque == b"\xab" * 134
        sandbox.clear_faults()
        assert kiv.StopNetworkSpeaker(7) == 7
        with pytest.raises(TypeError, match="a fault must have a key"):
            sandbox.fault("StopNetworkSpeaker")
        with pytest.raises(TypeError, match="a value must be bytes, or of a type that JSON has, got <object object"):
            sandbox.fault("StopNetworkSpeaker", delay=object())


def test_a_scenario_is_applied():
    with kiv.Sandbox("--start") as sandbox:
        sandbox.apply({"home": {"speakers": [{"name": "Hall", "mac": "02:4b:49:56:00:31"}]}})
        assert names(sandbox) == ["Hall"]
        sandbox.apply("no-speakers")
        assert sandbox.home["speakers"] == []
        sandbox.apply({"faults": {"GetNetSpkNodeList": {"bytes": b"\xab" * 134}}})
        nodes = []
        assert kiv.GetNetSpkNodeList(nodes) == 1 and nodes[0].opaque == b"\xab" * 134
        for scenario in (None, 7, b"no-speakers"):
            with pytest.raises(TypeError, match=f"scenario must be the name of one, a file or a dict, got {scenario!r}"):
                sandbox.apply(scenario)


def test_a_command_that_prints_nothing_returns_nothing():
    with kiv.Sandbox("--start") as sandbox:
        assert sandbox.control("atmos", "on") is None
        assert sandbox.control("calls", "--help").startswith("print the calls that the server has received")


def test_the_words_of_the_tool_are_in_the_exception(capfd):
    with kiv.Sandbox("--start") as sandbox:
        with pytest.raises(kiv.ControlError, match="there is no such key.*exit code 2") as raised:
            sandbox.fault("StopNetworkSpeaker", eror="org.example.Bad")
        assert raised.value.returncode == 2
        assert "/eror: there is no such key" in raised.value.stderr
        assert raised.value.cmd[1:4] == ["control", "fault", "StopNetworkSpeaker"]
    assert capfd.readouterr().err == ""
    with kiv.Sandbox("--no-server") as sandbox:
        with pytest.raises(kiv.ControlError, match="kiv-sandbox control: .*exit code 1"):
            sandbox.home


@pytest.fixture
def failing(tmp_path):
    """Gives a sandbox that fails at its end."""
    recording = str(tmp_path / "recording.jsonl")
    with kiv.Sandbox("--record", recording):
        in_a_process("import kiv; kiv.StopNetworkSpeaker(1)")
    return kiv.Sandbox("--replay", recording, "--strict")


def test_a_sandbox_that_fails_at_its_end_is_an_error(failing, capfd):
    with pytest.raises(RuntimeError, match=r"--strict ended with 125: (.*\n)+kiv-sandbox: --strict: \d+ calls? .* not in"):
        with failing:
            in_a_process("import kiv; kiv.StopNetworkSpeaker(0)")
    assert "kiv-sandbox: --strict: " in capfd.readouterr().err


def test_a_failing_body_is_told_before_a_failing_sandbox(failing):
    with pytest.raises(ZeroDivisionError):
        with failing:
            in_a_process("import kiv; kiv.StopNetworkSpeaker(0)")
            1 / 0


def record(path, end):
    """Runs a program that records a call in a sandbox, and leaves the sandbox as it is told. Waits for both to end."""
    code = """
import kiv, os, sys
with kiv.Sandbox("--record", sys.argv[1]) as sandbox:
    kiv.StopNetworkSpeaker(7)
    print(sandbox._process.pid, flush=True)
    sys.stdin.read()
"""
    pipe = subprocess.PIPE
    command = [sys.executable, "-c", f"{code}    {end}", str(path)]
    with subprocess.Popen(command, stdin=pipe, stdout=pipe, stderr=subprocess.DEVNULL) as process:
        sandbox = os.pidfd_open(int(process.stdout.readline()))
        process.stdin.close()
        process.wait()
    select.select([sandbox], [], [])
    os.close(sandbox)


@pytest.mark.parametrize(
    "end", ["raise KeyError", "sys.exit(0)", "os._exit(0)", "os.kill(os.getpid(), 9)"], ids=["raise", "exit", "_exit", "kill"]
)
def test_an_older_recording_stays_if_the_sandbox_is_not_left_in_order(tmp_path, end):
    recording = tmp_path / "recording.jsonl"
    recording.write_text("older")
    record(recording, end)
    assert recording.read_text() == "older"
    [part] = tmp_path.glob("recording.jsonl.part-*")
    assert '"(7,)"' in part.read_text()


def test_a_recording_replaces_an_older_one_if_the_sandbox_is_left_in_order(tmp_path):
    recording = tmp_path / "recording.jsonl"
    recording.write_text("older")
    record(recording, "pass")
    assert '"(7,)"' in recording.read_text() and list(tmp_path.iterdir()) == [recording]
