"""Checks that the module refuses arguments beyond which the library would read or write, or that it would change."""

import inspect
import queue

import kiv
import pytest
from kiv import _declarations as declared

LEFT = kiv.mac("02:4b:49:56:00:01")
SOUNDBAR = kiv.mac("02:4b:49:56:00:b0")

# A valid argument for each kind of parameter.
PROPER = {
    "int": 1,
    "unsigned int": 1,
    "const char*": "example",
    "char*": bytearray(128),
    "const unsigned char*": LEFT,
    "unsigned char*": bytearray(20),
    "STNetSpkListInfo*": (kiv.STNetSpkListInfo * 8)(),
    "NamEventCallback": print,
    "AtmosSupportCallback": print,
    "void*": None,
}


def proper(function):
    parameters = declared.FUNCTIONS[function][1]
    return {name: [] if "vector" in type_ else PROPER[type_] for type_, name in parameters}


def parameters_of(*types):
    return [
        (function, name)
        for function, (_, parameters, _) in declared.FUNCTIONS.items()
        for type_, name in parameters or []
        if type_ in types
    ]


def refused(function, name, value, error, text):
    """Expects an error that names the parameter. The function is not called, because these tests have no bus."""
    with pytest.raises(error, match=text) as raised:
        getattr(kiv, function)(**{**proper(function), name: value})
    assert name in str(raised.value)


INT = "must be from -2147483648 to 2147483647, got"
ARRAY = r"must be an array such as \(kiv.STNetSpkListInfo \* 8\)\(\)"
MAC_NAMES = {"pMac", "soundbarMAC"}

# The types of parameters, a value that none of these may have, and the error.
REFUSED = [
    (["int"], 2**31, OverflowError, f"{INT} 2147483648"),
    (["int"], -(2**31) - 1, OverflowError, f"{INT} -2147483649"),
    (["int"], 2**40, OverflowError, "got 1099511627776"),
    (["int"], 1.5, TypeError, "must be an int, got 1.5"),
    (["int"], None, TypeError, "must be an int, got None"),
    (["unsigned int"], -1, OverflowError, "must be from 0 to 4294967295, got -1"),
    (["unsigned int"], 2**32, OverflowError, "got 4294967296"),
    (["const char*"], "Living\0room", ValueError, "must not contain a NUL"),
    (["const char*"], b"\0", ValueError, "must not contain a NUL"),
    (["const char*"], 4711, TypeError, "must be str.* got 4711"),
    (["const char*"], bytearray(b"x"), TypeError, "must be str"),
    (["STNetSpkListInfo*"], None, TypeError, ARRAY),
    (["STNetSpkListInfo*"], [], TypeError, ARRAY),
    (["STNetSpkListInfo*"], (kiv.CNetSpkNodeInfo * 4)(), TypeError, ARRAY),
    (["STNetSpkListInfo*"], bytearray(4096), TypeError, ARRAY),
    (["NamEventCallback", "AtmosSupportCallback"], 4711, TypeError, "must be a function or None, got 4711"),
    (["NamEventCallback", "AtmosSupportCallback"], "print", TypeError, "must be a function or None, got 'print'"),
    (["void*"], 2**64, OverflowError, "must be from 0 to 18446744073709551615"),
    (["void*"], -1, OverflowError, "got -1"),
    (["void*"], b"text", TypeError, "must be an int, got b'text'"),
]


@pytest.mark.parametrize("types, value, error, text", REFUSED)
def test_a_value_that_the_type_cannot_hold_is_refused(types, value, error, text):
    found = parameters_of(*types)
    assert found
    for function, name in found:
        refused(function, name, value, error, text)


def test_there_are_parameters_of_each_kind():
    found = {type_ for _, parameters, _ in declared.FUNCTIONS.values() for type_, _ in parameters or []}
    assert {type_ for type_ in found if "vector" not in type_} == set(PROPER)


def test_the_ends_of_the_range_are_accepted():
    with kiv.Sandbox():
        assert kiv.StopNetworkSpeaker(2**31 - 1) == 2**31 - 1
        assert kiv.StopNetworkSpeaker(-(2**31)) == -(2**31)


@pytest.mark.parametrize("function, name", [pair for pair in parameters_of("const unsigned char*") if pair[1] in MAC_NAMES])
def test_a_mac_address_has_six_bytes(function, name):
    for value in (LEFT[:5], LEFT + b"x", b""):
        refused(function, name, value, ValueError, f"must be 6 bytes, got {len(value)}")
    refused(function, name, "02:4b:49:56:00:01", TypeError, r'must be bytes such as kiv\.mac\(".*"\), got ')


def test_a_refused_mac_address_or_record_says_how_to_make_one():
    mac = r'such as kiv\.mac\("02:4b:49:56:00:01"\), got '
    with pytest.raises(TypeError, match=f"^mac must be bytes {mac}'02:4b"):
        kiv.STNetSpkConfig(mac="02:4b:49:56:00:01")
    with pytest.raises(TypeError, match="^opaque must be bytes, got"):
        kiv.STNetSpkConfig(opaque="x")
    new = "connectNewSpeakersMacAddrLists"
    refused("AutoConnectNewSpeakers", new, "02:4b:49:56:00:01", TypeError, f"must be bytes {mac}")
    refused("SetSoundbarSoundMode", "pData", "x", TypeError, "^pData must be bytes, got")
    config = r'such as kiv\.STNetSpkConfig\(mac=kiv\.mac\("02:4b:49:56:00:01"\)\), got b'
    with pytest.raises(TypeError, match=rf"\[0\] must be a STNetSpkConfig {config}"):
        kiv.StartNetworkSpeaker(80, [LEFT], 1)


@pytest.mark.parametrize(
    "function, name, counter, length, count",
    [
        ("ConnectNetworkSpeakerByMobile", "pParam", "nParamLen", 5, 6),
        ("SetSoundbarSoundMode", "pData", "nDataLen", 4, 5),
        ("AutoConnectNewSpeakers", "connectNewSpeakersMacAddrLists", "nNewSpeakersCount", 11, 2),
        ("AutoConnectNewSpeakersForOutdoor", "connectNewSpeakersMacAddrLists", "nNewSpeakersCount", 6, 2**31 - 1),
    ],
)
def test_bytes_are_as_many_as_their_number_tells(function, name, counter, length, count):
    with pytest.raises(ValueError, match=rf"{name} must have the {count} .* that {counter} tells, got {length} bytes"):
        getattr(kiv, function)(**{**proper(function), name: bytes(length), counter: count})


@pytest.mark.parametrize(
    "function, name, least",
    [
        ("GetActiveNetSpkInfo", "pDisplayName", 128),
        ("GetActiveNetSpkInfo", "pSpeakerType", 23),
        ("GetSoundbarSoundMode", "soundbarDeviceInfo", 10),
        ("GetSoundbarSoundMode", "soundmodeData", 20),
        ("GetSoundbarDeviceInfo", "soundbarDeviceInfo", 10),
    ],
)
def test_a_buffer_to_fill_has_room(function, name, least):
    refused(function, name, bytearray(least - 1), ValueError, f"must have room for {least} bytes, got {least - 1}")
    refused(function, name, bytearray(), ValueError, "got 0")
    refused(function, name, bytes(least), TypeError, "must be a bytearray, got b'")
    refused(function, name, None, TypeError, "must be a bytearray, got None")


def test_a_buffer_to_fill_has_the_room_that_is_told():
    text = "pSoundModeVersion must have the 20 bytes that nSoundModeVersionLen tells, got 19 bytes"
    with pytest.raises(ValueError, match=text):
        kiv.GetSoundbarProtocolVersion(SOUNDBAR, bytearray(19), 20)


def test_every_buffer_was_among_them():
    counted = {"pParam", "pData", "connectNewSpeakersMacAddrLists"}
    assert {name for _, name in parameters_of("const unsigned char*")} == MAC_NAMES | counted
    filled = {"pDisplayName", "pSpeakerType", "soundbarDeviceInfo", "soundmodeData", "pSoundModeVersion"}
    assert {name for _, name in parameters_of("char*", "unsigned char*")} == filled


def test_buffers_of_the_least_length_will_do():
    with kiv.Sandbox():
        assert kiv.StartNetworkSpeaker(kiv.NETSPKSETTING_SURROUND, [kiv.STNetSpkConfig(mac=LEFT)], 1) == 1
        name, type_ = bytearray(128), bytearray(23)
        assert kiv.GetActiveNetSpkInfo(name, type_, []) == 1
        assert name.rstrip(b"\0") == b"Living room left" and type_.rstrip(b"\0") == b"Shelf"
        device, mode = bytearray(10), bytearray(20)
        assert kiv.GetSoundbarSoundMode(device, mode) == 5
        assert device.startswith(SOUNDBAR) and mode[0] == 1
        version = bytearray(3)
        assert kiv.GetSoundbarProtocolVersion(SOUNDBAR, version, 3) == 2


def test_an_array_that_is_too_short_stays_as_it_is():
    with kiv.Sandbox():
        number = kiv.GetNetSpkListInfoNumber()
        assert number > 1
        groups = (kiv.STNetSpkListInfo * (number - 1))()
        text = f"pList must have room for the {number} records that there are, got {number - 1}"
        with pytest.raises(ValueError, match=text):
            kiv.getNetSpkListInfo(groups)
        assert not any(bytes(groups))


def test_no_name_to_unsubscribe_is_refused():
    with pytest.raises(TypeError, match="name must be str or bytes, got None"):
        kiv.UnsubscribeNamServiceCallback(None)


VECTORS = [
    (function, name, type_)
    for function, (_, parameters, _) in declared.FUNCTIONS.items()
    for type_, name in parameters or []
    if "vector" in type_
]


@pytest.mark.parametrize("function, name, type_", VECTORS)
def test_a_list_holds_records_of_its_kind(function, name, type_):
    record = getattr(kiv, type_.partition("<")[2].partition(">")[0])
    other = kiv.STNetSpkConfig if record is not kiv.STNetSpkConfig else kiv.CNetSpkNodeInfo
    text = rf"{name}\[1\] must be a {record.__name__} such as kiv\.{record.__name__}\(.*\), got {other.__name__}\("
    refused(function, name, [record(), other()], TypeError, text)
    refused(function, name, (record(),), TypeError, f"must be a list of {record.__name__}")
    if type_.endswith("&"):
        refused(function, name, None, TypeError, f"must be a list of {record.__name__}, got None")


def test_the_largest_user_data_arrives():
    told = queue.Queue()
    with kiv.Sandbox("--start") as sandbox:
        callback = lambda *arguments: told.put(arguments)  # noqa: E731
        assert kiv.register_atmos_support_cb(callback, 2**64 - 1) == 0
        assert kiv.AwaitEvents()
        sandbox.control("atmos", "on")
        assert told.get(timeout=60) == (1, 2**64 - 1)
        assert kiv.unregister_atmos_support_cb(callback) == 0


def test_a_record_has_its_fields_and_no_others():
    with pytest.raises(TypeError, match="foo"):
        kiv.STNetSpkConfig(foo=1)
    with pytest.raises(TypeError):
        kiv.STNetSpkConfig(0, 1, LEFT, bytes(72), 5)
    speaker = kiv.STNetSpkConfig(0, 1, LEFT)
    with pytest.raises(AttributeError, match="foo"):
        speaker.foo = 1
    assert (speaker.nConfig, speaker.mac, speaker.opaque) == (1, LEFT, bytes(72))
    assert list(inspect.signature(kiv.STNetSpkConfig).parameters) == ["nReserved", "nConfig", "mac", "opaque"]


@pytest.mark.parametrize(
    "field, value, error, text",
    [
        ("nConfig", 2**31, OverflowError, "nConfig must be from -2147483648 to 2147483647, got 2147483648"),
        ("nReserved", "1", TypeError, "nReserved must be an int, got '1'"),
        ("mac", LEFT[:5], ValueError, "mac must be 6 bytes, got 5"),
        ("mac", LEFT + b"x", ValueError, "mac must be 6 bytes, got 7"),
        ("mac", "02:4b:49:56:00:01", TypeError, "mac must be bytes such as .*, got '02:4b:49:56:00:01'"),
        ("mac", 6, TypeError, "mac must be bytes such as .*, got 6"),
        ("mac", None, TypeError, "mac must be bytes such as .*, got None"),
        ("opaque", b"", ValueError, "opaque must be 72 bytes, got 0"),
    ],
)
def test_a_field_refuses_what_it_cannot_hold(field, value, error, text):
    speaker = kiv.STNetSpkConfig(nConfig=1, mac=LEFT)
    before = bytes(speaker)
    with pytest.raises(error, match=text):
        setattr(speaker, field, value)
    with pytest.raises(error, match=text):
        kiv.STNetSpkConfig(**{field: value})
    assert bytes(speaker) == before


def test_a_record_shows_its_fields():
    speaker = kiv.STNetSpkConfig(nConfig=-2, mac=LEFT)
    assert repr(speaker) == "STNetSpkConfig(nReserved=0, nConfig=-2, mac=02:4b:49:56:00:01, opaque=<72 bytes of zero>)"
    node = kiv.CNetSpkNodeInfo(opaque=b"Kitchen".ljust(134, b"\0"))
    assert repr(node) == "CNetSpkNodeInfo(opaque=<134 bytes: b'Kitchen'...>)"
    assert len(repr(kiv.STNetSpkListInfo(opaque=b"\xff" * 1086))) < 200


def test_records_with_the_same_bytes_are_equal():
    assert kiv.STNetSpkConfig(mac=LEFT) == kiv.STNetSpkConfig(mac=LEFT)
    assert kiv.STNetSpkConfig(mac=LEFT) != kiv.STNetSpkConfig(mac=SOUNDBAR)
    assert kiv.STNetSpkConfig() != kiv.CNetSpkNodeInfo()
    assert kiv.STNetSpkConfig() != bytes(86)
