"""Builds the package ptmatch with CMake: the libraries libmvbase and libptmatch and the
extension ptmatch._ptmatch, which finds the two libraries beside itself ($ORIGIN).

The version is the one of project(ptmatch VERSION ...) in CMakeLists.txt. Environment:

  PTMATCH_CMAKE_ARGS          extra arguments for the CMake configure step
  CMAKE_BUILD_PARALLEL_LEVEL  build jobs (default: the number of processors)
"""

import glob
import os
import re
import shlex
import shutil
import subprocess
import sys

from setuptools import Extension, setup
from setuptools.command.build_ext import build_ext

ROOT = os.path.dirname(os.path.abspath(__file__))
BUILD_BASE = "build-pip"


def cmake_version():
    """The version in project(ptmatch VERSION x.y.z ...) of CMakeLists.txt."""
    with open(os.path.join(ROOT, "CMakeLists.txt"), encoding="utf-8") as f:
        found = re.search(r"project\(\s*ptmatch\s+VERSION\s+([0-9][0-9.]*)", f.read())
    if not found:
        raise RuntimeError("CMakeLists.txt names no project(ptmatch VERSION ...)")
    return found.group(1)


class CMakeExtension(Extension):
    """The extension module that the CMake target ptmatch_python makes."""

    def __init__(self, name):
        super().__init__(name, sources=[])


class CMakeBuild(build_ext):
    """Configures, builds and installs the library and the module into a staging prefix,
    then copies the extension and the libraries (by their soname) into the package."""

    def build_extension(self, ext):
        build_dir = os.path.abspath(os.path.join(self.build_temp, "cmake"))
        stage = os.path.abspath(os.path.join(self.build_temp, "stage"))
        shutil.rmtree(stage, ignore_errors=True)
        os.makedirs(build_dir, exist_ok=True)
        self.run_cmake(self.configure_args(build_dir, stage))
        jobs = os.environ.get("CMAKE_BUILD_PARALLEL_LEVEL") or str(os.cpu_count() or 1)
        self.run_cmake(["--build", build_dir, "-j", jobs])
        self.run_cmake(["--install", build_dir])
        self.copy_built_files(ext, os.path.join(stage, "ptmatch"))

    def configure_args(self, build_dir, stage):
        args = ["-S", ROOT, "-B", build_dir,
                "-DCMAKE_BUILD_TYPE=Release",
                "-DPTMATCH_BUILD_TESTS=OFF", "-DPTMATCH_BUILD_BENCH=OFF",
                "-DPTMATCH_BUILD_TOOLS=OFF", "-DPTMATCH_BUILD_EXAMPLES=OFF",
                "-DPTMATCH_PYTHON=ON",
                "-DPython_EXECUTABLE=" + sys.executable,
                # The libraries go into the package folder itself, so that the extension
                # and libptmatch find what they need through $ORIGIN.
                "-DCMAKE_INSTALL_PREFIX=" + stage,
                "-DCMAKE_INSTALL_LIBDIR=ptmatch",
                "-DPTMATCH_PYTHON_INSTALL_DIR=.",
                "-DCMAKE_INSTALL_RPATH=$ORIGIN"]
        if shutil.which("ninja") and not os.path.exists(os.path.join(build_dir, "Makefile")):
            args += ["-G", "Ninja"]
        args += shlex.split(os.environ.get("PTMATCH_CMAKE_ARGS", ""))
        return args

    def run_cmake(self, args):
        cmake = shutil.which("cmake")
        if cmake is None:
            raise RuntimeError("building ptmatch needs cmake (Debian: apt-get install cmake)")
        print("cmake " + " ".join(shlex.quote(a) for a in args), flush=True)
        subprocess.run([cmake] + args, check=True)

    def copy_built_files(self, ext, staged_package):
        target = os.path.dirname(os.path.abspath(self.get_ext_fullpath(ext.name)))
        os.makedirs(target, exist_ok=True)
        built = glob.glob(os.path.join(staged_package, "_ptmatch*.so"))
        if len(built) != 1:
            raise RuntimeError("the CMake build left no single extension in " + staged_package)
        shutil.copyfile(built[0], self.get_ext_fullpath(ext.name))
        # One file per library, named by its soname (libptmatch.so.1); the symlinks and the
        # development names stay behind (a wheel cannot hold links).
        for path in glob.glob(os.path.join(staged_package, "lib*.so.*")):
            if re.fullmatch(r"lib\w+\.so\.\d+", os.path.basename(path)):
                shutil.copyfile(path, os.path.join(target, os.path.basename(path)))


os.makedirs(os.path.join(ROOT, BUILD_BASE), exist_ok=True)
setup(
    version=cmake_version(),
    packages=["ptmatch"],
    package_dir={"ptmatch": "python/ptmatch"},
    package_data={"ptmatch": ["py.typed", "*.pyi"]},
    ext_modules=[CMakeExtension("ptmatch._ptmatch")],
    cmdclass={"build_ext": CMakeBuild},
    options={"build": {"build_base": BUILD_BASE}, "egg_info": {"egg_base": BUILD_BASE}},
    zip_safe=False,
)
