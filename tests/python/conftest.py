"""Gives the tests the documented fixture for events."""

import runpy
from pathlib import Path

events = runpy.run_path(str(Path(__file__).parents[2] / "examples/conftest.py"))["events"]
