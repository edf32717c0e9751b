#!/usr/bin/env bash
# Builds the command-line tool and converts the bundled sample store into an
# Outlook 2011 archive package under out/ in the checkout.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh
cmake -S . -B build/release -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build build/release -j"$(nproc)" --target pellomar-cli
mkdir -p out
echo "Converting samples/store ..."
build/release/cli/pellomar-cli export samples/store out
