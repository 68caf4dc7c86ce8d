"""docs/python.md is the package's docstrings, and they document every public name."""

import importlib.util
import os

from conftest import ROOT, qi


def test_docs_are_generated_from_the_docstrings():
    found = importlib.util.spec_from_file_location("make_docs", os.path.join(ROOT, "python", "make_docs.py"))
    make_docs = importlib.util.module_from_spec(found)
    found.loader.exec_module(make_docs)
    with open(os.path.join(ROOT, "docs", "python.md")) as current:
        assert current.read() == make_docs.render(), "run python/make_docs.py"
    documented = {name for _, names in make_docs.GROUPS for name in names} | set(make_docs.ALIASES)
    assert documented == set(qi.__all__) - {"METHODS", "MONO", "BGR", "ARGB", "ABGR", "__version__"}
