"""Checks the calls of the examples that arrive at the simulated server, and the home afterwards."""

import os
import re
import subprocess
from pathlib import Path
from unittest.mock import ANY

import pytest

EXAMPLES = Path(os.environ["KIV_EXAMPLES"])
# QtCall is built only if Qt is installed.
ON_OTHER_THREADS = ["GTaskCall", "WorkerThread", *(["QtCall"] if (EXAMPLES / "example-QtCall").exists() else [])]

LEFT, RIGHT, SUBWOOFER, KITCHEN, BEDROOM = ("02:4b:49:56:00:" + last for last in ["01", "02", "03", "a4", "05"])
MAC_OF_SOUNDBAR = "0x02, 0x4b, 0x49, 0x56, 0x00, 0xb0"


def run(example, **environment):
    program = EXAMPLES / f"example-{example}"
    done = subprocess.run(
        [program], check=True, stdout=subprocess.PIPE, encoding="utf-8", env={**os.environ, **environment}
    )
    return done.stdout


def requests(sandbox):
    """Returns the methods with their arguments, without the queries before each call. A record is (number, MAC address)."""
    return [
        (call.method, shortened(call.arguments)) for call in sandbox.calls if call.method != "check_dbus_connection"
    ]


def shortened(arguments):
    """Returns the arguments. An array of records shows the fields that the library knows."""
    found = re.fullmatch(r"\(\[(.*)\],\)", arguments)
    data = bytes(int(byte, 16) for byte in found[1].split(", ")) if found else b""
    if not data or len(data) % 86 != 0:
        return arguments
    records = [data[at : at + 86] for at in range(0, len(data), 86)]
    return [(int.from_bytes(record[4:8], "little"), record[8:14].hex(":")) for record in records]


@pytest.mark.parametrize("example", ["CHost", "SmallestHost"])
def test_a_host_starts_the_left_speaker_and_stops(kiv_sandbox, example):
    run(example)
    of_c_host = [
        ("StartNetworkSpeakerByID", "(1, 80, 0)"),
        ("GetNetSpkListInfoNumber", "()"),
        ("GetNetSpkListInfo", "(0,)"),
    ]
    assert requests(kiv_sandbox) == [
        ("SetNetSpkSettingMode", "(80, 0)"),
        ("StartNetworkSpeaker", [(1, LEFT)]),
        *(of_c_host if example == "CHost" else []),
        ("StopNetworkSpeaker", "(0,)"),
    ]


@pytest.mark.parametrize("example", ON_OTHER_THREADS)
def test_a_call_on_another_thread_is_made_once(kiv_sandbox, example):
    run(example)
    assert requests(kiv_sandbox) == [("GetSurroundChannelNumber", "()")]


def test_the_tasks_do_what_they_say(kiv_sandbox):
    run("Tasks")
    assert requests(kiv_sandbox) == [
        ("GetNetSpkNodeList", "(0,)"),
        ("AutoConnectNewSpeakers", "([0x01, 0x00, 0x00, 0x00, 0x02, 0x4b, 0x49, 0x56, 0x00, 0x05],)"),
        ("SetNetSpkSettingMode", "(80, 0)"),
        ("StartNetworkSpeaker", [(1, LEFT), (2, RIGHT), (3, SUBWOOFER)]),
        ("GetSurroundChannelNumber", "()"),
        ("CanSelectTavrin", "()"),
        ("PreSelectTavrin", "()"),
        ("SetTavrinUIMode", "(81,)"),
        ("SetNetSpkSettingMode", "(81, 0)"),
        ("StartNetworkSpeaker", [(0, KITCHEN), (0, BEDROOM)]),
        ("GetSoundbarSoundMode", "(0,)"),
        ("IsSoundbarSupportSoundMode", f"([{MAC_OF_SOUNDBAR}],)"),
        ("SetSoundbarSoundMode", f"([{MAC_OF_SOUNDBAR}, 0xc0, 0xa8, 0x00, 0x14, 0x01, 0x02, 0x00, 0x00, 0x00],)"),
        ("SubscribeNamServiceCallback", ANY),
        ("kiv_is_receiver_atmos", "()"),
        ("StopNetworkSpeaker", "(0,)"),
    ]


def test_a_receiver_with_atmos_is_noticed(kiv_sandbox):
    kiv_sandbox.control("atmos", "on")
    assert run("Tasks").endswith("Atmos: yes\n")


def test_a_monitor_thread_that_begins_late_costs_no_event(kiv_sandbox):
    assert run("Events", LD_PRELOAD=os.environ["SLOW_THREADS"]) == "volume 20\n"
