#!/usr/bin/env bash
# Builds the benchmarks in Release and runs every one of them; then runs the voting
# benchmark and the cost sweep with JSON output, fits the sweep, runs the side-by-side
# comparison with astroalign and OpenCV (bench/compare.py: the point families through the
# planned search and the written run, each on one thread and on every core) and
# regenerates docs/performance.md and its plots. Arguments are passed on to each benchmark
# program of the first phase (for example --benchmark_filter=Weighted).
#
#   PTMATCH_BENCH_BUILD_DIR  build directory (default: build-bench beside this script's root)
#   PTMATCH_JOBS             parallel build jobs (default 2)
#   PTMATCH_MODULES          library modules to build (default: all)
#   PTMATCH_BENCH_DOCS       0 runs the benchmark programs only: no comparison, no docs
#                            (default 1; the comparison needs every module)
#   PTMATCH_BENCH_COUNT      scenarios per family in the comparison (default 10)
#   PTMATCH_BENCH_SEED       seed of the scenarios (default 1)
#
# Run as root, it installs what is missing with apt-get: the build's packages, Debian's
# python3 with numpy, pybind11 and the headers (for the ptmatch module), and
# python3-astroalign, python3-opencv and python3-matplotlib for the comparison. A full run
# takes about 15 to 20 minutes on two cores: the build, and the comparison, whose written
# runs on the large point sets are each cut off after 10 seconds.
set -euo pipefail

root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
build="${PTMATCH_BENCH_BUILD_DIR:-$root/build-bench}"
docs="${PTMATCH_BENCH_DOCS:-1}"
python=/usr/bin/python3  # Debian's interpreter: the one with numpy, astroalign and OpenCV

# shellcheck source=scripts/packages.sh
source "$root/scripts/packages.sh"
if [ "$docs" != 0 ]; then
  PTMATCH_PACKAGES+=(python3-dev pybind11-dev python3-numpy python3-astroalign python3-opencv
                     python3-matplotlib)
fi
ptmatch_ensure_packages

# Unless PTMATCH_MODULES narrows it, every module: a cached list from an older checkout
# would leave out the modules added since.
modules_option=(-UPTMATCH_MODULES)
[ -z "${PTMATCH_MODULES:-}" ] || modules_option=("-DPTMATCH_MODULES=$PTMATCH_MODULES")
cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release \
  -DPTMATCH_BUILD_BENCH=ON -DPTMATCH_BUILD_TESTS=OFF -DPTMATCH_BUILD_TOOLS=ON \
  -DPTMATCH_BUILD_EXAMPLES=OFF -UPTMATCH_PYTHON \
  "${modules_option[@]}" > /dev/null
targets=(benchmarks)
if [ "$docs" != 0 ]; then
  # ptmatch for the comparison: the Python module where it can be built, else the tool.
  # (-UPTMATCH_PYTHON above lets the module's own check decide afresh.)
  if grep -q '^PTMATCH_PYTHON:BOOL=ON' "$build/CMakeCache.txt"; then
    targets+=(ptmatch_python ptmatch_scenarios_dump)
  else
    targets+=(ptmatch_tool ptmatch_scenarios_dump)
  fi
fi
cmake --build "$build" --target "${targets[@]}" -j "${PTMATCH_JOBS:-2}"

# Phase 1: every benchmark program, as it is (the voting benchmark and the sweep run in
# phase 2 instead when the docs are regenerated).
found=0
for program in "$build"/bench/*_bench; do
  [ -x "$program" ] || continue
  found=1
  if [ "$docs" != 0 ]; then
    case "$(basename "$program")" in
      vote_bench | sweep_bench) continue ;;
    esac
  fi
  echo "== $(basename "$program")"
  "$program" "$@"
done
if [ "$found" -eq 0 ]; then
  echo "no benchmark programs were built (is Google Benchmark installed?)" >&2
  exit 1
fi
[ "$docs" != 0 ] || exit 0

# Phase 2: the numbers behind docs/performance.md.
work="$build/bench-results"
mkdir -p "$work" "$root/docs"
echo "== vote_bench (JSON)"
"$build/bench/vote_bench" --benchmark_out="$work/vote.json" --benchmark_out_format=json \
  --benchmark_min_time=0.2 > /dev/null
echo "== sweep_bench (JSON)"
"$build/bench/sweep_bench" --benchmark_out="$work/sweep.json" --benchmark_out_format=json \
  --benchmark_min_time=0.1 > /dev/null
"$python" "$root/bench/sweep_fit.py" "$work/sweep.json" --json "$work/sweep-fits.json" \
  --plot "$root/docs/performance-growth.svg"

echo "== compare.py"
"$python" "$root/bench/compare.py" --build "$build" \
  --count "${PTMATCH_BENCH_COUNT:-10}" --seed "${PTMATCH_BENCH_SEED:-1}" \
  --vote-json "$work/vote.json" --sweep-json "$work/sweep-fits.json" \
  --sweep-plot "$root/docs/performance-growth.svg" \
  --growth-plot "$root/docs/performance-many.svg" \
  --raw "$work/compare.json" --out "$root/docs/performance.md"

# The dot detector against OpenCV: its own section, appended to what compare.py wrote.
# (It needs the Python module and OpenCV.)
if [ -d "$build/python/ptmatch" ]; then
  echo "== compare_dots.py"
  "$python" "$root/bench/compare_dots.py" --build "$build" --seed "${PTMATCH_BENCH_SEED:-1}" \
    --out "$work/dots.md"
  cat "$work/dots.md" >> "$root/docs/performance.md"
fi
