#!/usr/bin/env bash
# The main job on the embedded default state (examples/leaf.yaml, compiled into velt):
# installs what is needed, builds velt and its plugins, resolves a few destinations in
# both VRFs, replays the example capture, and reads the same tables from shared memory.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/deps.sh
cmake -S . -B build -G Ninja >/dev/null
cmake --build build -j "$(nproc)" --target velt builtins routeLookup
velt=./build/tools/velt/velt
echo "== velt resolve (VRF default)"
"$velt" resolve 203.0.113.99 2001:db8:99::1 10.0.255.11 10.0.1.1
echo "== velt resolve (VRF tenant)"
"$velt" resolve --vrf tenant 192.0.2.10 192.0.2.20 198.51.100.200 203.0.113.70 10.200.0.1 \
   2001:db8:77::1
echo "== velt replay examples/leaf.pcap"
"$velt" replay --quiet examples/leaf.pcap
echo "== velt write, then velt resolve --shm (tables in shared memory, mapped read-only)"
shm_dir=$(mktemp -d /dev/shm/velt-demo-XXXXXX)
trap 'rm -rf "$shm_dir"' EXIT
"$velt" write --shm-dir "$shm_dir" examples/leaf.yaml
"$velt" resolve --shm --shm-dir "$shm_dir" --vrf tenant 192.0.2.10 10.200.0.1
