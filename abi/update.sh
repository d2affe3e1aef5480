#!/usr/bin/env bash
# Records the binary interface of a Release build's libraries as the new baseline
# (abi/lib*.abi), after an intended change; commit it with the reason in the message.
#   abi/update.sh BUILD_DIR
set -euo pipefail
# shellcheck source=abi/abi.sh
source "$(dirname "$0")/abi.sh"

(($# == 1)) || { echo "usage: $0 BUILD_DIR" >&2; exit 2; }
build=$1
kx_abi_require_tools
# The baseline is what users get: a Release build without sanitizers.
cache=$build/CMakeCache.txt
if ! grep -qx 'CMAKE_BUILD_TYPE:STRING=Release' "$cache" 2>/dev/null ||
  grep -qE '^KX_(SANITIZE|TSAN):BOOL=ON' "$cache"; then
  echo "$build is not a plain Release build: the baseline is taken from one" >&2
  exit 1
fi
for library in "${kx_abi_libraries[@]}"; do
  kx_abi_write "$build" "$library" "$(kx_abi_baseline "$library")"
  echo "wrote $(kx_abi_baseline "$library")"
done
