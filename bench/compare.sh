#!/usr/bin/env bash
# Runs every comparison of the library against the usual alternatives, side by side in one run,
# on data generated in a scratch directory (removed on exit), and prints one table of ratios
# ours/theirs (time; below 1 means the library is faster) with the goal each ratio has to meet.
#
#   bench/compare.sh [BUILD_DIR]      (default: build)
#
# KX_COMPARE_RUNS (default 5) sets how many times each command-line run is repeated; the table
# shows medians. Google Benchmark rows are medians of 3 repetitions.
set -euo pipefail

build=${1:-build}
bin=$build/bin
runs=${KX_COMPARE_RUNS:-5}

scratch=$(mktemp -d "${TMPDIR:-/tmp}/kxcompare.XXXXXX")
trap 'rm -rf "$scratch"' EXIT
# The benchmark programs and the temporary stream put their files here too.
export TMPDIR=$scratch
results=$scratch/results     # lines "NAME VALUE", times in ns, memory in KiB
tree_equal_md5deep=""
tree_equal_find=""

median() {
  sort -g | awk '{ v[NR] = $1 } END { if (NR == 0) exit 1;
    if (NR % 2) print v[(NR + 1) / 2]; else print (v[NR / 2] + v[NR / 2 + 1]) / 2 }'
}

# Runs one Google Benchmark program and records the median real time of each benchmark.
run_benchmarks() {
  local program=$bin/$1
  if [[ ! -x $program ]]; then
    echo "compare.sh: $program not built; its rows are skipped" >&2
    return 0
  fi
  echo "running $1 ..." >&2
  "$program" --benchmark_format=csv --benchmark_repetitions=3 \
    --benchmark_report_aggregates_only=true --benchmark_min_time=0.2 2>/dev/null |
    awk -F, '$1 ~ /_median"$/ {
      name = $1; gsub(/"/, "", name); sub(/_median$/, "", name)
      scale = ($5 == "ns") ? 1 : ($5 == "us") ? 1e3 : ($5 == "ms") ? 1e6 : 1e9
      printf "%s %.6g\n", name, $3 * scale }' >>"$results"
}

# Runs a command line $runs times under /usr/bin/time and records the median wall time and
# peak resident size. The command's standard output goes through a pipe into cat, as a user's
# would: writing to /dev/null directly lets cat skip the copy altogether.
run_command() {
  local name=$1
  shift
  local timings=$scratch/timings.${name//\//_}
  : >"$timings"
  "$@" | cat >/dev/null # warm the page cache and catch failures early
  for ((i = 0; i < runs; ++i)); do
    rm -f "$scratch/copy.out"
    /usr/bin/time -f '%e %M' -o "$scratch/time.out" "$@" | cat >/dev/null
    tail -n 1 "$scratch/time.out" >>"$timings"
  done
  rm -f "$scratch/copy.out"
  echo "$name $(awk '{ print $1 * 1e9 }' "$timings" | median)" >>"$results"
  echo "$name.peak $(awk '{ print $2 }' "$timings" | median)" >>"$results"
}

run_tools() {
  local tool=$bin/kxstream
  if [[ ! -x $tool ]]; then
    echo "compare.sh: $tool not built; the tool rows are skipped" >&2
    return 0
  fi
  echo "generating 1 GiB of input ..." >&2
  head -c 512M /dev/urandom >"$scratch/big.bin"
  local parts=()
  for i in 0 1 2 3 4 5 6 7; do
    head -c 64M /dev/urandom >"$scratch/part$i.bin"
    parts+=("$scratch/part$i.bin")
  done
  echo "running the tools $runs times each ..." >&2
  run_command tool/kxstream_id_512 "$tool" id "$scratch/big.bin"
  run_command tool/md5sum_512 md5sum "$scratch/big.bin"
  run_command tool/kxstream_id_8x64 "$tool" id "${parts[@]}"
  run_command tool/md5sum_8x64 md5sum "${parts[@]}"
  run_command tool/kxstream_cat "$tool" cat "$scratch/big.bin"
  run_command tool/cat cat "$scratch/big.bin"
  # Both read the same producer's pipe: the descriptor stream's path, not the file stream's.
  run_command tool/kxstream_cat_pipe bash -c 'cat "$1" | "$2" cat' _ "$scratch/big.bin" "$tool"
  run_command tool/cat_pipe bash -c 'cat "$1" | cat' _ "$scratch/big.bin"
  run_command tool/kxstream_copy "$tool" copy "$scratch/big.bin" "$scratch/copy.out"
  run_command tool/cp cp "$scratch/big.bin" "$scratch/copy.out"
  run_command tool/dd dd if="$scratch/big.bin" of="$scratch/copy.out" bs=1M status=none
  run_tree_tools "$tool"
}

# Whole trees: kxstream id -r against md5deep and find | xargs md5sum on /usr/include, the check
# of its listing against md5sum -c, and the peak memory of a walk over 100,000 files against one
# over 1,000 (the same directory width, so that only the number of files differs).
run_tree_tools() {
  local tool=$1 tree=/usr/include cores
  cores=$(nproc)
  if [[ ! -d $tree ]]; then
    echo "compare.sh: no $tree; the tree rows are skipped" >&2
    return 0
  fi
  # md5deep follows links to directories, find does not: -L and plain -r list the same files.
  "$tool" id -r -L "$tree" | sort >"$scratch/ours.sorted"
  if command -v md5deep >/dev/null; then
    md5deep -r -j "$cores" "$tree" | sort >"$scratch/theirs.sorted"
    cmp -s "$scratch/ours.sorted" "$scratch/theirs.sorted" && tree_equal_md5deep=yes || tree_equal_md5deep=NO
    run_command tool/kxstream_id_tree_links "$tool" id -r -L "$tree"
    run_command tool/md5deep_tree md5deep -r -j "$cores" "$tree"
  else
    echo "compare.sh: md5deep not installed (Debian package hashdeep); its row is skipped" >&2
  fi
  "$tool" id -r "$tree" >"$scratch/tree.md5"
  find "$tree" -type f -print0 | xargs -0 md5sum | sort >"$scratch/theirs.sorted"
  sort "$scratch/tree.md5" | cmp -s - "$scratch/theirs.sorted" && tree_equal_find=yes || tree_equal_find=NO
  run_command tool/kxstream_id_tree "$tool" id -r "$tree"
  run_command tool/find_xargs_md5sum sh -c 'find "$1" -type f -print0 | xargs -0 md5sum' sh "$tree"
  run_command tool/kxstream_id_check "$tool" id -c "$scratch/tree.md5"
  run_command tool/md5sum_check md5sum -c "$scratch/tree.md5"

  echo "making trees of 1,000 and 100,000 files ..." >&2
  local dir
  for dir in "$scratch"/small/d000 "$scratch"/large/d{000..099}; do
    mkdir -p "$dir"
    (cd "$dir" && seq -f 'file%04g' 1000 | xargs touch)
  done
  run_command tool/kxstream_id_1k "$tool" id -r "$scratch/small"
  run_command tool/kxstream_id_100k "$tool" id -r "$scratch/large"
  rm -rf "$scratch/small" "$scratch/large"
}

: >"$results"
run_benchmarks bench_engine
run_benchmarks bench_file
run_benchmarks bench_uuid
run_tools

# One table row: LABEL OURS THEIRS GOAL (a ratio, or - for information) [UNIT: time or KiB].
row() {
  awk -v label="$1" -v ours="$2" -v theirs="$3" -v goal="$4" -v unit="${5:-time}" '
    function show(v) {
      if (unit == "KiB") return sprintf("%d KiB", v)
      if (v < 1e3) return sprintf("%.1f ns", v)
      if (v < 1e6) return sprintf("%.2f us", v / 1e3)
      if (v < 1e9) return sprintf("%.2f ms", v / 1e6)
      return sprintf("%.2f s", v / 1e9)
    }
    FNR == NR { value[$1] = $2; next }
    END {
      if (!(ours in value) || !(theirs in value) || value[theirs] == 0) {
        printf "| %s | skipped | skipped | | %s | skipped |\n", label, goal == "-" ? "" : "<= " goal
        exit
      }
      ratio = value[ours] / value[theirs]
      verdict = goal == "-" ? "-" : (ratio <= goal ? "PASS" : "MISS")
      printf "| %s | %s | %s | %.3f | %s | %s |\n", label, show(value[ours]), show(value[theirs]),
        ratio, goal == "-" ? "" : "<= " goal, verdict
    }' "$results" /dev/null
}

# An absolute limit: LABEL NAME LIMIT_NS.
limit_row() {
  awk -v label="$1" -v name="$2" -v limit="$3" '
    FNR == NR { value[$1] = $2; next }
    END {
      if (!(name in value)) { printf "| %s | skipped | | | < %d ns | skipped |\n", label, limit; exit }
      printf "| %s | %.1f ns | (limit) | | < %d ns | %s |\n", label, value[name], limit,
        value[name] < limit ? "PASS" : "MISS"
    }' "$results" /dev/null
}

echo
echo "| comparison (ours vs theirs) | ours | theirs | ours/theirs | goal | result |"
echo "|---|---|---|---|---|---|"
row "engine: null write 64 B, strict vs non-strict" engine/null_write_64_strict engine/null_write_64_nonstrict 1.5
row "engine: memory read 64 B, strict vs non-strict" engine/mem_read_64_strict engine/mem_read_64_nonstrict 1.5
for mode in strict nonstrict; do
  limit_row "engine: null write 64 B, $mode, per transfer" engine/null_write_64_$mode 50
  limit_row "engine: memory read 64 B, $mode, per transfer" engine/mem_read_64_$mode 50
  row "engine: null write 64 B, $mode vs virtual call + memcpy" engine/null_write_64_$mode engine/baseline_virtual_memcpy_64 -
  row "engine: memory read 64 B, $mode vs virtual call + memcpy" engine/mem_read_64_$mode engine/baseline_virtual_memcpy_64 -
done
row "memory stream: read 64 MiB in 1 MiB chunks vs memcpy" mem/read_1MiB_chunks mem/memcpy_1MiB_chunks -
row "memory stream: prepareBuffer/complete 64 MiB (zero copy) vs memcpy" mem/prepare_complete_1MiB_chunks mem/memcpy_1MiB_chunks -
for size in 16384 65536 262144 1048576; do
  kib=$((size / 1024))
  row "file read ${kib} KiB buffers: prepareBuffer/complete vs read()" file/read_prepare_complete/$size file/read_raw/$size 1.1
  row "file read ${kib} KiB buffers: stream read() vs read()" file/read_stream/$size file/read_raw/$size -
  row "file read ${kib} KiB buffers: prepareBuffer/complete vs fread" file/read_prepare_complete/$size file/read_fread/$size -
  row "file read ${kib} KiB buffers: prepareBuffer/complete vs ifstream" file/read_prepare_complete/$size file/read_ifstream/$size -
  row "file write ${kib} KiB transfers: stream write() vs write()" file/write_stream/$size file/write_raw/$size -
done
row "temporary stream 256 MiB write+read vs plain temp file (1 MiB reads)" temp/stream_256MiB_roundtrip/iterations:2 temp/plain_file_256MiB_roundtrip/1048576/iterations:2 -
row "temporary stream 256 MiB write+read vs plain temp file (16 KiB reads)" temp/stream_256MiB_roundtrip/iterations:2 temp/plain_file_256MiB_roundtrip/16384/iterations:2 -
row "calcID 64 MiB memory vs OpenSSL MD5 one buffer" md5/calcid_memory md5/openssl_one_buffer 1.05
row "calcID 64 MiB file (16 KiB buffer) vs OpenSSL MD5 one buffer" md5/calcid_file/16384 md5/openssl_file_bytes_one_buffer 1.05
row "calcID 64 MiB file (256 KiB buffer) vs OpenSSL MD5 one buffer" md5/calcid_file/262144 md5/openssl_file_bytes_one_buffer 1.05
row "calcID 64 MiB file (16 KiB buffer) vs read()+MD5 loop, 16 KiB" md5/calcid_file/16384 md5/raw_read_md5/16384 -
row "calcID 64 MiB file (256 KiB buffer) vs read()+MD5 loop, 256 KiB" md5/calcid_file/262144 md5/raw_read_md5/262144 -
row "UUID create + text vs libuuid uuid_generate_time + uuid_unparse" uuid/native_create_to_string uuid/libuuid_generate_time_unparse 1.0
row "kxstream id vs md5sum, one 512 MiB file" tool/kxstream_id_512 tool/md5sum_512 0.97
row "kxstream id vs md5sum, 8 x 64 MiB (-j cores)" tool/kxstream_id_8x64 tool/md5sum_8x64 0.6
row "kxstream id vs md5sum, 512 MiB, peak memory" tool/kxstream_id_512.peak tool/md5sum_512.peak 2 KiB
row "kxstream cat vs cat, 512 MiB into a pipe" tool/kxstream_cat tool/cat 1.3
row "kxstream cat vs cat, 512 MiB from a pipe into a pipe" tool/kxstream_cat_pipe tool/cat_pipe 1.1
row "kxstream copy vs cp, 512 MiB" tool/kxstream_copy tool/cp 1.2
row "kxstream copy vs dd bs=1M, 512 MiB" tool/kxstream_copy tool/dd -
row "kxstream id -r -L vs md5deep -r -j cores, /usr/include" tool/kxstream_id_tree_links tool/md5deep_tree 0.6
row "kxstream id -r vs find -print0, xargs -0 md5sum, /usr/include" tool/kxstream_id_tree tool/find_xargs_md5sum 0.5
row "kxstream id -c vs md5sum -c, listing of /usr/include" tool/kxstream_id_check tool/md5sum_check 0.6
row "kxstream id -r, 100,000 vs 1,000 files, peak memory" tool/kxstream_id_100k.peak tool/kxstream_id_1k.peak 2 KiB
echo
echo "Sorted lines equal: kxstream id -r -L vs md5deep: ${tree_equal_md5deep:-not run};" \
  "kxstream id -r vs find | xargs md5sum: ${tree_equal_find:-not run}"
