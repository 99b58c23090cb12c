// The shortcuts of the per-packet path against the long ways they stand for: the indexed
// resolver lookups, the driver running its own steps while nothing traces, the FEC read
// straight into the next hop, the single-pick weighted choice and the allocation-free
// neighbour lookup.
#include "Arp/ArpTable.h"
#include "ResolutionTestUtil.h"
#include "Trace/Emit.h"
#include "Trace/Trace.h"
#include "VeltLib/ArpHelper.h"
#include "VeltLib/IntfSuitabilityHelper.h"
#include "VeltLib/NexthopResolver.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

namespace {

using namespace VeltTest;
using Quarn::Fib::AdjType;
using Quarn::Fib::FecId;
using Quarn::FibGen::Fec;
using Quarn::FibGen::Via;

// ---- trace gate ----

TEST(TraceGate, OpensForHandlesWithALevelOnAndForRulesThatGiveOne) {
   Trace::configIs("");
   EXPECT_FALSE(Trace::anyLevelOn());
   {
      Trace::Handle h("HotPath::Gate");
      EXPECT_FALSE(Trace::anyLevelOn());
      h.levelsIs(1u << 2);
      EXPECT_TRUE(Trace::anyLevelOn());
      h.levelsIs(1u << 3);
      EXPECT_TRUE(Trace::anyLevelOn());
      h.levelsIs(0);
      EXPECT_FALSE(Trace::anyLevelOn());
      Trace::configIs("HotPath::*/1");
      EXPECT_EQ(h.levels(), 1u << 1);
      h.levelsIs(0);
      EXPECT_TRUE(Trace::anyLevelOn()) << "the rule holds for handles made later";
      Trace::configIs("HotPath::*/");
      EXPECT_FALSE(Trace::anyLevelOn()) << "a rule that turns levels off opens nothing";
      h.levelsIs(1u << 9);
      EXPECT_TRUE(Trace::anyLevelOn());
   }
   EXPECT_FALSE(Trace::anyLevelOn()) << "a handle going away takes its levels along";
   Trace::configIs("");
}

// A rule set before its handle exists: the handle is made by the first line written to
// it, so the gate must already be open then.
TEST(TraceGate, AHandleMadeAfterItsRuleWrites) {
   Trace::Capture capture;
   Trace::configIs("HotPath::Late/2");
   EXPECT_TRUE(Trace::anyLevelOn());
   auto handle = []() -> const Trace::Handle& {
      static const Trace::Handle h("HotPath::Late");
      return h;
   };
   VELT_TRACE(handle(), 2, "written {}", 1);
   EXPECT_EQ(capture.lines(), std::vector<std::string>{"HotPath::Late/2 written 1"});
   Trace::configIs("");
   EXPECT_FALSE(Trace::anyLevelOn());
   VELT_TRACE(handle(), 2, "not written {}", 2);
   EXPECT_EQ(capture.lines().size(), 1u);
}

// ---- registry index ----

template <typename Registry>
void expectIndexMatchesMaps(const Registry& r) {
   for (unsigned k = 0; k < 256; ++k) {
      const auto key = static_cast<std::uint8_t>(k);
      EXPECT_EQ(r.interfaceResolverAt(key), r.interfaceResolver(key).get()) << k;
      EXPECT_EQ(r.fecIdResolverAt(AdjType(key)), r.fecIdResolver(AdjType(key)).get()) << k;
      EXPECT_EQ(r.fecTypeResolverAt(key), r.fecTypeResolver(key).get()) << k;
      EXPECT_EQ(r.dstIpResolverAt(Lumo::AddressFamily(key)),
                r.dstIpResolver(Lumo::AddressFamily(key)).get())
          << k;
   }
}

struct NoopIntf : Velt::InterfaceResolver {
   explicit NoopIntf(std::uint8_t type) : InterfaceResolver("Noop", type) {}
   void resolve(const Pelin::Ptr<Velt::RoutingContext>&,
                const Pelin::Ptr<Velt::ResolverVrfRoot const>&,
                const Pelin::Ptr<Velt::RoutingNexthop>&) override {}
};
struct NoopDstIp : Velt::DstIpResolver {
   explicit NoopDstIp(Lumo::AddressFamily af) : DstIpResolver("Noop", af) {}
   void resolve(const Pelin::Ptr<Velt::RoutingContext>&,
                const Pelin::Ptr<Velt::ResolverVrfRoot const>&,
                const Pelin::Ptr<Velt::RoutingNexthop>&) override {}
};

TEST(ResolverIndex, FollowsEveryRegistrationChange) {
   auto r = Velt::nexthopResolversFactory();
   expectIndexMatchesMaps(*r);
   r->interfaceResolverIs(Pelin::make<NoopIntf>(0));
   r->interfaceResolverIs(Pelin::make<NoopIntf>(255));
   r->fecIdResolverIs(Velt::fibGenAdjFecIdResolverFactory());
   r->fecIdResolverIs(Velt::fibV4AdjFecIdResolverFactory());
   r->fecTypeResolverIs(Velt::dropFecTypeResolverFactory());
   r->fecTypeResolverIs(Velt::receiveFecTypeResolverFactory());
   r->dstIpResolverIs(Pelin::make<NoopDstIp>(Lumo::AddressFamily::ipv6_));
   expectIndexMatchesMaps(*r);
   EXPECT_NE(r->interfaceResolverAt(255), nullptr);

   auto replacement = Pelin::make<NoopIntf>(255);
   r->interfaceResolverIs(replacement);
   EXPECT_EQ(r->interfaceResolverAt(255), replacement.get()) << "the last one wins";
   r->fecTypeResolverIs(Velt::cpuTrapFecTypeResolverFactory("Other", 2));
   expectIndexMatchesMaps(*r);

   r->interfaceResolverDel(0);
   r->fecIdResolverDel(AdjType::fibV4Adj);
   r->fecTypeResolverDel(1);
   r->dstIpResolverDel(Lumo::AddressFamily::ipv6_);
   r->dstIpResolverDel(Lumo::AddressFamily::ipv4_); // never there
   expectIndexMatchesMaps(*r);
   EXPECT_EQ(r->interfaceResolverAt(0), nullptr);

   r->interfaceResolverDelAll();
   r->fecIdResolverDelAll();
   r->fecTypeResolverDelAll();
   r->dstIpResolverDelAll();
   expectIndexMatchesMaps(*r);
   EXPECT_EQ(r->interfaceResolverAt(255), nullptr);
}

// ---- FEC emptiness ----

TEST(FecIsEmpty, AgreesWithComparingToTheEmptyFec) {
   const Fec empty{FecId()};
   std::vector<Fec> fecs(8);
   fecs[1].fecIdIs(FecId(AdjType::fibGenAdj, 1));
   fecs[2].fecTypeIs(3);
   fecs[3].flagsIs(1);
   fecs[4].loopbackOnlyIs(true);
   fecs[5].backupViaIndexIs(2);
   fecs[6].viaAppend(Via());
   fecs[7].secondaryViaAppend(Via());
   for (std::size_t i = 0; i < fecs.size(); ++i) {
      EXPECT_EQ(fecs[i].isEmpty(), Fec::isEq(fecs[i], empty)) << i;
      EXPECT_EQ(fecs[i].isEmpty(), i == 0) << i;
   }
}

// ---- steps run by the driver itself ----

using Velt::GenericPipelineContext;
using Velt::NhrPipelineContext;
using Velt::RoutingNexthop;

// Does nothing and lets the pass go on.
struct PassStep : Velt::NhrPipelineStep {
   PassStep() : NhrPipelineStep("Pass", 100) {}
   bool process(const Pelin::Ptr<NhrPipelineContext>&) override {
      ++calls;
      return true;
   }
   int calls = 0;
};

// Not built on NhrPipelineStep, yet in the main pipeline: always reached through call().
struct ForeignStep : Velt::GenericPipelineStep {
   ForeignStep() : GenericPipelineStep("Foreign", 150, Velt::nhrPipelineName) {}
   void call(const Pelin::Ptr<GenericPipelineContext>& ctx) override {
      ++calls;
      ctx->stepResultIs(true);
   }
   int calls = 0;
};

// First gives the next hop an interface, then a MAC; each ends the pass.
struct StageStep : Velt::NhrPipelineStep {
   explicit StageStep(bool priority) : NhrPipelineStep("Stage", 200) {
      stopsByPriorityIs(priority);
   }
   bool process(const Pelin::Ptr<NhrPipelineContext>& c) override {
      ++calls;
      RoutingNexthop& nh = *c->nexthop();
      if (!nh.outputIntf().isValid()) {
         nh.outputIntfIs(intf("Ethernet1"));
      } else {
         nh.dstMacIs(mac("02:00:00:00:00:01"));
      }
      return false;
   }
   int calls = 0;
};

struct Outcome {
   int pass, foreign, stage;
   bool resolved;
   std::uint64_t hierarchicalStops;
   bool operator==(const Outcome&) const = default;
};

Outcome runStages(bool priority, bool hierarchical, const char* trace) {
   Trace::configIs(trace);
   auto steps = Velt::genericPipelineStepsFactory(Velt::nhrPipelineName);
   auto pass = Pelin::make<PassStep>();
   auto foreign = Pelin::make<ForeignStep>();
   auto stage = Pelin::make<StageStep>(priority);
   steps->stepIs(stage);
   steps->stepIs(foreign);
   steps->stepIs(pass);
   auto roots = Velt::resolverVrfRootsFactory();
   roots->vrfRootIs("red", Vrf::VrfIdMap::VrfId(1), nullptr);
   auto driver = Velt::routingNexthopResolverFactory(steps, Velt::nexthopResolversFactory(),
                                                     roots);
   auto counters = Pelin::make<VeltNamedCounters>();
   auto nh = Velt::routingNexthopFactory(Lumo::IntfId());
   nh->resolveHierarchicalIs(hierarchical);
   driver->resolve(contextFor("red", 1, counters), nh);
   Trace::configIs("");
   return {pass->calls, foreign->calls, stage->calls, nh->fullyResolved(),
           countOf(counters, "Action", "Stopping resolution because hierarchical is false")};
}

TEST(DirectSteps, RunLikeTheirCallWhetherTracedOrNot) {
   Trace::Capture capture;
   for (bool priority : {false, true}) {
      for (bool hierarchical : {false, true}) {
         const Outcome quiet = runStages(priority, hierarchical, "");
         EXPECT_TRUE(capture.lines().empty());
         const Outcome traced = runStages(priority, hierarchical, "Velt::NHResolver/0-9");
         EXPECT_FALSE(capture.lines().empty());
         capture.clear();
         EXPECT_EQ(quiet, traced) << priority << hierarchical;
      }
   }
   // A priority stop ends a non-hierarchical resolution after the first pass; any other
   // pass end lets it go on.
   EXPECT_EQ(runStages(true, false, ""), (Outcome{1, 1, 1, false, 1}));
   EXPECT_EQ(runStages(false, false, ""), (Outcome{2, 2, 2, true, 0}));
   EXPECT_EQ(runStages(true, true, ""), (Outcome{2, 2, 2, true, 0}));
}

// ---- the FEC read straight into the next hop ----

class FecInPlace : public ::testing::Test {
 protected:
   FecInPlace() {
      Trace::configIs("");
      table = Pelin::make<Quarn::FibGen::ForwardingStatus>(
          "red", Quarn::FibGen::ForwardingStatus::Capacity{64, 1 << 17, 64});
      root = Velt::resolverVrfRootFactory("red", Vrf::VrfIdMap::VrfId(1), table);
      bare = Velt::resolverVrfRootFactory("none", Vrf::VrfIdMap::VrfId(2), nullptr);
      small.fecTypeIs(4);
      small.flagsIs(3);
      small.loopbackOnlyIs(true);
      small.backupViaIndexIs(1);
      small.viaAppend(Via(intf("Ethernet1"), 1, ip("10.0.0.1")));
      small.viaAppend(Via(intf("Ethernet2"), 2, ip("10.0.0.2")));
      small.secondaryViaAppend(Via(intf("Ethernet3"), 3, ip("10.0.0.3")));
      for (std::uint32_t i = 0; i < Fec::maxVias; ++i)
         wide.viaAppend(Via(intf("Ethernet4"), i + 1, ip("10.0.0.4")));
      table->fecIs(small);
      table->fecIs(wide);
      table->fecIs(broken);
      table->debugCorruptFec(broken.fecId());
   }

   // Resolves a next hop whose FEC is `start`, watched by a subscriber or not.
   Pelin::Ptr<RoutingNexthop> run(const Pelin::Ptr<Velt::ResolverVrfRoot>& in, FecId id,
                                  bool watched, const Fec& start = Fec()) {
      auto nh = Velt::routingNexthopFactory(Lumo::IntfId());
      nh->fecIs(start);
      nh->fecIdIs(id);
      if (watched) nh->publisher();
      EXPECT_EQ(nh->fecStorage() != nullptr, !watched && start.isEmpty());
      resolver->resolve(nullptr, in, nh);
      return nh;
   }

   static FecId id(std::uint64_t index) { return FecId(AdjType::fibGenAdj, index); }

   Pelin::Ptr<Quarn::FibGen::ForwardingStatus> table;
   Pelin::Ptr<Velt::ResolverVrfRoot> root, bare;
   Pelin::Ptr<Velt::FibGenAdjFecIdResolver> resolver = Velt::fibGenAdjFecIdResolverFactory();
   Fec small{id(1)};
   Fec wide{id(2)};
   Fec broken{id(3)};
};

TEST_F(FecInPlace, GivesWhatTheCopyGives) {
   for (bool watched : {false, true}) {
      for (const Fec* fec : {&small, &wide}) {
         auto nh = run(root, fec->fecId(), watched);
         EXPECT_FALSE(nh->drop());
         EXPECT_TRUE(Fec::isEq(nh->fec(), *fec)) << watched << fec->viaCount();
      }
      auto absent = run(root, id(9), watched);
      EXPECT_TRUE(absent->drop());
      EXPECT_TRUE(absent->fec().isEmpty());
      auto noTable = run(bare, id(1), watched);
      EXPECT_TRUE(noTable->drop());
      EXPECT_TRUE(noTable->fec().isEmpty());
   }
   // A next hop that already has a FEC takes the table's one by copy.
   auto nh = run(root, small.fecId(), false, wide);
   EXPECT_TRUE(Fec::isEq(nh->fec(), small));
   auto kept = run(root, id(9), false, wide);
   EXPECT_TRUE(kept->drop());
   EXPECT_TRUE(Fec::isEq(kept->fec(), wide)) << "a miss leaves the next hop's FEC alone";
}

TEST_F(FecInPlace, ACorruptRecordIsReportedOnceAndReadAsAMiss) {
   const std::uint64_t before = table->corruptionCount();
   for (bool watched : {false, true, false}) {
      auto nh = run(root, broken.fecId(), watched);
      EXPECT_TRUE(nh->drop());
      EXPECT_TRUE(nh->fec().isEmpty());
      // Left mid-change for good: reported when first found, then answered at once.
      EXPECT_EQ(table->corruptionCount(), before + 1) << watched;
   }
}

TEST_F(FecInPlace, GenFecIntoOverwritesWhateverWasThere) {
   for (FecId fecId : {small.fecId(), wide.fecId(), id(9), broken.fecId()}) {
      for (const auto& in : {root, bare}) {
         Fec out = wide;
         out.secondaryViaAppend(Via(intf("Ethernet9"), 9, ip("10.0.0.9")));
         in->genFecInto(fecId, out);
         EXPECT_TRUE(Fec::isEq(out, in->genFec(fecId))) << fecId.index();
      }
   }
}

// ---- weighted choice without a backup ----

// Where the weights of the vias other than `skip` send `hash`; -1 for nowhere.
int expectedPick(const Fec& fec, std::uint32_t hash, std::uint32_t skip) {
   std::uint64_t total = 0;
   for (std::uint32_t i = 0; i < fec.viaCount(); ++i)
      if (i != skip) total += fec.vias()[i].weight();
   if (total == 0) return -1;
   std::uint64_t pick = hash % total;
   for (std::uint32_t i = 0; i < fec.viaCount(); ++i) {
      if (i == skip) continue;
      if (fec.vias()[i].weight() > pick) return static_cast<int>(i);
      pick -= fec.vias()[i].weight();
   }
   return -1;
}

TEST(WeightedPick, FollowsTheCumulativeWeights) {
   auto resolver = Velt::forwardFecTypeResolverFactory(nullptr, nullptr);
   std::vector<Fec> fecs;
   const std::vector<std::vector<std::uint32_t>> weights = {
       {1, 2, 3, 4}, {0, 5, 0, 1}, {0, 0, 0}, {7, 7}, {3, 0, 0, 0, 9, 1}};
   for (const auto& ws : weights) {
      Fec fec(FecId(AdjType::fibGenAdj, fecs.size() + 1));
      for (std::uint32_t w : ws)
         fec.viaAppend(Via(intf("Ethernet1"), w, ip("10.0.0.1")));
      fecs.push_back(fec);
   }
   // A backup index past the end, and one naming an empty via: no backup either way.
   Fec pastEnd = fecs[0];
   pastEnd.backupViaIndexIs(9);
   fecs.push_back(pastEnd);
   Fec emptySlot = fecs[1];
   emptySlot.viaIs(Quarn::Fib::ViaIndex(2), Via());
   emptySlot.backupViaIndexIs(2);
   fecs.push_back(emptySlot);
   Fec many(FecId(AdjType::fibGenAdj, 99));
   for (std::uint32_t i = 0; i < Fec::maxVias; ++i)
      many.viaAppend(Via(intf("Ethernet2"), i % 5, ip("10.0.0.2")));
   fecs.push_back(many);

   for (const Fec& fec : fecs) {
      const std::uint32_t b = fec.backupViaIndex();
      const std::uint32_t skip = b != 0 && b < fec.viaCount() ? b : fec.viaCount();
      for (std::uint32_t hash = 1; hash < 300; hash += 7) {
         auto nh = Velt::routingNexthopFactory(Lumo::IntfId());
         nh->fecIs(fec);
         resolver->resolveUcmp(contextFor("red", hash), nullptr, nh);
         const int want = expectedPick(fec, hash, skip);
         const Via got = nh->via();
         if (want < 0) {
            EXPECT_TRUE(Via::isEq(got, Via())) << fec.fecId().index() << " " << hash;
         } else {
            EXPECT_TRUE(Via::isEq(got, fec.vias()[want]))
                << fec.fecId().index() << " " << hash << " want " << want;
         }
      }
   }
}

// ---- neighbour lookup without a result object ----

TEST(ArpLookupMac, AnswersAsArpLookup) {
   using Arp::Table::ArpEntry;
   using Arp::Table::ArpKey;
   const Vrf::VrfIdMap::VrfId red(1);
   auto table = Pelin::make<Arp::Table::Status>("arp", Arp::Table::Status::Capacity{64, 64});
   table->entryIs(ArpEntry(ArpKey(intf("Ethernet1"), red, ip("10.0.0.2")),
                           mac("02:00:00:00:00:02")));
   table->entryIs(ArpEntry(ArpKey(intf("Ethernet1"), red, ip("2001:db8::2")),
                           mac("02:00:00:00:00:06")));
   table->entryIs(ArpEntry(ArpKey(intf("Ethernet2"), red, ip("10.0.0.3")), Lumo::EthAddr()));
   for (const auto& helper : {Velt::arpHelperFactory(table), Velt::arpHelperFactory(nullptr)}) {
      for (const char* intfName : {"Ethernet1", "Ethernet2"}) {
         for (const char* addr : {"10.0.0.2", "2001:db8::2", "10.0.0.3", "10.0.0.9"}) {
            const Lumo::EthAddr untouched = mac("0a:0b:0c:0d:0e:0f");
            Lumo::EthAddr got = untouched;
            const bool hit = helper->arpLookupMac(intf(intfName), ip(addr), red, got);
            auto result = helper->arpLookup(intf(intfName), ip(addr), red);
            ASSERT_EQ(hit, result != nullptr) << intfName << " " << addr;
            EXPECT_EQ(got, hit ? result->mac() : untouched) << intfName << " " << addr;
         }
      }
   }
}

} // namespace
