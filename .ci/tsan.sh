#!/usr/bin/env bash
# Builds the library and the threads test with ThreadSanitizer in build-tsan and runs the test;
# exits non-zero on any reported race.
set -euo pipefail

root="$(cd "$(dirname "$0")/.." && pwd)"
build="${1:-$root/build-tsan}"

cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Debug -DKX_WERROR=ON -DKX_TSAN=ON \
  -DKX_BUILD_BENCH=OFF -DKX_BUILD_EXAMPLES=OFF -DKX_BUILD_TOOLS=OFF >/dev/null
cmake --build "$build" -j2 --target test_Threads
# halt_on_error makes the first race fail the run rather than only print it.
TSAN_OPTIONS="halt_on_error=1 second_deadlock_stack=1 ${TSAN_OPTIONS:-}" \
  "$build/bin/test_Threads" --gtest_repeat=3
