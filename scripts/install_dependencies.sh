#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Installs what building and testing need and what is not there yet: Debian packages, a Rust
# toolchain, and a Python environment in .venv for the tests. Does nothing when all is there.
#   scripts/install_dependencies.sh [--no-tests]     without what only the tests need
set -euo pipefail
cd "$(dirname "$0")/.."

build_packages=(g++ cmake ninja-build pkg-config libhdf5-dev libfmt-dev libcli11-dev
                nlohmann-json3-dev libisal-dev libdeflate-dev libhwy-dev libproj-dev
                libfast-float-dev zlib1g-dev)
test_packages=(libgtest-dev libgmock-dev libbenchmark-dev hdf5-tools ccache
               clang-format-14 python3 python3-venv)
minimum_cmake=3.25
minimum_rust=$(sed -n 's/^rust-version = "\(.*\)"/\1/p' formats/laz/Cargo.toml)

with_tests=true
[ "${1:-}" = --no-tests ] && with_tests=false

say() { printf 'install: %s\n' "$*" >&2; }

# quietly COMMAND...: shows what the command says only when it fails.
quietly() {
  local output
  output=$("$@" 2>&1) || { printf '%s\n' "$output" >&2; say "failed: $*"; exit 1; }
}

# at_least VERSION MINIMUM
at_least() { [ "$(printf '%s\n%s\n' "$2" "$1" | sort -V | head -n 1)" = "$2" ]; }

apt_updated=false
apt_run() {
  command -v apt-get >/dev/null || { say "no apt-get here; please install: $*"; exit 1; }
  local root=()
  if [ "$(id -u)" -ne 0 ]; then
    command -v sudo >/dev/null || { say "not root and no sudo; please install: $*"; exit 1; }
    root=(sudo)
  fi
  if ! $apt_updated; then
    quietly "${root[@]}" apt-get update
    apt_updated=true
  fi
  say "apt-get install $*"
  quietly "${root[@]}" env DEBIAN_FRONTEND=noninteractive \
    apt-get install -y --no-install-recommends "$@"
}

has_package() { dpkg-query -W -f='${db:Status-Status}\n' "$1" 2>/dev/null | grep -qx installed; }

install_packages() {
  local wanted=("${build_packages[@]}") missing=()
  $with_tests && wanted+=("${test_packages[@]}")
  # A compiler, CMake or Python from elsewhere serves as well as the packaged one.
  for package in "${wanted[@]}"; do
    case $package in
      g++|cmake|ccache|python3) command -v "$package" >/dev/null && continue ;;
      ninja-build) command -v ninja >/dev/null && continue ;;
    esac
    has_package "$package" || missing+=("$package")
  done
  [ ${#missing[@]} -eq 0 ] || apt_run "${missing[@]}"
}

find_cargo() { command -v cargo || { [ -x "$HOME/.cargo/bin/cargo" ] && echo "$HOME/.cargo/bin/cargo"; }; }

cargo_serves() {
  local cargo version
  cargo=$(find_cargo) || return 1
  version=$("$cargo" --version 2>/dev/null | awk '{print $2}') || return 1
  [ -n "$version" ] && at_least "$version" "$minimum_rust"
}

candidate_version() { apt-cache policy "$1" 2>/dev/null | awk '/Candidate:/ {print $2}'; }

install_rust() {
  cargo_serves && return
  $apt_updated || apt_run ca-certificates
  local version
  for suffix in -web ""; do  # Debian keeps a recent toolchain under -web
    version=$(candidate_version "cargo$suffix")
    if [ -n "$version" ] && [ "$version" != "(none)" ] && at_least "$version" "$minimum_rust"; then
      apt_run "cargo$suffix" "rustc$suffix"
      cargo_serves && return
    fi
  done
  say "no Rust toolchain of version $minimum_rust or later: found ${version:-none} in the packages;" \
      "install one from https://rustup.rs and try again"
  exit 1
}

install_python_environment() {
  local stamp=.venv/requirements.installed requirements=tests/python/requirements.txt
  cmp -s "$requirements" "$stamp" && .venv/bin/python -c 'import pytest' 2>/dev/null && return
  say "Python packages into .venv"
  python3 -m venv --clear .venv
  .venv/bin/pip install --quiet --disable-pip-version-check -r "$requirements"
  cp "$requirements" "$stamp"
}

# Ubuntu 22.04 has an older CMake; the same program comes as a Python package.
install_recent_cmake() {
  local version
  version=$(cmake --version | awk 'NR == 1 {print $3}')
  at_least "$version" "$minimum_cmake" && return
  [ -x .venv/bin/cmake ] && return
  say "cmake $version is older than $minimum_cmake: a newer one into .venv"
  has_package python3-venv || apt_run python3 python3-venv
  [ -x .venv/bin/pip ] || python3 -m venv .venv
  .venv/bin/pip install --quiet --disable-pip-version-check "cmake>=$minimum_cmake,<4"
}

install_packages
install_rust
if $with_tests; then install_python_environment; fi
install_recent_cmake
