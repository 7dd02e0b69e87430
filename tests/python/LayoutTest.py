"""Checks that records and events are decoded by a layout file, and that a file that cannot be used is refused."""

import json
import re
from pathlib import Path

import kiv
import pytest

ROOT = Path(__file__).parents[2]
FILE = ROOT / "simulator/layout.json"
LEFT = "02:4b:49:56:00:01"
SURROUND = kiv.NETSPKSETTING_SURROUND


def write(path, records, **others):
    file = path / "own.json"
    file.write_text(json.dumps({"records": records, **others}))
    return file


def field(type_, offset=0, name="field", **others):
    return {"name": name, "offset": offset, "type": type_, **others}


def decode(path, data, *fields):
    """Returns the fields of a record with these bytes."""
    return kiv.Layout(write(path, {"own": {"size": len(data), "fields": list(fields)}})).decode("own", data)


@pytest.mark.parametrize("file", [5, 0, b"own.json", ["own.json"]])
def test_only_a_path_names_a_file(file):
    with pytest.raises(TypeError, match=re.escape(f"file must be the path of a layout file, got {file!r}")):
        kiv.Layout(file)


def test_records_of_the_library_have_their_fields(kiv_sandbox):
    layout = kiv.Layout(FILE)
    nodes = []
    kiv.GetNetSpkNodeList(nodes)
    node = layout.record(nodes[0])
    assert (node["name"], node["mac"], node["ip"], node["volume"]) == ("Living room left", LEFT, "192.168.0.21", 20)

    kiv.StartNetworkSpeaker(SURROUND, [kiv.STNetSpkConfig(mac=kiv.mac(LEFT))], 1)
    speakers = []
    kiv.GetActiveNetSpkInfo(bytearray(128), bytearray(23), speakers)
    speaker = layout.record(speakers[0])
    fields = json.loads(FILE.read_text())["records"]["speaker"]["fields"]
    assert list(speaker) == [field["name"] for field in fields]
    assert (speaker["label"], speaker["type"], speaker["playing"]) == ("KIV01", "Shelf", 1)


def test_records_within_a_record_are_those_that_are_filled(kiv_sandbox):
    groups = []
    kiv.GetNetSpkListInfo(groups)
    found = [kiv.Layout(FILE).record(group) for group in groups]
    assert [(group["name"], group["connected"]) for group in found] == [("Living room", 3), ("Kitchen", 1)]
    names = [[speaker["name"] for speaker in group["speakers"]] for group in found]
    assert names == [["Living room left", "Living room right", "Subwoofer"], ["Kitchen"]]


def test_events_have_a_name_and_records(kiv_sandbox, events):
    layout = kiv.Layout(FILE)
    kiv.SetNetSpkVolume(kiv.mac(LEFT), kiv.ip("192.168.0.21"), 33)
    volume = {"mac": LEFT, "ip": "192.168.0.21", "volume": 33}
    assert layout.event(*events.get(timeout=60)) == ("volume", [volume])
    kiv.GetNetSpkVolumeList([kiv.STNetSpkConfig(mac=kiv.mac(mac)) for mac in (LEFT, "02:4b:49:56:00:02")])
    assert len(layout.event(*events.get(timeout=60)).records) == 2
    kiv_sandbox.control("event", "0x02020041", "01 02")
    assert layout.event(*events.get(timeout=60)) == (None, [])


def test_the_announced_length_of_an_event_is_not_trusted():
    layout = kiv.Layout(FILE)
    data = bytes(range(14)) * 3
    assert len(layout.event(0x02020040, data, 42).records) == 3
    assert len(layout.event(0x02020040, data, 41).records) == 2
    assert len(layout.event(0x02020040, data, 4711).records) == 3
    for length in (13, 0, -1, -28):
        assert layout.event(0x02020040, data, length) == ("volume", [])


def test_ids_of_events_are_unsigned_in_the_file(tmp_path):
    record = {"own": {"size": 1, "fields": [field("u8")]}}
    layout = kiv.Layout(write(tmp_path, record, events={"0xFFFFFFFE": {"record": "own"}}))
    assert layout.event(-2, b"\x07", 1) == (None, [{"field": 7}])


@pytest.mark.parametrize(
    "data, type_, value",
    [
        (b"\xff", "u8", 255),
        (b"\xff", "i8", -1),
        (b"\x01\x80", "u16", 0x8001),
        (b"\xfe\xff", "i16", -2),
        (b"\x01\x02\x03\x84", "u32", 0x84030201),
        (b"\xfe\xff\xff\xff", "i32", -2),
        (b"\x02\x4b\x49\x56\x00\xb0", "mac", "02:4b:49:56:00:b0"),
        (b"\xc0\xa8\x00\x15", "ipv4", "192.168.0.21"),
    ],
)
def test_each_type_of_a_fixed_length_has_its_value(tmp_path, data, type_, value):
    assert decode(tmp_path, b"x" + data + b"x", field(type_, 1)) == {"field": value}


@pytest.mark.parametrize(
    "data, type_, value",
    [
        (b"Hall\0\0\0\0", "text", "Hall"),
        (b"Hall\0way", "text", "Hall"),
        (b"Hallways", "text", "Hallways"),
        ("Bücher\0".encode(), "text", "Bücher"),
        (b"a\xffb\0\0\0\0\0", "text", "a\ufffdb"),
        (b"\0\x01\xab\xcd\xef\0\0\0", "bytes", "0001abcdef000000"),
    ],
)
def test_each_type_of_any_length_has_its_value(tmp_path, data, type_, value):
    assert decode(tmp_path, data, field(type_, length=8)) == {"field": value}


@pytest.mark.parametrize("number, used", [(-1, 0), (0, 0), (2, 2), (3, 3), (100, 3)])
def test_filled_records_are_at_most_those_that_there_is_room_for(tmp_path, number, used):
    part = {"size": 1, "fields": [field("u8")]}
    whole = {
        "size": 7,
        "fields": [
            field("records", 4, "parts", record="part", count=3, filled="number"),
            field("i32", 0, "number"),
            field("records", 4, "all", record="part", count=3),
        ],
    }
    layout = kiv.Layout(write(tmp_path, {"whole": whole, "part": part}))
    decoded = layout.decode("whole", number.to_bytes(4, "little", signed=True) + b"\1\2\3")
    assert [entry["field"] for entry in decoded["parts"]] == [1, 2, 3][:used]
    assert len(decoded["all"]) == 3


def test_the_environment_names_the_file(monkeypatch, tmp_path):
    monkeypatch.setenv("KIV_LAYOUT", str(FILE))
    assert kiv.Layout().decode("volume", bytes(14))["mac"] == "00:00:00:00:00:00"
    assert kiv.Layout(write(tmp_path, {"own": {"size": 1, "fields": []}})).decode("own", b"x") == {}
    for value in ("", None):
        monkeypatch.setenv("KIV_LAYOUT", value) if value is not None else monkeypatch.delenv("KIV_LAYOUT")
        with pytest.raises(kiv.LayoutError, match="name a file, or set KIV_LAYOUT"):
            kiv.Layout()


def test_the_page_shows_a_layout(tmp_path):
    (example,) = re.findall("```json\n(.*?)```", (ROOT / "docs/layouts.md").read_text(), re.DOTALL)
    file = tmp_path / "our-server.json"
    file.write_text(example)
    assert kiv.Layout(file).event(0x02020040, bytes(14), 14).name == "volume"


def test_a_record_that_is_not_described_is_told(tmp_path):
    layout = kiv.Layout(write(tmp_path, {"own": {"size": 1, "fields": []}}))
    with pytest.raises(kiv.LayoutError, match="own.json: /records: has no record 'node', but own"):
        layout.record(kiv.CNetSpkNodeInfo())
    with pytest.raises(TypeError, match="must be one of spk_info_s, .*, CNetSpkNodeInfo, got STNetSpkConfig"):
        layout.record(kiv.STNetSpkConfig())
    with pytest.raises(ValueError, match="data must be the 1 bytes of a record 'own', got 2"):
        layout.decode("own", b"xy")


def changed(*change):
    """Returns the layout of these tests with another value at a place, or without the value there."""
    *place, key, value = change
    content = json.loads(FILE.read_text())
    node = content
    for step in place:
        node = node[step]
    if value is None:
        del node[key]
    elif isinstance(node, list):
        node.insert(key, value)
    else:
        node[key] = value
    return content


NODE = ("records", "node", "fields")
AT_NODE = "/records/node/fields"
NESTED = ("records", "list", "fields", 3)
AT_NESTED = "/records/list/fields/3"
SIZE = "/records/volume/size"


@pytest.mark.parametrize(
    "content, place, reason",
    [
        ([], "/", "must be an object"),
        ({}, "/", "must have the key records"),
        (changed("extra", 1), "/", "a key must be one of description, events, records, got 'extra'"),
        (changed("description", 1), "/description", "must be a text, got 1"),
        (changed("records", []), "/records", "must be an object"),
        (changed("records", "node", "size", None), "/records/node", "must have the key size"),
        (changed("records", "node", "fields", None), "/records/node", "must have the key fields"),
        (changed("records", "node", "fields", {}), "/records/node/fields", "must be an array"),
        (changed("records", "node", "extra", 1), "/records/node", "a key must be one of fields, size, got 'extra'"),
        (changed("records", "node", "size", 135), "/records/node/size", "must be 134, .* of CNetSpkNodeInfo, got 135"),
        (changed("records", "volume", "size", 0), SIZE, "must be an integer of 1 or more, 65536 at most, got 0"),
        (changed("records", "volume", "size", 65537), SIZE, ".* 65536 at most, got 65537"),
        (changed("records", "volume", "size", 14.0), SIZE, "must be an integer"),
        (changed("records", "volume", "size", True), SIZE, "must be an integer"),
        (changed(*NODE, 0, 1), AT_NODE + "/0", "must be an object, got 1"),
        (changed(*NODE, 0, "name", None), AT_NODE + "/0", "must have the key name"),
        (changed(*NODE, 0, "name", ""), AT_NODE + "/0/name", "must be a name that no other field"),
        (changed(*NODE, 1, "name", "name"), AT_NODE + "/1/name", "must be a name that no other field"),
        (changed(*NODE, 0, "offset", None), AT_NODE + "/0", "must have the key offset"),
        (changed(*NODE, 0, "offset", -1), AT_NODE + "/0/offset", "must be an integer of 0 or more, got -1"),
        (changed(*NODE, 3, "offset", 129), AT_NODE + "/3/offset", "the field's 6 bytes must lie within .* 134, got 129"),
        (changed(*NODE, 0, "type", "float"), AT_NODE + "/0/type", "must be one of text, .*, records, got 'float'"),
        (changed(*NODE, 0, "length", None), AT_NODE + "/0", "must have the key length"),
        (changed(*NODE, 0, "length", 0), AT_NODE + "/0/length", "must be an integer of 1 or more, got 0"),
        (changed(*NODE, 0, "length", 135), AT_NODE + "/0/offset", "the field's 135 bytes must lie within"),
        (changed(*NODE, 0, "size", 1), AT_NODE + "/0", "a key must be one of count, .*, got 'size'"),
        (changed(*NESTED, "record", None), AT_NESTED, "must have the key record"),
        (changed(*NESTED, "record", "box"), AT_NESTED + "/record", "must be one of speaker, .*, got 'box'"),
        (changed(*NESTED, "count", None), AT_NESTED, "must have the key count"),
        (changed(*NESTED, "count", 6), AT_NESTED + "/offset", "the field's 1098 bytes must lie within"),
        (changed(*NESTED, "filled", "name"), AT_NESTED + "/filled", "must be one of connected, group, playing, got 'name'"),
        (changed("events", []), "/events", "must be an object"),
        (changed("events", "0x2020040", {}), "/events", "a key must be an event id, .* got '0x2020040'"),
        (changed("events", "0x02020041", {}), "/events/0x02020041", "must have the key record"),
        (changed("events", "0x02020041", {"record": "box"}), "/events/0x02020041/record", "must be one of speaker, "),
        (changed("events", "0x02020041", {"record": "node", "name": 1}), "/events/0x02020041/name", "must be a text"),
    ],
)
def test_a_file_that_cannot_be_used_is_refused(tmp_path, content, place, reason):
    file = tmp_path / "own.json"
    file.write_text(json.dumps(content))
    with pytest.raises(kiv.LayoutError, match=f"own.json: {place}: {reason}"):
        kiv.Layout(file)


@pytest.mark.parametrize("parts", [{"a": "a"}, {"a": "b", "b": "a"}, {"z": "a", "a": "b", "b": "c", "c": "a"}], ids=len)
def test_a_record_that_contains_itself_is_refused(tmp_path, parts):
    records = {
        name: {"size": 8, "fields": [field("records", record=part, count=1)]} for name, part in parts.items()
    }
    with pytest.raises(kiv.LayoutError, match="must not be a record that contains this one"):
        kiv.Layout(write(tmp_path, records))


def test_a_file_that_cannot_be_read_is_told(tmp_path):
    with pytest.raises(kiv.LayoutError, match="missing.json: cannot be read: No such file"):
        kiv.Layout(tmp_path / "missing.json")
    with pytest.raises(kiv.LayoutError, match="/dev/zero: must have 1048576 bytes at most"):
        kiv.Layout("/dev/zero")
    for text in ("", "{", "\xff", "[" * 100000):
        (tmp_path / "bad.json").write_text(text, encoding="latin-1")
        with pytest.raises(kiv.LayoutError, match="bad.json: must be JSON: "):
            kiv.Layout(tmp_path / "bad.json")
