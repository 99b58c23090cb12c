// What the kernel told us about one network namespace, as plain values: links, addresses,
// routes of every table, nexthop objects, neighbours and policy rules. Filled by
// readKernelState (netlink) or by hand in tests, and turned into a switch state by
// importState.
#pragma once
#include "Lumo/EthAddr.h"
#include "Lumo/IpGenAddr.h"
#include "Lumo/IpGenPrefix.h"

#include <cstdint>
#include <string>
#include <vector>

namespace VeltLinux {

inline constexpr std::uint32_t mainTable = 254;  // RT_TABLE_MAIN
inline constexpr std::uint32_t localTable = 255; // RT_TABLE_LOCAL

struct KernelLink {
   int index = 0;
   std::string name;
   bool up = false;       // administratively up and operationally up (or unknown, as lo)
   bool loopback = false; // IFF_LOOPBACK
   std::string kind;      // IFLA_INFO_KIND: "veth", "vrf", ...; empty when not given
   std::uint32_t vrfTable = 0; // for kind "vrf": the table it stands for
   int master = 0;             // ifindex of the device this one is enslaved to
};

struct KernelAddress {
   int index = 0;
   Lumo::IpGenAddr ip;
   std::uint8_t prefixLength = 0;
};

enum class RouteType : std::uint8_t {
   unicast, local, broadcast, blackhole, unreachable, prohibit, other
};
const char* routeTypeName(RouteType type);

// One path of a route: an output interface and an optional gateway.
struct KernelPath {
   int oif = 0;
   Lumo::IpGenAddr gateway; // unset: the destination is on the link
   std::uint32_t weight = 1;
   friend bool operator==(const KernelPath&, const KernelPath&) = default;
};

struct KernelRoute {
   std::uint32_t table = mainTable;
   Lumo::IpGenPrefix prefix;
   RouteType type = RouteType::unicast;
   std::uint32_t priority = 0; // metric: lower wins between routes to one prefix
   std::uint32_t nexthopId = 0; // RTA_NH_ID: the paths are those of a nexthop object
   std::vector<KernelPath> paths;
};

// A nexthop object (`ip nexthop`): one path, a blackhole, or a group of other objects.
struct KernelNexthop {
   std::uint32_t id = 0;
   KernelPath path;
   bool blackhole = false;
   struct Member {
      std::uint32_t id = 0;
      std::uint32_t weight = 1;
   };
   std::vector<Member> group; // non-empty for a group
};

struct KernelNeighbour {
   int index = 0;
   Lumo::IpGenAddr ip;
   std::uint16_t state = 0; // NUD_* bits
   bool hasMac = false;
   Lumo::EthAddr mac;
};

// A policy rule's selectors, as far as a VRF made of a table and rules needs them.
struct KernelRule {
   std::uint32_t priority = 0;
   std::uint32_t table = 0;
   std::string iif;
   std::string oif;
   std::uint32_t fwmark = 0;
};

struct KernelState {
   std::vector<KernelLink> links;
   std::vector<KernelAddress> addresses;
   std::vector<KernelRoute> routes;
   std::vector<KernelNexthop> nexthops;
   std::vector<KernelNeighbour> neighbours;
   std::vector<KernelRule> rules;

   const KernelLink* link(int index) const;
   const KernelLink* link(const std::string& name) const;
   const KernelNexthop* nexthop(std::uint32_t id) const;
};

} // namespace VeltLinux
