// The state file: the example leaf loads, builds and resolves as its comment says; every
// kind of bad file is reported at the right place; a written state reads back the same.
#include "StateErrors.h"
#include "../resolution/ResolutionTestUtil.h"
#include "Quarn/Fec.h"
#include "VeltLib/ArpHelper.h"
#include "VeltLib/IntfSuitabilityCheckerTypes.h"
#include "VeltLib/IntfSuitabilityHelper.h"
#include "VeltLib/NexthopResolver.h"
#include "velt/state/StateTables.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <fmt/format.h>
#include <fstream>
#include <set>
#include <sstream>

namespace {

using namespace VeltState;
using Quarn::Fib::FecId;
using VeltTest::intf;
using VeltTest::ip;
using VeltTest::mac;

const std::string leafPath = std::string(VELT_SOURCE_DIR) + "/examples/leaf.yaml";

FecId gen(std::uint64_t index) {
   return FecId(Quarn::Fib::AdjType::fibGenAdj, index);
}

// The 1-based line of the first line of `path` that contains `text`.
int lineOf(const std::string& path, const std::string& text) {
   std::ifstream in(path);
   std::string line;
   for (int n = 1; std::getline(in, line); ++n) {
      if (line.find(text) != std::string::npos) return n;
   }
   return 0;
}

// The resolver wired as the velt tool will wire it, over the tables of a state.
class Forwarder {
 public:
   explicit Forwarder(const State& state) : tables(buildTables(state)) {
      arpHelper = Velt::arpHelperFactory(tables.arp);
      suitability = Velt::intfSuitabilityHelperFactory();
      suitability->intfSuitabilityCheckerIs(
          Velt::intfOperStatusSuitabilityCheckerFactory(tables.ethIntfStatus));
      resolvers = Velt::nexthopResolversFactory();
      vrfRoots = Velt::resolverVrfRootsFactory();
      vrfRoots->vrfRootIs("default", Vrf::VrfIdMap::VrfId(0),
                          tables.forwardingOf("default"));
      for (const VrfEntry& v : state.vrfs) {
         vrfRoots->vrfRootIs(v.name, v.id, tables.forwardingOf(v.name));
      }
      steps = Pelin::make<Velt::GenericPipelineSteps>(Velt::nhrPipelineName);
      fallbackSteps =
          Pelin::make<Velt::GenericPipelineSteps>(Velt::noIpRouteFallbackPipelineName);
      driver = Velt::routingNexthopResolverFactory(steps, resolvers, vrfRoots);
      steps->stepIs(Velt::nhrInterfaceTypeStepFactory(resolvers));
      steps->stepIs(Velt::nhrCopyViaNexthopStepFactory(tables.l3IntfStatus));
      steps->stepIs(Velt::nhrFecTypeStepFactory(resolvers));
      steps->stepIs(Velt::nhrFecIdTypeStepFactory(resolvers));
      steps->stepIs(Velt::nhrDstIpTypeStepFactory(resolvers));
      steps->stepIs(Velt::noIpRouteFallbackStepFactory(
          Pelin::make<Velt::GenericPipeline>(fallbackSteps)));
      resolvers->interfaceResolverIs(Pelin::make<Velt::EthernetArpResolver>(arpHelper));
      resolvers->interfaceResolverIs(Velt::fecIdIntfIdHandlerFactory());
      resolvers->fecTypeResolverIs(
          Velt::forwardFecTypeResolverFactory(driver.get(), suitability));
      resolvers->fecTypeResolverIs(Velt::dropFecTypeResolverFactory());
      resolvers->fecTypeResolverIs(Velt::receiveFecTypeResolverFactory());
      resolvers->fecTypeResolverIs(Velt::kernelFecTypeResolverFactory());
      resolvers->fecIdResolverIs(Velt::fibGenAdjFecIdResolverFactory());
   }

   // A packet to `dst` in `vrf`: its route's FEC, resolved.
   Pelin::Ptr<Velt::RoutingNexthop> resolve(const char* vrf, const char* dst,
                                            std::uint32_t hash = 1) {
      auto match = tables.forwardingOf(vrf)->routeLookup(ip(dst));
      EXPECT_TRUE(match) << dst;
      auto nh = Velt::routingNexthopFactory(Lumo::IntfId());
      if (match) nh->fecIdIs(match->fecId);
      nh->dstIpIs(ip(dst));
      driver->resolve(VeltTest::contextFor(vrf, hash), nh);
      return nh;
   }

   // The output interfaces packets to `dst` take over many hashes.
   std::set<std::string> spread(const char* vrf, const char* dst) {
      std::set<std::string> out;
      for (std::uint32_t hash = 1; hash <= 120; ++hash) {
         out.insert(Kor::toText(resolve(vrf, dst, hash)->outputIntf()));
      }
      return out;
   }

   Tables tables;
   Pelin::Ptr<Velt::ArpHelper> arpHelper;
   Pelin::Ptr<Velt::IntfSuitabilityHelper> suitability;
   Pelin::Ptr<Velt::NexthopResolvers> resolvers;
   Pelin::Ptr<Velt::ResolverVrfRoots> vrfRoots;
   Pelin::Ptr<Velt::GenericPipelineSteps> steps;
   Pelin::Ptr<Velt::GenericPipelineSteps> fallbackSteps;
   Pelin::Ptr<Velt::RoutingNexthopResolver> driver;
};

void expectSent(const Pelin::Ptr<Velt::RoutingNexthop>& nh, const char* intfName,
                const char* ethAddr) {
   EXPECT_EQ(nh->outputIntf(), intf(intfName));
   EXPECT_EQ(nh->dstMac(), mac(ethAddr));
   EXPECT_TRUE(nh->fullyResolved());
   EXPECT_FALSE(nh->drop());
}

// ---- the example ----

TEST(LeafExample, LoadsIntoTablesOfTheExpectedSize) {
   State s = loadStateFile(leafPath);
   EXPECT_FALSE(s.unifiedFec);
   ASSERT_EQ(s.vrfs.size(), 2u);
   EXPECT_EQ(s.vrfs[1].name, "tenant");
   EXPECT_EQ(s.interfaces.size(), 9u);
   EXPECT_EQ(s.neighbours.size(), 15u);
   ASSERT_EQ(s.tables.size(), 2u);
   // Positions point at the element in the file.
   EXPECT_EQ(s.tables[0].fecs[0].pos.line, lineOf(leafPath, "- id: fibGenAdj:1"));
   EXPECT_EQ(s.tables[0].fecs[0].pos.column, 9);
   EXPECT_EQ(s.tables[1].pos.line, lineOf(leafPath, "  tenant:"));
   EXPECT_EQ(s.tables[0].fecs[0].vias[4].pos.line,
             lineOf(leafPath, "Vlan4094, hop: 10.0.1.1"));

   Tables t = buildTables(s);
   ASSERT_EQ(t.forwarding.size(), 2u);
   auto fabric = t.forwardingOf("default");
   auto tenant = t.forwardingOf("tenant");
   ASSERT_TRUE(fabric && tenant);
   EXPECT_EQ(fabric->name(), "default");
   EXPECT_EQ(fabric->fecCount(), 4u);
   EXPECT_EQ(fabric->routeCount(), 7u);
   EXPECT_EQ(tenant->fecCount(), 7u);
   EXPECT_EQ(tenant->routeCount(), 11u);
   EXPECT_EQ(t.arp->arpEntryCount(), 9u);
   EXPECT_EQ(t.arp->neighborEntryCount(), 6u);
   EXPECT_EQ(t.l3IntfStatus->intfStatus().size(), 9u);
   EXPECT_EQ(t.l3IntfStatus->intfStatus(intf("Vlan10"))->vrfName, "tenant");
   EXPECT_EQ(t.ethIntfStatus->intfStatus(intf("Ethernet52"))->operStatus,
             Interface::IntfOperStatus::intfOperDown);
   EXPECT_EQ(t.ethIntfStatus->intfStatus(intf("Ethernet51"))->operStatus,
             Interface::IntfOperStatus::intfOperUp);

   // The /24 null route is shadowed by the live /25 only inside the /25.
   auto inUse = tenant->routeLookup(ip("198.51.100.10"));
   auto unused = tenant->routeLookup(ip("198.51.100.200"));
   ASSERT_TRUE(inUse && unused);
   EXPECT_EQ(inUse->fecId, gen(11));
   EXPECT_EQ(unused->prefix.length(), 24);
   EXPECT_EQ(tenant->fec(unused->fecId).fecType(), Quarn::FibGen::FecType::drop);
   auto v6 = fabric->routeLookup(ip("2001:db8:99::1"));
   ASSERT_TRUE(v6);
   EXPECT_EQ(v6->fecId, gen(2));

   Quarn::FibGen::Fec uplinks = fabric->fec(gen(1));
   EXPECT_EQ(uplinks.viaCount(), 5u);
   EXPECT_EQ(uplinks.backupViaIndex(), 4u);
   EXPECT_EQ(uplinks.via(Quarn::Fib::ViaIndex(2)),
             Quarn::FibGen::Via(intf("Ethernet51"), 2, ip("10.0.0.5")));

   Arp::Table::ArpEntry spine = t.arp->arpMap().find(
       Arp::Table::ArpKey(intf("Ethernet49"), Vrf::VrfIdMap::VrfId(0), ip("10.0.0.1")));
   EXPECT_EQ(spine.ethAddr, mac("02:5b:00:00:00:01"));
   Arp::Table::ArpEntry server = t.arp->neighborMap().find(Arp::Table::ArpKey(
       intf("Vlan10"), Vrf::VrfIdMap::VrfId(1), ip("2001:db8:10::10")));
   EXPECT_EQ(server.ethAddr, mac("02:00:0a:00:00:10"));
}

TEST(LeafExample, ResolvesAsItsCommentSays) {
   State s = loadStateFile(leafPath);
   Forwarder fwd(s);

   expectSent(fwd.resolve("tenant", "192.0.2.10"), "Vlan10", "02:00:0a:00:00:10");
   expectSent(fwd.resolve("tenant", "2001:db8:10::10"), "Vlan10", "02:00:0a:00:00:10");
   expectSent(fwd.resolve("tenant", "198.51.100.10"), "Vlan20", "02:00:14:00:00:10");
   expectSent(fwd.resolve("default", "10.0.1.1"), "Vlan4094", "02:1e:00:00:00:02");
   EXPECT_TRUE(fwd.resolve("tenant", "198.51.100.200")->drop());
   for (const char* self : {"192.0.2.1", "2001:db8:10::1"}) {
      EXPECT_TRUE(fwd.resolve("tenant", self)->toMe()) << self;
   }
   for (const char* self : {"10.0.255.11", "2001:db8:ff::11"}) {
      EXPECT_TRUE(fwd.resolve("default", self)->toMe()) << self;
   }
   // No neighbour: the connected host and the firewall are left to the kernel.
   for (const char* unknown : {"192.0.2.20", "203.0.113.70"}) {
      auto nh = fwd.resolve("tenant", unknown);
      EXPECT_TRUE(nh->outputIntf().isCpu()) << unknown;
      EXPECT_TRUE(nh->kernelHandlesPacket()) << unknown;
   }

   // Leaked: resolution ends in the fabric VRF, on one of the two leaked uplinks.
   auto leaked = fwd.resolve("tenant", "10.200.0.1");
   EXPECT_EQ(leaked->vrf(), "default");
   EXPECT_TRUE(leaked->fullyResolved());
   EXPECT_EQ(fwd.spread("tenant", "10.200.0.1"),
             (std::set<std::string>{"Ethernet49", "Ethernet50"}));

   // With a backup via the down uplink is skipped; without one it keeps its share.
   EXPECT_EQ(fwd.spread("default", "203.0.113.99"),
             (std::set<std::string>{"Ethernet49", "Ethernet50", "Ethernet51"}));
   EXPECT_EQ(
       fwd.spread("default", "2001:db8:99::1"),
       (std::set<std::string>{"Ethernet49", "Ethernet50", "Ethernet51", "Ethernet52"}));

   // Every uplink down: the backup via to the peer leaf.
   for (IntfEntry& i : s.interfaces) {
      if (i.intf != intf("Vlan4094") && i.intf != intf("Loopback0")) {
         i.operStatus = OperStatus::down;
      }
   }
   Forwarder allDown(s);
   expectSent(allDown.resolve("default", "10.0.255.21", 7), "Vlan4094",
              "02:1e:00:00:00:02");
}

// ---- errors ----

struct BadFile {
   const char* name;
   std::string text;
   int line;
   int column;
   std::vector<std::string> says;
};

std::string manyVias(int n) {
   std::string out =
       "tables:\n  default:\n    fecs:\n      - id: fibGenAdj:1\n        vias:\n";
   for (int i = 0; i < n; ++i)
      out += "          - {interface: Ethernet1}\n";
   return out;
}

const std::string neighbour1 =
    "  - {interface: Ethernet1, ip: 10.0.0.2, mac: \"02:00:00:00:00:01\"}\n";

// clang-format off: one row per case reads as a table
std::vector<BadFile> badFiles() {
   return {
       // Syntax and shape.
       {"syntax", "vrfs:\n  - {name: red, id: 1\n", 3, 1, {"YAML syntax error"}},
       {"two documents", "vrfs: []\n---\nvrfs: []\n", 3, 1, {"one YAML document"}},
       {"unknown top key",
        "vrf: []\n", 1, 1,
        {"unknown key 'vrf' in the state",
         "allowed: unifiedFec, vrfs, interfaces, neighbours, tables"}},
       {"unknown via key",
        "tables:\n  default:\n    fecs:\n      - id: fibGenAdj:1\n        vias:\n"
        "          - {interface: Ethernet1, weigth: 2}\n", 6, 36,
        {"unknown key 'weigth' in a via", "allowed: interface, hop, weight, fecId"}},
       {"missing key", "vrfs:\n  - {name: red}\n", 2, 5, {"missing key 'id' in a VRF"}},
       {"empty linux name",
        "interfaces:\n  - {name: Ethernet1, linuxName: \"\"}\n", 2, 34,
        {"a linuxName cannot be empty"}},
       {"key twice",
        "vrfs:\n  - {name: red, id: 1, id: 2}\n", 2, 24,
        {"duplicate key 'id' in a VRF (first at 2:17)"}},
       {"sequence expected",
        "vrfs: {name: red}\n", 1, 7,
        {"expected a sequence for vrfs, found a mapping"}},
       {"scalar expected",
        "vrfs:\n  - {name: [red], id: 1}\n", 2, 12,
        {"expected a scalar for a VRF name, found a sequence"}},
       {"bad boolean",
        "unifiedFec: yes\n", 1, 13,
        {"bad unifiedFec 'yes': expected true or false"}},
       {"bad number",
        "tables:\n  default:\n    fecs:\n      - id: fibGenAdj:1\n        vias:\n"
        "          - {interface: Ethernet1, weight: -1}\n", 6, 44,
        {"bad weight '-1': expected a number from 0 to 4294967295"}},

       // VRFs.
       {"VRF twice",
        "vrfs:\n  - {name: red, id: 1}\n  - {name: red, id: 2}\n", 3, 12,
        {"duplicate VRF 'red' (first at 2:5)"}},
       {"VRF id twice",
        "vrfs:\n  - {name: red, id: 1}\n  - {name: blue, id: 1}\n", 3, 22,
        {"VRF id 1 is already the id of VRF 'red'"}},
       {"id of default",
        "vrfs:\n  - {name: red, id: 0}\n", 2, 21,
        {"VRF id 0 is already the id of VRF 'default'"}},
       {"default renumbered",
        "vrfs:\n  - {name: default, id: 5}\n", 2, 25,
        {"the VRF 'default' has id 0"}},
       {"VRF id too big",
        "vrfs:\n  - {name: red, id: 0xffffff}\n", 2, 21,
        {"bad VRF id '0xffffff': expected a number from 0 to 16777214"}},
       {"VRF name too long",
        "vrfs:\n  - {name: " + std::string(101, 'v') + ", id: 1}\n", 2, 12,
        {"is 101 bytes long; at most 100 allowed"}},

       // Interfaces and neighbours.
       {"interface twice",
        "interfaces:\n  - {name: Ethernet1}\n  - {name: Ethernet1}\n", 3, 12,
        {"duplicate interface Ethernet1 (first at 2:5)"}},
       {"bad interface name",
        "interfaces:\n  - {name: Eth1}\n", 2, 12,
        {"bad interface name 'Eth1'"}},
       {"FEC interface as L3",
        "interfaces:\n  - {name: FecId18/5}\n", 2, 12,
        {"FecId18/5 stands for a FEC"}},
       {"interface in unknown VRF",
        "interfaces:\n  - {name: Ethernet1, vrf: green}\n", 2, 28,
        {"VRF 'green' is not declared"}},
       {"bad oper status",
        "interfaces:\n  - {name: Ethernet1, operStatus: sideways}\n", 2, 35,
        {"bad operStatus 'sideways': expected up or down"}},
       {"neighbour in unknown VRF",
        "neighbours:\n  - {vrf: green, interface: Ethernet1, ip: 10.0.0.2, mac: "
        "\"02:00:00:00:00:01\"}\n", 2, 11,
        {"VRF 'green' is not declared"}},
       {"neighbour twice",
        "neighbours:\n" + neighbour1 + neighbour1, 3, 5,
        {"duplicate neighbour 10.0.0.2 on Ethernet1 in VRF 'default' (first at 2:5)"}},
       {"bad address",
        "neighbours:\n  - {interface: Ethernet1, ip: 10.0.0.300, mac: "
        "\"02:00:00:00:00:01\"}\n", 2, 32,
        {"bad ip '10.0.0.300': expected an IPv4 or IPv6 address"}},
       {"bad MAC",
        "neighbours:\n  - {interface: Ethernet1, ip: 10.0.0.2, mac: 02:00:00}\n", 2, 47,
        {"bad mac '02:00:00'"}},
       {"neighbour beside its interface's VRF",
        "vrfs:\n  - {name: red, id: 1}\ninterfaces:\n  - {name: Ethernet1, vrf: red}\n"
        "neighbours:\n" +
            neighbour1, 6, 17,
        {"interface Ethernet1 is in VRF 'red', not in 'default'"}},

       // Tables.
       {"table of unknown VRF",
        "tables:\n  green: {}\n", 2, 3,
        {"VRF 'green' is not declared"}},
       {"unified table without unifiedFec",
        "tables:\n  unified: {}\n", 2, 3,
        {"a unified table needs unifiedFec: true"}},
       {"VRF table with unifiedFec",
        "unifiedFec: true\ntables:\n  default: {}\n", 3, 3,
        {"the only table is 'unified', not 'default'"}},
       {"table twice",
        "unifiedFec: true\ntables:\n  unified: {}\n  unified: {}\n", 4, 3,
        {"duplicate table 'unified' (first at 3:3)"}},
       {"FEC twice",
        "tables:\n  default:\n    fecs:\n      - {id: fibGenAdj:1, type: drop}\n"
        "      - {id: 0x1200000000000001, type: drop}\n", 5, 14,
        {"duplicate FEC fibGenAdj:1 in table 'default' (first at 4:9)"}},
       {"bad FEC id",
        "tables:\n  default:\n    fecs:\n      - {id: fibGenAdj, type: drop}\n", 4, 14,
        {"bad FEC id 'fibGenAdj'"}},
       {"FEC id 0",
        "tables:\n  default:\n    fecs:\n      - {id: 0, type: drop}\n", 4, 14,
        {"bad FEC id '0': 0 stands for no FEC"}},
       {"FEC id beyond the adjacency types",
        "tables:\n  default:\n    fecs:\n      - {id: 0xff00000000000001}\n", 4, 14,
        {"adjacency type 255 is above 28"}},
       {"bad FEC type",
        "tables:\n  default:\n    fecs:\n      - {id: fibGenAdj:1, type: fwd}\n", 4, 33,
        {"bad FEC type 'fwd': expected forward, drop, receive, receiveBcast, kernel, or "
         "a "
         "number up to 255"}},
       {"route twice",
        "tables:\n  default:\n    fecs:\n      - {id: fibGenAdj:1, type: drop}\n"
        "    routes:\n      - {prefix: 10.0.0.0/8, fec: fibGenAdj:1}\n"
        "      - {prefix: 10.0.0.0/8, fec: fibGenAdj:1}\n", 7, 18,
        {"duplicate route 10.0.0.0/8 in table 'default' (first at 6:9)"}},
       {"host bits set",
        "tables:\n  default:\n    routes:\n      - {prefix: 10.1.2.3/8, fec: "
        "fibGenAdj:1}\n", 4, 18,
        {"bad prefix '10.1.2.3/8': host bits set (the network is 10.0.0.0/8)"}},
       {"bad prefix",
        "tables:\n  default:\n    routes:\n      - {prefix: 10.0.0.0/33, fec: "
        "fibGenAdj:1}\n", 4, 18,
        {"bad prefix '10.0.0.0/33': expected an address and a length"}},
       {"route to no FEC",
        "tables:\n  default:\n    fecs:\n      - {id: fibGenAdj:1, type: drop}\n"
        "    routes:\n      - {prefix: 10.0.0.0/8, fec: fibGenAdj:2}\n", 6, 35,
        {"route to FEC fibGenAdj:2, which table 'default' does not have"}},

       // Vias.
       {"empty via",
        "tables:\n  default:\n    fecs:\n      - id: fibGenAdj:1\n        vias:\n"
        "          - {weight: 2}\n", 6, 13,
        {"a via needs at least one of interface, hop and fecId"}},
       {"via to no FEC",
        "tables:\n  default:\n    fecs:\n      - id: fibGenAdj:1\n        vias:\n"
        "          - {interface: Ethernet1, fecId: fibGenAdj:9}\n", 6, 43,
        {"via FEC fibGenAdj:9 does not exist in table 'default'"}},
       // The via leaves for VRF red, so its FEC id is red's, although default has it.
       {"via to no FEC in the VRF jumped to",
        "vrfs:\n  - {name: red, id: 1}\ninterfaces:\n  - {name: Ethernet1, vrf: red}\n"
        "tables:\n  red:\n    fecs:\n      - {id: fibGenAdj:9, type: drop}\n  default:\n"
        "    fecs:\n      - id: fibGenAdj:8\n        vias:\n"
        "          - {interface: Ethernet1, fecId: fibGenAdj:8}\n", 13, 43,
        {"via FEC fibGenAdj:8 does not exist in table 'red' (interface Ethernet1 is in "
         "VRF "
         "'red')"}},
       {"via into a VRF without table",
        "vrfs:\n  - {name: red, id: 1}\ninterfaces:\n  - {name: Ethernet1, vrf: red}\n"
        "tables:\n  default:\n    fecs:\n      - id: fibGenAdj:8\n        vias:\n"
        "          - {interface: Ethernet1, fecId: fibGenAdj:8}\n", 10, 43,
        {"interface Ethernet1 is in VRF 'red', which has no table"}},
       {"FEC interface of no FEC",
        "tables:\n  default:\n    fecs:\n      - id: fibGenAdj:1\n        vias:\n"
        "          - {interface: FecId18/9}\n", 6, 25,
        {"via interface FecId18/9 stands for FEC fibGenAdj:9, which table 'default' does "
         "not have"}},
       {"backup via out of range",
        "tables:\n  default:\n    fecs:\n      - id: fibGenAdj:1\n        backupVia: 2\n"
        "        vias:\n          - {interface: Ethernet1}\n          - {interface: "
        "Ethernet2}\n", 5, 20,
        {"backup via 2 out of range: FEC fibGenAdj:1 has 2 vias, the backup is one of 1 "
         "to 1"}},
       {"backup via of a single via",
        "tables:\n  default:\n    fecs:\n      - id: fibGenAdj:1\n        backupVia: 0\n"
        "        vias:\n          - {interface: Ethernet1}\n", 5, 20,
        {"backup via 0 out of range: FEC fibGenAdj:1 has 1 via, so none can be a "
         "backup"}},
       {"too many vias",
        manyVias(601), 6, 11,
        {"FEC fibGenAdj:1 has 601 vias; a FEC holds at most 600"}},
   };
}
// clang-format on

TEST(StateFileErrors, NameFileLineColumnAndTheOffendingThing) {
   for (const BadFile& bad : badFiles()) {
      SCOPED_TRACE(bad.name);
      try {
         parseState(bad.text, "t.yaml");
         ADD_FAILURE() << "accepted";
      } catch (const StateError& e) {
         EXPECT_EQ(e.file(), "t.yaml");
         EXPECT_EQ(e.line(), bad.line) << e.what();
         EXPECT_EQ(e.column(), bad.column) << e.what();
         std::string prefix = "t.yaml:" + std::to_string(bad.line) + ":" +
                              std::to_string(bad.column) + ": ";
         EXPECT_EQ(std::string(e.what()).substr(0, prefix.size()), prefix) << e.what();
         for (const std::string& s : bad.says) {
            EXPECT_NE(e.problem().find(s), std::string::npos) << e.what();
         }
      }
   }
}

TEST(StateFileErrors, LimitsThemselvesAreAccepted) {
   State s = parseState(manyVias(600) + "        backupVia: 599\n", "t.yaml");
   EXPECT_EQ(s.tables[0].fecs[0].vias.size(), 600u);
   s = parseState("vrfs:\n  - {name: " + std::string(100, 'v') + ", id: 16777214}\n",
                  "t.yaml");
   EXPECT_EQ(s.vrfs[0].id.value(), 16777214u);
}

TEST(StateFileErrors, UnreadableFileIsNamed) {
   const std::string missing =
       std::string(VELT_SOURCE_DIR) + "/examples/no-such-state.yaml";
   for (const std::string& path : {missing, std::string(VELT_SOURCE_DIR) + "/examples"}) {
      try {
         loadStateFile(path);
         ADD_FAILURE() << path << " accepted";
      } catch (const StateError& e) {
         EXPECT_EQ(std::string(e.what()).rfind(path + ":0:0: cannot read the file: ", 0),
                   0u)
             << e.what();
      }
   }
}

// The example in FORMAT.md is what the README shows: it must stay a valid file.
TEST(StateFileFormat, DocumentedExampleLoads) {
   std::ifstream in(std::string(VELT_SOURCE_DIR) + "/tools/velt/state/FORMAT.md");
   std::stringstream doc;
   doc << in.rdbuf();
   std::string text = doc.str();
   auto start = text.find("```yaml\n");
   ASSERT_NE(start, std::string::npos);
   start += 8;
   State s = parseState(text.substr(start, text.find("```", start) - start), "FORMAT.md");
   EXPECT_EQ(s.vrfs.size(), 2u);
   EXPECT_EQ(s.interfaces.size(), 4u);
   EXPECT_EQ(s.interface(intf("Loopback0"))->vrf, "default");
   const TableEntry* red = s.tableOf("red");
   ASSERT_TRUE(red);
   ASSERT_TRUE(red->fec(gen(9)));
   EXPECT_EQ(red->fec(gen(9))->type, 11);
   EXPECT_EQ(red->fec(gen(5))->vias[2].weight, 1u);
   EXPECT_EQ(parseState(writeStateFile(s), "written.yaml"), s);
}

// ---- writing ----

TEST(StateFileWrite, ExampleRoundTrips) {
   State leaf = loadStateFile(leafPath);
   std::string text = writeStateFile(leaf);
   State back = parseState(text, "written.yaml");
   EXPECT_EQ(back, leaf);
   EXPECT_EQ(writeStateFile(back), text);
   EXPECT_GT(back.tables[1].routes[3].pos.line, 0);
}

TEST(StateFileWrite, UnusualValuesRoundTrip) {
   State s;
   s.unifiedFec = true;
   // Names YAML would otherwise read as null, booleans or numbers, or not as one word.
   for (const char* name :
        {"null", "yes", "123", "my vrf", "a\"b\\c", "-x", "tab\there"}) {
      s.vrfs.push_back(
          VrfEntry{name, Vrf::VrfIdMap::VrfId(s.vrfs.size() + 1), false, true, {}});
   }
   s.vrfs.push_back(VrfEntry{"default", Vrf::VrfIdMap::VrfId(0), true, false, {}});
   s.interfaces.push_back(
       IntfEntry{intf("Port-Channel4"), "my vrf", OperStatus::down, "veth-a:b", {}});
   s.interfaces.push_back(IntfEntry{intf("Ethernet3/1"), "null", OperStatus::up, "", {}});
   s.neighbours.push_back(NeighbourEntry{
       "my vrf", intf("Port-Channel4"), ip("2001:db8::2"), mac("0a:bb:cc:dd:ee:ff"), {}});
   TableEntry t;
   t.name = "unified";
   FecId odd(Quarn::Fib::AdjType(20), 7);
   FecEntry recursive{gen(5), 3, true, 2, {}, {}};
   recursive.vias.push_back(ViaEntry{intf("Tunnel1"), ip("2001:db8::9"), 0, {}, {}});
   recursive.vias.push_back(ViaEntry{{}, {}, 7, odd, {}});
   recursive.vias.push_back(ViaEntry{{}, ip("192.0.2.1"), 1, {}, {}});
   recursive.vias.push_back(ViaEntry{intf("FecId20/7"), {}, 1, {}, {}});
   t.fecs.push_back(recursive);
   t.fecs.push_back(
       FecEntry{odd, Quarn::FibGen::FecType::receiveBcast, false, 0, {}, {}});
   t.routes.push_back(RouteEntry{Lumo::IpGenPrefix("::/0"), gen(5), {}});
   t.routes.push_back(RouteEntry{Lumo::IpGenPrefix("192.0.2.128/25"), odd, {}});
   s.tables.push_back(t);

   std::string text = writeStateFile(s);
   State back = parseState(text, "written.yaml");
   EXPECT_EQ(back, s) << text;
   EXPECT_NE(text.find("type: receiveBcast"), std::string::npos) << text;
   EXPECT_NE(text.find("type: 3"), std::string::npos) << text;

   // Tables built from it: one unified table serves every VRF.
   Tables built = buildTables(back);
   EXPECT_EQ(built.forwarding.size(), 1u);
   EXPECT_EQ(built.forwardingOf("my vrf"), built.forwardingOf("default"));
   EXPECT_EQ(built.forwardingOf("default")->fec(odd).fecType(),
             Quarn::FibGen::FecType::receiveBcast);
   EXPECT_EQ(built.arp->neighborEntryCount(), 1u);
}

// A state at the limits fits the tables sized for it.
TEST(StateTables, CapacityHoldsWideFecsAndManyRoutes) {
   State s;
   TableEntry t;
   t.name = "default";
   for (std::uint64_t f = 1; f <= 40; ++f) {
      FecEntry fec{gen(f), 0, false, 0, {}, {}};
      std::uint32_t vias =
          f % 2 ? Quarn::FibGen::Fec::maxVias : static_cast<std::uint32_t>(f);
      for (std::uint32_t v = 0; v < vias; ++v) {
         fec.vias.push_back(ViaEntry{intf("Ethernet1"), ip("10.0.0.2"), v + 1, {}, {}});
      }
      t.fecs.push_back(fec);
   }
   for (std::uint32_t r = 0; r < 5000; ++r) {
      std::uint8_t b[4] = {10, static_cast<std::uint8_t>(r >> 8),
                           static_cast<std::uint8_t>(r), 0};
      t.routes.push_back(RouteEntry{
          Lumo::IpGenPrefix(Lumo::IpGenAddr(Lumo::AddressFamily::ipv4_, b), 24),
          gen(r % 40 + 1),
          {}});
   }
   s.tables.push_back(t);
   Tables built = buildTables(s);
   auto fwd = built.forwardingOf("default");
   EXPECT_EQ(fwd->fecCount(), 40u);
   EXPECT_EQ(fwd->routeCount(), 5000u);
   Quarn::FibGen::Fec wide = fwd->fec(gen(39));
   ASSERT_EQ(wide.viaCount(), Quarn::FibGen::Fec::maxVias);
   EXPECT_EQ(wide.via(Quarn::Fib::ViaIndex(599)).weight(), 600u);
   EXPECT_EQ(fwd->routeLookup(ip("10.19.135.1"))->fecId, gen((19 * 256 + 135) % 40 + 1));
}

// ---- hostile text ----

using StateErrors::errorOf;

TEST(StateFileHostile, StrayCommasAreSyntaxErrorsNotHangs) {
   for (const char* text : {",", ",a", "- a\n,", "vrfs: [,]\n", "{,}", "\t,"}) {
      SCOPED_TRACE(text);
      std::string error = errorOf(text);
      EXPECT_EQ(error.rfind("t.yaml:", 0), 0u) << error;
      EXPECT_NE(error, "accepted");
   }
   EXPECT_EQ(
       errorOf("vrfs:\n  - {name: a, id: 1}\n,"),
       "t.yaml:3:1: YAML syntax error: did not find expected key while parsing a block "
       "mapping at 1:1");
}

TEST(StateFileHostile, BadBytesAreReportedWhereTheyAre) {
   EXPECT_EQ(errorOf("vrfs: []\ntables:\n  de\xff:\n"),
             "t.yaml:3:5: YAML syntax error: invalid leading UTF-8 octet (byte 0xff)");
   EXPECT_NE(
       errorOf(std::string("vrfs: []\n\0", 10)).find("t.yaml:2:1: YAML syntax error"),
       std::string::npos);
}

// Files are read in pieces as the parser asks: a layout or state file holding a stray
// comma or a bad byte past the first piece is reported just as the same text is.
TEST(StateFileHostile, FilesReportLikeTheirText) {
   const std::string path = ::testing::TempDir() + "state-file-hostile.yaml";
   const std::string big = "vrfs:\n" + std::string(200000, '#') + "\n";
   for (const std::string& text :
        {std::string(","), big + ",a", big + "tables:\n  de\xff:\n"}) {
      std::ofstream(path, std::ios::trunc) << text;
      std::string fromFile;
      try {
         loadStateFile(path);
      } catch (const StateError& e) {
         fromFile = e.what();
      }
      std::string fromText = errorOf(text);
      ASSERT_NE(fromText, "accepted");
      EXPECT_EQ(fromFile, path + fromText.substr(fromText.find(':')));
   }
   std::remove(path.c_str());
}

TEST(StateFileHostile, DeepNestingIsRefusedNotRecursedInto) {
   const std::string deep =
       "vrfs:\n  - " + std::string(100000, '[') + std::string(100000, ']') + "\n";
   EXPECT_NE(errorOf(deep).find("collections nested more than 64 deep"),
             std::string::npos)
       << errorOf(deep);
}

TEST(StateFileHostile, SectionsMayComeInAnyOrder) {
   // Tables first: their VRFs, and the interfaces their vias and neighbours name, later.
   const std::string text =
       "tables:\n  red:\n    fecs:\n      - id: fibGenAdj:1\n        vias:\n"
       "          - {interface: Ethernet1, hop: 10.0.0.2}\n"
       "neighbours:\n  - {vrf: red, interface: Ethernet1, ip: 10.0.0.2, mac: "
       "\"02:00:00:00:00:01\"}\n"
       "interfaces:\n  - {name: Ethernet1, vrf: red}\n"
       "vrfs:\n  - {name: red, id: 1}\n";
   State s = parseState(text, "t.yaml");
   ASSERT_EQ(s.tables.size(), 1u);
   EXPECT_EQ(s.tables[0].name, "red");
   EXPECT_EQ(s.neighbours[0].vrf, "red");
   // Checks that wait for a later section still point at the place that is wrong.
   EXPECT_EQ(errorOf("tables:\n  blue: {}\nvrfs:\n  - {name: red, id: 1}\n"),
             "t.yaml:2:3: VRF 'blue' is not declared");
   EXPECT_EQ(errorOf("neighbours:\n" + neighbour1 +
                     "interfaces:\n  - {name: Ethernet1, vrf: red}\n"
                     "vrfs:\n  - {name: red, id: 1}\n"),
             "t.yaml:2:17: interface Ethernet1 is in VRF 'red', not in 'default'");
   EXPECT_EQ(errorOf("interfaces:\n  - {name: Ethernet1, vrf: red}\nvrfs: []\n"),
             "t.yaml:2:28: VRF 'red' is not declared");
}

// ---- aliases ----

TEST(StateFileAliases, AnAnchoredViaListServesEveryFecThatNamesIt) {
   const std::string text =
       "tables:\n  default:\n    fecs:\n      - id: fibGenAdj:1\n        vias: &up\n"
       "          - {interface: Ethernet1, hop: 10.0.0.2, weight: &w 3}\n"
       "          - {interface: Ethernet2, hop: 10.0.0.4, weight: *w}\n"
       "      - {id: fibGenAdj:2, vias: *up}\n"
       "      - {id: fibGenAdj:3, vias: [*w]}\n";
   std::string error = errorOf(text);
   // [*w] is a via written as a scalar: the alias stands for its node, here 3.
   EXPECT_EQ(error, "t.yaml:9:34: expected a mapping for a via, found a scalar");
   State s = parseState(text.substr(0, text.rfind("      - {id: fibGenAdj:3")), "t.yaml");
   ASSERT_EQ(s.tables[0].fecs.size(), 2u);
   EXPECT_EQ(s.tables[0].fecs[1].vias, s.tables[0].fecs[0].vias);
   EXPECT_EQ(s.tables[0].fecs[1].vias[1].weight, 3u);
   // A replayed node is where its alias is; what it holds, where its anchor wrote it.
   EXPECT_EQ(s.tables[0].fecs[1].vias[0].pos.line, 6);
}

TEST(StateFileAliases, AliasesMeanTheAnchorWrittenBeforeThem) {
   EXPECT_EQ(errorOf("vrfs:\n  - {name: *red, id: 1}\n"),
             "t.yaml:2:12: alias *red names no complete node anchored before it");
   EXPECT_EQ(errorOf("vrfs: &v\n  - {name: red, id: 1}\n  - *v\n"),
             "t.yaml:3:5: alias *v names no complete node anchored before it");
   // A later anchor of the same name does not change what an earlier alias meant: the
   // replayed neighbour is still in VRF red, and so the same as the first.
   EXPECT_EQ(
       errorOf("vrfs: [{name: &n red, id: 1}, {name: blue, id: 2}]\n"
               "interfaces: [{name: Ethernet1, vrf: red}, {name: Ethernet2, vrf: blue}]\n"
               "neighbours:\n"
               "  - &x {vrf: *n, interface: Ethernet1, ip: 10.0.0.2, mac: "
               "\"02:00:00:00:00:01\"}\n"
               "  - {vrf: &n blue, interface: Ethernet2, ip: 10.0.0.3, mac: "
               "\"02:00:00:00:00:01\"}\n"
               "  - *x\n"),
       "t.yaml:6:5: duplicate neighbour 10.0.0.2 on Ethernet1 in VRF 'red' (first at "
       "4:5)");
}

TEST(StateFileAliases, ABombIsRefusedQuickly) {
   // Ten levels of ten aliases each, inside one neighbour: 10^10 nodes if expanded.
   std::string text = "neighbours:\n  - {interface: [&a0 [x]";
   for (int i = 1; i <= 10; ++i) {
      text += fmt::format(", &a{} [", i);
      for (int j = 0; j < 10; ++j)
         text += fmt::format("{}*a{}", j ? ", " : "", i - 1);
      text += "]";
   }
   text += "]}\n";
   EXPECT_EQ(errorOf(text), "t.yaml:2:5: this element holds more than 100000 YAML nodes");
}

TEST(StateFileAliases, ManySmallExpansionsAddUpToTheLimit) {
   // One 600-via list shared by `fecs` FECs, some 1,800 nodes each time.
   auto shared = [](int fecs) {
      std::string text = manyVias(600);
      text.insert(text.find("vias:") + 5, " &v");
      for (int f = 2; f <= fecs; ++f)
         text += fmt::format("      - {{id: fibGenAdj:{}, vias: *v}}\n", f);
      return text;
   };
   std::string error = errorOf(shared(3000));
   // Named at the alias that went over, some 2,200 FECs on (FEC k is on line 604 + k).
   EXPECT_EQ(error.substr(error.find(':', 7)),
             ":36: aliases expand the document by more than 4000000 nodes; write the "
             "repeated parts out")
       << error;
   const int line = std::stoi(error.substr(7));
   EXPECT_GT(line, 604 + 2000);
   EXPECT_LT(line, 604 + 2400);
   // The limit is on the sum, not on any one alias.
   State s = parseState(shared(20), "t.yaml");
   ASSERT_EQ(s.tables[0].fecs.size(), 20u);
   EXPECT_EQ(s.tables[0].fecs[19].vias, s.tables[0].fecs[0].vias);
}

} // namespace
