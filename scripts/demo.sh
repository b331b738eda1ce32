#!/usr/bin/env bash
# Builds the demonstration program and runs it.
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
# shellcheck source=scripts/packages.sh
source "$root/scripts/packages.sh"
build_dir="$root/build"

ptmatch_ensure_packages
cmake -S "$root" -B "$build_dir" -G Ninja -DPTMATCH_WERROR=ON >/dev/null
cmake --build "$build_dir" -j "${PTMATCH_JOBS:-2}" --target basic_demo
"$build_dir/examples/basic_demo"
