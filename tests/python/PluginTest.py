"""pytest finds the fixture by itself, and by the ways of before."""

import os
import subprocess
import sys

import pytest

USE = """
import kiv, pytest

@pytest.mark.kiv_sandbox("--scenario", "no-speakers")
def test_the_fixture(kiv_sandbox):
    assert kiv_sandbox.home["speakers"] == []
"""


def run(path, *options, **environment):
    (path / "test_use.py").write_text(USE)
    command = [sys.executable, "-m", "pytest", "-q", "--strict-markers", "-p", "no:cacheprovider", *options, str(path)]
    return subprocess.run(
        command, env={**os.environ, **environment}, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, encoding="utf-8"
    )


@pytest.mark.parametrize(
    "conftest, options, environment",
    [
        pytest.param("", [], {}, id="by itself"),
        pytest.param('pytest_plugins = ["kiv.pytest_plugin"]', [], {}, id="by a conftest.py of before"),
        pytest.param('pytest_plugins = ["pytest_kiv"]', [], {}, id="by a conftest.py"),
        pytest.param("", ["-p", "pytest_kiv"], {"PYTEST_DISABLE_PLUGIN_AUTOLOAD": "1"}, id="by an option"),
    ],
)
def test_the_fixture_is_there(tmp_path, conftest, options, environment):
    (tmp_path / "conftest.py").write_text(conftest)
    done = run(tmp_path, *options, **environment)
    assert done.returncode == 0, done.stdout


def test_it_can_be_switched_off(tmp_path):
    done = run(tmp_path, "-p", "no:pytest_kiv")
    assert done.returncode != 0 and "kiv_sandbox" in done.stdout


def test_options_that_are_not_options_are_told(tmp_path):
    (tmp_path / "test_named.py").write_text(USE.replace('"--scenario", "no-speakers"', 'scenario="no-speakers"'))
    done = run(tmp_path)
    assert done.returncode == 1
    assert "unexpected keyword argument 'scenario'" in done.stdout


def test_the_library_is_not_loaded_before_it_is_used():
    code = "import pytest_kiv, sys; print('kiv' in sys.modules)"
    assert subprocess.check_output([sys.executable, "-c", code]) == b"False\n"
