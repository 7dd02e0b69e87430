"""Finds its way into pytest by itself, wherever the module kiv is installed."""

import pytest


def pytest_configure(config):
    config.addinivalue_line("markers", "kiv_sandbox(option, ...): options of kiv-sandbox for the fixture kiv_sandbox")


@pytest.fixture
def kiv_sandbox(request):
    """A sandbox of the test's own; its options are those of @pytest.mark.kiv_sandbox("--option", ...)."""
    # pytest imports this file in each run, also of tests that have no use for the library.
    from kiv import Sandbox

    marker = request.node.get_closest_marker("kiv_sandbox")
    with Sandbox(*(marker.args if marker else ()), **(marker.kwargs if marker else {})) as sandbox:
        yield sandbox
