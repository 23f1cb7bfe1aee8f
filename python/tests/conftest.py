"""What the tests share: profiles, the library by itself, and a settings folder of their own."""

import os
import subprocess
import sys
import tempfile
from pathlib import Path

import hypothesis
import pytest

sys.path.insert(0, os.path.dirname(__file__))
# Before anything loads the library: the user's own settings are neither read nor changed, and no bus is asked.
_own = tempfile.TemporaryDirectory()
os.environ["XDG_CONFIG_HOME"] = _own.name
for name in ("DBUS_SESSION_BUS_ADDRESS", "DISPLAY"):
    os.environ.pop(name, None)

# No test asserts a time, and every run asks the same.
hypothesis.settings.register_profile("steady", deadline=None, derandomize=True, database=None, max_examples=60)
hypothesis.settings.load_profile("steady")


@pytest.fixture
def orlo():
    """The command, run with its arguments."""

    def run(*words):
        return subprocess.run([os.environ["CM_ORLO"], *map(os.fspath, words)], check=True, capture_output=True, text=True).stdout

    if "CM_ORLO" not in os.environ:
        pytest.skip("the orlo command is not built")
    return run


@pytest.fixture
def store(tmp_path, monkeypatch):
    """An empty settings folder."""
    folder = tmp_path / "config"
    folder.mkdir()
    monkeypatch.setenv("XDG_CONFIG_HOME", str(folder))
    return Path(folder)
