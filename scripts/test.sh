#!/usr/bin/env bash
# Builds Pellomar twice (normal, and with AddressSanitizer + UndefinedBehavior-
# Sanitizer) and runs the whole test suite on both builds under Xvfb, then
# makes the Debian package from the normal build and tests it installed
# (as root only).
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh

jobs=$(nproc)
export QTWEBENGINE_DISABLE_SANDBOX=1
export QTWEBENGINE_CHROMIUM_FLAGS=--disable-gpu
export QT_QPA_PLATFORM=xcb

cmake -S . -B build/release -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build build/release -j"$jobs"
echo "== Tests (normal build) =="
xvfb-run -a -s "-screen 0 1600x1000x24" ctest --test-dir build/release --output-on-failure -j"$jobs"

cmake -S . -B build/asan -DCMAKE_BUILD_TYPE=Debug -DPELLOMAR_SANITIZE=ON >/dev/null
cmake --build build/asan -j"$jobs"
echo "== Tests (AddressSanitizer + UndefinedBehaviorSanitizer + LeakSanitizer build) =="
export ASAN_OPTIONS=detect_leaks=1:abort_on_error=1
export LSAN_OPTIONS=suppressions=$PWD/tests/lsan.supp:print_suppressions=0
export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
xvfb-run -a -s "-screen 0 1600x1000x24" ctest --test-dir build/asan --output-on-failure -j"$jobs"

echo "== Debian package (made from the normal build, installed, run, removed) =="
scripts/test-package.sh
