#!/usr/bin/env bash
# Builds the benchmarks in Release and runs every one of them. Arguments are passed on to
# each benchmark program (for example --benchmark_filter=Weighted).
#
#   PTMATCH_BENCH_BUILD_DIR  build directory (default: build-bench beside this script's root)
#   PTMATCH_JOBS             parallel build jobs (default 2)
#   PTMATCH_MODULES          library modules to build (default: all)
set -euo pipefail

root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
build="${PTMATCH_BENCH_BUILD_DIR:-$root/build-bench}"

cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release \
  -DPTMATCH_BUILD_BENCH=ON -DPTMATCH_BUILD_TESTS=OFF -DPTMATCH_BUILD_TOOLS=OFF \
  -DPTMATCH_BUILD_EXAMPLES=OFF -DPTMATCH_PYTHON=OFF \
  ${PTMATCH_MODULES:+"-DPTMATCH_MODULES=$PTMATCH_MODULES"} > /dev/null
cmake --build "$build" --target benchmarks -j "${PTMATCH_JOBS:-2}"

found=0
for program in "$build"/bench/*_bench; do
  [ -x "$program" ] || continue
  found=1
  echo "== $(basename "$program")"
  "$program" "$@"
done
if [ "$found" -eq 0 ]; then
  echo "no benchmark programs were built (is Google Benchmark installed?)" >&2
  exit 1
fi
