"""Installs the package the way users do and imports it from elsewhere:

1. `pip install .` of a copy of this checkout into a fresh virtual environment;
2. `pip wheel .` of the same copy, and that wheel installed into a second environment.

Both environments see the system's site-packages (numpy from the distribution) and get
nothing from a package index (--no-build-isolation --no-index). In each, a script run from
an unrelated folder, without PYTHONPATH or LD_LIBRARY_PATH, imports ptmatch from the
environment, checks its version against CMakeLists.txt and runs a match.

    /usr/bin/python3 python/tests/pip_install.py [--keep]

ctest runs it as the test python_pip_install (label pip); it takes a few minutes, as the
library is compiled once (the wheel reuses the first build). CMAKE_BUILD_PARALLEL_LEVEL
sets the build jobs (default 2 here).
"""

import argparse
import glob
import os
import re
import shutil
import subprocess
import sys
import tempfile
import time
import zipfile

ROOT = os.path.abspath(os.path.join(os.path.dirname(__file__), "..", ".."))

CHECK = r"""
import os, sys
import ptmatch
venv, version = sys.argv[1], sys.argv[2]
assert os.path.realpath(ptmatch.__file__).startswith(os.path.realpath(venv)), ptmatch.__file__
assert ptmatch.__version__ == version, (ptmatch.__version__, version)
m = ptmatch.PointMatcher()
m.train([(0, 0), (10, 0), (0, 7), (3, 9)])
r = m.run([(5, 5), (15, 5), (5, 12), (8, 14)], min_coverage=0.9)
assert abs(r[0].pose[0][2] - 5) < 1e-6 and abs(r[0].pose[1][2] - 5) < 1e-6, r[0]
print("ok", ptmatch.__version__)
"""


def cmake_version():
    with open(os.path.join(ROOT, "CMakeLists.txt"), encoding="utf-8") as f:
        return re.search(r"project\(\s*ptmatch\s+VERSION\s+([0-9.]+)", f.read()).group(1)


def clean_env():
    env = {k: v for k, v in os.environ.items()
           if k not in ("PYTHONPATH", "LD_LIBRARY_PATH", "PYTHONHOME", "PIP_INDEX_URL")}
    env.setdefault("CMAKE_BUILD_PARALLEL_LEVEL", "2")
    env["PIP_DISABLE_PIP_VERSION_CHECK"] = "1"
    return env


def run(args, cwd, env):
    print("$ " + " ".join(args), flush=True)
    start = time.monotonic()
    subprocess.run(args, cwd=cwd, env=env, check=True)
    print("  (%.0f s)" % (time.monotonic() - start), flush=True)


def copy_checkout(target):
    """The files git knows (tracked, or new and not ignored); everything but build folders
    when this is no git checkout."""
    try:
        listed = subprocess.run(["git", "ls-files", "-co", "--exclude-standard", "-z"],
                                cwd=ROOT, check=True, capture_output=True).stdout
        names = [n for n in listed.decode().split("\0") if n]
    except (OSError, subprocess.CalledProcessError):
        names = None
    if names is None:
        shutil.copytree(ROOT, target, ignore=shutil.ignore_patterns("build*", ".git"))
        return
    for name in names:
        source = os.path.join(ROOT, name)
        if not os.path.isfile(source):
            continue  # deleted in the working tree
        os.makedirs(os.path.dirname(os.path.join(target, name)), exist_ok=True)
        shutil.copy2(source, os.path.join(target, name))


def make_venv(path, env):
    run([sys.executable, "-m", "venv", "--system-site-packages", path], cwd=ROOT, env=env)
    return os.path.join(path, "bin", "python")


def check_import(python, venv, elsewhere, env):
    out = subprocess.run([python, "-c", CHECK, venv, cmake_version()], cwd=elsewhere, env=env,
                         check=True, capture_output=True, text=True).stdout
    assert out.split() == ["ok", cmake_version()], out
    print("  import from %s: %s" % (elsewhere, out.strip()), flush=True)


def check_wheel(wheel):
    with zipfile.ZipFile(wheel) as z:
        names = set(z.namelist())
        links = [i.filename for i in z.infolist() if (i.external_attr >> 16) & 0o170000 == 0o120000]
    wanted = ["ptmatch/__init__.py", "ptmatch/py.typed", "ptmatch/libptmatch.so.1",
              "ptmatch/libmvbase.so.1"]
    missing = [n for n in wanted if n not in names]
    assert not missing, "the wheel lacks %s" % missing
    assert any(re.fullmatch(r"ptmatch/_ptmatch\..*\.so", n) for n in names), names
    assert not links, "the wheel holds links: %s" % links


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--keep", action="store_true", help="keep the scratch folder")
    options = parser.parse_args()
    scratch = tempfile.mkdtemp(prefix="ptmatch-pip-")
    env = clean_env()
    pip_flags = ["--no-build-isolation", "--no-index"]
    try:
        source = os.path.join(scratch, "src")
        elsewhere = os.path.join(scratch, "elsewhere")
        os.makedirs(elsewhere)
        copy_checkout(source)

        venv1 = os.path.join(scratch, "venv-install")
        python1 = make_venv(venv1, env)
        run([python1, "-m", "pip", "install", "-q"] + pip_flags + ["."], cwd=source, env=env)
        check_import(python1, venv1, elsewhere, env)

        wheels = os.path.join(scratch, "wheels")
        run([python1, "-m", "pip", "wheel", "-q", "--no-deps", "-w", wheels] + pip_flags + ["."],
            cwd=source, env=env)
        found = glob.glob(os.path.join(wheels, "ptmatch-*.whl"))
        assert len(found) == 1, found
        check_wheel(found[0])

        venv2 = os.path.join(scratch, "venv-wheel")
        python2 = make_venv(venv2, env)
        run([python2, "-m", "pip", "install", "-q", "--no-index", found[0]], cwd=elsewhere,
            env=env)
        check_import(python2, venv2, elsewhere, env)
    finally:
        if options.keep:
            print("kept " + scratch)
        else:
            shutil.rmtree(scratch, ignore_errors=True)


if __name__ == "__main__":
    main()
