# Sourced by the other scripts: the Debian packages the build, the tests and the demo need,
# and a function that installs those missing when run as root.

# One package per line.
PTMATCH_PACKAGES=(
  cmake
  ninja-build
  g++
  clang
  libgtest-dev
  libbenchmark-dev
  pkg-config
  libpng-dev
  libtiff-dev
  libjpeg-dev
)

# Installs the missing packages with apt-get when running as root; otherwise only warns.
ptmatch_ensure_packages() {
  command -v dpkg-query >/dev/null 2>&1 || return 0
  local missing=()
  local package
  for package in "${PTMATCH_PACKAGES[@]}"; do
    if ! dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q "install ok installed"; then
      missing+=("$package")
    fi
  done
  [ "${#missing[@]}" -eq 0 ] && return 0
  if [ "$(id -u)" -eq 0 ] && command -v apt-get >/dev/null 2>&1; then
    echo "Installing missing packages: ${missing[*]}"
    apt-get update -qq
    DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends "${missing[@]}"
  else
    echo "warning: packages not installed (run as root to install them): ${missing[*]}" >&2
  fi
}
