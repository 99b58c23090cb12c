#!/usr/bin/env bash
# Makes examples/leaf.pcap: a few thousand packets of mixed TCP/UDP flows arriving at the
# example leaf switch in VRF default, most towards the fabric (weighted over the uplinks),
# some to the switch itself and its peer link. Same seed, same bytes.
# usage: make-leaf-pcap.sh <velt-pcapgen> <out.pcap>
set -euo pipefail
pcapgen=$1
out=$2
"$pcapgen" --out "$out" --packets 4000 --flows 800 --seed 11 \
   --dst 203.0.113.0/24=40 --dst 198.18.0.0/15=20 --dst 10.0.255.0/24=10 \
   --dst 2001:db8:99::/48=20 --dst 10.0.255.11=3 --dst 2001:db8:ff::11=2 --dst 10.0.1.1=5
