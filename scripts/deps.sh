#!/usr/bin/env bash
# Installs the Debian packages the project builds and tests with (run as root).
set -euo pipefail
packages=(g++ clang libclang-rt-14-dev ccache cmake ninja-build pkg-config libfmt-dev
          libgtest-dev libgmock-dev libbenchmark-dev libyaml-dev libcli11-dev
          nlohmann-json3-dev libpcap-dev libmnl-dev iproute2)
missing=()
for p in "${packages[@]}"; do
   dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
if [ ${#missing[@]} -gt 0 ]; then
   echo "== installing: ${missing[*]}"
   export DEBIAN_FRONTEND=noninteractive
   apt-get update -qq
   apt-get install -y -qq "${missing[@]}"
fi
