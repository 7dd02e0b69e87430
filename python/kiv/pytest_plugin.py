"""For a conftest.py that says pytest_plugins = ["kiv.pytest_plugin"], which no longer needs to."""

pytest_plugins = ["pytest_kiv"]
