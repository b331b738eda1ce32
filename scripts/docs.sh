#!/usr/bin/env bash
# Builds the C++ API reference with doxygen (docs/Doxyfile): the headers of include/ptmatch
# and base/include/mvbase and the tool pages of docs/api, into build/docs/html.
#
#   scripts/docs.sh                 writes build/docs/html/index.html
#   scripts/docs.sh --out DIR       writes DIR/html instead
#
# Fails on any doxygen warning: a public symbol without documentation, a broken
# reference, a bad command.
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
# shellcheck source=scripts/packages.sh
source "$root/scripts/packages.sh"
PTMATCH_PACKAGES=(doxygen)

out="$root/build/docs"
while [ $# -gt 0 ]; do
  case "$1" in
    --out)
      out=${2:?"--out needs a directory"}
      shift 2
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

ptmatch_ensure_packages
cd "$root"
mkdir -p "$out"

echo "== reference in $out/html"
{
  cat docs/Doxyfile
  echo "OUTPUT_DIRECTORY = $out"
} | doxygen -
echo "reference: $out/html/index.html"
