#!/usr/bin/env bash
# Compares the binary interface of a build's libraries with the committed baseline
# (abi/lib*.abi): the exported symbols and their versions, and the layout of every public type
# (record fields, virtual slots, parameters). Clients compiled against one build must run
# against the next, so any difference fails; an intended one is recorded with abi/update.sh.
#   abi/check.sh BUILD_DIR [LIBRARY...]     LIBRARY: KXUtils64, KXStreams64 (default: both)
set -euo pipefail
# shellcheck source=abi/abi.sh
source "$(dirname "$0")/abi.sh"

(($# >= 1)) || { echo "usage: $0 BUILD_DIR [LIBRARY...]" >&2; exit 2; }
build=$1
shift
libraries=("$@")
((${#libraries[@]} > 0)) || libraries=("${kx_abi_libraries[@]}")
kx_abi_require_tools

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
failed=0
for library in "${libraries[@]}"; do
  baseline=$(kx_abi_baseline "$library")
  [[ -f $baseline ]] || { echo "$baseline missing: run abi/update.sh BUILD_DIR" >&2; exit 1; }
  kx_abi_write "$build" "$library" "$work/current.abi"
  result=0
  abidiff "$baseline" "$work/current.abi" >"$work/report" 2>&1 || result=$?
  if ((result == 0)); then
    echo "lib$library: binary interface unchanged"
    continue
  fi
  failed=1
  # abidiff's status is a bit set: 1 error, 2 usage, 4 a change, 8 an incompatible change.
  if ((result & 3)); then
    echo "lib$library: abidiff failed (status $result):" >&2
  elif ((result & 8)); then
    echo "lib$library: INCOMPATIBLE change of the binary interface: clients built against" \
      "the baseline would break." >&2
  else
    echo "lib$library: the binary interface changed compatibly (additions):" >&2
  fi
  cat "$work/report" >&2
done
if ((failed)); then
  cat >&2 <<MESSAGE
If the change is intended, record it: abi/update.sh BUILD_DIR (a Release build), and commit
abi/ in the same commit, saying in its message why the interface changed. An incompatible
change also needs a new major version (SOVERSION) and a new version node in abi/*.map.
MESSAGE
  exit 1
fi
