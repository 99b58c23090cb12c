// Names that become paths (VRF and table names) follow one rule wherever they enter:
// state files, the Linux import's options, the state database and the shared-table
// writer; and whatever a name holds, the writer makes nothing outside its folder.
#include "StateErrors.h"
#include "Pelin/Exception.h"
#include "Shm/SharedTables.h"
#include "Shm/TableSet.h"
#include "Wexa/EntityManager.h"
#include "Wexa/Paths.h"
#include "kernel/ImportState.h"
#include "kernel/InterfaceNames.h"
#include "kernel/KernelState.h"
#include "kernel/TableVrf.h"
#include "velt/state/SharedState.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fmt/format.h>
#include <random>
#include <unistd.h>

namespace {

using namespace VeltState;
using testing::HasSubstr;
namespace fs = std::filesystem;

const std::vector<std::string> hostileNames = {"..",
                                               ".",
                                               "../..",
                                               "a/b",
                                               "/",
                                               "",
                                               std::string("a\0b", 3),
                                               "red blue",
                                               "\xc3\xa9t\xc3\xa9",
                                               "tab\t",
                                               std::string(101, 'v'),
                                               "../../../../../../../../tmp/x",
                                               "a/../b",
                                               "\\x",
                                               "*"};

TEST(NameRule, RefusesWhatCannotBeOnePathComponent) {
   for (const std::string& good :
        std::vector<std::string>{"red", "default", "unified", "Vrf-1.2_a:b", "...", "..a",
                                 std::string(100, 'v')}) {
      EXPECT_EQ(Wexa::Paths::componentProblem(good), "") << good;
   }
   for (const std::string& bad : hostileNames)
      EXPECT_NE(Wexa::Paths::componentProblem(bad), "") << Wexa::Paths::shownName(bad);
   EXPECT_EQ(
       Wexa::Paths::componentProblem("red blue"),
       "byte 0x20 (a space) at offset 3 is not a letter, digit, '_', '-', '.' or ':'");
   EXPECT_THAT(Wexa::Paths::componentProblem("a/b"), HasSubstr("'/' separates folders"));
   EXPECT_THAT(Wexa::Paths::componentProblem(".."), HasSubstr("names a folder already"));
   EXPECT_EQ(Wexa::Paths::shownName(std::string("a\0'\xc3", 4)), "'a\\x00\\x27\\xc3'");
}

using StateErrors::errorOf;

TEST(NameRule, StateFilesNameTheTableWhereItIsWritten) {
   auto file = [](const std::string& quotedName) {
      return "vrfs:\n  - {name: " + quotedName + ", id: 1}\ntables:\n  " + quotedName +
             ": {}\n";
   };
   EXPECT_EQ(
       errorOf(file("\"../..\"")),
       "t.yaml:4:3: table name '../..' cannot name a folder: byte 0x2f ('/' separates "
       "folders) at offset 2 is not a letter, digit, '_', '-', '.' or ':'");
   EXPECT_THAT(errorOf(file("..")),
               HasSubstr("t.yaml:4:3: table name '..' cannot name a folder"));
   EXPECT_THAT(errorOf(file("\"red blue\"")),
               HasSubstr("t.yaml:4:3: table name 'red blue'"));
   EXPECT_THAT(
       errorOf(file("\"\\0\"")),
       HasSubstr("t.yaml:4:3: table name '\\x00' cannot name a folder: byte 0x00 (a "
                 "control character)"));
   EXPECT_THAT(errorOf(file("\xc3\xa9")), HasSubstr("byte 0xc3 (not ASCII) at offset 0"));
   // A VRF without a table never becomes a path, so its name is free.
   EXPECT_EQ(parseState("vrfs:\n  - {name: \"red blue\", id: 1}\n", "t.yaml").vrfs.size(),
             1u);
}

TEST(NameRule, LinuxTableOptionsAndStateDatabasePathsFollowIt) {
   for (const char* bad : {"../..=10", "a/b=10", "red blue=10", "..=10"}) {
      try {
         VeltLinux::parseTableVrf(bad);
         ADD_FAILURE() << bad << " accepted";
      } catch (const std::invalid_argument& e) {
         EXPECT_THAT(e.what(), HasSubstr("cannot name a table")) << bad;
      }
   }
   // A VRF device is named by whoever made it: a name no folder can have is refused.
   for (const char* name : {"..", "red blue", "\xc3\xa9"}) {
      VeltLinux::KernelState kernel;
      kernel.links.push_back(VeltLinux::KernelLink{1, "lo", true, true, "", 0, 0});
      kernel.links.push_back(VeltLinux::KernelLink{7, name, true, false, "vrf", 10, 0});
      try {
         VeltLinux::importState(kernel, {});
         ADD_FAILURE() << name << " imported";
      } catch (const VeltLinux::ImportError& e) {
         EXPECT_THAT(e.what(), HasSubstr("VRF name " + Wexa::Paths::shownName(name) +
                                         " cannot name a table"));
      }
   }
   auto em = Pelin::make<Wexa::EntityManager>("sys", false);
   auto node = Pelin::make<Pelin::Node>();
   for (const char* bad :
        {"forwardingGen/../rib", "a/./b", "forwardingGen/red blue/rib", ".."}) {
      EXPECT_THROW(em->entityIs(bad, node), Pelin::Exception) << bad;
      EXPECT_THROW(em->mount(bad, "T", {}), Pelin::Exception) << bad;
   }
   try {
      em->entityIs("forwardingGen/red blue/rib", node);
   } catch (const Pelin::Exception& e) {
      EXPECT_THAT(e.what(),
                  HasSubstr("state database path 'forwardingGen/red blue/rib' is "
                            "malformed: component 'red blue': byte 0x20"));
   }
}

// ---- the writer ----

class WriterNames : public testing::Test {
 protected:
   void SetUp() override {
      fs::remove_all(base);
      fs::create_directories(base / "outside");
   }
   void TearDown() override { fs::remove_all(base); }

   // A state with one VRF named `name` and its table.
   static State stateNamed(const std::string& name) {
      State s;
      s.vrfs.push_back(VrfEntry{name, Vrf::VrfIdMap::VrfId(1), true, true, {}});
      TableEntry t;
      t.name = name;
      t.fecs.push_back(FecEntry{Quarn::Fib::FecId(Quarn::Fib::AdjType::fibGenAdj, 1),
                                Quarn::FibGen::FecType::drop,
                                false,
                                0,
                                {},
                                {}});
      s.tables.push_back(t);
      return s;
   }

   // Whether writing tables named `name` went through; raises a test failure when any
   // file appeared outside the writer's folder.
   bool write(const std::string& name) {
      const State s = stateNamed(name);
      bool written = true;
      try {
         createSharedTables(s, folder.string(), capacityFor({s}));
      } catch (const Pelin::Exception& e) {
         written = false;
         EXPECT_THAT(e.what(), HasSubstr(Wexa::Paths::shownName(name)));
      }
      for (const auto& entry : fs::recursive_directory_iterator(base)) {
         const fs::path p = entry.path();
         const bool inside = p == folder || p == base / "outside" ||
                             p.string().starts_with(folder.string() + "/");
         EXPECT_TRUE(inside) << p << " made for " << Wexa::Paths::shownName(name);
      }
      return written;
   }

   const fs::path base =
       fs::path(VELT_TEST_TMP) / fmt::format("writer-names-{}", ::getpid());
   const fs::path folder = base / "tables";
};

TEST_F(WriterNames, HostileNamesAreRefusedAndMakeNothingOutside) {
   for (const std::string& name : hostileNames)
      EXPECT_FALSE(write(name)) << Wexa::Paths::shownName(name);
   EXPECT_TRUE(write("red"));
   EXPECT_TRUE(fs::exists(folder / Shm::currentLinkName / "forwardingGen/red/rib.fecs"));
}

TEST_F(WriterNames, RandomNamesAreWrittenExactlyWhenTheRuleAllowsThem) {
   // Short names over an alphabet rich in separators and odd bytes.
   const std::string alphabet =
       std::string("./a:- \t\\", 8) + std::string(1, '\0') + "\xc3";
   std::mt19937 random(15);
   for (int round = 0; round < 150; ++round) {
      std::string name;
      for (std::size_t n = random() % 5; n > 0; --n)
         name += alphabet[random() % alphabet.size()];
      const bool allowed = Wexa::Paths::componentProblem(name).empty();
      EXPECT_EQ(write(name), allowed) << Wexa::Paths::shownName(name);
   }
}

// Each writer makes a fresh set folder, so the guard is shown on the folder maker itself.
TEST_F(WriterNames, ALinkInsideTheFolderDoesNotLeadTheWriterOut) {
   fs::create_directories(folder);
   fs::create_directory_symlink(base / "outside", folder / "forwardingGen");
   try {
      Shm::makeDirsFor(folder.string(), "forwardingGen/red/rib");
      ADD_FAILURE() << "made folders through the link";
   } catch (const Pelin::Exception& e) {
      EXPECT_THAT(e.what(), HasSubstr("leads outside it"));
   }
   EXPECT_TRUE(fs::is_empty(base / "outside"));
}

} // namespace
