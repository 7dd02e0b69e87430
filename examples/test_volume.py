import kiv
import pytest

LEFT = kiv.mac("02:4b:49:56:00:01")
LEFT_IP = kiv.ip("192.168.0.21")
VOLUME_EVENT = 0x02020040


def test_the_volume_is_set(kiv_sandbox):
    kiv.SetNetSpkVolume(LEFT, LEFT_IP, 33)

    assert kiv_sandbox.home["speakers"][0]["volume"] == 33
    assert kiv_sandbox.calls[-1].method == "SetNetSpkVolume"


def test_a_new_volume_is_told(events):
    kiv.SetNetSpkVolume(LEFT, LEFT_IP, 33)

    event, data, length = events.get(timeout=60)
    assert event == VOLUME_EVENT
    assert data[:length].startswith(LEFT)


def test_a_start_that_fails_succeeds_the_next_time(kiv_sandbox):
    kiv_sandbox.fault("StartNetworkSpeaker", error="org.example.Bad", count=1)

    speakers = [kiv.STNetSpkConfig(mac=LEFT)]
    assert kiv.StartNetworkSpeaker(kiv.NETSPKSETTING_SURROUND, speakers, 1) == -1
    assert kiv.StartNetworkSpeaker(kiv.NETSPKSETTING_SURROUND, speakers, 1) == 1


def test_records_have_names(events):
    layout = kiv.Layout()
    nodes = []
    kiv.GetNetSpkNodeList(nodes)
    assert layout.record(nodes[0])["name"] == "Living room left"

    kiv.SetNetSpkVolume(LEFT, LEFT_IP, 33)
    name, records = layout.event(*events.get(timeout=60))
    assert (name, records[0]["volume"]) == ("volume", 33)


@pytest.mark.kiv_sandbox("--scenario", "no-speakers")
def test_nothing_starts_where_there_is_nothing(kiv_sandbox):
    assert kiv.StartNetworkSpeaker(kiv.NETSPKSETTING_SURROUND, [kiv.STNetSpkConfig(mac=LEFT)], 1) < 1
