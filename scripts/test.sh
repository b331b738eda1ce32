#!/usr/bin/env bash
# Builds ptmatch with warnings as errors and runs every test through ctest.
#
#   scripts/test.sh                     g++, build directory build/
#   scripts/test.sh --compiler clang    clang++, build directory build-clang/
#   scripts/test.sh --sanitize          AddressSanitizer and UBSan, build directory build-sanitize/
#   scripts/test.sh --tsan              ThreadSanitizer build of the concurrency tests
#                                       (tests/robustness), build directory build-tsan/
#   scripts/test.sh --build-dir DIR     any other build directory
#
# The sanitizer build leaves out the benchmarks, examples and Python module, also traps
# float-to-integer conversions that overflow, and skips the tests named in
# PTMATCH_SANITIZE_SKIP (a ctest regular expression; by default the 2000 x 2000 grid-map
# test, which takes minutes there).
#
# Extra arguments after "--" go to cmake when configuring. PTMATCH_JOBS sets the build
# parallelism (default 2).
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
# shellcheck source=scripts/packages.sh
source "$root/scripts/packages.sh"
# The Python module and its pytest suite (python/, run by ctest) need these as well.
PTMATCH_PACKAGES+=(python3-dev pybind11-dev python3-numpy python3-pytest)
# pip install . and its test (python3-venv, -setuptools, -wheel), the stub check (python3-mypy).
PTMATCH_PACKAGES+=(python3-venv python3-setuptools python3-wheel python3-mypy)

compiler=gcc
sanitize=OFF
tsan=OFF
build_dir=
extra_cmake_args=()
while [ $# -gt 0 ]; do
  case "$1" in
    --compiler)
      compiler=${2:?"--compiler needs gcc or clang"}
      shift 2
      ;;
    --compiler=*)
      compiler=${1#--compiler=}
      shift
      ;;
    --sanitize)
      sanitize=ON
      shift
      ;;
    --tsan)
      tsan=ON
      shift
      ;;
    --build-dir)
      build_dir=${2:?"--build-dir needs a directory"}
      shift 2
      ;;
    --)
      shift
      extra_cmake_args=("$@")
      break
      ;;
    -h | --help)
      awk 'NR > 1 && /^#/ { sub(/^# ?/, ""); print; next } NR > 1 { exit }' "${BASH_SOURCE[0]}"
      exit 0
      ;;
    *)
      echo "unknown argument: $1 (see --help)" >&2
      exit 2
      ;;
  esac
done

case "$compiler" in
  gcc | g++) cxx=g++ suffix= ;;
  clang | clang++) cxx=clang++ suffix=-clang ;;
  *)
    echo "unknown compiler: $compiler (gcc or clang)" >&2
    exit 2
    ;;
esac
if [ "$sanitize" = ON ] && [ "$tsan" = ON ]; then
  echo "--sanitize and --tsan need separate builds; give one of them" >&2
  exit 2
fi
if [ -z "$build_dir" ]; then
  if [ "$tsan" = ON ]; then
    build_dir="$root/build-tsan$suffix"
  elif [ "$sanitize" = ON ]; then
    build_dir="$root/build-sanitize$suffix"
  elif [ -n "$suffix" ]; then
    build_dir="$root/build$suffix"
  else
    build_dir="$root/build"
  fi
fi
jobs=${PTMATCH_JOBS:-2}

ptmatch_ensure_packages

if [ "$tsan" = ON ]; then
  # ThreadSanitizer: the libraries and the robustness tests only; the concurrency tests run.
  echo "== configure ($cxx, ThreadSanitizer) in $build_dir"
  cmake -S "$root" -B "$build_dir" -G Ninja \
    -DCMAKE_CXX_COMPILER="$cxx" \
    -DPTMATCH_WERROR=ON \
    -DCMAKE_CXX_FLAGS="-fsanitize=thread -fno-omit-frame-pointer" \
    -DCMAKE_EXE_LINKER_FLAGS=-fsanitize=thread \
    -DCMAKE_SHARED_LINKER_FLAGS=-fsanitize=thread \
    -DPTMATCH_BUILD_BENCH=OFF -DPTMATCH_BUILD_TOOLS=OFF -DPTMATCH_BUILD_EXAMPLES=OFF \
    -DPTMATCH_PYTHON=OFF \
    "${extra_cmake_args[@]}"
  echo "== build"
  cmake --build "$build_dir" -j "$jobs" --target test_robustness
  echo "== test (concurrency, ThreadSanitizer)"
  export TSAN_OPTIONS=${TSAN_OPTIONS:-halt_on_error=1:second_deadlock_stack=1}
  "$build_dir/tests/test_robustness" --gtest_filter='Concurrency.*'
  exit 0
fi

sanitize_args=()
if [ "$sanitize" = ON ]; then
  # The Python module cannot load the sanitizer runtime into an ordinary interpreter.
  sanitize_args=(-DPTMATCH_BUILD_BENCH=OFF -DPTMATCH_BUILD_EXAMPLES=OFF -DPTMATCH_PYTHON=OFF
    -DCMAKE_CXX_FLAGS=-fsanitize=float-cast-overflow)
fi

echo "== configure ($cxx, sanitizers $sanitize) in $build_dir"
cmake -S "$root" -B "$build_dir" -G Ninja \
  -DCMAKE_CXX_COMPILER="$cxx" \
  -DPTMATCH_WERROR=ON \
  -DPTMATCH_SANITIZE="$sanitize" \
  "${sanitize_args[@]}" \
  "${extra_cmake_args[@]}"

echo "== build"
cmake --build "$build_dir" -j "$jobs"

echo "== test"
export ASAN_OPTIONS=${ASAN_OPTIONS:-detect_leaks=1:abort_on_error=1}
export UBSAN_OPTIONS=${UBSAN_OPTIONS:-print_stacktrace=1:halt_on_error=1}
if [ "$sanitize" = ON ]; then
  skip=${PTMATCH_SANITIZE_SKIP-GridMapLongChains\.TwoThousandSquaredLatticeMapsCompletely}
  ctest --test-dir "$build_dir" --output-on-failure -j "$jobs" ${skip:+-E "$skip"}
  exit 0
fi
ctest --test-dir "$build_dir" --output-on-failure -j "$jobs"
