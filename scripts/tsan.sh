#!/usr/bin/env bash
# Builds, with clang and ThreadSanitizer, only the tests that share memory between threads
# or processes (every test source that starts a thread or forks, and the ring trace tests),
# and runs them. Usage: scripts/tsan.sh [build dir, default build-tsan]
set -euo pipefail
cd "$(dirname "$0")/.."
dir=${1:-build-tsan}

# Test binaries named in tests/*/CMakeLists.txt by velt_test(<name> <sources...>) whose
# sources use threads or fork.
threaded=$(grep -rlE 'std::(j)?thread|std::async|pthread_create|\bfork\(' tests --include='*.cpp' |
              xargs -n1 basename | sort -u)
targets=(RinglogTest RinglogThreadsTest)
# Tests whose sharing is between velt processes only: ThreadSanitizer sees one process, and
# slows those processes below the soak's bounds.
declare -A separateProcesses=([ShmVeltTest]=1)
declare -A where=([RinglogTest]=tests/platform [RinglogThreadsTest]=tests/platform)
for list in tests/*/CMakeLists.txt; do
   while read -r name sources; do
      for s in $sources; do
         if grep -qx "$(basename "$s")" <<<"$threaded" && [ -z "${where[$name]:-}" ] &&
            [ -z "${separateProcesses[$name]:-}" ]; then
            targets+=("$name")
            where[$name]=$(dirname "$list")
         fi
      done
   done < <(sed -nE 's/^velt_test\(([A-Za-z0-9_]+) ([^)]*)\).*/\1 \2/p' "$list")
done
echo "== ThreadSanitizer tests: ${targets[*]}"

CXX=${TSAN_CXX:-clang++} cmake -S . -B "$dir" -G Ninja -DVELT_TSAN=ON \
   -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build "$dir" -j "$(nproc)" --target "${targets[@]}"

mkdir -p "$dir/tmp"
export VELT_TEST_TMP=$PWD/$dir/tmp
# A data race ends the run with status 66, told apart from an ordinary test failure.
export TSAN_OPTIONS="halt_on_error=1 exitcode=66 second_deadlock_stack=1
   suppressions=$PWD/scripts/tsan.supp ${TSAN_OPTIONS:-}"
# Death tests fork a threaded process, which the sanitizer does not support; the other
# builds run them. These tests hold rate floors made for uninstrumented builds: here only
# a race or a crash fails them.
slow='TableListMap.ReaderRacingWriterSeesWholeRecords:TablePrefixMap.ReaderRacingWriterSeesOnlyAnswersTheTableHeldWithWideRoot'
failed=()
for t in "${targets[@]}"; do
   echo "== $t"
   bin="$dir/${where[$t]}/$t"
   "$bin" --gtest_brief=1 --gtest_filter="-*DeathTest*:$slow" || failed+=("$t")
   if "$bin" --gtest_list_tests --gtest_filter="$slow" | grep -q '^ '; then
      status=0
      "$bin" --gtest_brief=1 --gtest_filter="$slow" || status=$?
      if [ "$status" -gt 1 ]; then failed+=("$t"); fi
   fi
done
if [ ${#failed[@]} -gt 0 ]; then
   echo "== ThreadSanitizer failures in: ${failed[*]}"
   exit 1
fi
echo "== ThreadSanitizer tests passed"
