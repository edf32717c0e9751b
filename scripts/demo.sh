#!/usr/bin/env bash
# Builds the command-line tool and converts both bundled sample stores into
# Outlook 2011 archive packages: samples/store (the older layout, with
# .emlxpart files) into out/store, samples/modern (today's layout, with
# Mail's Attachments folders) into out/modern.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh
cmake -S . -B build/release -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build build/release -j"$(nproc)" --target pellomar-cli
for store in store modern; do
  mkdir -p "out/$store"
  echo "Converting samples/$store ..."
  build/release/cli/pellomar-cli export "samples/$store" "out/$store"
done
