"""What is shown in the README and in the docstrings is what happens."""

import doctest
import importlib
import inspect
import os
import pkgutil
import re
import shutil

import numpy
import pytest
from truth import ADOBE_RGB, CMYK_PRINTER, DATA

import colourmatch

MODULES = [colourmatch, *(importlib.import_module(f"colourmatch.{each.name}") for each in pkgutil.iter_modules(colourmatch.__path__)
                          if each.name != "_native")]


def failures_of(runner, tests):
    texts = []
    for test in tests:
        runner.run(test, out=texts.append)
    return "".join(texts)


def bring_files():
    """What the examples name, into the current folder."""
    for source, name in ((ADOBE_RGB, "monitor.icc"), (CMYK_PRINTER, "printer.icc"), (f"{DATA}/photographs/astronaut.png", "photo.png")):
        shutil.copy(source, name)


def test_the_readme(tmp_path, monkeypatch):
    monkeypatch.chdir(tmp_path)
    bring_files()
    with open(os.path.join(os.environ["CM_SOURCE_DIR"], "python", "README.md"), encoding="utf-8") as file:
        text = file.read()
    test = doctest.DocTestParser().get_doctest(text, {}, "README.md", "README.md", 0)
    assert len(test.examples) > 15
    assert failures_of(doctest.DocTestRunner(verbose=False), [test]) == ""
    assert os.path.exists("proof.png")


def test_the_example_of_the_project(tmp_path, monkeypatch):
    monkeypatch.chdir(tmp_path)
    bring_files()
    with open(os.path.join(os.environ["CM_SOURCE_DIR"], "README.md"), encoding="utf-8") as file:
        (example,) = re.findall(r"^```python\n(.*?)^```$", file.read(), re.MULTILINE | re.DOTALL)
    names = {}
    exec(compile(example, "README.md", "exec"), names)
    with open("monitor.icc", "rb") as file:
        assert names["proof"].info["icc_profile"] == file.read()


@pytest.mark.parametrize("module", MODULES, ids=lambda module: module.__name__)
def test_examples_of_docstrings(module):
    tests = doctest.DocTestFinder().find(module, extraglobs={"np": numpy})
    assert failures_of(doctest.DocTestRunner(verbose=False), tests) == ""


def public():
    for name in colourmatch.__all__:
        thing = getattr(colourmatch, name)
        yield name, thing
        if inspect.isclass(thing) or inspect.ismodule(thing):
            members = getattr(thing, "__all__", [each for each in vars(thing) if not each.startswith("_")])
            yield from ((f"{name}.{each}", getattr(thing, each)) for each in members)
    yield from ((f"Watch.{each}", thing) for each, thing in vars(colourmatch.settings.Watch).items() if not each.startswith("_"))


def test_every_public_function_and_class_has_a_docstring():
    bare = [name for name, thing in public() if (callable(thing) or isinstance(thing, property)) and not (thing.__doc__ or "").strip()]
    assert bare == []
