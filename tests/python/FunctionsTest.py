"""Calls functions with each kind of argument and result, with the simulated server."""

import queue

import kiv
import pytest

LEFT = kiv.mac("02:4b:49:56:00:01")
BEDROOM = kiv.mac("02:4b:49:56:00:05")
SOUNDBAR = kiv.mac("02:4b:49:56:00:b0")
VOLUME_EVENT = 0x02020040
LONG = 60

pytestmark = pytest.mark.usefixtures("kiv_sandbox")


def config(mac):
    return kiv.STNetSpkConfig(nConfig=1, mac=mac)


def test_numbers():
    assert kiv.StopNetworkSpeaker(7) == 7
    assert kiv.StopNetworkSpeaker(-3) == -3
    assert kiv.StopNetworkSpeaker(nStopType=9) == 9


def test_an_argument_too_few_or_too_many_is_an_error():
    with pytest.raises(TypeError):
        kiv.StopNetworkSpeaker()
    with pytest.raises(TypeError):
        kiv.StopNetworkSpeaker(1, 2)
    with pytest.raises(TypeError):
        kiv.StopNetworkSpeaker("x")


def test_truth_values():
    assert kiv.FlagEnableNetworkSpeaker() is True
    assert kiv.kiv_is_receiver_atmos() is False


def test_a_list_of_records_is_read():
    assert kiv.StartNetworkSpeaker(kiv.NETSPKSETTING_SURROUND, [config(LEFT)], 1) == 1
    assert kiv.StartNetworkSpeaker(kiv.NETSPKSETTING_SURROUND, [], 1) == 0


def test_a_pointer_to_a_list_may_be_none():
    assert kiv.GetSpksConnectionType([config(LEFT)]) == 1
    assert kiv.GetSpksConnectionType(None) == -1


def test_a_list_is_emptied_and_filled():
    groups = [kiv.STNetSpkListInfo(opaque=b"x" * 1086)]
    assert kiv.GetNetSpkListInfo(groups) == len(groups) == kiv.GetNetSpkListInfoNumber()
    assert bytes(groups[0]).startswith(b"Living room\0")
    nodes = []
    assert kiv.GetNetSpkNodeList(nodes) == len(nodes) == 7


def test_a_list_is_added_to():
    kiv.StartNetworkSpeaker(kiv.NETSPKSETTING_SURROUND, [config(LEFT)], 1)
    name = bytearray(kiv.NETSPK_LIST_NAME_LEN)
    type_ = bytearray(kiv.NETSPK_SPEAKER_TYPE_LEN + 1)
    before = kiv.spk_info_s(opaque=b"x" * 183)
    speakers = [before]
    assert kiv.GetActiveNetSpkInfo(name, type_, speakers) == 1
    assert bytes(speakers[0]) == bytes(before)
    assert bytes(speakers[1]).startswith(b"Living room left\0")
    assert type_.rstrip(b"\0") == b"Shelf"


def test_an_array_is_filled():
    number = kiv.GetNetSpkListInfoNumber()
    groups = (kiv.STNetSpkListInfo * number)()
    assert kiv.getNetSpkListInfo(groups) == number
    assert bytes(groups[0]).startswith(b"Living room\0")


def test_bytes_are_read_and_filled():
    mode = bytes([1, 4, 0, 2, 0])
    kiv.SetSoundbarSoundMode(SOUNDBAR, kiv.ip("192.168.0.20"), mode, len(mode))
    device = bytearray(kiv.KIV_SOUNDBAR_DEVICE_INFO_LEN)
    data = bytearray(kiv.KIV_SOUND_MODE_LEN)
    assert kiv.GetSoundbarSoundMode(device, data) == len(mode)
    assert device == SOUNDBAR + bytes([192, 168, 0, 20])
    assert data[: len(mode)] == mode


def test_bytes_may_be_none():
    assert kiv.IsSoundbarSupportSoundMode(None) is False
    assert kiv.ConnectNetworkSpeakerByMobile(None, 0) == -1


def test_texts_may_be_of_any_language():
    kiv.SetNetSpkName(LEFT, kiv.ip("192.168.0.21"), "Bücherregal")
    nodes = []
    kiv.GetNetSpkNodeList(nodes)
    assert bytes(nodes[0]).startswith("Bücherregal\0".encode())


def test_events_arrive(events):
    kiv.SetNetSpkVolume(LEFT, kiv.ip("192.168.0.21"), 33)
    event, data, length = events.get(timeout=LONG)
    assert event == VOLUME_EVENT
    assert data[:length] == LEFT + bytes([192, 168, 0, 21]) + (33).to_bytes(4, "little")
    assert len(data) == kiv.NAMSERVICE_EVENT_DATA_MAX


def test_an_exception_in_a_callback_ends_there(events, capfd):
    def fail(*_):
        raise RuntimeError("of the callback")

    # This one is called first, because subscribers are called in the order of their names.
    kiv.SubscribeNamServiceCallback("first", fail)
    kiv.SetNetSpkVolume(LEFT, kiv.ip("192.168.0.21"), 34)
    assert events.get(timeout=LONG)[0] == VOLUME_EVENT
    kiv.UnsubscribeNamServiceCallback("first")


def test_atmos_callbacks_are_told_apart(kiv_sandbox):
    told = queue.Queue()

    def callback(supported, user_data):
        told.put((supported, user_data))

    assert kiv.register_atmos_support_cb(callback, 7) == 0
    assert kiv.register_atmos_support_cb(callback, 7) == -1
    assert kiv.AwaitEvents()
    kiv_sandbox.control("atmos", "on")
    assert told.get(timeout=LONG) == (1, 7)
    assert kiv.unregister_atmos_support_cb(callback) == 0
    assert kiv.unregister_atmos_support_cb(callback) == -1


def test_the_older_interface_takes_any_arguments():
    assert kiv.SPK_SetVolume(1, b"x", 2.5, [], 2**70) == 0
    assert kiv.get_size_of_spk_list_info_s() == 1086


def test_globals_are_those_of_the_library():
    assert kiv.GetWhetherKivDisabled() is False
    assert kiv.g_GetSystemVal.value is True
    assert kiv.g_KivDisabled.value is False
