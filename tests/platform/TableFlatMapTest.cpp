#include "Table/FlatMap.h"
#include "TableTestTypes.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <map>
#include <random>
#include <sys/stat.h>
#include <thread>

using namespace TableTest;
using Map = Table::FlatMap<Key, Value>;

namespace {

std::string messageOf(const std::function<void()>& fn) {
   try {
      fn();
   } catch (const Pelin::Exception& e) {
      return e.what();
   }
   return "no exception";
}

TEST(TableFlatMap, InsertReplaceEraseFind) {
   Map map(100);
   map.insert({1, 2}, Value::of(1));
   map.insert({2, 1}, Value::of(2));
   EXPECT_EQ(map.find({1, 2})->check, Value::of(1).check);
   map.insert({1, 2}, Value::of(3)); // replace keeps one entry
   EXPECT_EQ(map.size(), 2u);
   EXPECT_EQ(map.find({1, 2})->check, Value::of(3).check);
   EXPECT_TRUE(map.erase({1, 2}));
   EXPECT_FALSE(map.erase({1, 2}));
   EXPECT_FALSE(map.find({1, 2}));
   EXPECT_EQ(map.find({1, 2}, Value::of(9)).check, Value::of(9).check);
   map.clear();
   EXPECT_EQ(map.size(), 0u);
   EXPECT_FALSE(map.find({2, 1}));
}

// A tiny dense table forces collisions, wrap-around and tombstone reuse; a reference map
// checks every answer.
TEST(TableFlatMap, ChurnMatchesReference) {
   Map map(12);
   std::map<std::uint32_t, std::uint64_t> ref;
   std::mt19937 rng(7);
   for (int step = 0; step < 20000; ++step) {
      std::uint32_t k = rng() % 24;
      if (rng() % 2 && (ref.size() < 12 || ref.count(k))) {
         map.insert({k, 0}, Value::of(step));
         ref[k] = step;
      } else {
         EXPECT_EQ(map.erase({k, 0}), ref.erase(k) == 1);
      }
      for (std::uint32_t q = 0; q < 24; ++q) {
         auto found = map.find({q, 0});
         ASSERT_EQ(found.has_value(), ref.count(q) == 1) << "key " << q << " step " << step;
         if (found) {
            ASSERT_EQ(found->check, Value::of(ref[q]).check);
         }
      }
   }
   std::size_t seen = 0;
   map.forEach([&](const Key& k, const Value& v) {
      EXPECT_EQ(v.check, Value::of(ref.at(k.a)).check);
      ++seen;
   });
   EXPECT_EQ(seen, ref.size());
   EXPECT_EQ(map.size(), ref.size());
}

TEST(TableFlatMap, FullTableIsAnErrorNamingTheCapacity) {
   Map map(10);
   for (std::uint32_t k = 0; k < 10; ++k) map.insert({k, k}, Value::of(k));
   map.insert({3, 3}, Value::of(33)); // replacing in a full table is fine
   EXPECT_EQ(messageOf([&] { map.insert({99, 0}, Value::of(1)); }),
             "table heap: full at its capacity of 10 entries");
   EXPECT_EQ(map.size(), 10u);
}

TEST(TableFlatMap, StuckGenerationIsReportedAndTheTableStaysUsable) {
   Map map(100);
   map.insert({1, 1}, Value::of(1));
   map.insert({2, 2}, Value::of(2));
   map.debugCorrupt({1, 1});
   EXPECT_THROW(map.find({1, 1}), Pelin::CorruptionDetectedException);
   EXPECT_THAT(messageOf([&] { map.find({1, 1}); }),
               testing::MatchesRegex("table heap: slot [0-9]+ is corrupt: generation [0-9]+ "
                                     "stays odd"));
   EXPECT_EQ(map.find({2, 2})->check, Value::of(2).check);
}

// A writer that died inside a record leaves it odd for good: the first read spends the
// retry budget and raises it, every later one is answered at once as a repeat, until a
// writer moves the generation.
TEST(TableFlatMap, StuckGenerationWaitsOnceThenAnswersAtOnce) {
   Map map(100);
   map.insert({1, 1}, Value::of(1));
   map.debugCorrupt({1, 1});
   auto raised = [&] {
      try {
         map.find({1, 1});
      } catch (const Pelin::CorruptionDetectedException& e) {
         return e.repeat() ? 2 : 1;
      }
      return 0;
   };
   EXPECT_EQ(raised(), 1);
   for (int i = 0; i < 200; ++i)
      ASSERT_EQ(raised(), 2) << i; // 10 s if each waited out the budget
   EXPECT_EQ(map.stuckGenerations().waits(), 1u);

   // Finished by a successor: whole again. Stuck again at a new generation: new damage,
   // reported anew.
   const auto& h = map.region().header();
   Table::Word* slots = map.region().words(h.slotsOffset);
   for (Table::Word i = 0; i < h.slotCount; ++i) {
      Table::Word* s = slots + i * Map::kSlotWords;
      if (s[0] & 1) Table::endWrite(s[0]);
   }
   EXPECT_EQ(map.find({1, 1})->check, Value::of(1).check);
   map.debugCorrupt({1, 1});
   EXPECT_EQ(raised(), 1);
   EXPECT_EQ(raised(), 2);
   EXPECT_EQ(map.stuckGenerations().waits(), 2u);
}

TEST(TableFlatMap, KeyDamagedInPlaceIsCorruption) {
   Map map(100);
   map.insert({5, 5}, Value::of(5));
   map.insert({6, 6}, Value::of(6));
   const auto& h = map.region().header();
   Table::Word* slots = map.region().words(h.slotsOffset);
   Table::Word flipped = 0;
   for (Table::Word i = 0; i < h.slotCount; ++i) {
      Table::Word* s = slots + i * Map::kSlotWords;
      Key k;
      std::memcpy(&k, s + 2, sizeof k);
      if ((s[1] & 0xffffffffu) == 1 && k.a == 5 && k.b == 5) s[2] ^= 0x40, ++flipped;
   }
   ASSERT_EQ(flipped, 1u);
   EXPECT_THAT(messageOf([&] {
                  map.find({5, 5});
               }),
               testing::HasSubstr("key does not match its hash"));
   EXPECT_EQ(map.find({6, 6})->check, Value::of(6).check);
}

TEST(TableFlatMap, InvalidSlotStateIsCorruption) {
   Map map(100);
   map.insert({5, 5}, Value::of(5));
   // Scribble on the state word of every slot, as damaged memory would.
   const auto& h = map.region().header();
   Table::Word* slots = map.region().words(h.slotsOffset);
   for (Table::Word i = 0; i < h.slotCount; ++i) slots[i * Map::kSlotWords + 1] |= 7;
   EXPECT_THROW(map.find({5, 5}), Pelin::CorruptionDetectedException);
}

TEST(TableFlatMapDeathTest, ReaderMappingCannotWrite) {
   std::string path = scratchPath("flatmap-readonly");
   Map writer = Map::createFile(path, 100);
   writer.insert({1, 1}, Value::of(1));
   Map reader = Map::attachFile(path);
   EXPECT_DEATH(reader.insert({2, 2}, Value::of(2)), "region_.writable\\(\\)");
   auto* raw = reader.region().words(0);
   EXPECT_DEATH(raw[0] = 1, "");
}

TEST(TableFlatMap, FileIsOwnerOnlyAndSharedWithReaders) {
   std::string path = scratchPath("flatmap-shared");
   Map writer = Map::createFile(path, 1000);
   Map reader = Map::attachFile(path);
   struct stat st {};
   ASSERT_EQ(::stat(path.c_str(), &st), 0);
   EXPECT_EQ(st.st_mode & 0777, 0600u);
   writer.insert({7, 7}, Value::of(7));
   EXPECT_EQ(reader.find({7, 7})->check, Value::of(7).check);
   EXPECT_EQ(reader.capacity(), 1000u);
}

TEST(TableFlatMap, AttachRefusesOtherLayouts) {
   std::string path = scratchPath("flatmap-layout");
   { Map writer = Map::createFile(path, 100); }
   EXPECT_EQ(messageOf([&] { Table::FlatMap<Key, std::uint64_t>::attachFile(path); }),
             "table file " + path + ": value size 48 differs from expected 8");
   struct Wide {
      std::uint64_t a, b;
   };
   EXPECT_EQ(messageOf([&] { Table::FlatMap<Wide, Value>::attachFile(path); }),
             "table file " + path + ": key size 8 differs from expected 16");
   auto patch = [&](std::size_t offset, std::uint32_t v) {
      FILE* f = std::fopen(path.c_str(), "r+b");
      std::fseek(f, long(offset), SEEK_SET);
      std::fwrite(&v, sizeof v, 1, f);
      std::fclose(f);
   };
   patch(offsetof(Table::RegionHeader, version), 9);
   EXPECT_EQ(messageOf([&] { Map::attachFile(path); }),
             "table file " + path + ": layout version 9 differs from expected 1");
   patch(offsetof(Table::RegionHeader, magic), 0);
   EXPECT_THAT(messageOf([&] { Map::attachFile(path); }),
               testing::StartsWith("table file " + path + ": magic "));
   EXPECT_THAT(messageOf([&] { Map::attachFile(scratchPath("no-such-table")); }),
               testing::HasSubstr("open failed: No such file"));
}

// Readers must keep finding stable keys while the writer erases and re-inserts their
// neighbours in a dense table, and must never see a torn value.
TEST(TableFlatMap, ReaderRacingWriterSeesNoTornOrMissingRecords) {
   Map map(64);
   constexpr std::uint32_t kStable = 24;
   for (std::uint32_t k = 0; k < kStable; ++k) map.insert({k, 1}, Value::of(k));
   std::atomic<bool> stop{false};
   std::atomic<std::uint64_t> reads{0}, torn{0}, missing{0};
   std::thread reader([&] {
      auto until = std::chrono::steady_clock::now() + std::chrono::seconds(2);
      std::uint64_t n = 0;
      while (n < 1'000'000 && std::chrono::steady_clock::now() < until) {
         for (std::uint32_t k = 0; k < kStable; ++k, ++n) {
            try {
               auto v = map.find({k, 1});
               if (!v) ++missing;
               else if (!v->intact()) ++torn;
            } catch (const Pelin::Exception&) {
               ++torn;
            }
         }
      }
      reads = n;
      stop = true;
   });
   std::mt19937 rng(3);
   for (std::uint64_t round = 0; !stop; ++round) {
      std::uint32_t k = rng() % kStable;
      map.insert({k, 1}, Value::of(round)); // rewrite a stable key in place
      std::uint32_t other = 100 + rng() % 36; // at most 60 entries: a dense table
      if (!map.erase({other, 2})) map.insert({other, 2}, Value::of(round));
   }
   reader.join();
   EXPECT_GT(reads.load(), 100'000u);
   EXPECT_EQ(torn.load(), 0u);
   EXPECT_EQ(missing.load(), 0u);
}

} // namespace
