#!/usr/bin/env bash
# Runs every test executable of a build (not sanitized) under valgrind's memcheck, two at a
# time, and exits non-zero when any of them reports an error or a leak, or fails.
#   tests/valgrind.sh [BUILD_DIR]      (default: build)
set -uo pipefail

root="$(cd "$(dirname "$0")/.." && pwd)"
build="$(cd "${1:-$root/build}" && pwd)"
if grep -q 'fsanitize' "$build/CMakeCache.txt" 2>/dev/null; then
  echo "valgrind.sh: $build is a sanitized build; give a plain one" >&2
  exit 2
fi
# Valgrind keeps descriptors of its own and refuses a lowered descriptor limit, and the process
# it runs is named after it: these tests run in the plain and sanitized builds instead.
export GTEST_FILTER="-KxGetAppName.*:KXTempStream.ReportsAFailedTemporaryFileAndKeepsTheMemoryPartReadable:FaultInjection.TooFewDescriptorsFailTheOpenWithEMFILENamingThePath"
logs="$(mktemp -d)"
trap 'rm -rf "$logs"' EXIT

run_one() {
  local test="$1" logs="$2" root="$3"
  local name
  name="$(basename "$test")"
  # Forked children (the fault-injection and standard-output tests) run silently: their exit
  # status is what the parent checks, and valgrind must not change it.
  KX_TEST_SOURCE_DIR="$root" valgrind --tool=memcheck --error-exitcode=97 --leak-check=full \
    --show-leak-kinds=definite,indirect,possible --errors-for-leak-kinds=definite,indirect,possible \
    --child-silent-after-fork=yes --trace-children=no --num-callers=30 \
    --log-file="$logs/$name.valgrind" "$test" >"$logs/$name.out" 2>&1
  local status=$?
  if [ "$status" -eq 0 ]; then
    echo "ok      $name"
  else
    echo "FAILED  $name (exit $status)"
    grep -E 'ERROR SUMMARY|definitely|indirectly|possibly|Invalid|uninitialised' \
      "$logs/$name.valgrind" | head -8
    grep -E '^\[  FAILED  \]' "$logs/$name.out" | head -5
    return 1
  fi
}
export -f run_one

status=0
find "$build/bin" -maxdepth 1 -name 'test_*' -type f -perm -u+x | sort |
  xargs -P 2 -I{} bash -c 'run_one "$@"' _ {} "$logs" "$root" | tee "$logs/summary"
if grep -q '^FAILED' "$logs/summary"; then
  status=1
fi
exit "$status"
