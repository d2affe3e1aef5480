#!/usr/bin/env bash
# Shows that abi/check.sh catches a break: builds libKXStreams64 from a copy of the sources in
# which two virtual operations of the engine trade places and two fields of a public record
# trade places, and expects the check to refuse it and to name both changes. Only that one
# library is compiled (without optimisation, in a temporary directory); it links against the
# given build's libKXUtils64.
#   abi/check_detects_breaks.sh BUILD_DIR
set -euo pipefail
cd "$(dirname "$0")/.."
# shellcheck source=abi/abi.sh
source abi/abi.sh

(($# == 1)) || { echo "usage: $0 BUILD_DIR" >&2; exit 2; }
build=$(cd "$1" && pwd)
kx_abi_require_tools
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# The sources, with the two changes a careless edit could make.
cp -r natives "$work/natives"
engine=$work/natives/streams/KXBasicGenericStream.h
cache=$work/natives/streams/KXCachedInputStream.h
sed -i -e 's/virtual int _setMarker();/virtual int KX_SWAPPED();/' \
  -e 's/virtual int _resetMarker();/virtual int _setMarker();/' \
  -e 's/virtual int KX_SWAPPED();/virtual int _resetMarker();/' "$engine"
sed -i -e 's/long mCacheLen;/long KX_SWAPPED;/' -e 's/long mCacheReadPos;/long mCacheLen;/' \
  -e 's/long KX_SWAPPED;/long mCacheReadPos;/' "$cache"
if cmp -s "$engine" natives/streams/KXBasicGenericStream.h ||
  cmp -s "$cache" natives/streams/KXCachedInputStream.h; then
  echo "FAIL: the headers no longer hold the declarations this test swaps" >&2
  exit 1
fi

# A build directory of the changed library: its public headers and the library itself.
changed=$work/build
mkdir -p "$changed/include/kxstreams" "$changed/lib" "$work/objects"
cp "$build"/include/kxstreams/*.h "$changed/include/kxstreams/"
cp "$engine" "$cache" "$changed/include/kxstreams/"
flags=(-std=c++17 -O0 -g -fPIC -fvisibility=hidden -fvisibility-inlines-hidden
  -I "$work/natives/streams" -I "$work/natives/portability"
  -I "$work/natives/utilities")
export work
# The inner script's $work and $@ are expanded by the inner shell, one source file at a time.
# shellcheck disable=SC2016
printf '%s\n' "$work"/natives/streams/*.cpp "$work"/natives/portability/*.cpp |
  xargs -P 2 -I {} sh -c 'c++ "$@" -c {} -o "$work/objects/$(basename {} .cpp).o"' sh "${flags[@]}"
c++ -shared -o "$changed/lib/libKXStreams64.so" "$work"/objects/*.o \
  -Wl,-soname,libKXStreams64.so.0 "-Wl,--version-script=abi/KXStreams64.map" \
  -L "$build/lib" -lKXUtils64 -ldl -lpthread

status=0
abi/check.sh "$changed" KXStreams64 >"$work/report" 2>&1 || status=$?
[[ -z ${KX_SHOW_REPORT:-} ]] || cat "$work/report"
expect() {
  grep -q "$1" "$work/report" || {
    echo "FAIL: the check did not report $2" >&2
    cat "$work/report" >&2
    exit 1
  }
}
((status != 0)) || { echo "FAIL: the check accepted the changed library" >&2; exit 1; }
expect "INCOMPATIBLE" "the change as incompatible"
expect "_setMarker" "the moved virtual operation"
expect "mCacheReadPos" "the moved record field"
echo "abi/check.sh refuses swapped virtual operations and swapped record fields"
