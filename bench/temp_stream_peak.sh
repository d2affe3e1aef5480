#!/usr/bin/env bash
# Peak memory of a 1 GiB round trip through a temporary stream with a 1 MiB memory part.
#   bench/temp_stream_peak.sh [BUILD_DIR] [SIZE_MIB] [MEMORY_KIB]
set -euo pipefail
build=${1:-build}
"/usr/bin/time" -f "peak resident size: %M KiB, elapsed: %e s" \
  "$build/bin/temp_stream_roundtrip" "${2:-1024}" "${3:-1024}"
