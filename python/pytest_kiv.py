"""Is the pytest plugin of the module kiv. pytest finds it by itself if the module is installed."""

import os

import pytest

# The path of every machine's own system bus ends like this.
_SOCKET = "/dbus/system_bus_socket"

# The runs of pytest in this process, the innermost last. A test may run pytest itself.
_runs = []


def pytest_addoption(parser):
    parser.getgroup("kiv").addoption(
        "--kiv-system-bus",
        action="store_true",
        help="allow calls of the module kiv outside a sandbox to reach the system bus of this machine, as on a TV",
    )


def pytest_configure(config):
    config.addinivalue_line("markers", "kiv_sandbox(option, ...): options of kiv-sandbox for the fixture kiv_sandbox")
    _runs.append(config)


def pytest_unconfigure(config):
    _runs.remove(config)


@pytest.hookimpl(hookwrapper=True)
def pytest_runtest_makereport(item, call):
    """Keeps the type of the exception that ended a test or its setup. A fixture does not see that exception."""
    yield
    item.kiv_exception = call.excinfo and call.excinfo.type


def pytest_itemcollected(item):
    # A marker of a class or a module is meant for those of its tests that use the fixture, so only one of the test
    # itself is reported.
    if "kiv_sandbox" not in getattr(item, "fixturenames", ()):
        if any(marker.name == "kiv_sandbox" for marker in item.own_markers):
            text = f"the marker kiv_sandbox has no effect on {item.name}, which does not use the fixture kiv_sandbox"
            item.warn(pytest.PytestWarning(text))


def _options(markers):
    """Returns the options of all markers together. The first marker is the closest to the test.

    An option of a closer marker replaces the same option of the others.
    """
    # The import is here, because pytest imports this file in every run, also for tests that do not use the library.
    from kiv.sandbox import option_words

    options = {}
    for marker in reversed(list(markers)):
        own, name = {}, ""
        for word in option_words("the marker kiv_sandbox", marker.args, marker.kwargs):
            # A word without dashes is the value of the option before it.
            name = word.partition("=")[0] if word.startswith("--") else name
            own.setdefault(name, []).append(word)
        options.update(own)
    return [word for words in options.values() for word in words]


@pytest.fixture
def kiv_sandbox(request):
    """Gives a test a sandbox of its own, with the options of @pytest.mark.kiv_sandbox("--option", ...).

    The options of the test's markers and of those of its class and its module add up. If the test fails, the sandbox
    fails.
    """
    from kiv import Sandbox

    sandbox = Sandbox(*_options(request.node.iter_markers("kiv_sandbox")))
    sandbox.__enter__()
    yield sandbox
    sandbox.__exit__(getattr(request.node, "kiv_exception", None))


def refuse_system_bus(function):
    """Raises RuntimeError if a call would use the system bus of this machine. The module kiv asks before each call."""
    if not _runs or _runs[-1].getoption("kiv_system_bus", False):
        return
    address = os.environ.get("DBUS_SYSTEM_BUS_ADDRESS")
    if not address or _SOCKET in address:
        raise RuntimeError(
            f"{function}() must be called in a sandbox, got the system bus of this machine; use the fixture kiv_sandbox or "
            "kiv.Sandbox(), or run pytest with --kiv-system-bus to call the server of this machine"
        )
