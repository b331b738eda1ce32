"""The installed package: `cmake --install` into a scratch prefix, then import it from
there with nothing but PYTHONPATH (the extension finds libptmatch through its RPATH).
Runs when ctest gives the build directory; skipped otherwise."""

import os
import subprocess
import sys

import pytest

BUILD_DIR = os.environ.get("PTMATCH_BUILD_DIR")
CMAKE = os.environ.get("PTMATCH_CMAKE", "cmake")
PYTHON_DIR = os.environ.get("PTMATCH_PYTHON_INSTALL_DIR")

pytestmark = pytest.mark.skipif(not BUILD_DIR or not PYTHON_DIR,
                                reason="needs PTMATCH_BUILD_DIR (set by ctest)")

CHECK = """
import ptmatch, sys
assert ptmatch.__file__.startswith(sys.argv[1]), ptmatch.__file__
m = ptmatch.PointMatcher()
m.train([(0, 0), (10, 0), (0, 7), (3, 9)])
r = m.run([(5, 5), (15, 5), (5, 12), (8, 14)], min_coverage=0.9)
print(round(r[0].pose[0][2], 6), round(r[0].pose[1][2], 6))
"""


def test_installed_package_imports_and_runs(tmp_path):
    prefix = tmp_path / "prefix"
    subprocess.run([CMAKE, "--install", BUILD_DIR, "--prefix", str(prefix)], check=True,
                   stdout=subprocess.DEVNULL)
    site = prefix / PYTHON_DIR
    assert (site / "ptmatch" / "__init__.py").is_file()
    env = {k: v for k, v in os.environ.items() if k not in ("LD_LIBRARY_PATH", "PYTHONPATH")}
    env["PYTHONPATH"] = str(site)
    out = subprocess.run([sys.executable, "-c", CHECK, str(site)], env=env, cwd=tmp_path,
                         check=True, capture_output=True, text=True)
    assert out.stdout.split() == ["5.0", "5.0"]
