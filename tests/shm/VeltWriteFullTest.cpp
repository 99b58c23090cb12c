// velt write on a file system without room for its tables: an error naming the file and
// its size, exit status 1, and readers go on with the tables published before.
#include "SmallFileSystem.h"
#include "SoakProcesses.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <unistd.h>

#include <filesystem>
#include <fmt/format.h>

namespace {

using namespace ShmSoak;
using testing::ContainsRegex;
namespace fs = std::filesystem;

const std::string kLeaf = VELT_SOURCE_DIR "/examples/leaf.yaml";
const std::string kTargets = "10.100.0.5 2001:db8::5 10.0.1.1 10.0.255.11";

std::uintmax_t bytesUnder(const fs::path& dir) {
   std::uintmax_t n = 0;
   for (const auto& e : fs::recursive_directory_iterator(dir)) {
      if (e.is_regular_file() && !e.is_symlink()) n += e.file_size();
   }
   return n;
}

TEST(ShmVeltWrite, WithoutRoomNamesTheFileAndReadersKeepThePreviousTables) {
   const char* base = std::getenv("VELT_TEST_TMP");
   const fs::path dir = fs::path(base ? base : "/tmp") / fmt::format("full-{}", ::getpid());
   fs::create_directories(dir);
   const fs::path out = dir / "velt.out";
   const std::vector<std::string> roomy{"VELT_SHM_DIR=" + (dir / "roomy").string()};
   ASSERT_EQ(runVelt({"write", kLeaf}, "", roomy, out).status, 0);
   // Room for one set and a half.
   ShmTest::SmallFileSystem small((dir / "small").string(), bytesUnder(dir / "roomy") * 3 / 2);
   if (!small.mounted()) GTEST_SKIP() << small.whyNot();
   const std::vector<std::string> env{"VELT_SHM_DIR=" + small.path()};
   ASSERT_EQ(runVelt({"write", kLeaf}, "", env, out).status, 0);

   const Outcome second = runVelt({"write", kLeaf}, "", env, out);
   EXPECT_EQ(second.status, 1);
   EXPECT_THAT(second.out, ContainsRegex("velt: table file " + small.path() +
                                         "/set-2/.*: cannot reserve its [0-9]+ bytes in " +
                                         ".*: No space left on device"));
   const Outcome expected = runVelt({"--state", kLeaf, "resolve", "--json"}, kTargets, {}, out);
   const Outcome served = runVelt({"resolve", "--json", "--shm"}, kTargets, env, out);
   ASSERT_EQ(served.status, 0) << served.out;
   EXPECT_EQ(nlohmann::json::parse(served.out)["decisions"],
             nlohmann::json::parse(expected.out)["decisions"]);
   fs::remove_all(dir / "roomy");
   fs::remove(out);
}

} // namespace
