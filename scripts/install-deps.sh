#!/usr/bin/env bash
# Installs the Debian packages this project needs and are missing; prints nothing when none is.
#   scripts/install-deps.sh build   what building and running the libraries and the tool needs
#   scripts/install-deps.sh test    that, plus the tests, sanitizers, valgrind, fuzzers,
#                                   benchmarks and the installed-package check
# The package names follow the project's find_package/find_library calls: OpenSSL's libcrypto
# (libssl-dev), GoogleTest (libgtest-dev, libgmock-dev), Google Benchmark (libbenchmark-dev),
# libuuid for the UUID benchmark (uuid-dev), pkg-config for the installed-package check, clang
# with its runtime for the fuzzers, valgrind, clang-format for the formatting check, doxygen for
# the reference, groff and man-db to check the manual page, abigail-tools for the binary
# interface check, and hashdeep (md5deep) as the yardstick of bench/compare.sh's tree rows.
set -euo pipefail

build_set=(cmake ninja-build g++ libssl-dev)
test_set=(libgtest-dev libgmock-dev libbenchmark-dev uuid-dev pkg-config clang
  libclang-rt-14-dev clang-format valgrind doxygen groff-base man-db abigail-tools hashdeep)

usage() {
  echo "usage: $0 build|test" >&2
  exit 2
}

case "${1:-}" in
build) wanted=("${build_set[@]}") ;;
test) wanted=("${build_set[@]}" "${test_set[@]}") ;;
*) usage ;;
esac

missing=()
for package in "${wanted[@]}"; do
  dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q 'install ok installed' ||
    missing+=("$package")
done
((${#missing[@]} > 0)) || exit 0

as_root=()
if ((EUID != 0)); then
  command -v sudo >/dev/null || {
    echo "$0: not root and no sudo: install ${missing[*]} as root" >&2
    exit 1
  }
  as_root=(sudo)
fi

echo "Installing ${missing[*]}"
"${as_root[@]}" apt-get update -qq
"${as_root[@]}" env DEBIAN_FRONTEND=noninteractive \
  apt-get install -y -qq --no-install-recommends "${missing[@]}"
