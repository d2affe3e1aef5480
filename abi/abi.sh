# shellcheck shell=bash
# Shared by abi/check.sh, abi/update.sh and abi/check_detects_breaks.sh: where a build's
# libraries and public headers are, and how their binary interface is written down. Sourced.

kx_abi_dir=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
kx_abi_sources=$(dirname "$kx_abi_dir")
# shellcheck disable=SC2034 # used by the scripts that source this file
kx_abi_libraries=(KXUtils64 KXStreams64)

kx_abi_require_tools() {
  local tool
  for tool in abidw abidiff; do
    command -v "$tool" >/dev/null || {
      echo "$tool not found: install abigail-tools (scripts/install-deps.sh test)" >&2
      exit 1
    }
  done
}

# The library file of a build directory; its debug information describes the types.
kx_abi_library() { echo "$1/lib/lib$2.so"; }

# Writes the interface of library $2 of build $1 to file $3: public types only (those declared
# in the installed headers), no locations, build paths or machine-specific ids, and source
# files named from the top of the tree, so that the same sources give the same file in any
# checkout and build directory.
kx_abi_write() {
  local build=$1 library=$2 output=$3
  local file
  file=$(kx_abi_library "$build" "$library")
  [[ -f $file ]] || { echo "$file not found: build it first" >&2; exit 1; }
  abidw --headers-dir "$build/include/kxstreams" --drop-private-types --drop-undefined-syms \
    --no-corpus-path --no-comp-dir-path --no-elf-needed --no-show-locs --type-id-style hash \
    --out-file "$output" "$file"
  sed -i "s|path='$kx_abi_sources/|path='|" "$output"
}

# The committed baseline of library $1.
kx_abi_baseline() { echo "$kx_abi_dir/lib$1.abi"; }
