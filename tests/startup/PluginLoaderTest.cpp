// The platform plugin loader: plugin lists, the search path, and the errors a caller
// sees.
#include "Pelin/Exception.h"
#include "StartupFixture.h"
#include "VeltLib/NhrPluginLoader.h"
#include "plugins/TestPlugins.h"

#include <gmock/gmock.h>

#include <filesystem>
#include <fstream>

namespace {

using Plugin::Impl::pluginNames;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

class PluginLoader : public VeltTest::StartupTest {
 protected:
   // The message of the error `load` raises; fails the test when it raises none.
   template <typename F>
   static std::string errorOf(F load) {
      try {
         load();
      } catch (const Pelin::Exception& e) {
         return e.what();
      }
      ADD_FAILURE() << "no error";
      return {};
   }
   std::vector<std::string> load(const std::string& list, const std::string& path,
                                 const std::string& entry = {}) {
      return loader->loadPlugins("NhrPlugin", list, path, entry);
   }

   Pelin::Ptr<Plugin::Loader<Pelin::Node>> loader =
       Pelin::make<Plugin::Loader<Pelin::Node>>("test");
};

TEST_F(PluginLoader, ListsSplitOnCommaColonAndWhitespaceAndNameEachPluginOnce) {
   EXPECT_THAT(pluginNames("a,b:c d\te\n,,:a f-1_x"),
               ElementsAre("a", "b", "c", "d", "e", "f-1_x"));
   EXPECT_TRUE(pluginNames("").empty());
   EXPECT_TRUE(pluginNames(" ,:\t").empty());
   for (const char* bad : {"Bad/Name", "../up", "a.so", "semi;colon", "caf\xc3\xa9"}) {
      std::string list = std::string("good,") + bad;
      std::string error = errorOf([&] { pluginNames(list); });
      EXPECT_THAT(error, HasSubstr(std::string("plugin \"") + bad + "\" in plugin list"));
      EXPECT_THAT(error, HasSubstr("only letters, digits, '-' and '_'"));
   }
}

TEST_F(PluginLoader, SearchesTheGivenPathElseTheVariableThenBesideThePlatformLibrary) {
   const std::string fallback = Plugin::Impl::defaultPluginDir();
   ASSERT_FALSE(fallback.empty());
   std::filesystem::path beside = std::filesystem::path(fallback).parent_path();
   EXPECT_EQ(std::filesystem::path(fallback).filename(), "plugins");
   EXPECT_TRUE(std::filesystem::exists(beside / "libVeltPlatform.so")) << beside;

   setenv(Plugin::pluginPathVariable, "/env/a::/env/b", 1);
   EXPECT_THAT(Plugin::Impl::searchPath("/given:/other"),
               ElementsAre("/given", "/other"));
   EXPECT_THAT(Plugin::Impl::searchPath(""), ElementsAre("/env/a", "/env/b", fallback));
   unsetenv(Plugin::pluginPathVariable);
   EXPECT_THAT(Plugin::Impl::searchPath(""), ElementsAre(fallback));

   EXPECT_THAT(Plugin::Impl::candidateFiles({"/a", "/b"}, "NhrPlugin", "Foo"),
               ElementsAre("/a/NhrPlugin/libFoo.so", "/a/NhrPlugin/Foo.so",
                           "/b/NhrPlugin/libFoo.so", "/b/NhrPlugin/Foo.so"));
}

TEST_F(PluginLoader, MissingLibraryNamesEveryPlaceLookedAtAndRunsNothing) {
   const std::string dir = VeltTest::pluginDir();
   setenv(Plugin::pluginPathVariable, (dir + ":/nowhere").c_str(), 1);
   const std::string fallback = Plugin::Impl::defaultPluginDir();
   std::string error = errorOf([&] { load("VeltTestMounting,VeltTestAbsent", ""); });
   EXPECT_EQ(error,
             "plugin \"VeltTestAbsent\": no library found; looked for " + dir +
                 "/NhrPlugin/libVeltTestAbsent.so, " + dir +
                 "/NhrPlugin/VeltTestAbsent.so, /nowhere/NhrPlugin/libVeltTestAbsent.so, "
                 "/nowhere/NhrPlugin/VeltTestAbsent.so, " +
                 fallback + "/NhrPlugin/libVeltTestAbsent.so, " + fallback +
                 "/NhrPlugin/VeltTestAbsent.so");
   EXPECT_FALSE(Plugin::Impl::loaded(dir + "/NhrPlugin/libVeltTestMounting.so"))
       << "plugins listed before a missing one do not run";
   EXPECT_TRUE(loader->pluginName().empty());
}

TEST_F(PluginLoader, UnopenableLibraryAndMissingEntryPointAreNamed) {
   const std::string dir = std::string(std::getenv("VELT_TEST_TMP")) + "/brokenPlugins";
   std::filesystem::create_directories(dir + "/NhrPlugin");
   std::ofstream(dir + "/NhrPlugin/libVeltTestBroken.so") << "not a shared library\n";
   std::string error = errorOf([&] { load("VeltTestBroken", dir); });
   EXPECT_THAT(error, HasSubstr("plugin \"VeltTestBroken\": cannot open " + dir +
                                "/NhrPlugin/libVeltTestBroken.so: "));
   EXPECT_GT(error.size(), error.find(".so: ") + 5) << "the dlopen() error text follows";

   const std::string noEntry = VeltTest::pluginDir() + "/NhrPlugin/libVeltTestNoEntry.so";
   EXPECT_EQ(errorOf([&] { load("VeltTestNoEntry", VeltTest::pluginDir()); }),
             "plugin \"VeltTestNoEntry\": " + noEntry +
                 " has no entry point veltPluginInit");
   EXPECT_FALSE(Plugin::Impl::loaded(noEntry));
}

TEST_F(PluginLoader, RunsAnotherEntryPointWhenAskedAndEachOnlyOnce) {
   unsetenv(VeltTest::altEntryRanVariable);
   EXPECT_THAT(load("VeltTestNoEntry", VeltTest::pluginDir(), "veltTestAltEntry"),
               ElementsAre("VeltTestNoEntry"));
   EXPECT_STREQ(std::getenv(VeltTest::altEntryRanVariable), "1");
   unsetenv(VeltTest::altEntryRanVariable);
   EXPECT_TRUE(
       load("VeltTestNoEntry", VeltTest::pluginDir(), "veltTestAltEntry").empty());
   EXPECT_EQ(std::getenv(VeltTest::altEntryRanVariable), nullptr);
}

TEST_F(PluginLoader, EntryPointErrorsNameThePluginAndClearTheCurrentName) {
   const std::string file = VeltTest::pluginDir() + "/NhrPlugin/libVeltTestThrowing.so";
   EXPECT_EQ(errorOf([&] { load("VeltTestThrowing", VeltTest::pluginDir()); }),
             "plugin \"VeltTestThrowing\": veltPluginInit of " + file +
                 " failed: cannot work without its table");
   EXPECT_TRUE(loader->pluginName().empty());
   EXPECT_FALSE(Plugin::Impl::loaded(file)) << "a later load tries it again";
}

TEST_F(PluginLoader, LoadingFromAnEntryPointAborts) {
   EXPECT_DEATH(Velt::NhrPluginLoader()->loadPlugins("NhrPlugin", "VeltTestReentrant",
                                                     VeltTest::pluginDir(), ""),
                "Assertion failed: !loadInProgress");
}

} // namespace
