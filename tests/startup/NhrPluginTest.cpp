// The plugin base's start-up sequence over the state database, and the plugin table.
#include "StartupFixture.h"
#include "Pelin/Exception.h"
#include "Ringlog/Ringlog.h"
#include "Trace/Trace.h"
#include "VeltLib/NhrPluginBase.h"

#include <gmock/gmock.h>

#include <cstdlib>

namespace {

using ::testing::ElementsAre;

constexpr const char* kMountsComplete =
    "virtual void Velt::NhrPluginBase::doMountsComplete(Wexa::MountStatus, const "
    "Pelin::Ptr<Wexa::EntityManager>&)";
constexpr const char* kCompleteInit =
    "void Velt::NhrPluginBase::completePluginInit(const "
    "Pelin::Ptr<Wexa::EntityManager>&)";

// Records its hooks in the order they run.
class RecordingPlugin : public Velt::NhrPluginBase {
 public:
   using Velt::NhrPluginBase::NhrPluginBase;
   void mountsComplete(const Pelin::Ptr<Wexa::EntityManager>& em) override {
      calls.push_back(em ? "mountsComplete" : "mountsComplete(null)");
   }
   void setupNhr() override { calls.push_back("setupNhr"); }
   std::vector<std::string> calls;
};

class NhrPlugin : public ::testing::Test {
 protected:
   NhrPlugin() {
      Trace::configIs("Velt::NhrPlugin/0-9");
      em->mountFileInfo().profileIs(
          {"Velt-NhrPlugin-Foo", {{"foo/state", "Foo::State", {}}}});
   }
   ~NhrPlugin() override {
      em->loop()->runUntilIdle();
      Trace::configIs("");
   }
   Pelin::Ptr<RecordingPlugin> plugin(const char* name) {
      return Pelin::make<RecordingPlugin>(name, Pelin::Ptr<Velt::NhrPluginContext>());
   }
   std::vector<std::string> lines() const {
      std::vector<std::string> out = VeltTest::signaturesAsOne(capture.lines());
      capture.clear();
      return out;
   }

   Pelin::Ptr<Wexa::EntityManager> em = Pelin::make<Wexa::EntityManager>("sys", false);
   mutable Trace::Capture capture;
};

TEST_F(NhrPlugin, LoadedProfileIsMountedBeforeSetUpOnTheEventLoop) {
   auto foo = plugin("Foo");
   EXPECT_EQ(foo->mountProfileName(), "Velt-NhrPlugin-Foo");
   const std::string ring = std::string(std::getenv("VELT_TEST_TMP")) + "/NhrPlugin.ring";
   ASSERT_TRUE(Ringlog::open(ring, 64 * 1024));

   foo->doMountProfile(em);
   EXPECT_TRUE(foo->calls.empty()) << "set-up waits for the mounts";
   EXPECT_TRUE(em->mounts().empty());
   EXPECT_THAT(lines(), ElementsAre("Velt::NhrPlugin/1 Foo: Loading mount profile "
                                    "Velt-NhrPlugin-Foo"));

   em->loop()->runUntilIdle();
   ASSERT_EQ(em->mounts().size(), 1u);
   EXPECT_EQ(em->mounts()[0].path, "foo/state");
   EXPECT_THAT(foo->calls, ElementsAre("mountsComplete", "setupNhr"));
   EXPECT_THAT(lines(),
               ElementsAre(std::string("Velt::NhrPlugin/1 Foo ") + kMountsComplete,
                           std::string("Velt::NhrPlugin/1 Foo ") + kCompleteInit));

   Ringlog::close();
   Ringlog::Contents contents;
   std::string error;
   ASSERT_TRUE(Ringlog::read(ring, contents, error)) << error;
   std::vector<std::string> texts;
   for (const auto& l : contents.lines)
      texts.push_back(l.text);
   EXPECT_THAT(VeltTest::signaturesAsOne(texts),
               ElementsAre("doMountProfile Foo: Loading mount profile Velt-NhrPlugin-Foo",
                           std::string("doMountsComplete Foo ") + kMountsComplete,
                           std::string("completePluginInit Foo ") + kCompleteInit));
}

TEST_F(NhrPlugin, WithoutItsProfileOrAStateDatabaseAPluginSetsUpAtOnce) {
   auto bar = plugin("Bar"); // the state database knows Foo's profile only
   bar->doMountProfile(em);
   EXPECT_THAT(bar->calls, ElementsAre("mountsComplete", "setupNhr"));
   EXPECT_EQ(em->loop()->pending(), 0u);
   EXPECT_THAT(lines(),
               ElementsAre("Velt::NhrPlugin/1 Bar: No mount profile specified",
                           std::string("Velt::NhrPlugin/1 Bar ") + kCompleteInit));

   auto foo = plugin("Foo");
   foo->doMountProfile(nullptr);
   EXPECT_THAT(foo->calls, ElementsAre("mountsComplete(null)", "setupNhr"));
   EXPECT_THAT(lines(),
               ElementsAre("Velt::NhrPlugin/1 Foo: No entitymanager, testing?",
                           std::string("Velt::NhrPlugin/1 Foo ") + kCompleteInit));
}

TEST_F(NhrPlugin, FailedMountStopsTheProcess) {
   em->mountFileInfo().profileIs({"Velt-NhrPlugin-Broken", {{"/not//a/path", "X", {}}}});
   auto broken = plugin("Broken");
   EXPECT_DEATH(
       {
          broken->doMountProfile(em);
          em->loop()->runUntilIdle();
       },
       "Assertion failed: mountStatus == Wexa::MountStatus::mountSuccess_");
   EXPECT_TRUE(broken->calls.empty());
   Pelin::Ptr<Wexa::EntityManager> none;
   EXPECT_DEATH(broken->doMountsComplete(Wexa::MountStatus::mountFailure_, none),
                "Assertion failed: mountStatus == Wexa::MountStatus::mountSuccess_");
}

TEST_F(NhrPlugin, TableIsKeyedByNameAndReplaces) {
   auto plugins = Velt::nhrPluginsFactory();
   auto first = plugin("Foo");
   auto second = plugin("Foo");
   plugins->pluginIs(first);
   plugins->pluginIs(plugin("Bar"));
   plugins->pluginIs(second);
   EXPECT_EQ(plugins->plugin().size(), 2u);
   EXPECT_EQ(plugins->plugin("Foo"), second);
   EXPECT_EQ(first->references(), 1u) << "the replaced plugin is released";
   EXPECT_THROW(plugins->pluginIs(nullptr), Pelin::NullArgumentException);

   plugins->pluginDel("Foo");
   plugins->pluginDel("Absent");
   EXPECT_EQ(plugins->plugin("Foo"), nullptr);
   EXPECT_EQ(second->references(), 1u);
   plugins->pluginDelAll();
   EXPECT_TRUE(plugins->plugin().empty());
}

} // namespace
