"""For a conftest.py: pytest_plugins = ["kiv.pytest_plugin"]"""

import pytest

from .sandbox import Sandbox


def pytest_configure(config):
    config.addinivalue_line("markers", "kiv_sandbox(option, ...): options of kiv-sandbox for the fixture kiv_sandbox")


@pytest.fixture
def kiv_sandbox(request):
    """A sandbox of the test's own; its options are those of @pytest.mark.kiv_sandbox("--option", ...)."""
    marker = request.node.get_closest_marker("kiv_sandbox")
    with Sandbox(*(marker.args if marker else ())) as sandbox:
        yield sandbox
