#!/usr/bin/env bash
# Builds the libFuzzer targets of fuzz/ (clang, AddressSanitizer and UBSan) and runs one or
# all of them for a while.
#
#   scripts/fuzz.sh TARGET SECONDS     fuzz one target (fuzz_archive, fuzz_matcher_run, ...)
#   scripts/fuzz.sh all SECONDS        fuzz every target in turn (CI: 20 seconds each)
#   scripts/fuzz.sh --list             name the targets
#
# The build lives in build-fuzz/ (PTMATCH_FUZZ_BUILD_DIR overrides it). Each target starts
# from its committed seeds in fuzz/corpus/TARGET/, which stay untouched: new inputs go to
# build-fuzz/corpus/TARGET/, and an input that fails is saved as
# build-fuzz/artifacts/TARGET-crash-... (replay it with: build-fuzz/fuzz/TARGET FILE).
# Needs clang and libFuzzer (Debian's libclang-rt-14-dev), installed when missing and
# running as root. PTMATCH_JOBS sets the build parallelism (default 2).
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
# shellcheck source=scripts/packages.sh
source "$root/scripts/packages.sh"

usage() {
  awk 'NR > 1 && /^#/ { sub(/^# ?/, ""); print; next } NR > 1 { exit }' "${BASH_SOURCE[0]}"
}

all_targets() {
  local source
  for source in "$root"/fuzz/fuzz_*.cpp; do
    basename "$source" .cpp
  done
}

case "${1:-}" in
  -h | --help | "")
    usage
    [ $# -gt 0 ] && exit 0
    exit 2
    ;;
  --list)
    all_targets
    exit 0
    ;;
esac
target=$1
seconds=${2:?"give the number of seconds to fuzz (see --help)"}
if ! [[ "$seconds" =~ ^[0-9]+$ ]]; then
  echo "SECONDS must be a whole number: $seconds" >&2
  exit 2
fi
if [ "$target" = all ]; then
  mapfile -t targets < <(all_targets)
else
  if [ ! -f "$root/fuzz/$target.cpp" ]; then
    echo "unknown fuzz target: $target (targets: $(all_targets | tr '\n' ' '))" >&2
    exit 2
  fi
  targets=("$target")
fi

# libFuzzer comes with the compiler runtime package.
ensure_libfuzzer() {
  ptmatch_ensure_packages
  local runtime
  runtime=$(clang++ -print-file-name=libclang_rt.fuzzer-x86_64.a 2>/dev/null || true)
  if [ -n "$runtime" ] && [ -f "$runtime" ]; then
    return 0
  fi
  if [ "$(id -u)" -eq 0 ] && command -v apt-get >/dev/null 2>&1; then
    echo "Installing libFuzzer (libclang-rt-14-dev)"
    apt-get update -qq
    DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends libclang-rt-14-dev
  else
    echo "libFuzzer is missing: install libclang-rt-14-dev" >&2
    exit 1
  fi
}
ensure_libfuzzer

build_dir=${PTMATCH_FUZZ_BUILD_DIR:-$root/build-fuzz}
jobs=${PTMATCH_JOBS:-2}
echo "== configure (clang++, fuzzers, sanitizers) in $build_dir"
cmake -S "$root" -B "$build_dir" -G Ninja \
  -DCMAKE_CXX_COMPILER=clang++ \
  -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DPTMATCH_WERROR=ON \
  -DPTMATCH_SANITIZE=ON \
  -DPTMATCH_FUZZ=ON \
  -DPTMATCH_BUILD_TESTS=OFF \
  -DPTMATCH_BUILD_BENCH=OFF \
  -DPTMATCH_BUILD_TOOLS=ON \
  -DPTMATCH_BUILD_EXAMPLES=OFF \
  -DPTMATCH_PYTHON=OFF >/dev/null
echo "== build ${targets[*]}"
cmake --build "$build_dir" -j "$jobs" --target "${targets[@]}"

export ASAN_OPTIONS=${ASAN_OPTIONS:-detect_leaks=1:abort_on_error=1:allocator_may_return_null=1}
export UBSAN_OPTIONS=${UBSAN_OPTIONS:-print_stacktrace=1:halt_on_error=1}
mkdir -p "$build_dir/artifacts"
status=0
for name in "${targets[@]}"; do
  seeds="$root/fuzz/corpus/$name"
  work="$build_dir/corpus/$name"
  mkdir -p "$work" "$seeds"
  echo "== fuzz $name for $seconds s"
  # -timeout: one input may take this long; -rss_limit_mb bounds the memory of the process.
  if ! "$build_dir/fuzz/$name" -max_total_time="$seconds" -timeout=10 -rss_limit_mb=1024 \
    -print_final_stats=1 -artifact_prefix="$build_dir/artifacts/$name-" "$work" "$seeds"; then
    echo "!! $name failed; the input is under $build_dir/artifacts/" >&2
    status=1
  fi
done
exit $status
