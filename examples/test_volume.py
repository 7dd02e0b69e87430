import queue

import kiv
import pytest

LEFT = kiv.mac("02:4b:49:56:00:01")


def test_a_new_volume_is_told(kiv_sandbox):
    events = queue.Queue()
    kiv.SubscribeNamServiceCallback("test", lambda *event: events.put(event))
    assert kiv.AwaitEvents()

    kiv.SetNetSpkVolume(LEFT, kiv.ip("192.168.0.21"), 33)

    _, data, length = events.get(timeout=60)
    assert data[:length].startswith(LEFT)


@pytest.mark.kiv_sandbox("--scenario", "no-speakers")
def test_nothing_starts_where_there_is_nothing(kiv_sandbox):
    assert kiv.StartNetworkSpeaker(kiv.NETSPKSETTING_SURROUND, [kiv.STNetSpkConfig(mac=LEFT)], 1) < 1


def test_a_start_that_fails_succeeds_the_next_time(kiv_sandbox):
    kiv_sandbox.fault("StartNetworkSpeaker", error="org.example.Bad", count=1)
    speakers = [kiv.STNetSpkConfig(mac=LEFT)]
    assert kiv.StartNetworkSpeaker(kiv.NETSPKSETTING_SURROUND, speakers, 1) == -1
    assert kiv.StartNetworkSpeaker(kiv.NETSPKSETTING_SURROUND, speakers, 1) == 1
