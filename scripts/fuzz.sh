#!/usr/bin/env bash
# Builds the fuzz targets of fuzz/ in the clang ASan + UBSan build that the sanitizer suite
# of scripts/test.sh uses, and runs each for the given seconds (default 60), as many at once
# as there are cores. A crash, sanitizer report, timeout or out-of-memory fails the script;
# the input that caused it is left in <build>/fuzz-findings/<target>/ and the log beside it.
# Usage: scripts/fuzz.sh [seconds]   (VELT_FUZZ_BUILD picks the build folder,
# VELT_FUZZ_SEED the seed: 1 unless set, 0 for a fresh one)
set -euo pipefail
cd "$(dirname "$0")/.."
seconds=${1:-60}
dir=${VELT_FUZZ_BUILD:-build-sanitize}
jobs=$(nproc)

CC=clang CXX=clang++ cmake -S . -B "$dir" -G Ninja -DVELT_SANITIZE=ON -DVELT_FUZZ=ON \
   -DCMAKE_BUILD_TYPE=Debug >/dev/null
read -r -a targets <<<"$(sed -n 's/^set(VELT_FUZZ_TARGETS \(.*\))$/\1/p' fuzz/CMakeLists.txt)"
cmake --build "$dir" -j "$jobs" --target "${targets[@]/#/fuzz-}"

# One target: new inputs go to a work folder, so the seeds kept in the tree stay small.
fuzz_one() { # <target>
   local t=$1 work="$dir/fuzz-work/$1" findings="$dir/fuzz-findings/$1"
   mkdir -p "$work" "$findings"
   # A fixed seed by default, so that a finding in CI replays the same way; VELT_FUZZ_SEED=0
   # explores afresh.
   local args=(-max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048
               -seed="${VELT_FUZZ_SEED:-1}"
               -artifact_prefix="$findings/" -print_final_stats=1)
   [ -e "fuzz/$t.dict" ] && args+=(-dict="fuzz/$t.dict")
   local corpora=("$work" "fuzz/$t/corpus")
   [ -d "fuzz/$t/regressions" ] && corpora+=("fuzz/$t/regressions")
   if "$dir/fuzz/fuzz-$t" "${args[@]}" "${corpora[@]}" >"$findings.log" 2>&1; then
      echo "== fuzz $t: clean, $(sed -n 's/^stat::number_of_executed_units: *//p' "$findings.log") runs in ${seconds}s"
   else
      echo "== fuzz $t: FINDING (log: $findings.log)"
      grep -E "^(==[0-9]+==ERROR|SUMMARY|velt fuzz finding|artifact_prefix|Test unit written)" \
         "$findings.log" | head -n 20
      return 1
   fi
}

failed=0
running=0
for t in "${targets[@]}"; do
   if [ "$running" -ge "$jobs" ]; then
      wait -n || failed=1
      running=$((running - 1))
   fi
   fuzz_one "$t" &
   running=$((running + 1))
done
while [ "$running" -gt 0 ]; do
   wait -n || failed=1
   running=$((running - 1))
done
[ "$failed" -eq 0 ] || { echo "== fuzzing found faults"; exit 1; }
echo "== fuzzing: every target ran ${seconds}s clean"
