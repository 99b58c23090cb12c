#!/usr/bin/env bash
# The main job on the embedded default state: installs what is needed, builds, and runs
# the demonstration.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/deps.sh
cmake -S . -B build -G Ninja >/dev/null
cmake --build build -j "$(nproc)" --target records_demo
./build/examples/records_demo
