// The resolver root: what construction wires, what init starts, and the plugins it loads
// from VELT_NHR_PLUGINS through the real loader.
#include "Pelin/Exception.h"
#include "StartupFixture.h"
#include "Trace/Trace.h"
#include "VeltLib/RoutingContext.h"
#include "plugins/TestPlugins.h"

#include <gmock/gmock.h>

namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using Velt::NexthopResolverRoot;

constexpr const char* kCompleteInit =
    "void Velt::NhrPluginBase::completePluginInit(const "
    "Pelin::Ptr<Wexa::EntityManager>&)";

class ResolverRoot : public VeltTest::StartupTest {
 protected:
   static Pelin::Ptr<NexthopResolverRoot> root() {
      return NexthopResolverRoot::nexthopResolverRoot();
   }
   std::string initError(const Pelin::Ptr<NexthopResolverRoot>& r) {
      try {
         init(r, em);
      } catch (const Pelin::Exception& e) {
         return e.what();
      }
      ADD_FAILURE() << "init raised nothing";
      return {};
   }
   static bool hasInstantStep(const Pelin::Ptr<NexthopResolverRoot>& r) {
      return r->nexthopResolverSteps()->step(VeltTest::instantStepName) != nullptr;
   }
   static Pelin::String mountingResolver(const Pelin::Ptr<NexthopResolverRoot>& r) {
      auto resolver = r->resolvers()->dstIpResolver(Lumo::AddressFamily::ipv4_);
      return resolver ? resolver->name() : "none";
   }
};

TEST_F(ResolverRoot, ConstructionWiresEmptyPartsAndResolvesNothingBeforeInit) {
   auto r = root();
   EXPECT_EQ(r, root());
   EXPECT_EQ(r, Kor::singleton<NexthopResolverRoot>());
   EXPECT_EQ(r->name(), "Velt::NexthopResolverRoot");

   EXPECT_EQ(r->nexthopResolverSteps()->name(), "NhrPipeline");
   EXPECT_TRUE(r->nexthopResolverSteps()->empty());
   EXPECT_EQ(r->noIpRouteFallbackSteps()->name(), "NoIpRouteFallbackPipeline");
   EXPECT_TRUE(r->noIpRouteFallbackSteps()->empty());
   EXPECT_EQ(r->resolver()->steps(), r->nexthopResolverSteps());
   EXPECT_EQ(r->resolver()->resolvers(), r->resolvers());
   EXPECT_EQ(r->resolver()->vrfRoots(), r->vrfRoots());
   EXPECT_EQ(r->noIpRouteFallbackPipeline()->steps(), r->noIpRouteFallbackSteps());
   const auto& reg = *r->resolvers();
   EXPECT_EQ(reg.interfaceResolver().size() + reg.fecTypeResolver().size() +
                 reg.fecIdResolver().size() + reg.dstIpResolver().size(),
             0u);
   EXPECT_TRUE(r->nhrPlugins()->plugin().empty());
   EXPECT_EQ(r->vrfRootSm(), nullptr);
   EXPECT_EQ(r->pluginContext(), nullptr);
   EXPECT_FALSE(r->initialized());

   // Not even the default VRF has a root before init.
   auto counters = Pelin::make<VeltNamedCounters>();
   PacketContextBase base(7);
   base.countersIs(counters);
   auto rCtx = Velt::routingContextFactory(Pelin::make<PacketContext>(base),
                                           Lumo::IntfId(), L3::VrfName("default"));
   auto nexthop = Velt::routingNexthopFactory(Lumo::IntfId("Ethernet1"));
   r->resolver()->resolve(rCtx, nexthop);
   EXPECT_TRUE(nexthop->drop());
   EXPECT_EQ(counters->value("Drop", "NHResolver",
                             "Could not find resolver vrf root for vrf {}"),
             1u);
}

TEST_F(ResolverRoot, MutatorsKeepWhatTheSameArgumentsWouldMakeAndPublishTheRest) {
   auto r = Velt::nexthopResolverRootFactory("root");
   VeltTest::AttrLog log(*r);
   auto steps = r->nexthopResolverSteps();
   auto driver = r->resolver();
   auto plugins = r->nhrPlugins();
   EXPECT_EQ(r->nexthopResolverStepsIs("NhrPipeline"), steps);
   EXPECT_EQ(r->resolverIs(steps, r->resolvers(), r->vrfRoots()), driver);
   EXPECT_EQ(r->noIpRouteFallbackPipelineIs(r->noIpRouteFallbackSteps()),
             r->noIpRouteFallbackPipeline());
   EXPECT_EQ(r->nhrPluginsIs(), plugins);
   EXPECT_TRUE(log.names.empty());

   auto other = r->nexthopResolverStepsIs("Other");
   EXPECT_NE(other, steps);
   EXPECT_EQ(other->name(), "Other");
   EXPECT_EQ(r->resolverIs(other, r->resolvers(), r->vrfRoots())->steps(), other);
   EXPECT_EQ(r->pluginContextDel(), nullptr);
   EXPECT_EQ(r->nhrPluginsDel(), plugins);
   EXPECT_EQ(r->nhrPlugins(), nullptr);
   EXPECT_THAT(log.names, ElementsAre("nexthopResolverSteps", "resolver", "nhrPlugins"));

   // pluginsLoaded is for observers, set through the attribute interface; initialized is
   // init's alone.
   log.names.clear();
   Kor::set(*r, "pluginsLoaded", "true");
   Kor::set(*r, "pluginsLoaded", "true");
   EXPECT_TRUE(r->pluginsLoaded());
   EXPECT_THAT(log.names, ElementsAre("pluginsLoaded"));
   EXPECT_EQ(Kor::get(*r, "initialized"), "false");
   EXPECT_THROW(Kor::set(*r, "initialized", "true"), Pelin::Exception);
}

TEST_F(ResolverRoot, InitStartsVrfRootsAndThePluginContextOnce) {
   up("red", 1);
   auto r = root();
   VeltTest::AttrLog log(*r);
   init(r, em);
   EXPECT_TRUE(r->initialized());
   ASSERT_NE(r->vrfRootSm(), nullptr);
   EXPECT_NE(r->vrfRoots()->vrfRoot("default"), nullptr);
   EXPECT_NE(r->vrfRoots()->vrfRoot("red"), nullptr);
   const auto& ctx = r->pluginContext();
   ASSERT_NE(ctx, nullptr);
   EXPECT_EQ(ctx->entityManager(), em);
   EXPECT_EQ(ctx->resolvers(), r->resolvers());
   EXPECT_EQ(ctx->resolver(), r->resolver());
   EXPECT_EQ(ctx->resolverSteps(), r->nexthopResolverSteps());
   EXPECT_EQ(ctx->noIpRouteFallbackPipeline(), r->noIpRouteFallbackPipeline());
   EXPECT_EQ(ctx->noIpRouteFallbackSteps(), r->noIpRouteFallbackSteps());
   EXPECT_EQ(ctx->nhrPlugins(), r->nhrPlugins().get());
   EXPECT_EQ(ctx->intfSuitabilityHelper(), r->intfSuitabilityHelper());
   EXPECT_THAT(log.names, ElementsAre("vrfRootSm", "pluginContext", "initialized"));

   // Whatever a later call passes, nothing changes.
   auto sm = r->vrfRootSm();
   log.names.clear();
   r->init(nullptr, nullptr, wrapper, true, nullptr);
   EXPECT_EQ(r->vrfRootSm(), sm);
   EXPECT_EQ(r->pluginContext(), ctx);
   EXPECT_TRUE(log.names.empty());

   // An empty plugin list is no list.
   pluginsAre("");
   auto second = Velt::nexthopResolverRootFactory("second");
   init(second, em);
   EXPECT_TRUE(second->initialized());
   EXPECT_TRUE(second->nhrPlugins()->plugin().empty());
}

TEST_F(ResolverRoot,
       PluginsLoadOnceAndTheMountingOneSetsUpWhenTheLoopCompletesItsMounts) {
   em->mountFileInfo().profileIs({"Velt-NhrPlugin-VeltTestMounting",
                                  {{VeltTest::mountedStatePath, "Test::State", {}}}});
   em->entityIs(VeltTest::mountedStatePath, Pelin::make<Kor::Entity>("state"));
   Trace::configIs("Velt::NhrPlugin/0-9");
   Trace::Capture capture;
   pluginsAre("VeltTestMounting, VeltTestInstant");

   auto r = root();
   init(r, em);
   ASSERT_EQ(r->nhrPlugins()->plugin().size(), 2u);
   auto mounting = r->nhrPlugins()->plugin("VeltTestMounting");
   auto instant = r->nhrPlugins()->plugin("VeltTestInstant");
   ASSERT_NE(mounting, nullptr);
   ASSERT_NE(instant, nullptr);
   EXPECT_EQ(mounting->context(), r->pluginContext());
   EXPECT_TRUE(hasInstantStep(r));
   EXPECT_EQ(mountingResolver(r), "none") << "set up only when its mounts complete";
   EXPECT_TRUE(em->mounts().empty());
   EXPECT_THAT(
       VeltTest::signaturesAsOne(capture.lines()),
       ElementsAre("Velt::NhrPlugin/1 VeltTestMounting: Loading mount profile "
                   "Velt-NhrPlugin-VeltTestMounting",
                   "Velt::NhrPlugin/1 VeltTestInstant: No mount profile specified",
                   std::string("Velt::NhrPlugin/1 VeltTestInstant ") + kCompleteInit));

   em->loop()->runUntilIdle();
   EXPECT_EQ(mountingResolver(r), "VeltTestMounting:mounted");
   ASSERT_EQ(em->mounts().size(), 1u);
   EXPECT_EQ(em->mounts()[0].path, VeltTest::mountedStatePath);

   capture.clear();
   init(r, em);
   EXPECT_EQ(r->nhrPlugins()->plugin("VeltTestMounting"), mounting);
   EXPECT_EQ(r->nhrPlugins()->plugin("VeltTestInstant"), instant);
   EXPECT_TRUE(capture.lines().empty());
   EXPECT_EQ(em->loop()->pending(), 0u);

   // A library runs once per process, whichever root asks.
   auto second = Velt::nexthopResolverRootFactory("second");
   init(second, em);
   EXPECT_TRUE(second->nhrPlugins()->plugin().empty());
   Trace::configIs("");
}

TEST_F(ResolverRoot, WithoutAStateDatabaseEveryPluginSetsUpDuringInit) {
   pluginsAre("VeltTestMounting:VeltTestInstant");
   auto r = root();
   init(r, nullptr);
   EXPECT_EQ(r->pluginContext()->entityManager(), nullptr);
   EXPECT_TRUE(hasInstantStep(r));
   EXPECT_EQ(mountingResolver(r), "VeltTestMounting:unmounted");
   EXPECT_EQ(Wexa::eventLoop()->pending(), 0u);
}

TEST_F(ResolverRoot, LoadErrorsLeaveTheRootUninitialisedUntilAnInitSucceeds) {
   auto r = root();
   pluginsAre("VeltTestInstant,Bad/Name");
   EXPECT_THAT(initError(r), HasSubstr("plugin \"Bad/Name\" in plugin list"));
   EXPECT_FALSE(r->initialized());
   auto sm = r->vrfRootSm();
   ASSERT_NE(sm, nullptr) << "the state machine starts before plugins load";

   pluginsAre("VeltTestInstant VeltTestAbsent");
   EXPECT_THAT(initError(r),
               HasSubstr("plugin \"VeltTestAbsent\": no library found; looked for " +
                         VeltTest::pluginDir() + "/NhrPlugin/libVeltTestAbsent.so"));
   pluginsAre("VeltTestNoEntry");
   EXPECT_THAT(initError(r),
               HasSubstr("libVeltTestNoEntry.so has no entry point veltPluginInit"));
   EXPECT_FALSE(hasInstantStep(r)) << "a bad list runs no plugin";

   pluginsAre("VeltTestInstant,VeltTestThrowing");
   EXPECT_THAT(initError(r), HasSubstr("failed: cannot work without its table"));
   EXPECT_FALSE(r->initialized());
   ASSERT_TRUE(hasInstantStep(r)) << "plugins before the failing one have run";
   auto instant = r->nhrPlugins()->plugin("VeltTestInstant");

   pluginsAre("VeltTestInstant");
   init(r, em);
   EXPECT_TRUE(r->initialized());
   EXPECT_EQ(r->vrfRootSm(), sm);
   EXPECT_EQ(r->nhrPlugins()->plugin("VeltTestInstant"), instant) << "not loaded twice";
}

TEST_F(ResolverRoot, LoadingSetsTraceToTheLogOnlyWhenUnset) {
   unsetenv("TRACE");
   init(root(), nullptr);
   EXPECT_STREQ(std::getenv("TRACE"), "Log/0");

   setenv("TRACE", "Velt::Vrf/1", 1);
   init(Velt::nexthopResolverRootFactory("second"), nullptr);
   EXPECT_STREQ(std::getenv("TRACE"), "Velt::Vrf/1");
   setenv("TRACE", "", 1);
   Trace::reread();
}

} // namespace
