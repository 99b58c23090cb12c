// Tables turned from one state into another by single-record changes end up exactly as if
// built from the second state; shared-memory tables made by the writer read back the same
// through the entity manager's file providers.
#include "velt/state/SharedState.h"
#include "../resolution/ResolutionTestUtil.h"
#include "../shm/SmallFileSystem.h"
#include "Kor/ValueText.h"
#include "Pelin/Exception.h"
#include "Quarn/Fec.h"
#include "Quarn/TableInfo.h"
#include "Shm/SharedTables.h"
#include "Shm/TableSet.h"
#include "Wexa/Paths.h"
#include "velt/state/StateDiff.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fmt/format.h>
#include <fstream>
#include <set>
#include <unistd.h>

namespace {

using namespace VeltState;
using testing::ElementsAre;
using testing::HasSubstr;

const std::string leafPath = std::string(VELT_SOURCE_DIR) + "/examples/leaf.yaml";

// Everything the forwarding and neighbour tables hold, as sorted lines.
std::set<std::string> contentOf(const Tables& tables) {
   std::set<std::string> out;
   for (const auto& [name, table] : tables.forwarding) {
      table->forEachFec([&, name = name](const Quarn::FibGen::Fec& f) {
         std::string line = fmt::format("{} fec {} type {} backup {} lo {}", name,
                                        f.fecId().value(), f.fecType(), f.backupViaIndex(),
                                        f.loopbackOnly());
         for (const auto& v : f.vias()) {
            line += fmt::format(" [{} {} {} {}]", Kor::toText(v.intfId()),
                                Kor::toText(v.hop()), v.weight(), v.fecId().value());
         }
         out.insert(line);
      });
      table->forEachRoute([&, name = name](const Lumo::IpGenPrefix& p, Quarn::Fib::FecId id) {
         out.insert(fmt::format("{} route {} {}", name, Kor::toText(p), id.value()));
      });
   }
   auto neighbours = [&](const Arp::Table::ArpEntryMap& map) {
      map.forEach([&](const Arp::Table::ArpEntry& e) {
         out.insert(fmt::format("neighbour {} {}", Kor::toText(e.key), Kor::toText(e.ethAddr)));
      });
   };
   neighbours(tables.arp->arpMap());
   neighbours(tables.arp->neighborMap());
   return out;
}

// The leaf with one of each change: FECs added, changed and removed, routes likewise, and
// neighbours added, moved to a new MAC and removed.
State changedLeaf() {
   State s = loadStateFile(leafPath);
   TableEntry& t = s.tables.front();
   FecEntry added = t.fecs.front();
   added.id = Quarn::Fib::FecId(Quarn::Fib::AdjType::fibGenAdj, 900);
   t.fecs.push_back(added);
   t.fecs[1].vias.pop_back();
   t.routes.push_back({Lumo::IpGenPrefix("198.51.100.0/24"), added.id, {}});
   t.routes[0].fec = added.id;
   t.routes.erase(t.routes.begin() + 1);
   s.neighbours.front().mac = Lumo::EthAddr("02:00:00:00:09:09");
   s.neighbours.pop_back();
   NeighbourEntry n = s.neighbours.front();
   n.ip = VeltTest::ip("203.0.113.9");
   s.neighbours.push_back(n);
   return s;
}

TEST(StateChanges, TurnTablesIntoThoseOfTheNewStateAndBack) {
   const State leaf = loadStateFile(leafPath);
   const State changed = changedLeaf();
   Tables tables = buildTables(leaf);
   ChangeSummary there = applyChanges(tables, leaf, changed, "changed.yaml");
   EXPECT_EQ(contentOf(tables), contentOf(buildTables(changed)));
   EXPECT_EQ(there.fecs.added, 1u);
   EXPECT_EQ(there.fecs.changed, 1u);
   EXPECT_EQ(there.routes.added, 1u);
   EXPECT_EQ(there.routes.changed, 1u);
   EXPECT_EQ(there.routes.removed, 1u);
   EXPECT_EQ(there.neighbours.total(), 3u);
   EXPECT_TRUE(there.notApplied.empty());

   ChangeSummary back = applyChanges(tables, changed, leaf, "leaf.yaml");
   EXPECT_EQ(contentOf(tables), contentOf(buildTables(leaf)));
   EXPECT_EQ(back.fecs.removed, 1u);
   EXPECT_EQ(back.routes.removed, 1u);
}

TEST(StateChanges, EmptyingATableAndRefusals) {
   const State leaf = loadStateFile(leafPath);
   Tables tables = buildTables(leaf);
   State empty = leaf;
   empty.tables.clear();
   empty.neighbours.clear();
   empty.interfaces.pop_back();
   ChangeSummary s = applyChanges(tables, leaf, empty, "empty.yaml");
   EXPECT_EQ(contentOf(tables), std::set<std::string>());
   EXPECT_THAT(s.notApplied, ElementsAre("interfaces"));

   // Refused states change nothing.
   applyChanges(tables, empty, leaf, "leaf.yaml");
   const auto before = contentOf(tables);
   State unified = leaf;
   unified.unifiedFec = true;
   EXPECT_THROW(applyChanges(tables, leaf, unified, "u.yaml"), StateError);
   State extra = leaf;
   extra.tables.push_back(TableEntry{"blue", {}, {}, {5, 3}});
   try {
      applyChanges(tables, leaf, extra, "extra.yaml");
      ADD_FAILURE() << "a table the writer never made was accepted";
   } catch (const StateError& e) {
      EXPECT_STREQ(e.what(),
                   "extra.yaml:5:3: table blue was not made when the tables were created");
   }
   EXPECT_EQ(contentOf(tables), before);
}

class SharedTablesTest : public testing::Test {
 protected:
   void TearDown() override { std::filesystem::remove_all(dir); }
   const std::string dir = fmt::format("{}/shared-state-{}", VELT_TEST_TMP, ::getpid());
};

TEST_F(SharedTablesTest, ReadersAttachWhatTheWriterMadeAndChanges) {
   const State leaf = loadStateFile(leafPath);
   const State changed = changedLeaf();
   Tables written = createSharedTables(leaf, dir, capacityFor({leaf, changed}));

   auto shm = Pelin::make<Wexa::EntityManager>("sharedStateTest", false, true);
   const std::string set = publishedTables(dir);
   Shm::fileProvidersIs(*shm, set);
   const State layout = loadLayout(set);
   EXPECT_EQ(layout, layoutOf(leaf, capacityFor({leaf})));
   Tables read;
   using Quarn::Fib::TableInfo;
   for (const TableEntry& t : layout.tables) {
      read.forwarding.emplace(t.name, Pelin::ptr_cast<Quarn::FibGen::ForwardingStatus>(shm->mount(
                                          tablePath(false, t.name),
                                          TableInfo::forwardingStatusTypeName, {})));
      ASSERT_TRUE(read.forwarding[t.name]) << t.name;
   }
   read.arp = Pelin::ptr_cast<Arp::Table::Status>(
       shm->mount(Wexa::Paths::arpStatus, Shm::arpStatusTypeName, {}));
   ASSERT_TRUE(read.arp);
   EXPECT_EQ(contentOf(read), contentOf(buildTables(leaf)));

   applyChanges(written, leaf, changed, "changed.yaml");
   EXPECT_EQ(contentOf(read), contentOf(buildTables(changed)));
   EXPECT_EQ(std::filesystem::status(set + "/layout.yaml").permissions(),
             std::filesystem::perms::owner_read | std::filesystem::perms::owner_write);
   // An absent table mounts as nothing rather than failing.
   EXPECT_FALSE(shm->mount(tablePath(false, "nosuch"), TableInfo::forwardingStatusTypeName, {}));
}

TEST_F(SharedTablesTest, NoLayoutAndSecondWriterAreClearErrors) {
   try {
      loadLayout(publishedTables(dir));
      ADD_FAILURE() << "an empty directory gave a layout";
   } catch (const StateError& e) {
      EXPECT_THAT(e.what(), HasSubstr("no shared tables here: start a writer first"));
   }
   Shm::WriterLock first(dir);
   try {
      Shm::WriterLock second(dir);
      ADD_FAILURE() << "two writers held the lock";
   } catch (const Pelin::Exception& e) {
      EXPECT_THAT(e.what(), HasSubstr("another writer holds " + dir + "/writer.lock"));
   }
}

// What readers of `dir` find, through the entity manager's providers.
Tables attachPublished(const std::string& dir) {
   const std::string set = publishedTables(dir);
   auto shm = Pelin::make<Wexa::EntityManager>("sharedStateTest", false, true);
   Shm::fileProvidersIs(*shm, set);
   Tables read;
   for (const TableEntry& t : loadLayout(set).tables) {
      read.forwarding.emplace(
          t.name, Pelin::ptr_cast<Quarn::FibGen::ForwardingStatus>(
                      shm->mount(tablePath(false, t.name),
                                 Quarn::Fib::TableInfo::forwardingStatusTypeName, {})));
   }
   read.arp = Pelin::ptr_cast<Arp::Table::Status>(
       shm->mount(Wexa::Paths::arpStatus, Shm::arpStatusTypeName, {}));
   return read;
}

std::set<std::string> setsIn(const std::string& dir) {
   std::set<std::string> out;
   for (const auto& e : std::filesystem::directory_iterator(dir)) {
      if (e.is_directory() && !e.is_symlink()) out.insert(e.path().filename().string());
   }
   return out;
}

TEST_F(SharedTablesTest, EachWriterPublishesAWholeSetAndTheTwoLastAreKept) {
   const State leaf = loadStateFile(leafPath);
   createSharedTables(leaf, dir, capacityFor({leaf}));
   {
      Shm::TableSet failed(dir);
      std::ofstream(failed.path() + "/layout.yaml") << "half made";
   }
   EXPECT_EQ(setsIn(dir), std::set<std::string>{"set-1"})
       << "a set never published stayed";
   // What a writer killed before publishing leaves is removed by the next one.
   std::filesystem::create_directory(dir + "/set-7");
   createSharedTables(leaf, dir, capacityFor({leaf}));
   EXPECT_EQ(setsIn(dir), (std::set<std::string>{"set-1", "set-2"}));
   const State changed = changedLeaf();
   createSharedTables(changed, dir, capacityFor({changed}));
   EXPECT_EQ(setsIn(dir), (std::set<std::string>{"set-2", "set-3"}));
   EXPECT_EQ(publishedTables(dir), dir + "/set-3");
   EXPECT_EQ(contentOf(attachPublished(dir)), contentOf(buildTables(changed)));

   // A table too small for its state fails before its set is published.
   SharedCapacity tiny = capacityFor({leaf});
   tiny.tables.begin()->second.fecs = 1;
   EXPECT_THROW(createSharedTables(leaf, dir, tiny), Pelin::Exception);
   EXPECT_EQ(publishedTables(dir), dir + "/set-3");
   EXPECT_EQ(setsIn(dir), (std::set<std::string>{"set-3"}));
   EXPECT_EQ(contentOf(attachPublished(dir)), contentOf(buildTables(changed)));
}

TEST_F(SharedTablesTest, ALinkToAnythingButASetIsRefused) {
   std::filesystem::create_directories(dir);
   std::filesystem::create_directory_symlink("../elsewhere", dir + "/current");
   try {
      publishedTables(dir);
      ADD_FAILURE() << "the link was followed out of the directory";
   } catch (const Pelin::Exception& e) {
      EXPECT_THAT(e.what(),
                  HasSubstr(dir + "/current names ../elsewhere, not a set of tables"));
   }
}

// Bytes of the files under `dir`.
std::uintmax_t bytesUnder(const std::string& dir) {
   std::uintmax_t n = 0;
   for (const auto& e : std::filesystem::recursive_directory_iterator(dir)) {
      if (e.is_regular_file()) n += e.file_size();
   }
   return n;
}

TEST_F(SharedTablesTest,
       AWriterWithoutRoomFailsBeforePublishingAndTheLastSetStaysServed) {
   const State leaf = loadStateFile(leafPath);
   createSharedTables(leaf, dir, capacityFor({leaf}));
   const std::uintmax_t setBytes = bytesUnder(dir);
   // Room for one set and a half: the next writer's set cannot be made beside it.
   ShmTest::SmallFileSystem fs(dir + "-mnt", setBytes * 3 / 2);
   if (!fs.mounted()) GTEST_SKIP() << fs.whyNot();
   createSharedTables(leaf, fs.path(), capacityFor({leaf}));
   try {
      createSharedTables(changedLeaf(), fs.path(), capacityFor({leaf}));
      ADD_FAILURE() << "a second set was made without room for it";
   } catch (const Pelin::Exception& e) {
      EXPECT_THAT(e.what(),
                  testing::ContainsRegex("^table file " + fs.path() +
                                         "/set-2/.*: cannot reserve its [0-9]+ "
                                         "bytes in .*: No space left on device$"));
   }
   EXPECT_EQ(publishedTables(fs.path()), fs.path() + "/set-1");
   EXPECT_EQ(setsIn(fs.path()), std::set<std::string>{"set-1"});
   EXPECT_EQ(contentOf(attachPublished(fs.path())), contentOf(buildTables(leaf)));
}

TEST(SharedTableNames, FollowTheMountPath) {
   EXPECT_EQ(Shm::tableNameOf(tablePath(false, "tenant")), "tenant");
   EXPECT_EQ(Shm::tableNameOf(tablePath(true, "unified")), "unifiedStatus");
   EXPECT_EQ(Shm::fileBase("/d", Wexa::Paths::arpStatus), "/d/arp/table/status");
}

} // namespace
