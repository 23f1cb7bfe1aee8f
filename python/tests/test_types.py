"""The type hints are whole: the strictest checker finds nothing in the package, and what they say of its use is what users rely on."""

import os
import subprocess
import sys

import pytest

pytest.importorskip("mypy")

PACKAGE = os.path.join(os.environ["CM_SOURCE_DIR"], "python", "colourmatch")


@pytest.fixture(scope="module")
def check(tmp_path_factory):
    """Asks the checker about a path; its exit code and what it said. Its cache is shared, as it reads NumPy's hints too."""
    folder = tmp_path_factory.mktemp("checker")

    def run(path):
        command = [sys.executable, "-m", "mypy", "--strict", "--cache-dir", str(folder), str(path)]
        done = subprocess.run(command, capture_output=True, text=True, env={**os.environ, "MYPYPATH": os.path.dirname(PACKAGE)}, cwd=folder, check=False)
        return done.returncode, done.stdout

    return run


def test_the_package(check):
    code, said = check(PACKAGE)
    assert code == 0, said


USE = """
import colourmatch
import numpy as np
matcher = colourmatch.Matcher("a", b"b", intent="relative", quality=2)
reference = np.zeros((2, 3), np.uint16)
device = matcher.match(reference, depth=8)
matcher.predict(device, out=reference)
with colourmatch.settings.watch(lambda now: print(now.contrast + 1)) as watch:
    for now in watch:
        print(now.quality + 1)
"""


def test_right_use(check, tmp_path):
    (tmp_path / "use.py").write_text(USE)
    code, said = check(tmp_path / "use.py")
    assert code == 0, said


@pytest.mark.parametrize("line, words", [
    ('colourmatch.Matcher("a", intent="perceptual")', "Literal"), ('colourmatch.Matcher("a", quality=3)', "Literal"), ("colourmatch.Matcher(5)", "Matcher"),
    ("matcher.match(reference, depth=12)", "Literal"), ('colourmatch.settings.get().contrast + ""', "operand"), ("matcher.quick = True", "quick")])
def test_wrong_use_is_found(check, tmp_path, line, words):
    (tmp_path / "use.py").write_text(USE + line + "\n")
    code, said = check(tmp_path / "use.py")
    assert code != 0 and words in said, said
