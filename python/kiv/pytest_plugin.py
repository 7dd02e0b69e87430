"""Serves a conftest.py that says pytest_plugins = ["kiv.pytest_plugin"]. This is not needed any more."""

pytest_plugins = ["pytest_kiv"]
