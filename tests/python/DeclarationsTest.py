"""Checks that the module has all exports of the library."""

import inspect
import os
import re
from importlib import metadata
from pathlib import Path

import kiv
import pytest


def exported():
    """Returns the exported functions and globals, without the members of the class, which have C++ names."""
    lines = Path(os.environ["KIV_EXPORTS"]).read_text().splitlines()
    return {name for name in lines if re.fullmatch(r"[A-Za-z]\w*", name)}


def test_every_export_is_there():
    names = exported()
    assert len(names) > 90
    assert names - set(kiv.__all__) == set()


def test_what_is_there_is_exported_or_of_the_header():
    header = Path(os.environ["KIV_HEADER"]).read_text()
    own = {"AwaitEvents", "ControlError", "DecodedEvent", "Layout", "LayoutError", "ReceivedCall", "Sandbox", "ip", "mac"}
    assert [name for name in kiv.__all__ if name not in own and not re.search(rf"\b\w*{name}\b", header)] == []


def test_help_is_the_text_of_the_header():
    help_ = inspect.getdoc(kiv.StartNetworkSpeaker)
    assert help_.startswith("Routes the TV's sound to network speakers.\n")
    assert "@param nStartReason  reason code" in help_
    assert kiv.GetLastConnectSatIdx.__doc__ == "-1"


def test_the_version_is_the_projects():
    header = Path(os.environ["KIV_HEADER"]).read_text()
    assert kiv.__version__ == ".".join(re.findall(r"#define KIV_VERSION_(?:MAJOR|MINOR|MICRO) (\d+)", header))
    assert metadata.version("kiv") == kiv.__version__


def test_parameters_have_their_names():
    assert list(inspect.signature(kiv.StartNetworkSpeaker).parameters) == ["nMode", "list", "nStartReason"]


def test_records_are_laid_out_as_in_memory():
    sizes = {"STNetSpkListInfo": 1086, "spk_info_s": 183, "CNetSpkNodeInfo": 134, "STNetSpkConfig": 86}
    assert {name: len(bytes(getattr(kiv, name)())) for name in sizes} == sizes
    assert kiv.spk_list_info_s is kiv.STNetSpkListInfo
    speaker = kiv.STNetSpkConfig(nReserved=1, nConfig=-2, mac=kiv.mac("02:4b:49:56:00:b0"))
    assert bytes(speaker)[:14].hex() == "01000000" "feffffff" "024b495600b0"
    speaker.mac = b"123456"
    assert speaker.mac == b"123456"


@pytest.mark.parametrize(
    "text",
    ["", "2:4b:49:56:0:b0", "02:4b:49:56:00", "02:4b:49:56:00:b0:01", "02:4b:49:56:00:zz", "024b495600b0", "02:4b4956:0b0"],
)
def test_a_text_that_is_not_a_mac_address_is_refused(text):
    with pytest.raises(ValueError, match=f"must be a MAC address such as 02:4b:49:56:00:01, got '{text}'"):
        kiv.mac(text)


def test_addresses_begin_with_the_lowest_byte():
    assert kiv.ip("1.0.0.0") == 1
    assert kiv.ip("0.0.0.255") == -(2**24)


@pytest.mark.parametrize("text", ["", "1.2.3", "1.2.3.4.5", "1.2.3.256", "1.2.3.x", "1.2.3.+4", " 1.2.3.4"])
def test_a_text_that_is_not_an_ip_address_is_refused(text):
    with pytest.raises(ValueError, match=re.escape(f"must be an IPv4 address such as 192.168.0.21, got '{text}'")):
        kiv.ip(text)


@pytest.mark.parametrize("value", [5, None, b"1.2.3.4", [1, 2, 3, 4]])
def test_an_address_must_be_a_text(value):
    with pytest.raises(TypeError, match=re.escape(f"must be a MAC address such as 02:4b:49:56:00:01, got {value!r}")):
        kiv.mac(value)
    with pytest.raises(TypeError, match=re.escape(f"must be an IPv4 address such as 192.168.0.21, got {value!r}")):
        kiv.ip(value)
