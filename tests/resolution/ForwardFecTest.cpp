// The forward FEC resolver: the connected-route shortcut, weighted via selection, and
// backup handling. Pre-resolution runs through a real driver whose only step stands in
// for the rest of the pipeline: it resolves a via to its interface and a MAC from a map.
#include "ResolutionTestUtil.h"
#include "VeltLib/IntfSuitabilityHelper.h"
#include "VeltLib/NexthopResolver.h"

#include <gtest/gtest.h>
#include <map>
#include <set>

namespace {

using namespace VeltTest;
using Quarn::Fib::AdjType;
using Quarn::Fib::FecId;
using Quarn::FibGen::Fec;
using Quarn::FibGen::Via;

class ViaToNeighbourStep : public Velt::NhrPipelineStep {
public:
   explicit ViaToNeighbourStep(std::map<Lumo::IntfId, Lumo::EthAddr>* neighbours)
       : NhrPipelineStep("ViaToNeighbour", 10000), neighbours_(neighbours) {
      stopsByPriorityIs(true);
   }
   bool process(const Pelin::Ptr<Velt::NhrPipelineContext>& c) override {
      const auto& nh = c->nexthop();
      if (Via::isEq(nh->via(), Via())) return true;
      ++calls;
      auto it = neighbours_->find(nh->via().intfId());
      if (it == neighbours_->end()) {
         nh->dropIs(true);
      } else {
         nh->outputIntfIs(it->first);
         nh->dstMacIs(it->second);
      }
      return false;
   }
   int calls = 0;

private:
   std::map<Lumo::IntfId, Lumo::EthAddr>* neighbours_;
};

// Vetoes the interfaces in `down`.
class DownChecker : public Velt::IntfSuitabilityCheckerBase {
public:
   DownChecker() : IntfSuitabilityCheckerBase("Down") {}
   bool isSuitable(Lumo::IntfId id) override { return !down.count(id); }
   std::set<Lumo::IntfId> down;
};

Via gw(const char* intfName, std::uint32_t weight, const char* hop) {
   return Via(intf(intfName), weight, ip(hop));
}

class ForwardFecTest : public ::testing::Test {
protected:
   ForwardFecTest() {
      auto steps = Pelin::make<Velt::GenericPipelineSteps>(Velt::nhrPipelineName);
      step = Pelin::make<ViaToNeighbourStep>(&neighbours);
      steps->stepIs(step);
      auto roots = Velt::resolverVrfRootsFactory();
      root = roots->vrfRootIs("red", Vrf::VrfIdMap::VrfId(1), nullptr);
      driver = Velt::routingNexthopResolverFactory(steps, Velt::nexthopResolversFactory(),
                                                   roots);
      suitability = Velt::intfSuitabilityHelperFactory();
      suitability->intfSuitabilityCheckerIs(checker);
      resolver = Velt::forwardFecTypeResolverFactory(driver.get(), nullptr);
      counters = Pelin::make<VeltNamedCounters>();
      neighbours[intf("Ethernet1")] = mac("02:00:00:00:00:01");
      neighbours[intf("Ethernet2")] = mac("02:00:00:00:00:02");
      neighbours[intf("Ethernet3")] = mac("02:00:00:00:00:03");
   }

   // Resolves a next hop carrying `fec` (and `dst`) with packet hash `hash`.
   Pelin::Ptr<Velt::RoutingNexthop> run(const Fec& fec, std::uint32_t hash,
                                        const char* dst = "") {
      auto nh = Velt::routingNexthopFactory(Lumo::IntfId());
      nh->fecIs(fec);
      nh->dstIpIs(ip(dst));
      resolver->resolve(contextFor("red", hash, counters), root, nh);
      return nh;
   }

   std::map<Lumo::IntfId, Lumo::EthAddr> neighbours;
   Pelin::Ptr<ViaToNeighbourStep> step;
   Pelin::Ptr<Velt::ResolverVrfRoot> root;
   Pelin::Ptr<Velt::RoutingNexthopResolver> driver;
   Pelin::Ptr<DownChecker> checker = Pelin::make<DownChecker>();
   Pelin::Ptr<Velt::IntfSuitabilityHelper> suitability;
   Pelin::Ptr<Velt::ForwardFecTypeResolver> resolver;
   Pelin::Ptr<VeltNamedCounters> counters;
};

Fec fecOf(std::initializer_list<Via> vias, std::uint32_t backupIndex = 0) {
   Fec fec(FecId(AdjType::fibGenAdj, 9));
   for (const Via& v : vias)
      fec.viaAppend(v);
   fec.backupViaIndexIs(backupIndex);
   return fec;
}

TEST_F(ForwardFecTest, ConnectedRouteOnlySetsTheInterface) {
   EXPECT_EQ(resolver->name(), "Forward");
   EXPECT_EQ(resolver->fecType(), 0);
   for (const char* hop : {"", "0.0.0.0", "::"}) {
      auto nh = run(fecOf({gw("Ethernet1", 1, hop)}), 5, "10.0.0.9");
      EXPECT_EQ(nh->outputIntf(), intf("Ethernet1")) << hop;
      EXPECT_TRUE(Via::isEq(nh->via(), Via())) << hop;
      EXPECT_EQ(nh->dstIp(), ip("10.0.0.9"));
      EXPECT_FALSE(nh->drop());
   }
   auto nh = run(fecOf({gw("Ethernet1", 1, "")}), 5);
   EXPECT_TRUE(nh->drop());
   EXPECT_EQ(
       countOf(counters, "Drop", "No destination ip for connected route with fec {}"),
       1u);
}

TEST_F(ForwardFecTest, NotConnectedGoesThroughViaSelection) {
   Via tunnel(intf("Ethernet1"), 1, Lumo::IpGenAddr(), FecId(), 7);
   Fec loopOnly = fecOf({gw("Ethernet1", 1, "")});
   loopOnly.loopbackOnlyIs(true);
   for (const Fec& fec : {fecOf({gw("Ethernet1", 1, "10.0.0.2")}), fecOf({tunnel}),
                          loopOnly, fecOf({gw("", 1, "")})}) {
      auto nh = run(fec, 5, "10.0.0.9");
      EXPECT_TRUE(Via::isEq(nh->via(), fec.via(Quarn::Fib::ViaIndex(0))));
      EXPECT_EQ(nh->outputIntf(), Lumo::IntfId());
   }
   // A loopback via of a loopback-only FEC is connected.
   Fec lo = fecOf({gw("Loopback0", 1, "")});
   lo.loopbackOnlyIs(true);
   EXPECT_EQ(run(lo, 5, "10.0.0.9")->outputIntf(), intf("Loopback0"));
}

TEST_F(ForwardFecTest, WeightsSplitHashesAndSkipWeightZero) {
   Fec fec = fecOf({gw("Ethernet1", 1, "10.0.1.2"), gw("Ethernet2", 0, "10.0.2.2"),
                    gw("Ethernet3", 3, "10.0.3.2")});
   const char* expected[] = {"Ethernet1", "Ethernet3", "Ethernet3", "Ethernet3"};
   for (std::uint32_t h = 4; h < 8; ++h) {
      EXPECT_EQ(run(fec, h)->via().intfId(), intf(expected[h % 4])) << h;
   }
   // Deterministic per flow, and in proportion to the weights over many flows.
   std::map<Lumo::IntfId, int> hits;
   for (std::uint32_t h = 1; h <= 4000; ++h) {
      Lumo::IntfId first = run(fec, h * 2654435761u)->via().intfId();
      EXPECT_EQ(run(fec, h * 2654435761u)->via().intfId(), first);
      ++hits[first];
   }
   EXPECT_EQ(hits[intf("Ethernet2")], 0);
   EXPECT_NEAR(hits[intf("Ethernet1")], 1000, 100);
   EXPECT_NEAR(hits[intf("Ethernet3")], 3000, 100);
   EXPECT_EQ(step->calls, 0);
}

TEST_F(ForwardFecTest, HashZeroTakesViaZeroWithoutPreResolution) {
   Fec fec = fecOf({gw("Ethernet1", 0, "10.0.1.2"), gw("Ethernet2", 5, "10.0.2.2"),
                    gw("Ethernet3", 1, "10.0.3.2")},
                   2);
   auto nh = run(fec, 0);
   EXPECT_EQ(nh->via().intfId(), intf("Ethernet1"));
   EXPECT_EQ(countOf(counters, "Exceptional", "Hash is 0"), 1u);
   EXPECT_EQ(countOf(counters, "Action", "Pre-resolving via as there is a backup via"),
             0u);
   EXPECT_EQ(step->calls, 0);
   // Nothing to pick: the next hop is left alone on either path.
   for (std::uint32_t h : {0u, 3u}) {
      auto empty = run(fecOf({}), h);
      EXPECT_TRUE(Via::isEq(empty->via(), Via()));
      EXPECT_FALSE(empty->drop());
   }
}

TEST_F(ForwardFecTest, BackupMakesThePrimaryResolveFirst) {
   // Via 2 is the backup; primaries Ethernet1 (weight 1) and Ethernet2 (weight 1).
   Fec fec = fecOf({gw("Ethernet1", 1, "10.0.1.2"), gw("Ethernet2", 1, "10.0.2.2"),
                    gw("Ethernet3", 1, "10.0.3.2")},
                   2);
   auto nh = run(fec, 3); // pick 1: Ethernet2
   EXPECT_EQ(nh->outputIntf(), intf("Ethernet2"));
   EXPECT_EQ(nh->dstMac(), mac("02:00:00:00:00:02"));
   EXPECT_TRUE(Via::isEq(nh->via(), Via()));
   EXPECT_TRUE(nh->fullyResolved());
   EXPECT_EQ(countOf(counters, "Action", "Pre-resolving via as there is a backup via"),
             1u);

   // The chosen primary fails: the other one is re-selected over the remaining weight.
   neighbours.erase(intf("Ethernet2"));
   nh = run(fec, 3);
   EXPECT_EQ(nh->outputIntf(), intf("Ethernet1"));
   EXPECT_EQ(countOf(counters, "Action", "Pre-resolving via as there is a backup via"),
             3u);

   // Every primary fails: the backup via is handed on, unresolved.
   neighbours.erase(intf("Ethernet1"));
   nh = run(fec, 3);
   EXPECT_TRUE(Via::isEq(nh->via(), fec.via(Quarn::Fib::ViaIndex(2))));
   EXPECT_EQ(nh->outputIntf(), Lumo::IntfId());
   EXPECT_EQ(countOf(counters, "Action", "Pre-resolving via as there is a backup via"),
             5u);
}

TEST_F(ForwardFecTest, UnsuitablePrimaryCountsAsFailed) {
   resolver = Velt::forwardFecTypeResolverFactory(driver.get(), suitability);
   Fec fec = fecOf({gw("Ethernet1", 1, "10.0.1.2"), gw("Ethernet3", 1, "10.0.3.2")}, 1);
   EXPECT_EQ(run(fec, 8)->outputIntf(), intf("Ethernet1"));
   checker->down.insert(intf("Ethernet1"));
   auto nh = run(fec, 8);
   EXPECT_FALSE(nh->fullyResolved());
   EXPECT_EQ(nh->via().intfId(), intf("Ethernet3"));
}

} // namespace
