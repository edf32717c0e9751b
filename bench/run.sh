#!/usr/bin/env bash
# Benchmark: bench/run.sh [N [LARGE]]
#
# Builds what it needs (in build/release, or the build folder named by
# BENCH_BUILD) and writes generated stores (the same bytes every time) into
# bench/work/ (or the folder named by BENCH_WORK):
#   store-N       N messages (default 20000) in the older layout
#                 (Mailboxes/<name>.mbox/Messages, parts in .emlxpart files)
#   modern-N      N messages in today's layout (account folders,
#   modern-LARGE  Data/<d>/<d>/Messages, parts under Attachments folders and
#                 in .emlxpart files), N and LARGE (default 100000; 0 leaves
#                 both of today's stores out)
# It warms the file cache and then, BENCH_RUNS times (default 3), on each
# store one after the other, so that each pair is measured under the same load:
#   plain read    every file of the store read once (pellomar-benchgen copy)
#   CLI scan      pellomar-cli scan --json
#   window scan   the main window under Xvfb, from a click on Start to the
#                 end-of-scan box (bench/WindowScan.cpp)
#   plain copy    every file of the store copied once into one file, through
#                 a buffer as a program that looks at the bytes must
#   export        pellomar-cli export --no-verify, with Latin-1 text and with
#                 --keep-bytes
#   verify        pellomar-cli verify of the package the export wrote (the
#                 check an export makes after writing, on its own)
# and on the LARGE store, end to end: the window from a click on Start to
# the window that names the verified package (every folder ticked), and
# pellomar-cli export with its verification.
# It prints one table per store: the fastest and slowest time and CPU time of
# each, the ratios of each pair (per run, lowest to highest; and fastest over
# fastest), the time per message and the peak memory; then how the time per
# message of today's two stores compares, and the end-to-end figures. Then
# it times the export of a store holding one very large message, and the
# export and verification of one whose 1 GB part is restored from an
# Attachments folder.
set -euo pipefail
N=${1:-20000}
LARGE=${2:-100000}
[[ $N =~ ^[0-9]+$ && $N -gt 0 && $LARGE =~ ^[0-9]+$ ]] ||
  { echo "usage: bench/run.sh [N [LARGE]]" >&2; exit 2; }
cd "$(dirname "$0")/.."
root=$PWD
build=${BENCH_BUILD:-$root/build/release}
work=${BENCH_WORK:-$root/bench/work}
runs=${BENCH_RUNS:-3}

# The window needs a display: the whole run goes under one Xvfb server.
if [[ -z ${BENCH_UNDER_XVFB:-} ]]; then
  export BENCH_UNDER_XVFB=1
  exec xvfb-run -a -s "-screen 0 1600x1000x24" "$0" "$@"
fi
export QT_QPA_PLATFORM=xcb QTWEBENGINE_CHROMIUM_FLAGS=--disable-gpu
[[ $(id -u) == 0 ]] && export QTWEBENGINE_DISABLE_SANDBOX=1

if [[ ! -f $build/CMakeCache.txt ]]; then
  cmake -S "$root" -B "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
fi
cmake --build "$build" -j2 --target pellomar-cli pellomar-benchgen pellomar-windowscan >/dev/null
cli=$build/cli/pellomar-cli
gen=$build/bench/pellomar-benchgen
window=$build/bench/pellomar-windowscan

# The generator's source decides the stores' bytes: regenerate when it changed.
stamp=$(sha1sum "$root/bench/BenchGen.cpp" | cut -c1-12)
make_store() { # KIND DIR COUNT
  local kind=$1 dir=$2 count=$3
  if [[ ! -f $dir/.done || $(cat "$dir/.done") != "$stamp" ]]; then
    echo "Generating $count messages in $dir ..."
    rm -rf "$dir"
    mkdir -p "$dir"
    "$gen" "$kind" "$dir" "$count"
    echo "$stamp" > "$dir/.done"
  fi
}
stores=("$work/store-$N")
make_store generate "$work/store-$N" "$N"
if ((LARGE > 0)); then
  for n in "$N" "$LARGE"; do
    make_store generate-modern "$work/modern-$n" "$n"
    stores+=("$work/modern-$n")
  done
fi

mkdir -p "$work/tmp"
export TMPDIR=$work/tmp
# What the copy and the exports write goes to BENCH_OUT (default
# bench/work/out); on tmpfs (/dev/shm) the disk's write-back, which can
# take seconds more in one run than in the next, is left out of both.
out=${BENCH_OUT:-$work/out}/pellomar-bench-out
rm -rf "$out"
mkdir -p "$out"

declare -A messages
for store in "${stores[@]}"; do
  tag=$(basename "$store")
  messages[$tag]=$(find "$store" -name '*.emlx' | wc -l)
  # Every file the program reads: messages, .emlxpart files and the decoded
  # files under Attachments folders.
  bytes=$(find "$store" -type f ! -name .done -printf '%s\n' | awk '{s += $1} END {print s + 0}')
  echo "$tag: ${messages[$tag]} message files, $(awk -v b="$bytes" 'BEGIN {printf "%.1f", b / 1e6}') MB" \
    "(with .emlxpart and Attachments files)"
done
echo "$runs runs. Warming the file cache ..."
for store in "${stores[@]}"; do "$gen" copy "$store"; done

# measure NAME CMD...: runs CMD (its output thrown away) under
# /usr/bin/time and appends "TAG NAME seconds cpu_seconds peak_kb" to $results.
results=$work/results
: > "$results"
timed() {
  local name=$1
  shift
  if ! /usr/bin/time -o "$work/time" -f "%e %U %S %M" "$@" 2> "$work/stderr"; then
    echo "$name failed:" >&2
    cat "$work/stderr" "$work/time" >&2
    exit 1
  fi
  read -r e u s kb < "$work/time"
}
measure() {
  local name=$1
  shift
  timed "$name" "$@" > /dev/null
  echo "$tag $name $e $(awk -v u="$u" -v s="$s" 'BEGIN {print u + s}') $kb" >> "$results"
}
e2e=$work/e2e
: > "$e2e"
for ((run = 1; run <= runs; run++)); do
  for store in "${stores[@]}"; do
    tag=$(basename "$store")
    echo "Run $run of $runs: $tag ..."
    measure read "$gen" copy "$store"
    measure scan "$cli" scan "$store" --json
    # The window prints its own times: from the click on Start to the box,
    # and the CPU time it took meanwhile.
    timed window "$window" "$store" > "$work/stdout"
    read -r box_s _ _ box_cpu _ < "$work/stdout"
    echo "$tag window $box_s $box_cpu $kb" >> "$results"
    # Each writer starts with nothing of the one before still being written
    # back to disk, which would otherwise land on whichever comes next.
    sync
    measure copy "$gen" copy "$store" "$out/copy"
    rm -f "$out/copy" && sync
    measure export "$cli" export "$store" "$out" --no-verify
    measure verify "$cli" verify "$(compgen -G "$out/*.rge")" "$store"
    rm -rf "$out" && mkdir -p "$out" && sync
    measure keepbytes "$cli" export "$store" "$out" --keep-bytes --no-verify
    rm -rf "$out" && mkdir -p "$out" && sync
    if [[ $store == "${stores[-1]}" && $LARGE -gt 0 ]]; then
      # End to end: the window saves every folder and verifies the package.
      timed e2e-window "$window" "$store" "$out" > "$work/stdout"
      read -r _ _ _ _ package_s verification < "$work/stdout"
      echo "window $package_s $kb $verification" >> "$e2e"
      rm -rf "$out" && mkdir -p "$out" && sync
      timed e2e-cli "$cli" export "$store" "$out" > /dev/null
      echo "cli $e $kb" >> "$e2e"
      rm -rf "$out" && mkdir -p "$out" && sync
    fi
  done
done

# Per run: time, CPU time (user and system, all threads; the window's from
# the click to the box, without its start), peak memory. A busy machine
# stretches the times; the CPU times vary less.
for store in "${stores[@]}"; do
  tag=$(basename "$store")
  echo
  echo "$tag (${messages[$tag]} messages)"
  awk -v tag="$tag" -v msgs="${messages[$tag]}" '
    $1 == tag { i = ++count[$2]; t[$2, i] = $3; c[$2, i] = $4; if ($5 > kb[$2]) kb[$2] = $5 }
    function range(a, name, lo, hi, i) {
      for (i = 1; i <= count[name]; i++) {
        if (i == 1 || a[name, i] < lo) lo = a[name, i]
        if (i == 1 || a[name, i] > hi) hi = a[name, i]
      }
      return sprintf("%6.2f-%-6.2f", lo, hi)
    }
    function ratio(a, name, base, lo, hi, i, r) {
      if (base == "") return ""
      for (i = 1; i <= count[name]; i++) {
        r = a[name, i] / a[base, i]
        if (i == 1 || r < lo) lo = r
        if (i == 1 || r > hi) hi = r
      }
      return sprintf("%5.2f-%-5.2f", lo, hi)
    }
    function fastest(a, name, lo, i) {
      for (i = 1; i <= count[name]; i++)
        if (i == 1 || a[name, i] < lo) lo = a[name, i]
      return lo
    }
    function best(name, base) {
      if (base == "") return ""
      return sprintf("%5.2f", fastest(t, name) / fastest(t, base))
    }
    function row(label, name, base) {
      printf "%-20s %-13s %-11s %-6s   %-13s %-11s %7.1f %8.1f MB\n", label, range(t, name),
        ratio(t, name, base), best(name, base), range(c, name), ratio(c, name, base),
        fastest(t, name) / msgs * 1e6, kb[name] / 1024
    }
    END {
      printf "%-20s %-13s %-11s %-6s   %-13s %-11s %7s %11s\n", "", "seconds", "ratio", "best",
        "CPU seconds", "ratio", "us/msg", "peak RSS"
      row("plain read", "read", "")
      row("CLI scan --json", "scan", "read")
      row("window scan", "window", "scan")
      row("plain copy", "copy", "")
      row("export", "export", "copy")
      row("export --keep-bytes", "keepbytes", "copy")
      row("verify", "verify", "read")
    }' "$results"
done
echo "Ratios, per run: CLI scan / plain read, window scan / CLI scan, export / plain copy,"
echo "verify / plain read (verify reads the store and the package);"
echo "best: the fastest of each over the fastest of the other (what is left without the noise);"
echo "us/msg: the fastest run's time per message."
if ((LARGE > 0)); then
  small=modern-$N large=modern-$LARGE
  echo
  echo "Time per message, $large over $small (fastest runs; 1.00 = linear):"
  awk -v s="$small" -v l="$large" '
    { key = $1 SUBSEP $2; if (!(key in t) || $3 < t[key]) t[key] = $3 }
    END {
      ns = s; sub(/.*-/, "", ns); nl = l; sub(/.*-/, "", nl)
      split("read scan export keepbytes verify", names, " ")
      for (i = 1; i <= 5; i++) {
        n = names[i]
        printf "  %-10s %5.2f\n", n, (t[l, n] / nl) / (t[s, n] / ns)
      }
    }' "$results"
  echo
  echo "End to end, $large: from Start to a verified package"
  awk '
    $1 == "window" { w = (w == "" || $2 < w) ? $2 : w; if ($2 > wh) wh = $2; if ($3 > wkb) wkb = $3
                     $1 = $2 = $3 = ""; line = $0 }
    $1 == "cli" { c = (c == "" || $2 < c) ? $2 : c; if ($2 > ch) ch = $2; if ($3 > ckb) ckb = $3 }
    END {
      printf "  window (click on Start to the package window): %.1f-%.1f s, peak RSS %.1f MB\n", w, wh, wkb / 1024
      printf "  pellomar-cli export with its verification:    %.1f-%.1f s, peak RSS %.1f MB\n", c, ch, ckb / 1024
      sub(/^ +/, "", line)
      printf "  the window said: %s\n", line
    }' "$e2e"
fi

# ---- One very large message --------------------------------------------------
# About 80 MB: a 40 MB line without a line break, then 40 MB of base64 lines;
# the export's memory must not grow with the size of a message.
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
read -r big_s big_kb big_rc < <("$gen" measure /dev/null "$cli" export "$big" "$out" --no-verify)
[[ $big_rc == 0 ]] || { echo "export of the large message failed with exit code $big_rc" >&2; exit 1; }
rm -rf "$out"
mkdir -p "$out"
# The peak above covers the scan too. Sample the resident size while the
# package is being written (from the moment its Mail folder exists).
"$cli" export "$big" "$out" --no-verify >/dev/null 2>&1 &
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
awk -v bb="$big_bytes" -v bs="$big_s" -v bkb="$big_kb" -v wkb="$writing_kb" 'BEGIN {
  printf "One %.0f MB message: export %.2f s, %.1f MB/s, peak RSS %.1f MB,", bb / 1e6, bs, bb / 1e6 / bs, bkb / 1024
  printf " RSS while writing the package %.1f MB\n", wkb / 1024
}'

# One partial message in today's layout whose 1 GB part Mail keeps decoded
# under Attachments: the export encodes it back in base64, the verification
# decodes it again.
detached=$work/store-detached-1g
data="$detached/V10/Mailboxes/Big.mbox/0D58BCB4-AE72-47E2-8515-739A8B058FAE/Data/1"
if [[ ! -f $detached/.done ]]; then
  rm -rf "$detached"
  mkdir -p "$data/Messages" "$data/Attachments/1042/2"
  head -c 1000000000 /dev/urandom > "$data/Attachments/1042/2/big.bin"
  msg=$'Subject: big\nContent-Type: multipart/mixed; boundary=b\n\n--b\nContent-Type: text/plain\n\nhi\n'
  msg+=$'--b\nContent-Type: application/octet-stream; name=big.bin\nContent-Transfer-Encoding: base64\n'
  msg+=$'X-Apple-Content-Length: 1350000000\n\n--b--\n'
  { printf '%s\n%s' "${#msg}" "$msg"
    printf '<?xml version="1.0" encoding="UTF-8"?>\n<plist version="1.0">\n</plist>\n'; } \
    > "$data/Messages/1042.partial.emlx"
  touch "$detached/.done"
fi
detached_bytes=$(stat -c %s "$data/Attachments/1042/2/big.bin")
mkdir -p "$out"
read -r det_s det_kb det_rc < <("$gen" measure /dev/null "$cli" export "$detached" "$out" --no-verify)
[[ $det_rc == 0 ]] || { echo "export of the detached part failed with exit code $det_rc" >&2; exit 1; }
read -r ver_s ver_kb ver_rc < <("$gen" measure /dev/null "$cli" verify "$(compgen -G "$out/*.rge")" "$detached")
[[ $ver_rc == 0 ]] || { echo "verification of the detached part failed with exit code $ver_rc" >&2; exit 1; }
rm -rf "$out"
awk -v db="$detached_bytes" -v ds="$det_s" -v dkb="$det_kb" -v vs="$ver_s" -v vkb="$ver_kb" 'BEGIN {
  printf "One %.0f MB part from Attachments: export %.2f s, %.1f MB/s, peak RSS %.1f MB;", db / 1e6, ds, db / 1e6 / ds, dkb / 1024
  printf " verify %.2f s, peak RSS %.1f MB\n", vs, vkb / 1024
}'
