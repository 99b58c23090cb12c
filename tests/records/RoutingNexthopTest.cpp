#include "VeltLib/RoutingContext.h"
#include "VeltLib/RoutingNexthop.h"

#include "Kor/Publisher.h"
#include "Pelin/Exception.h"
#include "Trace/Trace.h"
#include "VeltLib/Traces.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using namespace Velt;

const Lumo::EthAddr kMac("02:00:00:00:00:01");

struct CountingNotifiee : Kor::Notifiee {
   void onAttribute(Kor::AttrId a) override { seen.push_back(a); }
   std::vector<Kor::AttrId> seen;
};

Pelin::Ptr<RoutingNexthop> resolvedEverywhere() {
   auto nh = routingNexthopFactory(Lumo::IntfId("Ethernet1"));
   nh->dstMacIs(kMac);
   nh->dstIpIs(Lumo::IpGenAddr("10.0.0.2"));
   nh->fecIdIs(Quarn::Fib::FecId(Quarn::Fib::AdjType::fibGenAdj, 7));
   Quarn::FibGen::Fec fec(nh->fecId());
   fec.viaAppend(Quarn::FibGen::Via(Lumo::IntfId("Ethernet1"), 1, Lumo::IpGenAddr("10.0.0.2")));
   nh->fecIs(fec);
   nh->viaIs(fec.vias()[0]);
   nh->routeIs(Lumo::IpGenPrefix("10.0.0.0/24"));
   nh->vrfIs("red");
   nh->kernelHandlesPacketIs(true);
   nh->arpLookupFailActionIs(ArpLookupFailAction::dropTraceCount);
   return nh;
}

void expectResolutionFieldsReset(const RoutingNexthop& nh) {
   EXPECT_EQ(nh.dstIp(), Lumo::IpGenAddr());
   EXPECT_FALSE(nh.fecId().isValid());
   EXPECT_EQ(nh.fec(), Quarn::FibGen::Fec(Quarn::Fib::FecId()));
   EXPECT_EQ(nh.via(), Quarn::FibGen::Via());
   EXPECT_EQ(nh.route(), Lumo::IpGenPrefix());
}

void expectKeptFields(const RoutingNexthop& nh, const Pelin::Ptr<RewriteInfos>& rewrites) {
   EXPECT_EQ(nh.dstMac(), kMac);
   EXPECT_EQ(nh.vrf(), "red");
   EXPECT_TRUE(nh.kernelHandlesPacket());
   EXPECT_EQ(nh.arpLookupFailAction(), ArpLookupFailAction::dropTraceCount);
   EXPECT_EQ(nh.rewrites(), rewrites);
}

TEST(RoutingNexthop, FullyResolvedTestsToMeThenCpuThenValidInterfaceAndMac) {
   auto cpu = routingNexthopFactory(Lumo::cpuIntfId());
   EXPECT_TRUE(cpu->fullyResolved());

   auto eth = routingNexthopFactory(Lumo::IntfId("Ethernet3"));
   EXPECT_FALSE(eth->fullyResolved());
   eth->dstMacIs(kMac);
   EXPECT_TRUE(eth->fullyResolved());
   eth->dropIs(true); // drop does not enter into it
   EXPECT_TRUE(eth->fullyResolved());

   auto none = routingNexthopFactory(Lumo::IntfId());
   none->dstMacIs(kMac);
   EXPECT_FALSE(none->fullyResolved());
   none->toMeIs(true);
   EXPECT_TRUE(none->fullyResolved());
}

TEST(RoutingNexthop, CpuTrapAndResetKeepMacFlagsVrfPolicyAndRewrites) {
   auto nh = resolvedEverywhere();
   auto rewrites = nh->rewrites();
   nh->setCpuTrapNexthop();
   EXPECT_TRUE(nh->outputIntf().isCpu());
   expectResolutionFieldsReset(*nh);
   expectKeptFields(*nh, rewrites);

   nh = resolvedEverywhere();
   rewrites = nh->rewrites();
   nh->resetResolverFields(nullptr);
   EXPECT_FALSE(nh->outputIntf().isValid());
   expectResolutionFieldsReset(*nh);
   expectKeptFields(*nh, rewrites);
}

TEST(RoutingNexthop, ResetIsTracedOnThePacket) {
   Trace::Capture capture;
   const_cast<Trace::Handle&>(routingTrace()).levelsIs(~0u);
   auto base = Pelin::make<PacketContextBase>(42);
   auto pkt = Pelin::make<PacketContext>(*base);
   routingNexthopFactory(Lumo::IntfId("Ethernet1"))->resetResolverFields(pkt);
   const_cast<Trace::Handle&>(routingTrace()).levelsIs(0);
   ASSERT_EQ(capture.lines().size(), 1u);
   EXPECT_NE(capture.lines()[0].find("Pkt42: resetResolverFields"), std::string::npos);
}

TEST(RoutingNexthop, RewritesAndFanOutAreGetOrCreate) {
   auto nh = routingNexthopFactory(Lumo::IntfId());
   auto first = nh->rewritesIs();
   EXPECT_EQ(nh->rewritesIs(), first);
   EXPECT_EQ(nh->rewritesDel(), first);
   EXPECT_FALSE(nh->rewrites());
   auto fresh = nh->rewritesIs();
   EXPECT_NE(fresh, first);
   EXPECT_EQ(fresh->rewriteInfo().size(), 0u);

   EXPECT_FALSE(nh->mcastDstNexthops());
   auto fan = nh->mcastDstNexthopsIs();
   EXPECT_EQ(nh->mcastDstNexthopsIs(), fan);
   EXPECT_EQ(nh->mcastDstNexthopsDel(), fan);
}

TEST(RoutingNexthop, MutatorsPublishOnlyRealChanges) {
   auto nh = routingNexthopFactory(Lumo::IntfId("Ethernet1"));
   CountingNotifiee watcher;
   watcher.notifierIs(nh.get());
   watcher.hasNotificationActiveIs(true);
   nh->outputIntfIs(Lumo::IntfId("Ethernet1"));
   nh->dropIs(false);
   EXPECT_TRUE(watcher.seen.empty());
   nh->dropIs(true);
   nh->resolveHierarchicalIs(false);
   nh->resolveHierarchicalIs(false);
   EXPECT_EQ(watcher.seen.size(), 2u);
   EXPECT_FALSE(nh->config().resolveHierarchical); // the same storage as config
   watcher.notifierIs(nullptr);
}

TEST(RoutingNexthop, VrfNameLongerThan100BytesIsRefused) {
   auto nh = routingNexthopFactory(Lumo::IntfId());
   nh->vrfIs(std::string(100, 'v'));
   try {
      nh->vrfIs(std::string(101, 'v'));
      FAIL();
   } catch (const Pelin::RangeException& e) {
      EXPECT_STREQ(e.what(), "Kor::String::bytes > maxLength() not allowed");
   }
   EXPECT_EQ(nh->vrf().size(), 100u);
}

TEST(RoutingNexthop, AttributesReachableByName) {
   auto nh = routingNexthopFactory(Lumo::IntfId("Ethernet3"));
   EXPECT_EQ(Kor::get(*nh, "outputIntf"), "Ethernet3");
   Kor::set(*nh, "dstMac", "02:00:00:00:00:01");
   EXPECT_EQ(nh->dstMac(), kMac);
   EXPECT_EQ(Kor::get(*nh, "fullyResolved"), "true");
   EXPECT_EQ(Kor::attributes(*nh).size(), 21u);
   EXPECT_EQ(Kor::attributes(*nh)[20].name, "mcastDstNexthops");
   Kor::invoke(*nh, "setCpuTrapNexthop");
   EXPECT_EQ(Kor::get(*nh, "outputIntf"), "Cpu");
}

TEST(RoutingNexthops, QueueSemantics) {
   auto q = routingNexthopsFactory();
   EXPECT_FALSE(q->nexthopDeq());
   EXPECT_FALSE(q->anyFullyResolved());
   auto a = routingNexthopFactory(Lumo::IntfId("Ethernet1"));
   auto b = routingNexthopFactory(Lumo::cpuIntfId());
   q->nexthopEnq(a);
   q->nexthopEnq(b);
   EXPECT_TRUE(q->anyFullyResolved());
   EXPECT_EQ(q->nexthopFront(), a);
   EXPECT_EQ(q->nexthopBack(), b);
   EXPECT_EQ(q->nexthopDeq(), a);
   q->nexthopDelAll();
   EXPECT_TRUE(q->empty());
}

TEST(NexthopConfig, ParsesActionFirstAndNamesItOnError) {
   NexthopConfig c("{arpLookupFailAction=silentlyIgnore, resolveHierarchical=false}");
   EXPECT_EQ(c.arpLookupFailAction, ArpLookupFailAction::silentlyIgnore);
   EXPECT_FALSE(c.resolveHierarchical);
   EXPECT_TRUE(NexthopConfig::isEq(c, Kor::fromText<NexthopConfig>(Kor::toText(c))));
   EXPECT_FALSE(NexthopConfig::isEq(c, NexthopConfig()));
   try {
      NexthopConfig("{arpLookupFailAction=bogus, resolveHierarchical=true}");
      FAIL();
   } catch (const Pelin::DeserializationException& e) {
      EXPECT_EQ(e.attribute(), "arpLookupFailAction");
   }
   EXPECT_STREQ(stringValue(ArpLookupFailAction::trapTraceCount), "trapTraceCount");
}

TEST(RoutingContext, TakesIdentityFromThePacketContext) {
   auto empty = routingContextFactory(nullptr, Lumo::IntfId(), "default");
   EXPECT_EQ(empty->id(), 0u);
   EXPECT_FALSE(empty->counters());
   EXPECT_TRUE(empty->tracePrefix().empty());
   EXPECT_EQ(empty->ipTtl(), RoutingContext::ttlNotSet);
   EXPECT_FALSE(empty->getPkt());

   PacketContextBase base(9);
   base.countersIs(Pelin::make<VeltNamedCounters>());
   base.tracePrefixIs("agent");
   auto pkt = Pelin::make<PacketContext>(base);
   auto ctx = routingContextFactory(pkt, Lumo::IntfId("Ethernet2"), "red");
   EXPECT_EQ(ctx->id(), 9u);
   EXPECT_EQ(ctx->counters(), base.counters());
   EXPECT_EQ(ctx->tracePrefix(), "agent");
   EXPECT_EQ(ctx->srcVrf(), "red");
}

TEST(RecordsAllocation, ScenarioLeavesNothingLive) {
   auto before = Pallox::liveCountOf<RoutingNexthop>();
   {
      auto q = routingNexthopsFactory();
      for (int i = 0; i < 20; ++i) q->nexthopEnq(resolvedEverywhere());
      q->nexthopFront()->mcastDstNexthopsIs()->nexthopEnq(resolvedEverywhere());
   }
   EXPECT_EQ(Pallox::liveCountOf<RoutingNexthop>(), before);
   EXPECT_EQ(Pallox::liveCountOf<RewriteInfos>(), 0u);
}

} // namespace
