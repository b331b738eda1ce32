#!/usr/bin/env bash
# Builds the C++ API reference with doxygen (docs/Doxyfile): the headers of include/ptmatch
# and base/include/mvbase and the tool pages of docs/api, into build/docs/html.
#
#   scripts/docs.sh                 writes build/docs/html/index.html
#   scripts/docs.sh --out DIR       writes DIR/html instead
#
# Fails on any doxygen warning (a broken reference, a bad command) and on a public symbol
# of include/ptmatch without documentation (the base library's small value types are not
# held to that: they document their accessors in groups).
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
check=$(mktemp -d)
trap 'rm -rf "$check"' EXIT

echo "== reference in $out/html"
{
  cat docs/Doxyfile
  echo "OUTPUT_DIRECTORY = $out"
  # The base library's small value types document their accessors in groups.
  echo "WARN_IF_UNDOCUMENTED = NO"
} | doxygen -

echo "== every public symbol of include/ptmatch documented"
# The base library's headers stay in: overrides take their documentation from there.
{
  cat docs/Doxyfile
  echo "OUTPUT_DIRECTORY = $check"
  echo "GENERATE_HTML = NO"
  echo "GENERATE_XML = YES"
  echo "WARN_AS_ERROR = NO"
  echo "WARN_LOGFILE = $check/warnings.log"
} | doxygen -
if grep -q "/include/ptmatch/" "$check/warnings.log"; then
  grep "/include/ptmatch/" "$check/warnings.log" | sort -u >&2
  echo "docs: public symbols of include/ptmatch without documentation (above)" >&2
  exit 1
fi
echo "reference: $out/html/index.html"
