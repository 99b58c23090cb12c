// The caller API: one call resolves a next hop in a VRF through the root's driver, and
// the holder singleton publishes the helper agents share.
#include "../platform/TestPackets.h"
#include "Arp/ArpTable.h"
#include "Interface/EthIntfStatusDir.h"
#include "L3/IntfStatusDir.h"
#include "Quarn/ForwardingStatus.h"
#include "Quarn/TableInfo.h"
#include "StartupFixture.h"
#include "VeltLib/NexthopResolverHelper.h"
#include "VeltLib/RoutingContext.h"
#include "Wexa/Paths.h"

#include <gmock/gmock.h>

#include <map>
#include <set>

namespace {

using ::testing::ElementsAre;
using Velt::NexthopResolverHelper;
using Velt::RoutingNexthopResolverHelperHolder;

// Notes what each pass was given and ends the resolution.
class RecordingStep : public Velt::NhrPipelineStep {
 public:
   struct Seen {
      std::uint64_t packetId;
      Lumo::IntfId inputIntf;
      std::string srcVrf;
      Pelin::Ptr<Lumo::Pkt> pkt;
      bool parsed;
      std::uint32_t hash;
   };
   RecordingStep() : Velt::NhrPipelineStep("Recording", 1) {}
   bool process(const Pelin::Ptr<Velt::NhrPipelineContext>& nhrCtx) override {
      const auto& rCtx = nhrCtx->rCtx();
      const auto& pktCtx = rCtx->pktCtx();
      seen.push_back({pktCtx->id(), rCtx->l3SrcIntfId(),
                      std::string(rCtx->srcVrf().view()), rCtx->getPkt(),
                      pktCtx->parsedPkt() != nullptr, pktCtx->hash()});
      nhrCtx->nexthop()->dropIs(true);
      return false;
   }
   std::vector<Seen> seen;
};

class CallerApi : public VeltTest::StartupTest {
 protected:
   void SetUp() override {
      StartupTest::SetUp();
      Kor::singletonDel(RoutingNexthopResolverHelperHolder::singletonName);
      root->vrfRoots()->vrfRootIs("red", Vrf::VrfIdMap::VrfId(1), nullptr);
      root->nexthopResolverSteps()->stepIs(step);
   }
   void TearDown() override {
      Kor::singletonDel(RoutingNexthopResolverHelperHolder::singletonName);
      StartupTest::TearDown();
   }
   static Pelin::Ptr<Velt::RoutingNexthop> nexthop() {
      return Velt::routingNexthopFactory(Lumo::IntfId("Ethernet1"));
   }

   Pelin::Ptr<Velt::NexthopResolverRoot> root = Velt::nexthopResolverRootFactory("root");
   Pelin::Ptr<RecordingStep> step = Pelin::make<RecordingStep>();
};

TEST_F(CallerApi, EachResolveTakesTheNextPacketNumberAndHasNoInputOrPacket) {
   auto helper = Velt::nexthopResolverHelperFactory(root);
   EXPECT_EQ(helper->resolverRoot(), root);
   EXPECT_EQ(helper->parserRoot(), nullptr);
   const std::uint64_t n = NexthopResolverHelper::nextPacketContextId();

   auto first = nexthop();
   helper->resolve(first, "red");
   helper->resolve(nexthop(), "red");
   // Every helper of the process draws from the same counter.
   Velt::nexthopResolverHelperFactory(root)->resolve(nexthop(), "red");
   ASSERT_EQ(step->seen.size(), 3u);
   EXPECT_EQ(step->seen[0].packetId, n);
   EXPECT_EQ(step->seen[1].packetId, n + 1);
   EXPECT_EQ(step->seen[2].packetId, n + 2);
   EXPECT_EQ(step->seen[0].inputIntf, Lumo::IntfId());
   EXPECT_EQ(step->seen[0].srcVrf, "red");
   EXPECT_EQ(step->seen[0].pkt, nullptr);
   EXPECT_FALSE(step->seen[0].parsed);
   EXPECT_EQ(step->seen[0].hash, 0u);
   EXPECT_TRUE(first->drop()) << "the driver's outcome is left in the next hop";
   EXPECT_EQ(first->vrf(), "red");

   // A VRF without a root: the driver drops before any step runs; the number is used.
   auto lost = nexthop();
   helper->resolve(lost, "blue");
   EXPECT_TRUE(lost->drop());
   EXPECT_EQ(step->seen.size(), 3u);
   EXPECT_EQ(NexthopResolverHelper::nextPacketContextId(), n + 4);
}

TEST_F(CallerApi, ResolveWithPktParsesAndHashesThePacketWithTheParserRoot) {
   auto helper = Velt::nexthopResolverHelperFactory(root);
   EXPECT_DEATH(helper->resolveWithPkt(nexthop(), "red", Pelin::make<Lumo::Pkt>()),
                "Assertion failed: parserRoot\\(\\)");

   auto parserRoot = packetParserRootFactory();
   helper->parserRootIs(parserRoot);
   EXPECT_EQ(helper->parserRoot(), parserRoot);
   auto pkt = Pelin::make<Lumo::Pkt>(TestPackets::udp4());
   const std::uint64_t n = NexthopResolverHelper::nextPacketContextId();
   helper->resolveWithPkt(nexthop(), "red", pkt);
   helper->resolve(nexthop(), "red");
   ASSERT_EQ(step->seen.size(), 2u);
   const auto& withPkt = step->seen[0];
   EXPECT_EQ(withPkt.packetId, n);
   EXPECT_EQ(withPkt.inputIntf, Lumo::IntfId());
   EXPECT_EQ(withPkt.pkt, pkt);
   EXPECT_TRUE(withPkt.parsed);
   EXPECT_EQ(withPkt.hash, parserRoot->hasher()->hash(parserRoot->parser()->parse(*pkt)));
   EXPECT_NE(withPkt.hash, 0u);
   EXPECT_EQ(step->seen[1].packetId, n + 1);
   EXPECT_FALSE(step->seen[1].parsed) << "resolve() never parses, parser root or not";
}

TEST_F(CallerApi, HolderIsOneSingletonThatPublishesOnlyAnotherHelper) {
   auto holder = RoutingNexthopResolverHelperHolder::singleton();
   EXPECT_EQ(holder, RoutingNexthopResolverHelperHolder::singleton());
   EXPECT_EQ(holder->name(), "Velt::RoutingNexthopResolverHelperHolder");
   EXPECT_EQ(holder->helper(), nullptr);

   VeltTest::AttrLog log(*holder);
   auto helper = Velt::nexthopResolverHelperFactory(root);
   holder->helperIs(helper);
   holder->helperIs(helper);
   EXPECT_THAT(log.names, ElementsAre("helper"));
   EXPECT_EQ(holder->helper(), helper);

   auto replacement = Velt::nexthopResolverHelperFactory(root);
   holder->helperIs(replacement);
   EXPECT_EQ(helper->references(), 1u) << "the previous helper is released";
   holder->helperIs(nullptr);
   holder->helperIs(nullptr);
   EXPECT_EQ(holder->helper(), nullptr);
   EXPECT_THAT(log.names, ElementsAre("helper", "helper", "helper"));
}

// What an agent does: place the switch state, start the root with the plugins built
// beside the library, then resolve through the published helper. Red (id 1) routes
// 10.9.0.0/16 to this switch and 10.100.0.0/16 over Ethernet1 (weight 1) and Ethernet2
// (weight 3), whose neighbours are known.
class CallerApiEndToEnd : public VeltTest::StartupTest {
 protected:
   void SetUp() override {
      StartupTest::SetUp();
      Kor::singletonDel(RoutingNexthopResolverHelperHolder::singletonName);
      placeState();
      up("red", 1);
      unsetenv(Plugin::pluginPathVariable);
      pluginsAre("builtins,routeLookup");
      init(root, em);
      em->loop()->runUntilIdle();
      ASSERT_NE(root->nhrPlugins()->plugin("builtins"), nullptr);
      ASSERT_NE(root->nhrPlugins()->plugin("routeLookup"), nullptr);
      auto helper = Velt::nexthopResolverHelperFactory(root);
      helper->parserRootIs(packetParserRootFactory());
      RoutingNexthopResolverHelperHolder::singleton()->helperIs(helper);
   }
   void TearDown() override {
      Kor::singletonDel(RoutingNexthopResolverHelperHolder::singletonName);
      StartupTest::TearDown();
   }

   void placeState() {
      using namespace Quarn::FibGen;
      ForwardingStatus::Capacity capacity;
      capacity.fecs = 16;
      capacity.viaPoolBytes = 1 << 16;
      capacity.routes = 16;
      auto red = Pelin::make<ForwardingStatus>("red", capacity);
      Fec receive(receiveId);
      receive.fecTypeIs(FecType::receive);
      red->fecIs(receive);
      Fec weighted(weightedId);
      weighted.fecTypeIs(FecType::forward);
      weighted.viaAppend(Via(Lumo::IntfId("Ethernet1"), 1, Lumo::IpGenAddr("10.1.0.2")));
      weighted.viaAppend(Via(Lumo::IntfId("Ethernet2"), 3, Lumo::IpGenAddr("10.2.0.2")));
      red->fecIs(weighted);
      red->routeIs(Lumo::IpGenPrefix(Lumo::IpGenAddr("10.9.0.0"), 16), receiveId);
      red->routeIs(Lumo::IpGenPrefix(Lumo::IpGenAddr("10.100.0.0"), 16), weightedId);
      auto shm = Wexa::sharedMemoryEntityManager("sys", false);
      shm->entityIs(Quarn::Fib::TableInfo::fecMountPath(Lumo::AddressFamily::ipunknown_,
                                                        "red", "rib"),
                    red);

      auto arp =
          Pelin::make<Arp::Table::Status>("arp", Arp::Table::Status::Capacity{16, 16});
      auto l3Intfs = L3::Intf::statusDirFactory();
      auto ethIntfs = Interface::ethIntfStatusDirFactory();
      for (const auto& [intf, neighbour] : neighbours) {
         l3Intfs->intfStatusIs(Lumo::IntfId(intf), "red");
         ethIntfs->intfStatusIs(Lumo::IntfId(intf),
                                Interface::IntfOperStatus::intfOperUp);
         arp->entryIs(Arp::Table::ArpEntry(
             Arp::Table::ArpKey(Lumo::IntfId(intf), Vrf::VrfIdMap::VrfId(1),
                                Lumo::IpGenAddr(neighbour.first)),
             Lumo::EthAddr(neighbour.second)));
      }
      shm->entityIs(Wexa::Paths::arpStatus, arp);
      em->entityIs(Wexa::Paths::l3IntfStatus, l3Intfs);
      em->entityIs(Wexa::Paths::ethIntfStatus, ethIntfs);
   }

   static Pelin::Ptr<Velt::RoutingNexthop> toDst(const char* dst) {
      auto nexthop = Velt::routingNexthopFactory(Lumo::IntfId());
      nexthop->dstIpIs(Lumo::IpGenAddr(dst));
      return nexthop;
   }
   static const Pelin::Ptr<NexthopResolverHelper>& helper() {
      return RoutingNexthopResolverHelperHolder::singleton()->helper();
   }

   const Quarn::Fib::FecId receiveId{Quarn::Fib::AdjType::fibGenAdj, 3};
   const Quarn::Fib::FecId weightedId{Quarn::Fib::AdjType::fibGenAdj, 5};
   // Interface: neighbour address and MAC.
   const std::map<std::string, std::pair<const char*, const char*>> neighbours{
       {"Ethernet1", {"10.1.0.2", "02:00:00:00:01:02"}},
       {"Ethernet2", {"10.2.0.2", "02:00:00:00:02:02"}}};
   Pelin::Ptr<Velt::NexthopResolverRoot> root =
       Velt::NexthopResolverRoot::nexthopResolverRoot();
};

TEST_F(CallerApiEndToEnd, ResolvesThroughPluginsLoadedFromTheDefaultFolder) {
   auto nexthop = toDst("10.9.0.1");
   helper()->resolve(nexthop, "red");
   EXPECT_TRUE(nexthop->toMe());
   EXPECT_FALSE(nexthop->drop());
   EXPECT_EQ(nexthop->vrf(), "red");
}

// Every FEC type and adjacency type the library serves is wired in: a state imported from
// a host holds broadcast addresses (receiveBcast) and IPv6 adjacencies.
TEST_F(CallerApiEndToEnd, BuiltinsWireEveryTerminalAndAdjacencyResolver) {
   const auto& resolvers = *root->resolvers();
   for (std::uint8_t type : {0, 1, 2, 4, 6}) {
      EXPECT_NE(resolvers.fecTypeResolver(type), nullptr) << "FEC type " << int(type);
   }
   using Quarn::Fib::AdjType;
   for (AdjType adj : {AdjType::fibV4Adj, AdjType::fibV6Adj, AdjType::fibGenAdj}) {
      EXPECT_NE(resolvers.fecIdResolver(adj), nullptr) << "adjacency type " << int(adj);
   }
}

TEST_F(CallerApiEndToEnd, WeightedViaFollowsThePacketsFlow) {
   std::map<std::string, int> perIntf;
   for (unsigned port = 1000; port < 1064; ++port) {
      auto pkt =
          Pelin::make<Lumo::Pkt>(TestPackets::udp4("10.0.0.1", "10.100.0.9", port, 53));
      auto first = toDst("10.100.0.9");
      helper()->resolveWithPkt(first, "red", pkt);
      ASSERT_TRUE(first->fullyResolved()) << "port " << port;
      const std::string intf = fmt::format("{}", first->outputIntf());
      ASSERT_EQ(neighbours.count(intf), 1u) << intf;
      EXPECT_EQ(first->dstMac(), Lumo::EthAddr(neighbours.at(intf).second));
      ++perIntf[intf];

      auto again = toDst("10.100.0.9");
      helper()->resolveWithPkt(again, "red", pkt);
      EXPECT_EQ(again->outputIntf(), first->outputIntf()) << "a flow keeps its via";
   }
   // Weights 1:3 over 64 flows: both vias carry some, Ethernet2 the larger share.
   EXPECT_GT(perIntf["Ethernet1"], 0);
   EXPECT_GT(perIntf["Ethernet2"], perIntf["Ethernet1"]);
}

} // namespace
