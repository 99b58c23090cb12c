// The kernel's answers to forwarding questions inside a test namespace, and what velt
// must decide given each answer.
#pragma once
#include <nlohmann/json.hpp>

#include <map>
#include <string>
#include <vector>

namespace KernelDiff {

// What `ip route get` says about one destination.
struct KernelAnswer {
   enum class Kind { forward, local, broadcast, blackhole, unreachable, prohibit, noRoute, other };
   Kind kind = Kind::other;
   std::string dev;
   std::string gateway; // empty: the destination is on the link
   std::string text;    // the raw answer, for failure messages
};

// `ip -n NS -j route get DST [mark M]`; the error answers stand for the route types that
// have no path (blackhole: Invalid argument, unreachable: No route to host, prohibit:
// Permission denied, no route: Network is unreachable).
KernelAnswer kernelRouteGet(const std::string& ns, const std::string& dst, unsigned mark = 0);

// Neighbours the kernel would send to, "dev ip" -> MAC: those with a link-layer address.
std::map<std::string, std::string> kernelNeighbours(const std::string& ns);

// The velt decision that matches the kernel's answer: decision, output interface (by
// Linux name), destination MAC, whether the kernel handles a trapped packet, and the
// type of the FEC of the route the destination matched.
struct ExpectedDecision {
   std::string decision;
   std::string outputLinuxName;
   std::string dstMac;
   bool kernelHandlesPacket = false;
   std::string lookupFecType; // empty: no route matched
};
ExpectedDecision expectedFor(const KernelAnswer& answer, const std::string& dst,
                             const std::map<std::string, std::string>& neighbours);

// `velt --linux [--vrf-table ...] resolve --json --vrf VRF DST...` run inside `ns`.
nlohmann::json veltDecisions(const std::string& ns, const std::vector<std::string>& vrfTables,
                             const std::string& vrf, const std::vector<std::string>& dsts);

// The kernel's choice of output interface for each flow "DST ipproto udp sport S dport D",
// asked in one `ip -batch` run: interface name -> flows.
std::map<std::string, unsigned> kernelFlowSplit(const std::string& ns,
                                                const std::vector<std::string>& flowArgs);

} // namespace KernelDiff
