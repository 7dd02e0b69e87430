"""Uses the fixture as test suites do: several sandboxes one after another in one process."""

import os
import queue
import re
from pathlib import Path

import kiv
import pytest


def feature():
    """Returns the feature of the sandbox's TV."""
    return re.search(r"kiv_multi_ch_support=(\w+)", Path(os.environ["KIV_SYSTEM_INFO_FILE"]).read_text())[1]


@pytest.mark.kiv_sandbox("--scenario", "no-speakers")
def test_the_marker_has_the_options(kiv_sandbox):
    assert kiv.GetNetSpkNodeList([]) == -1  # the reply has no bytes


@pytest.mark.kiv_sandbox("--scenario", "no-speakers", "--feature=on")
class TestMarkersOfAClass:
    def test_are_those_of_a_method_without_any(self, kiv_sandbox):
        assert kiv_sandbox.home["speakers"] == []
        assert feature() == "true"

    @pytest.mark.kiv_sandbox("--feature", "off")
    def test_add_up_with_those_of_a_method(self, kiv_sandbox):
        assert kiv_sandbox.home["speakers"] == []
        assert feature() == "false"

    @pytest.mark.kiv_sandbox("--scenario", "surround-set")
    @pytest.mark.kiv_sandbox("--feature", "off")
    def test_are_replaced_by_the_same_option_of_a_method(self, kiv_sandbox):
        assert len(kiv_sandbox.home["speakers"]) == 3
        assert feature() == "false"


@pytest.mark.parametrize("number", [1, 2, 3])
def test_each_test_has_a_home_of_its_own(kiv_sandbox, events, number):
    assert kiv.AutoConnectNewSpeakers(kiv.mac("02:4b:49:56:00:05"), 1) == 1
    kiv_sandbox.control("event", hex(number))
    assert events.get(timeout=60)[0] == number


@pytest.mark.kiv_sandbox("--no-server")
def test_without_a_server_calls_fail(kiv_sandbox):
    assert kiv.StopNetworkSpeaker(7) == -1
    assert kiv.FlagEnableNetworkSpeaker() is True
    assert kiv.AwaitEvents() is False


def test_afterwards_there_is_a_server_again(kiv_sandbox):
    assert kiv.StopNetworkSpeaker(7) == 7


def test_a_subscription_outlives_its_sandbox():
    received = queue.Queue()

    def before(event, *_):
        # The server of the first sandbox tells that it exits, if the process owns its client's name by then.
        if event != kiv.NAMSERVICE_EXIT_STATE:
            received.put(event)

    with kiv.Sandbox():
        kiv.SubscribeNamServiceCallback("before", before)
    with kiv.Sandbox("--start") as sandbox:
        kiv.SubscribeNamServiceCallback("test", lambda *event: received.put("test"))
        assert kiv.AwaitEvents()
        sandbox.control("event", "0x11")
        assert received.get(timeout=60) == 0x11
        assert received.get(timeout=60) == "test"
        kiv.UnsubscribeNamServiceCallback("before")
        sandbox.control("event", "0x12")
        assert received.get(timeout=60) == "test"
        kiv.UnsubscribeNamServiceCallback("test")
