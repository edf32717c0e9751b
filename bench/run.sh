#!/usr/bin/env bash
# Scan benchmark: bench/run.sh [N]   (N messages, default 20000)
#
# Builds the release command-line tool if needed (build/release), writes a
# generated store of N messages into bench/work/ (the same bytes every time),
# warms the file cache, then times
#   (a) reading every message file once with cat, and
#   (b) pellomar-cli scan --json,
# and prints messages/s, MB/s, the ratio of (b) to (a) and the scan's peak
# memory.
set -euo pipefail
N=${1:-20000}
[[ $N =~ ^[0-9]+$ && $N -gt 0 ]] || { echo "usage: bench/run.sh [N]" >&2; exit 2; }
cd "$(dirname "$0")/.."
root=$PWD
build=$root/build/release
work=$root/bench/work
store=$work/store-$N

if [[ ! -f $build/CMakeCache.txt ]]; then
  cmake -S "$root" -B "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
fi
cmake --build "$build" -j2 --target pellomar-cli pellomar-benchgen >/dev/null
cli=$build/cli/pellomar-cli
gen=$build/bench/pellomar-benchgen

# The generator's source decides the store's bytes: regenerate when it changed.
stamp=$(sha1sum "$root/bench/BenchGen.cpp" | cut -c1-12)
if [[ ! -f $store/.done || $(cat "$store/.done") != "$stamp" ]]; then
  echo "Generating $N messages in $store ..."
  rm -rf "$store"
  mkdir -p "$store"
  "$gen" generate "$store" "$N"
  echo "$stamp" > "$store/.done"
fi

mkdir -p "$work/tmp"
export PELLOMAR_TMPDIR=$work/tmp

messages=$(find "$store" -name '*.emlx' | wc -l)
bytes=$(find "$store" -name '*.emlx*' -printf '%s\n' | awk '{s += $1} END {print s + 0}')
mb=$(awk -v b="$bytes" 'BEGIN {printf "%.1f", b / 1e6}')
echo "Store: $messages message files, $mb MB (with .emlxpart files)"

echo "Warming the file cache ..."
find "$store" -name '*.emlx*' -print0 | xargs -0 cat > /dev/null

read_all() {
  "$gen" measure /dev/null bash -c 'find "$1" -name "*.emlx*" -print0 | xargs -0 cat' _ "$store"
}
read -r read_s _ _ < <(read_all)
read -r scan_s scan_kb scan_rc < <("$gen" measure /dev/null "$cli" scan "$store" --json)
[[ $scan_rc == 0 ]] || { echo "scan failed with exit code $scan_rc" >&2; exit 1; }

awk -v n="$messages" -v b="$bytes" -v r="$read_s" -v s="$scan_s" -v kb="$scan_kb" 'BEGIN {
  printf "(a) plain read      %8.2f s  %10.0f messages/s  %8.1f MB/s\n", r, n / r, b / 1e6 / r
  printf "(b) scan --json     %8.2f s  %10.0f messages/s  %8.1f MB/s\n", s, n / s, b / 1e6 / s
  printf "    scan / read     %8.2f x\n", s / r
  printf "    scan peak RSS   %8.1f MB\n", kb / 1024
}'

# ---- Export measurement: to be added by the export developer ---------------
# Time `pellomar-cli export "$store" "$work/out"` here with "$gen" measure,
# in the same way as the scan above, and print its figures.
# ---- End of export measurement ---------------------------------------------
