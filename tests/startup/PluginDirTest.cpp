// The default plugin folder beside the platform library: the installed layout when it is
// there, the build tree's otherwise.
#include "Plugin/DefaultPath.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>

namespace fs = std::filesystem;

namespace {

class PluginDir : public ::testing::Test {
 protected:
   void SetUp() override {
      const char* root = std::getenv("VELT_TEST_TMP");
      libDir_ = fs::path(root && *root ? root : "/tmp") /
                ("pluginDir-" + std::to_string(::getpid())) / "lib";
      fs::remove_all(libDir_.parent_path());
      fs::create_directories(libDir_);
   }
   void TearDown() override {
      std::error_code ignored;
      fs::remove_all(libDir_.parent_path(), ignored);
   }
   std::string lib() const { return libDir_.string(); }

   fs::path libDir_;
};

TEST_F(PluginDir, BuildTreeLayoutIsPluginsBesideTheLibrary) {
   EXPECT_EQ(Plugin::Impl::pluginDirBeside(lib()), lib() + "/plugins");
   // A build tree's own plugins folder does not make it an installed layout.
   fs::create_directories(libDir_ / "plugins" / "NhrPlugin");
   EXPECT_EQ(Plugin::Impl::pluginDirBeside(lib()), lib() + "/plugins");
}

TEST_F(PluginDir, InstalledLayoutIsTheProjectFolderOfTheLibraryDirectory) {
   fs::create_directories(libDir_ / "plugins"); // another project's, in a shared libdir
   fs::create_directories(libDir_ / "velt" / "plugins");
   EXPECT_EQ(Plugin::Impl::pluginDirBeside(lib()), lib() + "/velt/plugins");
   EXPECT_EQ(Plugin::Impl::pluginDirBeside(lib() + "/"), lib() + "/velt/plugins");
}

TEST_F(PluginDir, OnlyAFolderCountsAsTheInstalledLayout) {
   fs::create_directories(libDir_ / "velt");
   std::ofstream(libDir_ / "velt" / "plugins") << "not a folder";
   EXPECT_EQ(Plugin::Impl::pluginDirBeside(lib()), lib() + "/plugins");
   EXPECT_EQ(Plugin::Impl::pluginDirBeside(lib() + "/missing"), lib() + "/missing/plugins");
}

} // namespace
