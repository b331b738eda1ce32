"""The docstrings: every example in them runs and prints what it shows, every tool has
one, and help(ptmatch) covers every exported name."""

import doctest
import inspect
import pydoc

import numpy as np
import pytest

import ptmatch

# The tools a user starts from; each docstring shows a short example.
TOOLS = ["PointMatcher", "pt_to_grid_map", "GridCorresponder", "ScoreHashing", "PtMatchTm2",
         "PerspectiveTm2", "PtMatchTm3", "PseudoInverse", "MatrixExt"]


def documented_objects():
    """(name, object) for the package, each exported name and each member of a class."""
    yield "ptmatch", ptmatch
    for name in ptmatch.__all__:
        obj = getattr(ptmatch, name)
        yield name, obj
        if isinstance(obj, type) and not issubclass(obj, BaseException):
            for member, value in vars(obj).items():
                if not member.startswith("_") or member == "__init__":
                    yield "%s.%s" % (name, member), value


def examples():
    finder = doctest.DocTestFinder(recurse=False)
    found = []
    for name, obj in documented_objects():
        doc = getattr(obj, "__doc__", None)
        if isinstance(doc, str) and ">>>" in doc:
            found.extend(t for t in finder.find(obj, name, globs={"ptmatch": ptmatch, "np": np})
                         if t.examples)
    return found


@pytest.mark.parametrize("test", examples(), ids=lambda t: t.name)
def test_docstring_example_runs(test):
    runner = doctest.DocTestRunner(optionflags=doctest.ELLIPSIS)
    result = runner.run(test, out=lambda text: print(text, end=""))
    assert result.failed == 0, "the example of %s fails (output above)" % test.name


def test_every_tool_shows_an_example():
    missing = [name for name in TOOLS if ">>>" not in (getattr(ptmatch, name).__doc__ or "")]
    assert not missing, "no example in the docstring of %s" % missing
    assert len(examples()) >= len(TOOLS)


def test_help_covers_every_exported_name():
    text = pydoc.render_doc(ptmatch, renderer=pydoc.plaintext)
    assert ptmatch.__version__ in text
    missing = [name for name in ptmatch.__all__ if name not in text]
    assert not missing, "help(ptmatch) does not mention %s" % missing


def test_run_batch_docstring_names_parameters_errors_and_an_example():
    doc = ptmatch.PointMatcher.run_batch.__doc__
    for word in ["datasets", "params", "threads", "timeout", "keywords", "Raises", "Example"]:
        assert word in doc, word
    assert list(inspect.signature(ptmatch.PointMatcher.run_batch).parameters) == \
        ["matcher", "datasets", "params", "threads", "timeout", "keywords"]
