// One writer thread and one reader thread over the same table region: every record copied
// is wholly one version. Built under ThreadSanitizer, which checks that each racing
// access is atomic and ordered; also runs in the ordinary builds.
#include "Table/ListMap.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <thread>

namespace {

// Few keys, so that the reader often meets the record the writer is inside.
constexpr std::uint32_t kKeys = 8;
constexpr std::uint64_t kReads = 200'000;
constexpr auto kPatience = std::chrono::seconds(20);

std::uint64_t checkOf(std::uint64_t version, std::uint64_t index) {
   std::uint64_t h =
       (version + 1) * 0x9e3779b97f4a7c15ull ^ index * 0xc4ceb9fe1a85ec53ull;
   return h ^ (h >> 29);
}

struct Item {
   std::uint64_t version;
   std::uint64_t index;
   std::uint64_t check;
   static Item of(std::uint64_t version, std::uint64_t index) {
      return {version, index, checkOf(version, index)};
   }
   bool operator==(const Item&) const = default;
};

struct Head {
   std::uint64_t version;
   std::uint64_t check;
};

// Up to 8 items in the first list (4 of them inline), up to 2 in the pooled second.
using Records = Table::ListMap<std::uint32_t, Head, Item, 2, 4>;
using Entries = Table::FlatMap<std::uint32_t, Item>;

std::uint32_t countOf(std::uint64_t version, std::size_t list) {
   return list == 0 ? 1 + version % 8 : version % 3;
}

void writeRecord(Records& records, std::uint32_t key, std::uint64_t version) {
   Item items[2][8];
   for (std::size_t l = 0; l < 2; ++l) {
      for (std::uint32_t i = 0; i < countOf(version, l); ++i)
         items[l][i] = Item::of(version, l * 8 + i);
   }
   records.insert(key, {version, checkOf(version, key)},
                  {std::span<const Item>(items[0], countOf(version, 0)),
                   std::span<const Item>(items[1], countOf(version, 1))});
}

bool isWhole(std::uint32_t key, const Head& head, const Item (&items)[2][8],
             const std::uint32_t (&counts)[2]) {
   if (head.check != checkOf(head.version, key)) return false;
   for (std::size_t l = 0; l < 2; ++l) {
      if (counts[l] != countOf(head.version, l)) return false;
      for (std::uint32_t i = 0; i < counts[l]; ++i) {
         if (!(items[l][i] == Item::of(head.version, l * 8 + i))) return false;
      }
   }
   return true;
}

struct Tally {
   std::uint64_t reads = 0, torn = 0, missing = 0, corrupt = 0, changes = 0;
};

// Runs `write(version)` on a writer thread until the reader has made `kReads` reads and
// seen 1,000 versions pass by, or patience runs out.
template <typename Write, typename Read>
Tally race(Write&& write, Read&& read) {
   std::atomic<bool> stop{false};
   std::thread writer([&] {
      for (std::uint64_t version = 2; !stop.load(std::memory_order_relaxed); ++version) {
         write(version);
      }
   });
   Tally t;
   std::uint64_t last[kKeys] = {};
   const auto until = std::chrono::steady_clock::now() + kPatience;
   while ((t.reads < kReads || t.changes < 1000) &&
          std::chrono::steady_clock::now() < until) {
      for (std::uint32_t key = 0; key < kKeys; ++key, ++t.reads) {
         try {
            std::uint64_t version = read(key, t);
            if (version && version != last[key]) ++t.changes;
            if (version) last[key] = version;
         } catch (const Pelin::CorruptionDetectedException&) {
            ++t.corrupt;
         }
      }
   }
   stop = true;
   writer.join();
   return t;
}

void expectNoTornReads(const Tally& t) {
   EXPECT_GE(t.reads, kReads);
   EXPECT_GE(t.changes, 1000u);
   EXPECT_EQ(t.torn, 0u);
   EXPECT_EQ(t.missing, 0u);
   // Only a writer thread descheduled inside a record for the whole retry budget.
   EXPECT_LE(t.corrupt, t.reads / 1000);
}

TEST(TableSeqlockThreads, ListMapReaderSeesWholeRecordsWithPooledItems) {
   Records records(64, Records::poolBytesFor(64 * 4, 8), {8, 2});
   for (std::uint32_t key = 0; key < kKeys; ++key)
      writeRecord(records, key, 1);
   Tally t = race(
       [&](std::uint64_t version) { writeRecord(records, version * 5 % kKeys, version); },
       [&](std::uint32_t key, Tally& tally) -> std::uint64_t {
          Item items[2][8];
          std::uint32_t counts[2] = {};
          auto head = records.find(key, [&](std::size_t l, std::uint32_t n) {
             counts[l] = n;
             return items[l];
          });
          if (!head) return ++tally.missing, 0;
          if (!isWhole(key, *head, items, counts)) return ++tally.torn, 0;
          return head->version;
       });
   expectNoTornReads(t);
}

TEST(TableSeqlockThreads, FlatMapReaderSeesWholeEntriesAmidErasures) {
   Entries entries(64);
   for (std::uint32_t key = 0; key < kKeys; ++key)
      entries.insert(key, Item::of(1, key));
   Tally t = race(
       [&](std::uint64_t version) {
          auto key = std::uint32_t(version * 5 % kKeys);
          entries.insert(key, Item::of(version, key));
          // Erase and re-insert neighbours of the read keys: tombstones on their chains.
          std::uint32_t other = 1000 + version % 24;
          if (!entries.erase(other)) entries.insert(other, Item::of(version, other));
       },
       [&](std::uint32_t key, Tally& tally) -> std::uint64_t {
          auto item = entries.find(key);
          if (!item) return ++tally.missing, 0;
          if (item->index != key || item->check != checkOf(item->version, key)) {
             return ++tally.torn, 0;
          }
          return item->version;
       });
   expectNoTornReads(t);
}

} // namespace
