#!/usr/bin/env bash
# Soak of the shared-memory tables: `velt write` cycling three states at 100 versions a
# second, killed with SIGKILL at random and restarted, under short-lived and long-lived
# readers, for SECONDS (default 180). The suite runs the same test for a few seconds.
# Prints the figures: writer kills, reader processes, decisions checked, torn, crashes,
# the long-lived reader's memory.
set -euo pipefail
cd "$(dirname "$0")/.."
seconds=${1:-180}
build=${BUILD_DIR:-build}
cmake -S . -B "$build" -G Ninja >/dev/null
cmake --build "$build" --target ShmVeltTest
mkdir -p "$build/tmp"
VELT_SOAK_SECONDS=$seconds VELT_TEST_TMP=$PWD/$build/tmp \
   "$build/tests/shm/ShmVeltTest" --gtest_filter='ShmSoak.*'
