"""Loads the plugin for a conftest.py that says pytest_plugins = ["kiv.pytest_plugin"].

pytest finds the plugin without this line if the module kiv is installed.
"""

pytest_plugins = ["pytest_kiv"]
