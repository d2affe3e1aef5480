#!/usr/bin/env bash
# Builds the examples against an installed package, once with CMake's find_package and once
# with pkg-config, and runs each on a real file; then runs the installed tool.
#   examples/check_installed.sh PREFIX
set -euo pipefail
prefix=$(cd "$1" && pwd)
examples=$(cd "$(dirname "$0")" && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
sample="$examples/copy_file.cpp"
expected=$(md5sum <"$sample" | cut -d' ' -f1)

echo "-- find_package(KXStreams)"
cmake -S "$examples" -B "$work/cmake" -G Ninja -DCMAKE_PREFIX_PATH="$prefix" >/dev/null
cmake --build "$work/cmake" >/dev/null
"$work/cmake/copy_file" "$sample" "$work/copy1"
cmp "$sample" "$work/copy1"

echo "-- pkg-config kxstreams"
export PKG_CONFIG_PATH="$prefix/lib/pkgconfig"
# shellcheck disable=SC2046 # the flags are meant to split into words
c++ -std=c++17 "$sample" -o "$work/copy_file_pc" $(pkg-config --cflags --libs kxstreams) \
  -Wl,-rpath,"$(pkg-config --variable=libdir kxstreams)"
"$work/copy_file_pc" "$sample" "$work/copy2"
cmp "$sample" "$work/copy2"

echo "-- installed kxstream"
actual=$("$prefix/bin/kxstream" id "$sample" | cut -d' ' -f1)
[[ $actual == "$expected" ]] || { echo "kxstream id gave $actual, md5sum $expected" >&2; exit 1; }
echo "installed package works"
