// The built-in steps driven by the real driver over real VRF roots and tables.
#include "ResolutionFixture.h"

namespace Velt::test {
namespace {

using ::testing::ElementsAre;
using Quarn::Fib::AdjType;
using Quarn::Fib::FecId;
using Quarn::FibGen::Fec;
using Quarn::FibGen::Via;

const FecId kFec5(AdjType::fibGenAdj, 5);
const Lumo::IntfId kEth1("Ethernet1");
const Lumo::IntfId kEth2("Ethernet2");
const Lumo::IpGenAddr kHop("10.0.0.2");

using PipelineSteps = ResolutionTest;

// A FEC id walks through every dispatching step once, in priority order, whatever the
// order the steps were added in; each line at level 3.
TEST_F(PipelineSteps, FecIdResolvesThroughTheStepsInPriorityOrder) {
   addBuiltInSteps();
   Fec fec(kFec5);
   fec.viaAppend(Via(kEth1, 1, kHop));
   redTable->fecIs(fec);
   resolvers->fecIdResolverIs(fibGenAdjFecIdResolverFactory());
   // Stands in for the forward resolver: picks the only via.
   auto forward = counting<FecTypeResolver>("Forward", Quarn::FibGen::FecType::forward,
                                            [](RoutingNexthop& nh) {
                                               Via via = nh.fec().via(Quarn::Fib::ViaIndex(0));
                                               nh.resetResolverFields(nullptr);
                                               nh.viaIs(via);
                                            });
   resolvers->fecTypeResolverIs(forward);
   auto arp = counting<InterfaceResolver>("ArpLookup", 0, giveMac);
   resolvers->interfaceResolverIs(arp);

   auto nh = nexthop();
   nh->fecIdIs(kFec5);
   driver->resolve(rCtx, nh);

   EXPECT_TRUE(nh->fullyResolved());
   EXPECT_FALSE(nh->drop());
   EXPECT_EQ(nh->outputIntf(), kEth1);
   EXPECT_EQ(nh->dstIp(), kHop);
   EXPECT_EQ(nh->vrf(), L3::VrfName("red"));
   EXPECT_EQ(forward->calls, 1);
   EXPECT_EQ(arp->calls, 1);
   const std::string n = "Velt::NHResolver/3 ";
   EXPECT_THAT(lines(),
               ElementsAre(n + "Resolver in vrf red",
                           n + "Step: InterfaceType", n + "Step: CopyViaNexthop",
                           n + "Step: FecType", n + "Step: FecIdType",
                           n + "Lookup fecId resolver for fibGenAdj:5(18)",
                           n + "Found resolver fibGenAdj",
                           n + "Step: InterfaceType", n + "Step: CopyViaNexthop",
                           n + "Step: FecType", n + "Lookup fecType resolver for 0",
                           n + "Found resolver Forward",
                           n + "Step: InterfaceType", n + "Step: CopyViaNexthop",
                           n + "Resolving via",
                           n + "Step: InterfaceType",
                           n + "Lookup interface resolver for Ethernet1(2)",
                           n + "No specific resolver found, using default",
                           n + "Found resolver ArpLookup"));
}

TEST_F(PipelineSteps, InterfaceTypeStepPrefersTheTypesOwnResolver) {
   steps->stepIs(nhrInterfaceTypeStepFactory(resolvers));
   auto nh = nexthop();
   EXPECT_TRUE(onePass(nh)) << "no interface: the step does not apply";

   nh->outputIntfIs(kEth1);
   EXPECT_TRUE(onePass(nh)) << "no resolver at all: the pass goes on";
   auto after = Pelin::make<ScriptedStep<NhrPipelineStep>>("After", 15000, false);
   steps->stepIs(after);
   EXPECT_FALSE(onePass(nh));
   EXPECT_EQ(after->calls, 1);

   auto arp = counting<InterfaceResolver>("ArpLookup", 0);
   auto eth = counting<InterfaceResolver>("Eth", Lumo::GenericIntfId::ethernetTypeId);
   resolvers->interfaceResolverIs(arp);
   resolvers->interfaceResolverIs(eth);
   capture.clear();
   EXPECT_FALSE(onePass(nh)) << "a resolver that leaves the next hop unresolved ends the pass";
   EXPECT_EQ(eth->calls, 1);
   EXPECT_EQ(arp->calls, 0);
   EXPECT_EQ(after->calls, 1);
   EXPECT_THAT(lines(), ElementsAre("Velt::NHResolver/3 Step: InterfaceType",
                                    "Velt::NHResolver/3 Lookup interface resolver for Ethernet1(2)",
                                    "Velt::NHResolver/3 Found resolver Eth"));
}

TEST_F(PipelineSteps, InterfaceOfTypeZeroWithoutDefaultResolverAsserts) {
   steps->stepIs(nhrInterfaceTypeStepFactory(resolvers));
   auto nh = nexthop();
   nh->outputIntfIs(Lumo::IntfId::fromValue(7));
   EXPECT_DEATH(onePass(nh),
                "Assertion failed: Lumo::GenericIntfId::typeId\\( inNexthop->outputIntf\\(\\) \\) "
                "!= 0\n  in virtual bool Velt::NhrInterfaceTypeStep::process\\(const Ptr&\\)");
}

// A FEC or FEC id nobody resolves is a drop, counted and traced at 5 (8 with a prefix); a
// destination IP nobody resolves goes on to the next step.
TEST_F(PipelineSteps, MissingResolversDropFecsButNotDestinations) {
   addBuiltInSteps();
   auto nh = nexthop();
   Fec fec(kFec5);
   fec.fecTypeIs(3);
   nh->fecIs(fec);
   EXPECT_FALSE(onePass(nh));
   EXPECT_TRUE(nh->drop());
   EXPECT_EQ(counted("Drop", "No resolver for fecType"), 1u);
   EXPECT_EQ(lines().back(), "Velt::NHResolver/5 No resolver for fecType");

   rCtx->tracePrefixIs("pfx");
   nh = nexthop();
   nh->fecIdIs(FecId(AdjType(7), 1));
   EXPECT_FALSE(onePass(nh));
   EXPECT_TRUE(nh->drop());
   EXPECT_EQ(counted("Drop", "No resolver for fecId type"), 1u);
   EXPECT_EQ(lines().back(), "Velt::NHResolver/8 No resolver for fecId type");
   EXPECT_THAT(lines(), ::testing::Contains("Velt::NHResolver/6 Lookup fecId resolver for 7:1(7)"));

   rCtx->tracePrefixIs("");
   rCtx->countersIs(nullptr); // no sink: the same outcome, nothing counted
   nh = nexthop();
   nh->fecIs(fec);
   EXPECT_FALSE(onePass(nh));
   EXPECT_TRUE(nh->drop());
   EXPECT_EQ(counted("Drop", "No resolver for fecType"), 1u);

   auto v6 = counting<DstIpResolver>("v6", Lumo::AddressFamily::ipv6_);
   resolvers->dstIpResolverIs(v6);
   nh = nexthop();
   nh->dstIpIs(Lumo::IpGenAddr("10.1.1.1"));
   nh->routeIs(Lumo::IpGenPrefix("10.1.0.0/16")); // keeps the fallback out of it
   capture.clear();
   EXPECT_TRUE(onePass(nh));
   EXPECT_FALSE(nh->drop());
   EXPECT_EQ(v6->calls, 0);
   EXPECT_THAT(lines(), ::testing::Contains("Velt::NHResolver/3 Lookup dstIp resolver for 10.1.1.1"));
   EXPECT_EQ(lines().back(), "Velt::NHResolver/3 Step: NoIpRouteFallbackStep");

   auto v4 = counting<DstIpResolver>("v4", Lumo::AddressFamily::ipv4_);
   resolvers->dstIpResolverIs(v4);
   EXPECT_FALSE(onePass(nh));
   EXPECT_EQ(v4->calls, 1);
}

TEST_F(PipelineSteps, CopyViaTakesTheViasFieldsAndAsksForItsVrf) {
   steps->stepIs(nhrCopyViaNexthopStepFactory(l3Intfs));
   auto nh = nexthop();
   EXPECT_TRUE(onePass(nh)) << "default via: nothing to copy";

   nh->viaIs(Via(kEth1, 1, Lumo::IpGenAddr()));
   EXPECT_FALSE(onePass(nh, red));
   EXPECT_EQ(nh->outputIntf(), kEth1);
   EXPECT_EQ(nh->vrf(), L3::VrfName("red")) << "same VRF: no jump asked";
   EXPECT_FALSE(nh->fecId().isValid());
   EXPECT_EQ(nh->dstIp(), Lumo::IpGenAddr());

   nh = nexthop("");
   nh->viaIs(Via(kEth2, 1, kHop, kFec5));
   EXPECT_FALSE(onePass(nh, red));
   EXPECT_EQ(nh->outputIntf(), kEth2);
   EXPECT_EQ(nh->vrf(), L3::VrfName("blue"));
   EXPECT_EQ(nh->fecId(), kFec5);
   EXPECT_EQ(nh->dstIp(), kHop);
   EXPECT_EQ(nh->via(), Via(kEth2, 1, kHop, kFec5)) << "the via stays for later steps";

   nh = nexthop("");
   nh->viaIs(Via(Lumo::IntfId("Ethernet7"), 1, kHop));
   EXPECT_FALSE(onePass(nh, red));
   EXPECT_TRUE(nh->vrf().empty()) << "unknown interface: no jump";
}

TEST_F(PipelineSteps, FallbackTrapsToCpuUnlessAFallbackStepTakesTheNexthop) {
   steps->stepIs(noIpRouteFallbackStepFactory(fallback));
   auto nh = nexthop();
   EXPECT_TRUE(onePass(nh));
   nh->dstIpIs(Lumo::IpGenAddr("10.9.9.9"));
   nh->routeIs(Lumo::IpGenPrefix("10.9.0.0/16"));
   EXPECT_TRUE(onePass(nh));
   EXPECT_EQ(nh->outputIntf(), Lumo::IntfId());
   EXPECT_EQ(counted("Action", "No route, trying fallbacks for {}"), 0u);

   nh->routeIs(Lumo::IpGenPrefix());
   capture.clear();
   EXPECT_TRUE(onePass(nh)) << "the fallback step always lets the pass go on";
   EXPECT_EQ(nh->outputIntf(), Lumo::cpuIntfId());
   EXPECT_EQ(nh->dstIp(), Lumo::IpGenAddr());
   EXPECT_EQ(counted("Action", "No route, trying fallbacks for {}"), 1u);
   EXPECT_THAT(lines(), ElementsAre("Velt::NHResolver/3 Step: NoIpRouteFallbackStep",
                                    "Velt::NHResolver/3 No route, trying fallbacks for 10.9.9.9"));

   auto takes = Pelin::make<ScriptedStep<NoIpRouteFallbackPipelineStep>>(
       "Takes", 1, false, [](RoutingNexthop& nh) {
          nh.outputIntfIs(kEth1);
          giveMac(nh);
       });
   fallbackSteps->stepIs(takes);
   nh = nexthop();
   nh->dstIpIs(Lumo::IpGenAddr("10.9.9.9"));
   capture.clear();
   EXPECT_TRUE(onePass(nh));
   EXPECT_EQ(takes->calls, 1);
   EXPECT_EQ(nh->outputIntf(), kEth1);
   EXPECT_EQ(nh->dstIp(), Lumo::IpGenAddr("10.9.9.9"));
   EXPECT_EQ(lines().back(), "Velt::NHResolver/3 No IP route fallback step: Takes");
}

} // namespace
} // namespace Velt::test
