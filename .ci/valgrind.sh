#!/usr/bin/env bash
# Runs every test executable of a build (not sanitized) under valgrind's memcheck, two at a
# time, and exits non-zero when any of them reports an error or a leak, or fails.
#   .ci/valgrind.sh [BUILD_DIR]      (default: build)
set -uo pipefail

root="$(cd "$(dirname "$0")/.." && pwd)"
build="$(cd "${1:-$root/build}" && pwd)"
if grep -q 'fsanitize' "$build/CMakeCache.txt" 2>/dev/null; then
  echo "valgrind.sh: $build is a sanitized build; give a plain one" >&2
  exit 2
fi
# Valgrind keeps descriptors of its own and refuses a lowered descriptor limit, and the process
# it runs is named after it: these tests run in the plain and sanitized builds instead.
export GTEST_FILTER="-KxGetAppName.*:KXTempStream.ReportsAFailedTemporaryFileAndKeepsTheMemoryPartReadable"
export KX_TEST_SOURCE_DIR="$root" logs="$(mktemp -d)"
trap 'rm -rf "$logs"' EXIT

# Forked children (the fault-injection and standard-output tests) run silently: their exit
# status is what the parent checks, and valgrind must not change it.
run_one() {
  local name
  name="$(basename "$1")"
  if valgrind --error-exitcode=97 --leak-check=full --errors-for-leak-kinds=definite,indirect,possible \
    --show-leak-kinds=definite,indirect,possible --child-silent-after-fork=yes --num-callers=30 \
    --log-file="$logs/$name.valgrind" "$1" >"$logs/$name.out" 2>&1; then
    echo "ok      $name"
  else
    echo "FAILED  $name"
    grep -E 'ERROR SUMMARY|definitely|indirectly|possibly|Invalid|uninitialised' "$logs/$name.valgrind" | head -8
    grep -E '^\[  FAILED  \]' "$logs/$name.out" | head -5
  fi
}
export -f run_one

find "$build/bin" -maxdepth 1 -name "test_*" -type f -perm -u+x | sort |
  xargs -P 2 -I{} bash -c 'run_one "$1"' _ {} | tee "$logs/summary"
! grep -q '^FAILED' "$logs/summary"
