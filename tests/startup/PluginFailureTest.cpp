// Plugin loading is all or nothing: a plugin that fails, at its entry point, in its
// set-up or later on the event loop, is reported by name and leaves nothing of itself
// behind; a plugin built for another major version is refused before any plugin code
// runs.
#include "Pelin/Exception.h"
#include "StartupFixture.h"
#include "Trace/Trace.h"
#include "VeltLib/NhrPluginLoader.h"
#include "VeltLib/Version.h"
#include "plugins/TestPlugins.h"

#include <gmock/gmock.h>

namespace {

using ::testing::HasSubstr;
using Velt::NexthopResolverRoot;

// An interface checker that the agent registered before plugins load.
struct AgentChecker : Velt::IntfSuitabilityCheckerBase {
   AgentChecker() : Velt::IntfSuitabilityCheckerBase("agent") {}
   bool isSuitable(Lumo::IntfId) override { return true; }
};

struct AgentResolver : Velt::DstIpResolver {
   AgentResolver() : Velt::DstIpResolver("agent", Lumo::AddressFamily::ipv4_) {}
   void resolve(const Pelin::Ptr<Velt::RoutingContext>&,
                const Pelin::Ptr<Velt::ResolverVrfRoot const>&,
                const Pelin::Ptr<Velt::RoutingNexthop>&) override {}
};

class PluginFailure : public VeltTest::StartupTest {
 protected:
   void SetUp() override {
      VeltTest::StartupTest::SetUp();
      unsetenv(VeltTest::halfThrowVariable);
      unsetenv(VeltTest::otherVersionRanVariable);
      r = NexthopResolverRoot::nexthopResolverRoot();
      r->resolvers()->dstIpResolverIs(Pelin::make<AgentResolver>());
      r->intfSuitabilityHelper()->intfSuitabilityCheckerIs(Pelin::make<AgentChecker>());
   }
   void TearDown() override {
      r = nullptr;
      VeltTest::StartupTest::TearDown();
   }
   std::string initError() {
      try {
         init(r, em);
      } catch (const Pelin::Exception& e) {
         return e.what();
      }
      ADD_FAILURE() << "init raised nothing";
      return {};
   }
   static std::string file(const std::string& plugin) {
      return VeltTest::pluginDir() + "/NhrPlugin/lib" + plugin + ".so";
   }
   // The half-set-up plugin has left no trace in the root: the agent's registrations
   // are what they were, and the table records its failure.
   void expectHalfPluginUndone(const std::string& error) {
      EXPECT_EQ(r->nexthopResolverSteps()->step(VeltTest::halfStepName), nullptr);
      auto resolver = r->resolvers()->dstIpResolver(Lumo::AddressFamily::ipv4_);
      ASSERT_NE(resolver, nullptr);
      EXPECT_EQ(resolver->name(), "agent") << "what the plugin replaced is back";
      EXPECT_EQ(
          r->intfSuitabilityHelper()->intfSuitabilityChecker(VeltTest::halfCheckerName),
          nullptr);
      EXPECT_NE(r->intfSuitabilityHelper()->intfSuitabilityChecker("agent"), nullptr);
      EXPECT_EQ(r->nhrPlugins()->plugin("VeltTestHalfSetUp"), nullptr);
      auto failed = r->nhrPlugins()->failedPlugin().find("VeltTestHalfSetUp");
      ASSERT_NE(failed, r->nhrPlugins()->failedPlugin().end());
      EXPECT_EQ(failed->second, error);
   }

   Pelin::Ptr<NexthopResolverRoot> r;
};

TEST_F(PluginFailure, EntryPointThrowingANonStdExceptionIsReportedByName) {
   pluginsAre("VeltTestThrowsInt");
   EXPECT_EQ(initError(), "plugin \"VeltTestThrowsInt\": veltPluginInit of " +
                              file("VeltTestThrowsInt") +
                              " failed: an exception that is not a std::exception");
   EXPECT_FALSE(r->initialized());
   EXPECT_TRUE(Velt::NhrPluginLoader()->pluginName().empty());
   EXPECT_EQ(Velt::NhrPluginLoader()->context(), nullptr);
}

TEST_F(PluginFailure, SetUpThatThrowsLeavesNothingRegisteredAndIsRecorded) {
   pluginsAre("VeltTestInstant,VeltTestHalfSetUp");
   std::string error = initError();
   EXPECT_THAT(error, HasSubstr("plugin \"VeltTestHalfSetUp\": veltPluginInit of"));
   EXPECT_THAT(error, HasSubstr("failed: its table is missing"));
   EXPECT_FALSE(r->initialized());
   expectHalfPluginUndone("its table is missing");
   EXPECT_NE(r->nhrPlugins()->plugin("VeltTestInstant"), nullptr)
       << "earlier plugins stay";
   EXPECT_NE(r->nexthopResolverSteps()->step(VeltTest::instantStepName), nullptr);

   // Tried again by the next init, failing with something that is not a std::exception.
   setenv(VeltTest::halfThrowVariable, "int", 1);
   EXPECT_THAT(initError(),
               HasSubstr("plugin \"VeltTestHalfSetUp\": veltPluginInit of " +
                         file("VeltTestHalfSetUp") +
                         " failed: an exception that is not a std::exception"));
   expectHalfPluginUndone("an exception that is not a std::exception");
   EXPECT_EQ(Velt::NhrPluginLoader()->context(), nullptr)
       << "the loader keeps no context";
}

TEST_F(PluginFailure, DeferredSetUpFailureIsUndoneRecordedAndTracedOnTheLoop) {
   em->mountFileInfo().profileIs({"Velt-NhrPlugin-VeltTestHalfSetUp",
                                  {{VeltTest::mountedStatePath, "Test::State", {}}}});
   Trace::configIs("Velt::NhrPlugin/0");
   Trace::Capture capture;
   pluginsAre("VeltTestHalfSetUp");
   init(r, em);
   EXPECT_TRUE(r->initialized());
   EXPECT_NE(r->nhrPlugins()->plugin("VeltTestHalfSetUp"), nullptr) << "still mounting";

   EXPECT_NO_THROW(em->loop()->runUntilIdle());
   expectHalfPluginUndone("its table is missing");
   EXPECT_THAT(
       capture.lines(),
       ::testing::ElementsAre("Velt::NhrPlugin/0 VeltTestHalfSetUp: set-up failed, "
                              "its registrations are undone: its table is missing"));
   Trace::configIs("");
}

TEST_F(PluginFailure, PluginGoneBeforeItsMountsCompleteIsNeverSetUp) {
   em->mountFileInfo().profileIs({"Velt-NhrPlugin-VeltTestMounting",
                                  {{VeltTest::mountedStatePath, "Test::State", {}}}});
   pluginsAre("VeltTestMounting");
   init(r, em);
   r->nhrPlugins()->pluginDelAll();
   em->loop()->runUntilIdle();
   EXPECT_EQ(r->resolvers()->dstIpResolver(Lumo::AddressFamily::ipv4_)->name(), "agent");

   // The root itself gone with a completion pending: nothing reaches its parts.
   Plugin::Impl::loadedDelAll();
   auto other = Velt::nexthopResolverRootFactory("other");
   init(other, em);
   other = nullptr;
   Kor::singletonDel(NexthopResolverRoot::singletonName);
   r = nullptr;
   EXPECT_EQ(Velt::NhrPluginLoader()->context(), nullptr);
   em->loop()->runUntilIdle();
}

TEST_F(PluginFailure, PluginsOfAnotherMajorVersionAreRefusedBeforeAnyPluginRuns) {
   const std::string ours = std::to_string(Velt::versionMajor);
   const std::string next = std::to_string(Velt::versionMajor + 1);
   pluginsAre("VeltTestInstant,VeltTestNextMajor");
   EXPECT_EQ(initError(), "plugin \"VeltTestNextMajor\": " + file("VeltTestNextMajor") +
                              " was built against libVeltRouting " + next +
                              ".x, this process runs libVeltRouting " + ours +
                              ".x; rebuild the plugin against it");
   pluginsAre("VeltTestUnmarked");
   EXPECT_EQ(initError(),
             "plugin \"VeltTestUnmarked\": " + file("VeltTestUnmarked") +
                 " carries no libVeltRouting version (no veltPluginAbiMajor); "
                 "rebuild it against libVeltRouting " +
                 ours + ".x");
   EXPECT_EQ(std::getenv(VeltTest::otherVersionRanVariable), nullptr);
   EXPECT_EQ(r->nexthopResolverSteps()->step(VeltTest::instantStepName), nullptr)
       << "the plugin listed first did not run either";
   EXPECT_TRUE(r->nhrPlugins()->plugin().empty());
   EXPECT_STREQ(Velt::libraryVersion(),
                (ours + "." + std::to_string(Velt::versionMinor)).c_str());
}

} // namespace
