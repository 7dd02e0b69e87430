"""Checks the types that type checkers see."""

import os
import subprocess
import sys
from pathlib import Path

import kiv
import pytest

MODULES = Path(kiv.__file__).parents[1]

# Each wrong line has a comment with its error. If mypy does not find that error, it reports the comment.
USES = '''
from pathlib import Path

import kiv

left = kiv.STNetSpkConfig(nConfig=1, mac=kiv.mac("02:4b:49:56:00:01"))
number: int = kiv.StartNetworkSpeaker(kiv.NETSPKSETTING_SURROUND, [left], 1)
kiv.StartNetworkSpeaker(kiv.NETSPKSETTING_SURROUND, None, 1)  # type: ignore[arg-type]
kiv.GetSpksConnectionType(None)
kiv.StopNetworkSpeaker("7")  # type: ignore[arg-type]
kiv.STNetSpkConfig(foo=1)  # type: ignore[call-arg]
kiv.SetNetSpkName(left.mac, kiv.ip("192.168.0.21"), "Hall")
kiv.SetNetSpkName("02:4b:49:56:00:01", 0, "Hall")  # type: ignore[arg-type]
kiv.GetActiveNetSpkInfo(bytearray(128), bytearray(23), [])
kiv.GetActiveNetSpkInfo(bytes(128), bytearray(23), [])  # type: ignore[arg-type]
kiv.getNetSpkListInfo((kiv.spk_list_info_s * 4)())
kiv.SPK_SetVolume(1, "x", 2.5)
kiv.SPK_Unknown()  # type: ignore[attr-defined]
disabled: bool = kiv.g_KivDisabled.value
version: str = kiv.__version__


def told(event: int, data: bytes, length: int) -> None:
    name: str = kiv.Layout("layout.json").event(event, data, length).name or "unknown"


kiv.SubscribeNamServiceCallback("test", told)
kiv.SubscribeNamServiceCallback("test", lambda: None)  # type: ignore[arg-type, misc]
arrived: bool = kiv.AwaitEvents(timeout=0.5)
kiv.AwaitEvents(timeout="1")  # type: ignore[arg-type]

with kiv.Sandbox("--scenario", Path("surround-set")) as sandbox:
    sandbox.fault("StopNetworkSpeaker", error="org.example.Bad", count=1)
    method: str = sandbox.calls[0].method
    sandbox.calls[0].text  # type: ignore[attr-defined]
    sandbox.home["speakers"]
    sandbox.apply(Path("hall.json"))
    sandbox.apply(7)  # type: ignore[arg-type]
    sandbox.control("event", kiv.NAMSERVICE_EXIT_STATE)
    sandbox.control("away", 1.5)  # type: ignore[arg-type]
    try:
        sandbox.control("away", 100)
    except kiv.ControlError as error:
        reason: str = error.stderr
'''


def run(module, tmp_path, *arguments):
    done = subprocess.run(
        [sys.executable, "-m", module, *arguments],
        cwd=tmp_path,
        env={**os.environ, "MYPYPATH": str(MODULES)},
        stdout=subprocess.PIPE,
        stderr=subprocess.STDOUT,
        encoding="utf-8",
    )
    assert done.returncode == 0, done.stdout
    return done.stdout


def test_the_module_is_typed():
    assert (MODULES / "kiv/py.typed").exists()


def test_the_stub_has_what_the_module_has(tmp_path):
    # Files without a stub are left out, because they would be compared with themselves and with their imports.
    (tmp_path / "without-stub").write_text(r"kiv\.(layout|sandbox)\..*")
    assert "Success" in run("mypy.stubtest", tmp_path, "kiv", "--ignore-missing-stub", "--allowlist", "without-stub")


def test_uses_are_checked(tmp_path):
    (tmp_path / "uses.py").write_text(USES)
    assert "Success" in run("mypy", tmp_path, "--warn-unused-ignores", "uses.py")


@pytest.mark.parametrize("file", ["_own.py", "_process.py", "layout.py", "sandbox.py"])
def test_a_typed_file_is_sound(tmp_path, file):
    options = ["--strict", "--follow-imports=silent", "--allow-untyped-calls"]
    assert "Success" in run("mypy", tmp_path, *options, str(MODULES / "kiv" / file))
