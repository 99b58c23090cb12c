#!/usr/bin/env bash
# Installs what is needed, then builds and runs the whole suite twice: a normal build and
# a build under AddressSanitizer + UndefinedBehaviorSanitizer; then the tests that share
# memory between threads or processes under ThreadSanitizer.
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
ASAN_OPTIONS=detect_leaks=1:abort_on_error=0 UBSAN_OPTIONS=print_stacktrace=1 \
   run_suite build-sanitize -DVELT_SANITIZE=ON -DCMAKE_BUILD_TYPE=Debug
bash scripts/tsan.sh build-tsan
echo "== all suites passed"
