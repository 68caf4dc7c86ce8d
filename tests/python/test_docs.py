"""docs/python.md is the package's docstrings, and the package reaches every
method of the module."""

import importlib.util
import os
import re

from conftest import ROOT, qi


def test_docs_are_generated_from_the_docstrings():
    found = importlib.util.spec_from_file_location("make_docs", os.path.join(ROOT, "python", "make_docs.py"))
    make_docs = importlib.util.module_from_spec(found)
    found.loader.exec_module(make_docs)
    with open(os.path.join(ROOT, "docs", "python.md")) as current:
        assert current.read() == make_docs.render(), "run python/make_docs.py"
    documented = {name for _, names in make_docs.GROUPS for name in names} | set(make_docs.ALIASES)
    assert documented == set(qi.__all__) - {"METHODS", "MONO", "BGR", "ARGB", "ABGR", "__version__"}


def test_every_method_of_the_module_has_a_function():
    source = open(os.path.join(ROOT, "python", "qelimaging", "_operations.py")).read()
    called = set(re.findall(r'"([A-Z][A-Za-z0-9]+)"', source))
    assert set(qi._core.methods()) <= called
