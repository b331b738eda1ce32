#!/usr/bin/env bash
# Builds the library and the ptmatch tool, then runs `ptmatch demo`: a fiducial-like model
# found again in noisy, cluttered points and a staggered dot grid mapped onto its nodes,
# each printed beside its known truth. The picture goes to ./ptmatch-demo.svg; arguments are
# passed on to the demo (e.g. --svg FILE, --json, --write-points DIR).
# Missing Debian build packages are installed with apt-get when run as root.
# Exit status: that of the demo (0 when both scenarios are recovered within 0.5 px).
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
# shellcheck source=scripts/packages.sh
source "$root/scripts/packages.sh"
build_dir="${PTMATCH_BUILD_DIR:-$root/build}"

ptmatch_ensure_packages
mkdir -p "$build_dir"
log="$build_dir/demo-build.log"
echo "Building ptmatch in $build_dir (the first build takes a few minutes) ..." >&2
if ! {
  cmake -S "$root" -B "$build_dir" -G Ninja -DPTMATCH_WERROR=ON &&
    cmake --build "$build_dir" -j "${PTMATCH_JOBS:-2}" --target ptmatch_tool
} >"$log" 2>&1; then
  cat "$log" >&2
  echo "demo.sh: the build failed (log: $log)" >&2
  exit 1
fi
exec "$build_dir/tools/ptmatch" demo "$@"
