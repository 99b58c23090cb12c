// The resolution core: driver limits, fan-out, the step bases, the registry and the VRF
// roots.
#include "Pelin/Exception.h"
#include "ResolutionFixture.h"

namespace Velt::test {
namespace {

using ::testing::ElementsAre;
using Quarn::Fib::AdjType;
using Quarn::Fib::FecId;
using Quarn::FibGen::Fec;
using Quarn::FibGen::Via;

class Driver : public ResolutionTest {
 protected:
   Driver() { addBuiltInSteps(); }

   // Every Ethernet next hop is resolved by the default interface resolver.
   Pelin::Ptr<CountingResolver<InterfaceResolver>> arp =
       counting<InterfaceResolver>("ArpLookup", 0, giveMac);

   Pelin::Ptr<RoutingNexthop> onEthernet(std::uint32_t n) {
      auto nh = nexthop();
      nh->outputIntfIs(Lumo::IntfId(fmt::format("Ethernet{}", n)));
      return nh;
   }
   std::size_t linesWith(const std::string& text) const {
      std::size_t n = 0;
      for (const std::string& l : lines()) n += l.find(text) != std::string::npos;
      return n;
   }
};

TEST_F(Driver, ResolvedOnEntryOnlyTakesTheSourceVrf) {
   auto nh = nexthop("");
   nh->toMeIs(true);
   driver->resolve(rCtx, nh);
   EXPECT_EQ(nh->vrf(), L3::VrfName("red"));
   EXPECT_FALSE(nh->drop());
   EXPECT_THAT(lines(), ElementsAre("Velt::NHResolver/3 Nexthop vrf not set, setting to srcVrf red"));
}

TEST_F(Driver, NoVrfJumpsAllowedDropsAtOnce) {
   driver->maxVrfJumpingIs(0);
   auto nh = onEthernet(1);
   driver->resolve(rCtx, nh);
   EXPECT_TRUE(nh->drop());
   EXPECT_EQ(counted("Drop", "Could not resolve after {} iterations across vrfs"), 1u);
   EXPECT_THAT(lines(), ElementsAre("Velt::NHResolver/3 Could not resolve after 0 iterations across vrfs"));
}

TEST_F(Driver, EndlessVrfJumpsDropAfterFiveKeepingTheLastVrf) {
   // Each call asks for the other VRF: blue, red, blue...
   int n = 0;
   auto jumper = counting<InterfaceResolver>(
       "Jumper", Lumo::GenericIntfId::ethernetTypeId,
       [&n](RoutingNexthop& nh) { nh.vrfIs(L3::VrfName(++n % 2 ? "blue" : "red")); });
   resolvers->interfaceResolverIs(jumper);
   auto nh = onEthernet(1);
   driver->resolve(rCtx, nh);
   EXPECT_EQ(jumper->calls, 5);
   EXPECT_TRUE(nh->drop());
   EXPECT_EQ(nh->vrf(), L3::VrfName("blue"));
   EXPECT_EQ(linesWith("Resolver in vrf"), 5u);
   EXPECT_EQ(counted("Drop", "Could not resolve after {} iterations across vrfs"), 1u);
   EXPECT_EQ(lines().back(), "Velt::NHResolver/3 Could not resolve after 5 iterations across vrfs");
}

TEST_F(Driver, PassLimitInOneVrfDrops) {
   auto stuck = counting<DstIpResolver>("Stuck", Lumo::AddressFamily::ipv4_);
   resolvers->dstIpResolverIs(stuck);
   auto nh = nexthop();
   nh->dstIpIs(Lumo::IpGenAddr("10.0.0.1"));
   driver->resolveInVrf(rCtx, nh);
   EXPECT_EQ(stuck->calls, 20);
   EXPECT_TRUE(nh->drop());
   EXPECT_EQ(counted("Drop", "Could not resolve after {} iterations"), 1u);
   EXPECT_EQ(lines().back(), "Velt::NHResolver/3 Could not resolve after 20 iterations");
}

TEST_F(Driver, NonHierarchicalStopsAfterTheFirstHandledPass) {
   auto once = counting<InterfaceResolver>("Once", Lumo::GenericIntfId::ethernetTypeId);
   resolvers->interfaceResolverIs(once);
   auto nh = onEthernet(1);
   nh->resolveHierarchicalIs(false);
   driver->resolveInVrf(rCtx, nh);
   EXPECT_EQ(once->calls, 1);
   EXPECT_FALSE(nh->drop());
   EXPECT_EQ(counted("Action", "Stopping resolution because hierarchical is false"), 1u);
}

TEST_F(Driver, UnknownVrfAndEmptyPassDrop) {
   auto nh = onEthernet(1);
   nh->vrfIs(L3::VrfName("green"));
   driver->resolve(rCtx, nh);
   EXPECT_TRUE(nh->drop());
   EXPECT_EQ(nh->vrf(), L3::VrfName("green"));
   EXPECT_EQ(counted("Drop", "Could not find resolver vrf root for vrf {}"), 1u);
   EXPECT_THAT(lines(), ::testing::Contains(
                            "Velt::NHResolver/3 Could not find resolver vrf root for vrf green"));

   nh = onEthernet(1); // no interface resolver: every step lets the pass through
   driver->resolveInVrf(rCtx, nh);
   EXPECT_TRUE(nh->drop());
   EXPECT_EQ(counted("Exceptional", "Could not resolve, nexthop is empty"), 1u);
}

TEST_F(Driver, FanOutFollowsParentsFirstToTheDepthLimit) {
   resolvers->interfaceResolverIs(arp);
   auto input = routingNexthopsFactory();
   auto dropped = onEthernet(99);
   dropped->dropIs(true);
   input->nexthopEnq(dropped);
   // A chain 1 -> 2 -> ... -> 6 of five nested levels below the input queue.
   std::vector<Pelin::Ptr<RoutingNexthop>> chain;
   for (std::uint32_t i = 1; i <= 6; ++i) chain.push_back(onEthernet(i));
   for (std::size_t i = 0; i + 1 < chain.size(); ++i)
      chain[i]->mcastDstNexthopsIs()->nexthopEnq(chain[i + 1]);
   input->nexthopEnq(chain[0]);
   chain[1]->mcastDstNexthops()->nexthopEnq(onEthernet(50));
   input->nexthopEnq(onEthernet(60));

   auto result = driver->resolveNexthops(rCtx, input);
   std::vector<std::string> order;
   for (auto it = result->nexthop().begin(); it; ++it)
      order.push_back(fmt::format("{}", (*it)->outputIntf()));
   EXPECT_THAT(order, ElementsAre("Ethernet1", "Ethernet2", "Ethernet3", "Ethernet4",
                                  "Ethernet5", "Ethernet50", "Ethernet60"));
   EXPECT_EQ(chain[5]->dstMac(), Lumo::EthAddr()) << "the fifth nested level is not resolved";
   EXPECT_EQ(counted("Exceptional", "Could not recurse further, counter={}"), 1u);
   EXPECT_EQ(linesWith("Could not recurse further, counter=0"), 1u);

   EXPECT_TRUE(driver->resolveNexthops(rCtx, routingNexthopsFactory())->empty());
}

TEST_F(Driver, StepCallAssertsOnAForeignContext) {
   auto step = nhrFecTypeStepFactory(resolvers);
   EXPECT_DEATH(step->call(Pelin::make<GenericPipelineContext>()),
                "Assertion failed: nhrCtx\n  in virtual void Velt::NhrPipelineStep::call");
}

TEST_F(Driver, VerboseBitDumpsTheNexthopAfterEveryStep) {
   auto nh = onEthernet(1);
   onePass(nh);
   EXPECT_EQ(linesWith("NH: "), 0u);
   velt_trace_verbose_bitmap = 1;
   capture.clear();
   onePass(nh);
   EXPECT_EQ(linesWith("Velt::NHResolver/9 NH: "), 6u);
   EXPECT_EQ(lines()[3], "Velt::NHResolver/9 NH: Intf: Ethernet1 dstMac: 00:00:00:00:00:00 "
                         "dstIp:  fecId: 0 fec: false via: false")
       << "after the interface step's own lines";
}

TEST(NexthopResolvers, LastRegistrationWinsAndNullIsRefused) {
   auto registry = nexthopResolversFactory();
   auto first = counting<FecTypeResolver>("first", 1);
   auto second = counting<FecTypeResolver>("second", 1);
   registry->fecTypeResolverIs(first);
   registry->fecTypeResolverIs(second);
   EXPECT_EQ(registry->fecTypeResolver(1), second);
   EXPECT_EQ(first->references(), 1u);
   try {
      registry->fecTypeResolverIs(nullptr);
      ADD_FAILURE() << "a null resolver was accepted";
   } catch (const Pelin::NullArgumentException& e) {
      EXPECT_EQ(e.attribute(), "fecTypeResolver");
   }
   EXPECT_EQ(registry->fecTypeResolver(1), second);
   EXPECT_EQ(registry->dstIpResolverDel(Lumo::AddressFamily::ipv6_), nullptr);
}

TEST_F(Driver, VrfRootsRefuseReinstantiationNamingTheIdFirst) {
   auto attributeOf = [&](std::uint32_t id, const Pelin::Ptr<Quarn::FibGen::ForwardingStatus>& t) {
      try {
         vrfRoots->vrfRootIs(L3::VrfName("red"), Vrf::VrfIdMap::VrfId(id), t);
      } catch (const Pelin::ReinstantiationException& e) {
         return e.attribute();
      }
      return std::string("none");
   };
   EXPECT_EQ(attributeOf(9, blueTable), "vrfId");
   EXPECT_EQ(attributeOf(1, blueTable), "fwdStatus");
   EXPECT_EQ(attributeOf(1, redTable), "none");
   EXPECT_EQ(vrfRoots->vrfRootIs(L3::VrfName("red"), Vrf::VrfIdMap::VrfId(1), redTable), red);
}

TEST_F(Driver, GenFecWithoutTableOrFromACorruptTableIsEmpty) {
   const FecId id(AdjType::fibGenAdj, 3);
   EXPECT_EQ(resolverVrfRootFactory(L3::VrfName("none"), Vrf::VrfIdMap::VrfId(3), nullptr)->genFec(id), Fec());
   Fec fec(id);
   fec.viaAppend(Via(Lumo::IntfId("Ethernet1"), 1, Lumo::IpGenAddr("10.0.0.1")));
   redTable->fecIs(fec);
   EXPECT_EQ(red->genFec(id), fec);
   redTable->debugCorruptFec(id);
   EXPECT_EQ(red->genFec(id), Fec());
   EXPECT_EQ(redTable->corruptionCount(), 1u);
   EXPECT_FALSE(redTable->lastCorruption().empty());
}

} // namespace
} // namespace Velt::test
