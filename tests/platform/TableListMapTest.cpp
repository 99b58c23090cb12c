#include "Table/ListMap.h"
#include "TableTestTypes.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <random>
#include <thread>
#include <vector>

using namespace TableTest;

namespace {

struct Head {
   std::uint64_t seed;
   std::uint32_t counts[2];
};

using Lists = Table::ListMap<std::uint64_t, Head, Value, 2, 4>; // up to 4 items inline
const Lists::Bounds kBounds{600, 128};

// A record whose items all derive from its seed, so any mix of two records shows.
struct Record {
   Head head;
   std::vector<Value> items[2];

   static Record of(std::uint64_t seed, std::uint32_t n0, std::uint32_t n1) {
      Record r{{seed, {n0, n1}}, {}};
      for (std::uint32_t i = 0; i < n0; ++i) r.items[0].push_back(Value::of(seed * 1000 + i));
      for (std::uint32_t i = 0; i < n1; ++i) r.items[1].push_back(Value::of(~seed - i));
      return r;
   }
   Lists::Items spans() const { return {items[0], items[1]}; }
   bool operator==(const Record& o) const {
      auto same = [](const std::vector<Value>& a, const std::vector<Value>& b) {
         return a.size() == b.size() &&
                std::equal(a.begin(), a.end(), b.begin(),
                           [](const Value& x, const Value& y) { return x.check == y.check; });
      };
      return head.seed == o.head.seed && same(items[0], o.items[0]) && same(items[1], o.items[1]);
   }
};

std::optional<Record> read(const Lists& map, std::uint64_t key) {
   Record r;
   auto head = map.find(key, [&](std::size_t l, std::uint32_t n) {
      r.items[l].resize(n);
      return r.items[l].data();
   });
   if (!head) return std::nullopt;
   r.head = *head;
   return r;
}

TEST(TableListMap, RecordsOfAnySizeRoundTripAndExtentsAreReused) {
   Lists map(100, 4 << 20, kBounds);
   const std::uint32_t sizes[][2] = {{0, 0}, {1, 0}, {4, 2}, {600, 128}, {8, 0}};
   for (std::uint64_t k = 0; k < 5; ++k) {
      auto rec = Record::of(k, sizes[k][0], sizes[k][1]);
      map.insert(k, rec.head, rec.spans());
   }
   for (std::uint64_t k = 0; k < 5; ++k) {
      EXPECT_EQ(read(map, k), Record::of(k, sizes[k][0], sizes[k][1])) << k;
   }
   EXPECT_FALSE(read(map, 77));
   // Shrinking, growing and erasing records must recycle extents, not grow the pool.
   auto churn = [&](std::uint64_t round) {
      for (std::uint64_t k = 0; k < 5; ++k) {
         auto rec = Record::of(round + k, (round + k) % 20, k);
         map.insert(k, rec.head, rec.spans());
      }
      map.erase(round % 5);
   };
   for (std::uint64_t round = 0; round < 100; ++round) churn(round * 5 % 20);
   Table::Word used = map.pool().used(); // every size class has its working set by now
   for (std::uint64_t round = 0; round < 200; ++round) churn(round * 5 % 20);
   EXPECT_EQ(map.pool().used(), used);
   map.clear();
   EXPECT_EQ(map.size(), 0u);
   EXPECT_EQ(map.pool().used(), 0u);
}

TEST(TableListMap, RefusedWritesLeaveTheTableAsItWas) {
   Lists map(4, Lists::poolBytesFor(3, 8), kBounds);
   auto rec = Record::of(1, 8, 0);
   map.insert(1, rec.head, rec.spans());
   auto tooLong = Record::of(2, 1, 129);
   try {
      map.insert(1, tooLong.head, tooLong.spans());
      FAIL();
   } catch (const Pelin::RangeException& e) {
      EXPECT_STREQ(e.what(), "table heap: list 1 holds at most 128 items, not 129");
   }
   auto big = Record::of(3, 600, 0);
   EXPECT_THAT([&] { map.insert(1, big.head, big.spans()); },
               testing::ThrowsMessage<Pelin::RangeException>(testing::HasSubstr(
                   "extent pool full at its capacity of")));
   EXPECT_EQ(read(map, 1), rec);
   for (std::uint64_t k = 2; k <= 4; ++k) map.insert(k, {}, {});
   EXPECT_THROW(map.insert(5, rec.head, rec.spans()), Pelin::RangeException);
   EXPECT_EQ(read(map, 1), rec);
   map.insert(2, rec.head, rec.spans()); // the refused insert gave its extent back
}

TEST(TableListMap, DamagedRecordsAreCorruption) {
   Lists map(10, 1 << 20, kBounds);
   auto rec = Record::of(1, 5, 1);
   map.insert(1, rec.head, rec.spans());
   map.insert(2, rec.head, rec.spans());
   map.debugCorrupt(1);
   EXPECT_THROW(read(map, 1), Pelin::CorruptionDetectedException);
   // Overwrite the live extent generations: the records no longer match their extents.
   const auto& h = map.region().header();
   Table::Word* pool = map.region().words(h.poolOffset);
   for (Table::Word o = 0; o < map.pool().used() / 8; ++o) {
      if (pool[o] >> 32 == 2) pool[o] += 2; // an extent of class 2 (five items)
   }
   EXPECT_THAT([&] { read(map, 2); },
               testing::ThrowsMessage<Pelin::CorruptionDetectedException>(
                   testing::HasSubstr("extent generation changed")));
}

TEST(TableListMap, ReaderMapsTheWritersFile) {
   std::string path = scratchPath("listmap-shared");
   Lists writer = Lists::createFile(path, 100, 1 << 20, kBounds);
   auto rec = Record::of(9, 5, 3);
   writer.insert(9, rec.head, rec.spans());
   Lists reader = Lists::attachFile(path, kBounds);
   EXPECT_EQ(read(reader, 9), rec);
   EXPECT_THROW(Lists::attachFile(path, {600, 64}), Pelin::Exception);
}

// The writer keeps replacing records with ones of other sizes, so extents are freed and
// reused under the reader; every copy must be one whole record.
TEST(TableListMap, ReaderRacingWriterSeesWholeRecords) {
   Lists map(16, 4 << 20, kBounds);
   std::vector<Record> pool;
   for (std::uint64_t s = 0; s < 64; ++s) pool.push_back(Record::of(s, 1 + s % 13, s % 3));
   for (std::uint64_t k = 0; k < 8; ++k) map.insert(k, pool[k].head, pool[k].spans());
   std::atomic<bool> stop{false};
   std::uint64_t reads = 0, bad = 0;
   std::thread reader([&] {
      auto until = std::chrono::steady_clock::now() + std::chrono::seconds(2);
      while (reads < 300'000 && std::chrono::steady_clock::now() < until) {
         try {
            auto r = read(map, reads++ % 8);
            if (!r || !(*r == pool[r->head.seed])) ++bad;
         } catch (const Pelin::Exception&) {
            ++bad;
         }
      }
      stop = true;
   });
   std::mt19937 rng(5);
   while (!stop) {
      auto& rec = pool[rng() % pool.size()];
      map.insert(rng() % 8, rec.head, rec.spans());
   }
   reader.join();
   EXPECT_GT(reads, 50'000u);
   EXPECT_EQ(bad, 0u);
}

} // namespace
