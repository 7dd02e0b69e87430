"""Finds its way into pytest by itself, wherever the module kiv is installed."""

import pytest


def pytest_configure(config):
    config.addinivalue_line("markers", "kiv_sandbox(option, ...): options of kiv-sandbox for the fixture kiv_sandbox")


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
