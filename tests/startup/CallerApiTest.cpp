// The caller API: one call resolves a next hop in a VRF through the root's driver, and
// the holder singleton publishes the helper agents share.
#include "Quarn/ForwardingStatus.h"
#include "Quarn/TableInfo.h"
#include "StartupFixture.h"
#include "VeltLib/NexthopResolverHelper.h"
#include "VeltLib/RoutingContext.h"

#include <gmock/gmock.h>

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
      bool hasPkt;
   };
   RecordingStep() : Velt::NhrPipelineStep("Recording", 1) {}
   bool process(const Pelin::Ptr<Velt::NhrPipelineContext>& nhrCtx) override {
      const auto& rCtx = nhrCtx->rCtx();
      seen.push_back({rCtx->pktCtx()->id(), rCtx->l3SrcIntfId(),
                      std::string(rCtx->srcVrf().view()), rCtx->getPkt() != nullptr});
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
   EXPECT_FALSE(step->seen[0].hasPkt);
   EXPECT_TRUE(first->drop()) << "the driver's outcome is left in the next hop";
   EXPECT_EQ(first->vrf(), "red");

   // A VRF without a root: the driver drops before any step runs; the number is used.
   auto lost = nexthop();
   helper->resolve(lost, "blue");
   EXPECT_TRUE(lost->drop());
   EXPECT_EQ(step->seen.size(), 3u);
   EXPECT_EQ(NexthopResolverHelper::nextPacketContextId(), n + 4);
}

TEST_F(CallerApi, ResolveWithPktWithoutParserRootStops) {
   auto helper = Velt::nexthopResolverHelperFactory(root);
   EXPECT_DEATH(helper->resolveWithPkt(nexthop(), "red", Pelin::make<Lumo::Pkt>()),
                "Assertion failed: parserRoot\\(\\)");
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

// What an agent does: start the root with the plugins built beside the library, then
// resolve through the published helper.
using CallerApiEndToEnd = VeltTest::StartupTest;

TEST_F(CallerApiEndToEnd, ResolvesThroughPluginsLoadedFromTheDefaultFolder) {
   using Quarn::FibGen::Fec;
   Quarn::FibGen::ForwardingStatus::Capacity capacity;
   capacity.fecs = 16;
   capacity.viaPoolBytes = 1 << 16;
   capacity.routes = 16;
   auto red = Pelin::make<Quarn::FibGen::ForwardingStatus>("red", capacity);
   const Quarn::Fib::FecId receive(Quarn::Fib::AdjType::fibGenAdj, 3);
   Fec fec(receive);
   fec.fecTypeIs(Quarn::FibGen::FecType::receive);
   red->fecIs(fec);
   red->routeIs(Lumo::IpGenPrefix(Lumo::IpGenAddr("10.9.0.0"), 16), receive);
   Wexa::sharedMemoryEntityManager("sys", false)
       ->entityIs(Quarn::Fib::TableInfo::fecMountPath(Lumo::AddressFamily::ipunknown_,
                                                      "red", "rib"),
                  red);
   up("red", 1);
   unsetenv(Plugin::pluginPathVariable);
   pluginsAre("builtins,routeLookup");

   auto root = Velt::NexthopResolverRoot::nexthopResolverRoot();
   init(root, em);
   em->loop()->runUntilIdle();
   ASSERT_NE(root->nhrPlugins()->plugin("builtins"), nullptr);
   ASSERT_NE(root->nhrPlugins()->plugin("routeLookup"), nullptr);
   RoutingNexthopResolverHelperHolder::singleton()->helperIs(
       Velt::nexthopResolverHelperFactory(root));

   auto nexthop = Velt::routingNexthopFactory(Lumo::IntfId());
   nexthop->dstIpIs(Lumo::IpGenAddr("10.9.0.1"));
   RoutingNexthopResolverHelperHolder::singleton()->helper()->resolve(nexthop, "red");
   EXPECT_TRUE(nexthop->toMe());
   EXPECT_FALSE(nexthop->drop());
   EXPECT_EQ(nexthop->vrf(), "red");
   Kor::singletonDel(RoutingNexthopResolverHelperHolder::singletonName);
}

} // namespace
