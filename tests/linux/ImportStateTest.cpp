// The import of a kernel state into a switch state, fed with kernel states made by hand:
// interface names, VRFs from devices and from tables with rules, route types, shared
// FECs, multipath weights, nexthop objects and neighbour states.
#include "kernel/ImportState.h"
#include "Quarn/Fec.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/neighbour.h>

namespace {

using namespace VeltLinux;
using VeltState::State;
using VeltState::TableEntry;
namespace FecType = Quarn::FibGen::FecType;

Lumo::IpGenAddr ip(const char* text) {
   return Lumo::IpGenAddr(text);
}
Lumo::IpGenPrefix prefix(const char* text) {
   return Lumo::IpGenPrefix(text);
}

// Two veth ends and lo, as a test namespace has them.
KernelState twoLinks() {
   KernelState k;
   k.links.push_back({1, "lo", true, true, "", 0, 0});
   k.links.push_back({2, "e1", true, false, "veth", 0, 0});
   k.links.push_back({3, "e2", false, false, "veth", 0, 0});
   return k;
}

KernelRoute route(const char* dst, RouteType type, std::vector<KernelPath> paths = {},
                  std::uint32_t table = mainTable, std::uint32_t metric = 0) {
   KernelRoute r;
   r.table = table;
   r.prefix = prefix(dst);
   r.type = type;
   r.priority = metric;
   r.paths = std::move(paths);
   return r;
}

const VeltState::FecEntry& fecOfRoute(const TableEntry& t, const char* dst) {
   for (const auto& r : t.routes) {
      if (r.prefix == prefix(dst)) return *t.fec(r.fec);
   }
   ADD_FAILURE() << "no route " << dst;
   static VeltState::FecEntry none;
   return none;
}

// What the import writes must be a state file velt reads back to the same state.
void expectRoundTrip(const State& s) {
   const std::string text = VeltState::writeStateFile(s);
   EXPECT_EQ(VeltState::parseState(text, "imported"), s) << text;
}

TEST(ImportStateTest, InterfacesAreNamedByIfindexWithTheLinuxNameBeside) {
   State s = importState(twoLinks());
   ASSERT_EQ(s.interfaces.size(), 3u);
   EXPECT_EQ(s.interfaces[0].intf, Lumo::IntfId("Loopback0"));
   EXPECT_EQ(s.interfaces[0].linuxName, "lo");
   EXPECT_EQ(s.interfaces[1].intf, Lumo::IntfId("Ethernet2"));
   EXPECT_EQ(s.interfaces[1].linuxName, "e1");
   EXPECT_EQ(s.interfaces[1].operStatus, VeltState::OperStatus::up);
   EXPECT_EQ(s.interfaces[2].operStatus, VeltState::OperStatus::down);
   expectRoundTrip(s);

   KernelState big = twoLinks();
   big.links.push_back({70000, "far", true, false, "veth", 0, 0});
   EXPECT_THROW(
       {
          try {
             importState(big);
          } catch (const ImportError& e) {
             EXPECT_THAT(e.what(), testing::HasSubstr("far has ifindex 70000"));
             throw;
          }
       },
       ImportError);
}

TEST(ImportStateTest, RouteTypesBecomeFecTypesAndEqualNextHopsShareAFec) {
   KernelState k = twoLinks();
   k.routes.push_back(route("192.0.2.0/24", RouteType::unicast, {{2, {}, 1}}));
   k.routes.push_back(route("198.51.100.0/24", RouteType::unicast, {{2, ip("192.0.2.2"), 1}}));
   k.routes.push_back(route("203.0.113.0/24", RouteType::unicast, {{2, ip("192.0.2.2"), 1}}));
   k.routes.push_back(route("198.18.0.0/16", RouteType::unicast,
                            {{2, ip("192.0.2.2"), 1}, {3, ip("192.0.2.3"), 3}}));
   k.routes.push_back(route("192.0.2.1/32", RouteType::local, {}, localTable));
   k.routes.push_back(route("192.0.2.255/32", RouteType::broadcast, {}, localTable));
   k.routes.push_back(route("198.18.1.0/24", RouteType::blackhole));
   k.routes.push_back(route("198.18.2.0/24", RouteType::unreachable));
   k.routes.push_back(route("198.18.3.0/24", RouteType::prohibit));
   k.routes.push_back(route("198.18.4.0/24", RouteType::other)); // e.g. multicast: skipped
   k.routes.push_back(route("2001:db8::/64", RouteType::unicast, {{3, ip("2001:db8::2"), 1}}));
   State s = importState(k);
   ASSERT_EQ(s.tables.size(), 1u);
   const TableEntry& t = s.tables[0];
   EXPECT_EQ(t.name, "default");
   EXPECT_EQ(t.routes.size(), 10u);

   const auto& connected = fecOfRoute(t, "192.0.2.0/24");
   EXPECT_EQ(connected.type, FecType::forward);
   ASSERT_EQ(connected.vias.size(), 1u);
   EXPECT_EQ(connected.vias[0].intf, Lumo::IntfId("Ethernet2"));
   EXPECT_EQ(connected.vias[0].hop, Lumo::IpGenAddr());

   EXPECT_EQ(fecOfRoute(t, "198.51.100.0/24").id, fecOfRoute(t, "203.0.113.0/24").id);
   const auto& multipath = fecOfRoute(t, "198.18.0.0/16");
   ASSERT_EQ(multipath.vias.size(), 2u);
   EXPECT_EQ(multipath.vias[1].intf, Lumo::IntfId("Ethernet3"));
   EXPECT_EQ(multipath.vias[1].hop, ip("192.0.2.3"));
   EXPECT_EQ(multipath.vias[1].weight, 3u);

   EXPECT_EQ(fecOfRoute(t, "192.0.2.1/32").type, FecType::receive);
   EXPECT_EQ(fecOfRoute(t, "192.0.2.255/32").type, FecType::receiveBcast);
   EXPECT_EQ(fecOfRoute(t, "198.18.1.0/24").type, FecType::drop);
   EXPECT_EQ(fecOfRoute(t, "198.18.2.0/24").type, FecType::kernel);
   EXPECT_EQ(fecOfRoute(t, "198.18.2.0/24").id, fecOfRoute(t, "198.18.3.0/24").id);
   EXPECT_EQ(fecOfRoute(t, "2001:db8::/64").vias[0].hop, ip("2001:db8::2"));
   expectRoundTrip(s);
}

TEST(ImportStateTest, TheRouteALookupFindsWinsBetweenRoutesToOnePrefix) {
   KernelState k = twoLinks();
   k.routes.push_back(route("198.51.100.0/24", RouteType::unicast, {{2, ip("192.0.2.2"), 1}},
                            mainTable, 200));
   k.routes.push_back(route("198.51.100.0/24", RouteType::unicast, {{3, ip("192.0.2.3"), 1}},
                            mainTable, 100));
   k.routes.push_back(route("192.0.2.1/32", RouteType::unicast, {{3, {}, 1}}));
   k.routes.push_back(route("192.0.2.1/32", RouteType::local, {}, localTable));
   k.routes.push_back(route("203.0.113.0/24", RouteType::unicast, {{2, {}, 1}}, 77)); // no VRF
   State s = importState(k);
   const TableEntry& t = s.tables.at(0);
   EXPECT_EQ(t.routes.size(), 2u);
   EXPECT_EQ(fecOfRoute(t, "198.51.100.0/24").vias.at(0).intf, Lumo::IntfId("Ethernet3"));
   EXPECT_EQ(fecOfRoute(t, "192.0.2.1/32").type, FecType::receive);
}

TEST(ImportStateTest, NexthopObjectsGiveTheirPathsAndGroupWeights) {
   KernelState k = twoLinks();
   k.nexthops.push_back({1, {2, ip("192.0.2.2"), 1}, false, {}});
   k.nexthops.push_back({3, {3, ip("192.0.2.3"), 1}, false, {}});
   k.nexthops.push_back({10, {}, false, {{1, 2}, {3, 1}}});
   k.nexthops.push_back({11, {}, true, {}});
   KernelRoute viaGroup = route("198.51.100.0/24", RouteType::unicast);
   viaGroup.nexthopId = 10;
   KernelRoute viaOne = route("203.0.113.0/24", RouteType::unicast);
   viaOne.nexthopId = 3;
   KernelRoute viaBlackhole = route("198.18.0.0/24", RouteType::unicast);
   viaBlackhole.nexthopId = 11;
   KernelRoute viaMissing = route("198.18.1.0/24", RouteType::unicast);
   viaMissing.nexthopId = 99;
   k.routes = {viaGroup, viaOne, viaBlackhole, viaMissing};
   const TableEntry t = importState(k).tables.at(0);
   const auto& group = fecOfRoute(t, "198.51.100.0/24");
   ASSERT_EQ(group.vias.size(), 2u);
   EXPECT_EQ(group.vias[0].hop, ip("192.0.2.2"));
   EXPECT_EQ(group.vias[0].weight, 2u);
   EXPECT_EQ(group.vias[1].intf, Lumo::IntfId("Ethernet3"));
   EXPECT_EQ(group.vias[1].weight, 1u);
   EXPECT_EQ(fecOfRoute(t, "203.0.113.0/24").vias.at(0).hop, ip("192.0.2.3"));
   EXPECT_EQ(fecOfRoute(t, "198.18.0.0/24").type, FecType::drop);
   EXPECT_EQ(t.routes.size(), 3u); // the route through an unknown object forwards nowhere
}

TEST(ImportStateTest, OnlyNeighboursWithAUsableLinkLayerAddressAreImported) {
   KernelState k = twoLinks();
   const Lumo::EthAddr mac("02:00:00:00:00:02");
   k.neighbours.push_back({2, ip("192.0.2.2"), NUD_PERMANENT, true, mac});
   k.neighbours.push_back({2, ip("192.0.2.3"), NUD_STALE, true, mac});
   k.neighbours.push_back({2, ip("192.0.2.4"), NUD_DELAY, true, mac});
   k.neighbours.push_back({2, ip("192.0.2.5"), NUD_PROBE, true, mac});
   k.neighbours.push_back({3, ip("2001:db8::2"), NUD_REACHABLE, true, mac});
   k.neighbours.push_back({2, ip("192.0.2.6"), NUD_INCOMPLETE, false, {}});
   k.neighbours.push_back({2, ip("192.0.2.7"), NUD_FAILED, true, mac});
   k.neighbours.push_back({1, ip("127.0.0.1"), NUD_NOARP, true, {}});
   State s = importState(k);
   ASSERT_EQ(s.neighbours.size(), 5u);
   EXPECT_EQ(s.neighbours[4].intf, Lumo::IntfId("Ethernet3"));
   EXPECT_EQ(s.neighbours[4].mac, mac);
   for (const auto& n : s.neighbours) EXPECT_NE(n.ip, ip("192.0.2.6"));
}

// A VRF device with its members, and table 10 named a VRF with the interface its rules
// select; a route of main leaks into the VRF through an interface of the VRF.
KernelState withVrfs() {
   KernelState k = twoLinks();
   k.links.push_back({4, "e3", true, false, "veth", 0, 0});
   k.links.push_back({5, "blue", true, false, "vrf", 20, 0});
   k.links.push_back({6, "e4", true, false, "veth", 0, 5});
   k.rules.push_back({1000, 10, "e3", "", 0});
   k.rules.push_back({1001, 10, "", "e3", 0});
   k.rules.push_back({1002, 10, "", "", 10});
   k.routes.push_back(route("198.51.100.0/24", RouteType::unicast, {{4, {}, 1}}, 10));
   k.routes.push_back(route("0.0.0.0/0", RouteType::unreachable, {}, 10, 4278198272u));
   k.routes.push_back(route("203.0.113.0/24", RouteType::unicast, {{6, {}, 1}}, 20));
   k.routes.push_back(route("198.51.100.0/25", RouteType::unicast, {{4, ip("198.51.100.2"), 1}}));
   k.neighbours.push_back({4, ip("198.51.100.2"), NUD_REACHABLE, true,
                           Lumo::EthAddr("02:00:00:00:03:02")});
   k.addresses.push_back({4, ip("198.51.100.1"), 24});
   return k;
}

TEST(ImportStateTest, VrfsComeFromDevicesAndFromNamedTablesWithTheirRules) {
   KernelState k = withVrfs();
   State s = importState(k, {{{"red", 10, {}}}});
   ASSERT_EQ(s.vrfs.size(), 2u);
   EXPECT_EQ(s.vrfs[0].name, "blue");
   EXPECT_EQ(s.vrfs[1].name, "red");
   EXPECT_NE(s.vrfs[0].id, s.vrfs[1].id);
   EXPECT_EQ(s.interface(Lumo::IntfId("Ethernet4"))->vrf, "red");
   EXPECT_EQ(s.interface(Lumo::IntfId("Ethernet6"))->vrf, "blue");
   EXPECT_EQ(s.interface(Lumo::IntfId("Ethernet2"))->vrf, "default");
   EXPECT_EQ(s.interface(Lumo::IntfId("Ethernet5")), nullptr); // the VRF device itself
   EXPECT_EQ(s.neighbours.at(0).vrf, "red");
   const TableEntry* red = s.table("red");
   ASSERT_NE(red, nullptr);
   EXPECT_EQ(fecOfRoute(*red, "0.0.0.0/0").type, FecType::kernel);
   // The address's local route lives in a table nobody named: it is received all the same.
   EXPECT_EQ(fecOfRoute(*red, "198.51.100.1/32").type, FecType::receive);
   EXPECT_EQ(fecOfRoute(*s.table("default"), "198.51.100.0/25").vias.at(0).intf,
             Lumo::IntfId("Ethernet4"));
   expectRoundTrip(s);

   State listed = importState(k, {{{"red", 10, {"e1"}}}});
   EXPECT_EQ(listed.interface(Lumo::IntfId("Ethernet2"))->vrf, "red");
   EXPECT_EQ(listed.interface(Lumo::IntfId("Ethernet4"))->vrf, "default");
}

TEST(ImportStateTest, VrfTablesThatDoNotFitTheKernelAreErrors) {
   KernelState k = withVrfs();
   auto message = [&](const ImportOptions& o) {
      try {
         importState(k, o);
      } catch (const ImportError& e) {
         return std::string(e.what());
      }
      return std::string("no error");
   };
   EXPECT_EQ(message({{{"red", 10, {"nosuch"}}}}), "VRF table red=10: no interface nosuch");
   EXPECT_EQ(message({{{"green", 20, {}}}}), "VRF table green=20: table 20 is already VRF blue's");
   EXPECT_EQ(message({{{"blue", 30, {}}}}), "VRF blue is named twice");
   EXPECT_EQ(message({{{"red", 10, {}}, {"green", 11, {"e3"}}}}),
             "interface e3 is in VRF red and in VRF green");
}

TEST(TableVrfTest, ParsesNameTableAndInterfacesAndRejectsTheRest) {
   TableVrf v = parseTableVrf("red=10");
   EXPECT_EQ(v.name, "red");
   EXPECT_EQ(v.table, 10u);
   EXPECT_TRUE(v.interfaces.empty());
   v = parseTableVrf("red=4294967295:e3,e4");
   EXPECT_EQ(v.table, 4294967295u);
   EXPECT_THAT(v.interfaces, testing::ElementsAre("e3", "e4"));
   for (const char* bad : {"red", "=10", "red=", "red=x", "red=0", "red=-1", "red=254",
                           "red=4294967296", "default=10", "red=10:", "red=10:e3,,e4"}) {
      EXPECT_THROW(parseTableVrf(bad), std::invalid_argument) << bad;
   }
   try {
      parseTableVrf("red=main");
   } catch (const std::invalid_argument& e) {
      EXPECT_THAT(e.what(), testing::HasSubstr("table \"main\" is not a number"));
      EXPECT_THAT(e.what(), testing::HasSubstr("expected NAME=TABLE"));
   }
}

} // namespace
