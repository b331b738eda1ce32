"""The stubs (ptmatch/_ptmatch.pyi) against the compiled module: every public name of the
module is in the stubs and the other way round, every function and method takes the same
parameters (names, and which have defaults) in every overload, and properties agree on
being writable. Then mypy checks the examples with the stubs.

A failure lists every difference, each with the module's own signature, so that a binding
added later is quick to copy into the stubs."""

import ast
import inspect
import os
import re
import subprocess
import sys

import pytest

import ptmatch
from ptmatch import _ptmatch

HERE = os.path.dirname(os.path.abspath(__file__))
ROOT = os.path.abspath(os.path.join(HERE, "..", ".."))
STUB = os.path.join(ROOT, "python", "ptmatch", "_ptmatch.pyi")
# Special methods whose signatures the stubs carry; the others (pickling, copying, repr,
# the operators of enums) come with every object or every enum.
CHECKED_DUNDERS = {"__init__", "__len__", "__iter__", "__getitem__", "__setitem__", "__array__",
                   "__int__", "__index__"}
# The stubs' own helper names (type aliases), which the module does not have.
STUB_ONLY = {"ArrayLike", "FloatArray", "Int64Array", "UInt8Array", "RangeArg", "RangeValue",
             "GridPos", "FeatureTypeArg", "ScoreEntry", "Results"}


# --- the stubs ---

def stub_params(fn, method):
    """(name, has_default) per parameter; *args and **kwargs as '*name' and '**name'."""
    a = fn.args
    positional = a.posonlyargs + a.args
    if method and positional and not is_static(fn):
        positional = positional[1:]
    first_default = len(positional) - len(a.defaults)
    params = [(p.arg, i >= first_default) for i, p in enumerate(positional)]
    if a.vararg:
        params.append(("*" + a.vararg.arg, True))
    params += [(p.arg, d is not None) for p, d in zip(a.kwonlyargs, a.kw_defaults)]
    if a.kwarg:
        params.append(("**" + a.kwarg.arg, True))
    return tuple(params)


def decorator_names(fn):
    return {ast.unparse(d) for d in fn.decorator_list}


def is_static(fn):
    return "staticmethod" in decorator_names(fn)


def parse_stubs():
    """{name: entry}; a function entry is ('function', {signatures}); a class entry is
    ('class', {member: entry}); attributes are ('attribute', writable)."""
    with open(STUB, encoding="utf-8") as f:
        tree = ast.parse(f.read())
    return {name: entry for name, entry in scope_entries(tree.body, method=False)}


def scope_entries(body, method):
    entries = {}
    for node in body:
        if isinstance(node, ast.ClassDef):
            entries[node.name] = ("class", dict(scope_entries(node.body, method=True)))
        elif isinstance(node, ast.FunctionDef):
            decorators = decorator_names(node)
            if "property" in decorators:
                entries[node.name] = ("attribute", False)
            elif any(d.endswith(".setter") for d in decorators):
                entries[node.name] = ("attribute", True)
            else:
                old = entries.get(node.name, ("function", set()))
                old[1].add(stub_params(node, method))
                entries[node.name] = ("function", old[1])
        elif isinstance(node, ast.AnnAssign) and isinstance(node.target, ast.Name):
            entries[node.target.id] = ("attribute", True)
        elif isinstance(node, ast.Assign):
            for target in node.targets:
                if isinstance(target, ast.Name):
                    entries[target.id] = ("attribute", True)
    return entries.items()


# --- the module ---

def split_top_level(text):
    parts, depth, quote, current = [], 0, None, ""
    for ch in text:
        if quote:
            quote = None if ch == quote else quote
        elif ch in "'\"":
            quote = ch
        elif ch in "([{":
            depth += 1
        elif ch in ")]}":
            depth -= 1
        elif ch == "," and depth == 0:
            parts.append(current)
            current = ""
            continue
        current += ch
    if current.strip():
        parts.append(current)
    return [p.strip() for p in parts]


def doc_signatures(obj, name, method):
    """The signatures that pybind11 writes at the top of a docstring (one per overload)."""
    doc = obj.__doc__ or ""
    pattern = re.compile(r"^(?:\d+\. )?" + re.escape(name) + r"\((.*)\) -> .*$")
    signatures = set()
    texts = []
    for line in doc.splitlines():
        m = pattern.match(line)
        if m and m.group(1) != "*args, **kwargs":
            params = []
            for part in split_top_level(m.group(1)):
                pname = part.split(":")[0].split("=")[0].strip()
                params.append((pname, "=" in part))
            if method and params and params[0][0] == "self":
                params = params[1:]
            signatures.add(tuple(params))
            texts.append(line.split(". ", 1)[-1] if re.match(r"^\d+\. ", line) else line)
    return signatures, texts


def runtime_signatures(obj, name, method):
    if inspect.isfunction(obj) or inspect.ismethod(obj):
        sig = inspect.signature(obj)
        params = []
        for i, p in enumerate(sig.parameters.values()):
            if method and i == 0:
                continue
            prefix = {p.VAR_POSITIONAL: "*", p.VAR_KEYWORD: "**"}.get(p.kind, "")
            has_default = p.default is not p.empty or bool(prefix)
            params.append((prefix + p.name, has_default))
        return {tuple(params)}, ["%s%s" % (name, sig)]
    return doc_signatures(obj, name, method)


def public(name):
    return not name.startswith("_") or name in CHECKED_DUNDERS


def runtime_names():
    names = {n for n in dir(_ptmatch) if not n.startswith("__")} | {"__version__"}
    return sorted(names)


def describe(signatures_text, fallback):
    return "; ".join(signatures_text) if signatures_text else fallback


def compare_function(where, obj, stub_entry, method, problems):
    signatures, texts = runtime_signatures(obj, where.split(".")[-1], method)
    if not signatures:
        return  # no signature to read (a plain attribute holding a callable type)
    if stub_entry[0] != "function":
        problems.append("%s: a function in the module, not in the stubs" % where)
    elif stub_entry[1] != signatures:
        problems.append("%s: parameters differ: module %s, stubs %s" %
                        (where, sorted(signatures), sorted(stub_entry[1])))


def compare_class(name, cls, stub_members, problems):
    own = {n: v for n, v in vars(cls).items() if public(n)}
    for member, value in sorted(own.items()):
        where = "%s.%s" % (name, member)
        if member not in stub_members:
            if isinstance(value, property):
                text = "property%s" % (" (writable)" if value.fset else "")
            else:
                text = describe(runtime_signatures(value, member, True)[1], type(value).__name__)
            problems.append("missing in the stubs: %s  [%s]" % (where, text))
            continue
        stub = stub_members[member]
        if isinstance(value, property):
            if stub[0] != "attribute":
                problems.append("%s: a property in the module, not in the stubs" % where)
            elif stub[1] != (value.fset is not None):
                problems.append("%s: writable in the module: %s, in the stubs: %s" %
                                (where, value.fset is not None, stub[1]))
        elif isinstance(value, staticmethod) or callable(value) and not isinstance(value, type):
            fn = value.__func__ if isinstance(value, staticmethod) else value
            static = isinstance(value, staticmethod) or "staticmethod" in type(value).__name__
            compare_function(where, fn, stub, method=not static, problems=problems)
    for member in sorted(set(stub_members) - set(dir(cls))):
        problems.append("in the stubs but not in the module: %s.%s" % (name, member))


def stub_problems():
    stubs = parse_stubs()
    problems = []
    for name in runtime_names():
        obj = getattr(_ptmatch, name)
        if name not in stubs:
            if isinstance(obj, type):
                text = "class (%s)" % ", ".join(b.__name__ for b in obj.__bases__)
            else:
                text = describe(runtime_signatures(obj, name, False)[1], type(obj).__name__)
            problems.append("missing in the stubs: %s  [%s]" % (name, text))
            continue
        if isinstance(obj, type) and not issubclass(obj, BaseException):
            compare_class(name, obj, stubs[name][1], problems)
        elif isinstance(obj, type):
            bases = tuple(b.__name__ for b in obj.__bases__)
            with open(STUB, encoding="utf-8") as f:
                stub_line = re.search(r"^class %s\((.*)\)" % name, f.read(), re.M)
            stub_bases = tuple(b.split(".")[-1] for b in split_top_level(stub_line.group(1))) \
                if stub_line else None  # builtins.TimeoutError is TimeoutError
            if stub_bases != bases:
                problems.append("%s: bases in the module %s" % (name, bases))
        elif callable(obj):
            compare_function(name, obj, stubs[name], method=False, problems=problems)
    for name in sorted(set(stubs) - set(runtime_names()) - STUB_ONLY):
        problems.append("in the stubs but not in the module: %s" % name)
    return problems


def test_stubs_match_the_module():
    problems = stub_problems()
    assert not problems, "python/ptmatch/_ptmatch.pyi differs from the module:\n  " + \
        "\n  ".join(problems)


def test_stub_check_sees_a_missing_name_and_a_wrong_arity(monkeypatch):
    """The check itself: a name that only the module has and a changed parameter list."""
    original = parse_stubs()
    changed = dict(original)
    del changed["pt_to_grid_map"]
    members = dict(changed["PointMatcher"][1])
    members["train"] = ("function", {(("points", False),)})
    changed["PointMatcher"] = ("class", members)
    monkeypatch.setattr(sys.modules[__name__], "parse_stubs", lambda: changed)
    problems = stub_problems()
    assert any(p.startswith("missing in the stubs: pt_to_grid_map  [pt_to_grid_map(points")
               for p in problems), problems
    assert any(p.startswith("PointMatcher.train: parameters differ") for p in problems), problems
    assert len(problems) == 2, problems


def test_every_public_name_is_exported_and_documented():
    exported = set(ptmatch.__all__)
    missing = [n for n in runtime_names() if not n.startswith("_") and n not in exported]
    assert not missing, "not in ptmatch.__all__: %s" % missing
    undocumented = []
    for name in ptmatch.__all__:
        obj = getattr(ptmatch, name)
        if not (obj.__doc__ or "").strip():
            undocumented.append(name)
        if isinstance(obj, type) and not issubclass(obj, BaseException) and \
                not hasattr(obj, "__members__"):  # an enum's name and value are pybind11's
            for member, value in vars(obj).items():
                if not member.startswith("_") and callable(value) or isinstance(value, property):
                    if not member.startswith("_") and not (value.__doc__ or "").strip():
                        undocumented.append("%s.%s" % (name, member))
    assert not undocumented, "no docstring: %s" % undocumented


def test_version_is_the_projects():
    with open(os.path.join(ROOT, "CMakeLists.txt"), encoding="utf-8") as f:
        version = re.search(r"project\(\s*ptmatch\s+VERSION\s+([0-9.]+)", f.read()).group(1)
    assert ptmatch.__version__ == version
    assert re.fullmatch(r"\d+\.\d+\.\d+", ptmatch.__version__)


def test_package_is_typed():
    assert os.path.isfile(os.path.join(os.path.dirname(ptmatch.__file__), "py.typed"))


# --- mypy over the examples ---

WRONG = """
import ptmatch
matcher = ptmatch.PointMatcher()
results = matcher.run([(0.0, 0.0)], min_coverage="high")
pose: str = ptmatch.PointMatcherResult().pose
"""


def test_mypy_passes_on_the_examples_and_catches_a_wrong_call(tmp_path):
    pytest.importorskip("mypy", reason="needs python3-mypy")
    examples = sorted(os.path.join(ROOT, "examples", n)
                      for n in os.listdir(os.path.join(ROOT, "examples")) if n.endswith(".py"))
    assert examples
    wrong = tmp_path / "wrong_use.py"
    wrong.write_text(WRONG)
    env = dict(os.environ, MYPYPATH=os.path.join(ROOT, "python"))
    env.pop("PYTHONPATH", None)
    out = subprocess.run(
        [sys.executable, "-m", "mypy", "--config-file", os.path.join(ROOT, "python", "mypy.ini"),
         "--cache-dir", str(tmp_path / "cache"), "--no-error-summary"] + examples + [str(wrong)],
        env=env, cwd=str(tmp_path), capture_output=True, text=True)
    lines = [l for l in out.stdout.splitlines() if ": error:" in l]
    in_examples = [l for l in lines if "wrong_use.py" not in l]
    assert not in_examples, "mypy on the examples:\n" + "\n".join(in_examples)
    in_wrong = [l for l in lines if "wrong_use.py" in l]
    assert any(":4:" in l and "run" in l for l in in_wrong), out.stdout + out.stderr
    assert any(":5:" in l for l in in_wrong), out.stdout + out.stderr
