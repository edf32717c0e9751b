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
# Every file the program reads: messages, .emlxpart files and the decoded
# files under Attachments folders.
bytes=$(find "$store" -type f ! -name .done -printf '%s\n' | awk '{s += $1} END {print s + 0}')
mb=$(awk -v b="$bytes" 'BEGIN {printf "%.1f", b / 1e6}')
echo "Store: $messages message files, $mb MB (with .emlxpart and Attachments files)"

echo "Warming the file cache ..."
find "$store" -type f ! -name .done -print0 | xargs -0 cat > /dev/null

read_all() {
  "$gen" measure /dev/null bash -c 'find "$1" -type f ! -name .done -print0 | xargs -0 cat' _ "$store"
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

# ---- Export measurement ----------------------------------------------------
# (c) copying every message file once into one file in the output folder, and
# (d) pellomar-cli export (the scan, then the package) into the same folder.
# Then the export of a store holding one very large message, and of one whose
# large part is restored from an Attachments folder, to show that the
# export's memory does not grow with the size of a message or a part.
out=$work/out
rm -rf "$out"
mkdir -p "$out"
copy_all() {
  "$gen" measure /dev/null bash -c 'find "$1" -type f ! -name .done -print0 | xargs -0 cat > "$2"' \
    _ "$store" "$out/copy"
}
read -r copy_s _ _ < <(copy_all)
rm -f "$out/copy"
read -r export_s export_kb export_rc < <("$gen" measure /dev/null "$cli" export "$store" "$out")
[[ $export_rc == 0 ]] || { echo "export failed with exit code $export_rc" >&2; exit 1; }
written=$(find "$out" -name '*.mbox' -type f -printf '%s\n' | awk '{s += $1} END {print s + 0}')

# One message of about 80 MB: a 40 MB line without a line break, then 40 MB
# of base64 lines.
big=$work/store-big
if [[ ! -f $big/.done ]]; then
  rm -rf "$big"
  mkdir -p "$big/Big.mbox/Messages"
  body=$work/big-body
  { printf 'Subject: big\n\n'
    head -c 40000000 /dev/zero | tr '\0' 'A'; printf '\n'
    head -c 30000000 /dev/zero | base64 -w 76; } > "$body"
  { stat -c %s "$body"; cat "$body"
    printf '<?xml version="1.0" encoding="UTF-8"?>\n<plist version="1.0">\n</plist>\n'; } \
    > "$big/Big.mbox/Messages/1.emlx"
  rm -f "$body"
  touch "$big/.done"
fi
big_bytes=$(stat -c %s "$big/Big.mbox/Messages/1.emlx")
rm -rf "$out"
mkdir -p "$out"
read -r big_s big_kb big_rc < <("$gen" measure /dev/null "$cli" export "$big" "$out")
[[ $big_rc == 0 ]] || { echo "export of the large message failed with exit code $big_rc" >&2; exit 1; }
rm -rf "$out"
mkdir -p "$out"
# The peak above covers the scan too. Sample the resident size while the
# package is being written (from the moment its Mail folder exists).
"$cli" export "$big" "$out" >/dev/null 2>&1 &
pid=$!
writing_kb=0
while kill -0 "$pid" 2>/dev/null; do
  if compgen -G "$out/*/Mail" >/dev/null; then
    kb=$(awk '/^VmRSS:/ {print $2}' "/proc/$pid/status" 2>/dev/null || echo 0)
    (( ${kb:-0} > writing_kb )) && writing_kb=$kb
  fi
  sleep 0.005
done
wait "$pid" || true
rm -rf "$out"

# One partial message in today's layout whose 300 MB part Mail keeps
# decoded under Attachments: the export encodes it back in base64.
detached=$work/store-detached
data="$detached/V10/Mailboxes/Big.mbox/0D58BCB4-AE72-47E2-8515-739A8B058FAE/Data/1"
if [[ ! -f $detached/.done ]]; then
  rm -rf "$detached"
  mkdir -p "$data/Messages" "$data/Attachments/1042/2"
  head -c 300000000 /dev/urandom > "$data/Attachments/1042/2/big.bin"
  msg=$'Subject: big\nContent-Type: multipart/mixed; boundary=b\n\n--b\nContent-Type: text/plain\n\nhi\n'
  msg+=$'--b\nContent-Type: application/octet-stream; name=big.bin\nContent-Transfer-Encoding: base64\n'
  msg+=$'X-Apple-Content-Length: 405000000\n\n--b--\n'
  { printf '%s\n%s' "${#msg}" "$msg"
    printf '<?xml version="1.0" encoding="UTF-8"?>\n<plist version="1.0">\n</plist>\n'; } \
    > "$data/Messages/1042.partial.emlx"
  touch "$detached/.done"
fi
detached_bytes=$(stat -c %s "$data/Attachments/1042/2/big.bin")
mkdir -p "$out"
read -r det_s det_kb det_rc < <("$gen" measure /dev/null "$cli" export "$detached" "$out")
[[ $det_rc == 0 ]] || { echo "export of the detached part failed with exit code $det_rc" >&2; exit 1; }
rm -rf "$out"

awk -v n="$messages" -v b="$bytes" -v c="$copy_s" -v e="$export_s" -v s="$scan_s" \
    -v kb="$export_kb" -v w="$written" -v bb="$big_bytes" -v bs="$big_s" -v bkb="$big_kb" \
    -v wkb="$writing_kb" -v db="$detached_bytes" -v ds="$det_s" -v dkb="$det_kb" 'BEGIN {
  printf "(c) plain copy      %8.2f s  %10.0f messages/s  %8.1f MB/s\n", c, n / c, b / 1e6 / c
  printf "(d) export          %8.2f s  %10.0f messages/s  %8.1f MB/s  (%.1f MB of mbox)\n", e, n / e, b / 1e6 / e, w / 1e6
  printf "    export / copy   %8.2f x\n", e / c
  printf "    export - scan   %8.2f s  (the writing alone, %.2f x the copy)\n", e - s, (e - s) / c
  printf "    export peak RSS %8.1f MB\n", kb / 1024
  printf "(e) one %.0f MB message: export %.2f s, %.1f MB/s, peak RSS %.1f MB,\n", bb / 1e6, bs, bb / 1e6 / bs, bkb / 1024
  printf "    RSS while writing the package %.1f MB\n", wkb / 1024
  printf "(f) one %.0f MB part from Attachments: export %.2f s, %.1f MB/s, peak RSS %.1f MB\n", db / 1e6, ds, db / 1e6 / ds, dkb / 1024
}'
