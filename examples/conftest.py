pytest_plugins = ["kiv.pytest_plugin"]
