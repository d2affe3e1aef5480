#!/usr/bin/env bash
# Builds the fuzzers into build-fuzz and runs each for SECONDS (default 30) on a copy of its
# seed corpus, so that the committed corpus never grows. Exits non-zero on any finding.
set -euo pipefail

seconds="${1:-30}"
root="$(cd "$(dirname "$0")/.." && pwd)"
here="$root/fuzz"
build="$root/build-fuzz"
fuzzers=(fuzz_protocol fuzz_callbacks fuzz_text fuzz_fileopen)

cmake -S "$here" -B "$build" -G Ninja -DCMAKE_CXX_COMPILER="${CXX:-clang++}" >/dev/null
cmake --build "$build" -j2 --target "${fuzzers[@]}"

work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT
failed=0
for fuzzer in "${fuzzers[@]}"; do
  mkdir -p "$work/$fuzzer/corpus" "$work/$fuzzer/artifacts"
  cp "$here/corpus/$fuzzer/"* "$work/$fuzzer/corpus/"
  log="$work/$fuzzer/log"
  status=0
  "$build/$fuzzer" -max_total_time="$seconds" -timeout=10 -print_final_stats=1 \
    -artifact_prefix="$work/$fuzzer/artifacts/" "$work/$fuzzer/corpus" >"$log" 2>&1 || status=$?
  executions="$(sed -n 's/^stat::number_of_executed_units: *//p' "$log")"
  if [ "$status" -ne 0 ] || ls "$work/$fuzzer/artifacts/"* >/dev/null 2>&1; then
    failed=1
    mkdir -p "$build/findings"
    cp "$work/$fuzzer/artifacts/"* "$build/findings/" 2>/dev/null || true
    echo "$fuzzer: FINDING after ${executions:-?} executions (inputs kept in $build/findings)"
    grep -E 'DIVERGENCE|ERROR|SUMMARY|runtime error' "$log" | head -5
  else
    echo "$fuzzer: ${executions:-?} executions, no finding"
  fi
done
exit "$failed"
