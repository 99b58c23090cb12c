#!/usr/bin/env bash
# Installs what is needed, then builds and runs the whole suite twice: a normal build and
# a clang build under AddressSanitizer + UndefinedBehaviorSanitizer, whose fuzz targets
# then run for a minute each.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/deps.sh
jobs=$(nproc)

run_suite() { # <build dir> <extra cmake args...>
   local dir=$1; shift
   echo "== configuring $dir"
   cmake -S . -B "$dir" -G Ninja "$@" >/dev/null
   echo "== building $dir"
   cmake --build "$dir" -j "$jobs"
   echo "== testing $dir"
   (cd "$dir" && ctest -j "$jobs" --output-on-failure --timeout 300)
}

run_suite build
# One clang sanitized build serves the unit tests and the fuzz targets.
export ASAN_OPTIONS=detect_leaks=1:abort_on_error=0 UBSAN_OPTIONS=print_stacktrace=1
CC=clang CXX=clang++ run_suite build-sanitize -DVELT_SANITIZE=ON -DVELT_FUZZ=ON \
   -DCMAKE_BUILD_TYPE=Debug
VELT_FUZZ_BUILD=build-sanitize bash scripts/fuzz.sh 60
echo "== all suites passed"
