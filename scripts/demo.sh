#!/usr/bin/env bash
# Builds the command-line tool and runs the main job on the bundled sample store.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh
cmake -S . -B build/release -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build build/release -j"$(nproc)" --target pellomar-cli
build/release/cli/pellomar-cli scan samples/store
