#!/usr/bin/env bash
# Writes a large state file to stdout: ROUTES IPv4 and ROUTES IPv6 routes in VRF default
# over FECS FECs, each with two weighted vias to known neighbours, and NEIGHBOURS
# neighbours spread over 100 interfaces.
#   make-big-state.sh [ROUTES] [FECS] [NEIGHBOURS] > big.yaml
set -euo pipefail
routes=${1:-1000000}
fecs=${2:-100000}
neighbours=${3:-100000}
exec awk -v routes="$routes" -v fecs="$fecs" -v neighbours="$neighbours" 'BEGIN {
   intfs = 100
   print "unifiedFec: false"
   print "vrfs: []"
   print "interfaces:"
   for (i = 1; i <= intfs; i++) printf "  - {name: Ethernet%d}\n", i
   # Neighbour n is 10.<i>.<hi>.<lo> on Ethernet<i>.
   print "neighbours:"
   for (n = 0; n < neighbours; n++) {
      i = n % intfs + 1; k = int(n / intfs)
      printf "  - {interface: Ethernet%d, ip: 10.%d.%d.%d, mac: \"02:00:%02x:%02x:%02x:%02x\"}\n",
             i, i, int(k / 256), k % 256, i, int(k / 65536), int(k / 256) % 256, k % 256
   }
   print "tables:"
   print "  default:"
   print "    fecs:"
   for (f = 1; f <= fecs; f++) {
      a = f % neighbours; b = (f * 7 + 3) % neighbours
      printf "      - id: fibGenAdj:%d\n        vias:\n", f
      printf "          - {interface: Ethernet%d, hop: 10.%d.%d.%d, weight: 2}\n",
             a % intfs + 1, a % intfs + 1, int(int(a / intfs) / 256), int(a / intfs) % 256
      printf "          - {interface: Ethernet%d, hop: 10.%d.%d.%d, weight: 1}\n",
             b % intfs + 1, b % intfs + 1, int(int(b / intfs) / 256), int(b / intfs) % 256
   }
   print "    routes:"
   # Routes r: 11.0.0.0/24 upward and 2001:db8:<hi>:<lo>::/64 upward.
   for (r = 0; r < routes; r++)
      printf "      - {prefix: %d.%d.%d.0/24, fec: fibGenAdj:%d}\n",
             11 + int(r / 65536), int(r / 256) % 256, r % 256, r % fecs + 1
   for (r = 0; r < routes; r++)
      printf "      - {prefix: \"2001:db8:%x:%x::/64\", fec: fibGenAdj:%d}\n",
             int(r / 65536), r % 65536, r % fecs + 1
}'
