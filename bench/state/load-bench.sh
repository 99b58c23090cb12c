#!/usr/bin/env bash
# Times loading a large state: `velt --state FILE show` reads the file and builds every
# table from it. Prints the median and range of wall time and peak resident memory over
# RUNS runs and fails when the median is above the targets (10 s, 1 GB).
#   load-bench.sh VELT_BINARY [RUNS] [ROUTES_PER_FAMILY] [FECS] [NEIGHBOURS]
set -euo pipefail
velt=${1:?usage: load-bench.sh VELT_BINARY [RUNS] [ROUTES] [FECS] [NEIGHBOURS]}
runs=${2:-3}
here=$(cd "$(dirname "$0")" && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
"$here/make-big-state.sh" "${3:-1000000}" "${4:-100000}" "${5:-100000}" > "$work/big.yaml"
echo "state: $(du -m "$work/big.yaml" | cut -f1) MB"
for ((i = 0; i < runs; i++)); do
   /usr/bin/time -f "%e %M %U %S" -o "$work/time.$i" "$velt" --state "$work/big.yaml" show \
      > "$work/show.$i" 2>/dev/null
   read -r secs kb user sys < "$work/time.$i"
   # CPU time tells what the wall time would be on an idle machine.
   echo "run $((i + 1)): ${secs} s (cpu ${user} s user, ${sys} s system)," \
        "$((kb / 1024)) MB resident"
done
secs=($(cut -d' ' -f1 "$work"/time.* | sort -n))
kbs=($(cut -d' ' -f2 "$work"/time.* | sort -n))
mid=$(((runs - 1) / 2))
echo "median ${secs[$mid]} s (${secs[0]}..${secs[-1]}), $((kbs[mid] / 1024)) MB resident" \
     "($((kbs[0] / 1024))..$((kbs[-1] / 1024)))"
awk -v s="${secs[$mid]}" -v kb="${kbs[$mid]}" \
   'BEGIN { if (s > 10 || kb > 1024 * 1024) { print "over the target: 10 s, 1024 MB"; exit 1 } }'
