#!/usr/bin/env bash
# Builds the fuzz targets with clang (libFuzzer, AddressSanitizer and
# UndefinedBehaviorSanitizer) and runs each for SECONDS (default 60), seeded
# with the sample stores, the kept inputs and EXTRA_SEED_DIR when given.
# Every input that makes a target crash, hang, leak or report a mismatch is
# kept in fuzz/regressions/<target>/, where the test suite replays it; the
# script then exits non-zero.
#
#   scripts/fuzz.sh [SECONDS] [EXTRA_SEED_DIR]
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh

seconds=${1:-60}
extra=${2:-}
targets=(analysis decoders writer digest)

CC=clang CXX=clang++ cmake -S . -B build/fuzz -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DPELLOMAR_FUZZ=ON -DPELLOMAR_SANITIZE=ON -DPELLOMAR_BUILD_GUI=OFF >/dev/null
built=()
for t in "${targets[@]}"; do
  [[ -f fuzz/fuzz_$t.cpp ]] && built+=("$t")
done
cmake --build build/fuzz -j"$(nproc)" --target "${built[@]/#/fuzz_}"

export ASAN_OPTIONS=detect_leaks=1
export LSAN_OPTIONS=suppressions=$PWD/tests/lsan.supp:print_suppressions=0
export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
status=0
printf '%-10s %12s %10s  %s\n' target executions seconds result
for t in "${built[@]}"; do
  corpus=build/fuzz/corpus/$t
  mkdir -p "$corpus" "fuzz/regressions/$t"
  seeds=("fuzz/regressions/$t" samples)
  [[ -d fuzz/seeds/$t ]] && seeds+=("fuzz/seeds/$t")
  [[ -n $extra ]] && seeds+=("$extra")
  log=build/fuzz/$t.log
  result=ok
  if ! "build/fuzz/fuzz/fuzz_$t" "$corpus" "${seeds[@]}" -max_total_time="$seconds" \
      -timeout=10 -rss_limit_mb=4096 -print_final_stats=1 \
      -artifact_prefix="fuzz/regressions/$t/" >"$log" 2>&1; then
    result="FAILED (input kept in fuzz/regressions/$t/, log in $log)"
    status=1
  fi
  runs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log" | tail -1)
  printf '%-10s %12s %10s  %s\n' "$t" "${runs:-?}" "$seconds" "$result"
done
exit $status
