#!/usr/bin/env bash
# Installs what is needed, then builds and runs the whole suite twice: a normal g++ build
# and one clang build under AddressSanitizer + UndefinedBehaviorSanitizer that also serves
# the fuzz targets, with warnings as errors. Then the tests that share memory between
# threads or processes under ThreadSanitizer, and what ships: the normal build installed,
# and the library built alone.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/deps.sh
jobs=$(nproc)
# Builds of the same sources share their objects (the library-alone build reuses the
# normal build's).
if command -v ccache >/dev/null; then export CMAKE_CXX_COMPILER_LAUNCHER=ccache; fi

run_suite() { # <build dir> <extra cmake args...>
   local dir=$1; shift
   echo "== configuring $dir"
   cmake -S . -B "$dir" -G Ninja -DVELT_WERROR=ON "$@" >/dev/null
   echo "== building $dir"
   cmake --build "$dir" -j "$jobs"
   echo "== testing $dir"
   (cd "$dir" && ctest -j "$jobs" --output-on-failure --timeout 300)
}

run_suite build
export ASAN_OPTIONS=detect_leaks=1:abort_on_error=0 UBSAN_OPTIONS=print_stacktrace=1
CC=clang CXX=clang++ run_suite build-sanitize -DVELT_SANITIZE=ON -DVELT_FUZZ=ON \
   -DCMAKE_BUILD_TYPE=Debug
VELT_FUZZ_BUILD=build-sanitize bash scripts/fuzz.sh 60
unset ASAN_OPTIONS UBSAN_OPTIONS
bash scripts/tsan.sh build-tsan
bash scripts/install-check.sh build
bash scripts/install-check.sh
echo "== all suites passed"
