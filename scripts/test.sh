#!/usr/bin/env bash
# Builds ptmatch with warnings as errors and runs every test through ctest.
#
#   scripts/test.sh                     g++, build directory build/
#   scripts/test.sh --compiler clang    clang++, build directory build-clang/
#   scripts/test.sh --sanitize          AddressSanitizer and UBSan, build directory build-sanitize/
#   scripts/test.sh --build-dir DIR     any other build directory
#
# Extra arguments after "--" go to cmake when configuring. PTMATCH_JOBS sets the build
# parallelism (default 2).
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
# shellcheck source=scripts/packages.sh
source "$root/scripts/packages.sh"
# The Python module and its pytest suite (python/, run by ctest) need these as well.
PTMATCH_PACKAGES+=(python3-dev pybind11-dev python3-numpy python3-pytest)

compiler=gcc
sanitize=OFF
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
if [ -z "$build_dir" ]; then
  if [ "$sanitize" = ON ]; then
    build_dir="$root/build-sanitize$suffix"
  elif [ -n "$suffix" ]; then
    build_dir="$root/build$suffix"
  else
    build_dir="$root/build"
  fi
fi
jobs=${PTMATCH_JOBS:-2}

ptmatch_ensure_packages

echo "== configure ($cxx, sanitizers $sanitize) in $build_dir"
cmake -S "$root" -B "$build_dir" -G Ninja \
  -DCMAKE_CXX_COMPILER="$cxx" \
  -DPTMATCH_WERROR=ON \
  -DPTMATCH_SANITIZE="$sanitize" \
  "${extra_cmake_args[@]}"

echo "== build"
cmake --build "$build_dir" -j "$jobs"

echo "== test"
export ASAN_OPTIONS=${ASAN_OPTIONS:-detect_leaks=1:abort_on_error=1}
export UBSAN_OPTIONS=${UBSAN_OPTIONS:-print_stacktrace=1:halt_on_error=1}
ctest --test-dir "$build_dir" --output-on-failure -j "$jobs"
