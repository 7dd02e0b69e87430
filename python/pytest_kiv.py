"""Finds its way into pytest by itself, wherever the module kiv is installed."""

import os

import pytest

# The end of the path at which every machine has its own system bus.
_SOCKET = "/dbus/system_bus_socket"

# The runs of pytest in this process. A test may run pytest within pytest.
_runs = []


def pytest_addoption(parser):
    parser.getgroup("kiv").addoption(
        "--kiv-system-bus",
        action="store_true",
        help="have calls of the module kiv outside a sandbox reach the system bus of this machine, as on a TV",
    )


def pytest_configure(config):
    config.addinivalue_line("markers", "kiv_sandbox(option, ...): options of kiv-sandbox for the fixture kiv_sandbox")
    _runs.append(config)


def pytest_unconfigure(config):
    _runs.remove(config)


def _arguments(markers):
    """Adds up what the markers say, of which the closest to the test comes first.

    An option of a closer marker replaces the same option of the others.
    """
    options, keywords = {}, {}
    for marker in reversed(list(markers)):
        own, name = {}, ""
        for word in map(str, marker.args):
            # A word without dashes is the value of the option before it.
            name = word.partition("=")[0] if word.startswith("--") else name
            own.setdefault(name, []).append(word)
        options.update(own)
        keywords.update(marker.kwargs)
    return [word for words in options.values() for word in words], keywords


@pytest.fixture
def kiv_sandbox(request):
    """A sandbox of the test's own; its options are those of @pytest.mark.kiv_sandbox("--option", ...).

    The markers of the test, its class and its module add up.
    """
    # pytest imports this file in each run, also of tests that have no use for the library.
    from kiv import Sandbox

    options, keywords = _arguments(request.node.iter_markers("kiv_sandbox"))
    with Sandbox(*options, **keywords) as sandbox:
        yield sandbox


def refuse_system_bus(function):
    """The module kiv asks before each call that uses the bus."""
    if not _runs or _runs[-1].getoption("kiv_system_bus", False):
        return
    address = os.environ.get("DBUS_SYSTEM_BUS_ADDRESS")
    if not address or _SOCKET in address:
        raise RuntimeError(
            f"{function}() must be called in a sandbox, got the system bus of this machine; use the fixture kiv_sandbox or "
            "kiv.Sandbox(), or run pytest with --kiv-system-bus to call the server of this machine"
        )
