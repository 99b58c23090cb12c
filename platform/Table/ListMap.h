// Table::ListMap: a FlatMap whose records are a fixed head plus up to four variable-length
// lists of items kept in the region's extent pool (a FEC with its vias, for instance).
// A record with N items costs one slot read plus N item copies; no list is ever sized for
// its bound. The first list keeps up to `Inline` items in the slot itself, so the common
// short record is read with one memory access instead of two.
#pragma once
#include "Table/ExtentPool.h"
#include "Table/FlatMap.h"

#include <algorithm>
#include <array>
#include <span>

namespace Table {

[[noreturn]] void listAboveBound(const std::string& table, std::size_t list, Word bound,
                                 Word count);

template <typename Key, typename Head, typename Item, std::size_t Lists = 1,
          std::size_t Inline = 0>
class ListMap {
   static_assert(Lists >= 1 && Lists <= kMaxLists);
   static_assert(std::is_trivially_copyable_v<Head> && std::is_trivially_copyable_v<Item>);

   struct Entry {
      Head head;
      ExtentRef lists[Lists];
      std::array<Item, Inline> inlineItems; // list 0 when it is this short
   };
   using Map = FlatMap<Key, Entry>;

 public:
   using Bounds = std::array<std::uint32_t, Lists>;
   using Items = std::array<std::span<const Item>, Lists>;

   // Pool bytes for `records` records of `items` items each (summed over the lists).
   static Word poolBytesFor(Word records, Word items) {
      return items <= Inline ? 0 : records * ExtentPool::footprint(items * sizeof(Item));
   }

   static Layout layout(Word capacity, Word poolBytes, const Bounds& bounds) {
      Layout l = Map::layout(capacity);
      l.kind = listMapKind;
      l.itemSize = sizeof(Item);
      l.poolBytes = poolBytes;
      std::copy(bounds.begin(), bounds.end(), l.listMax);
      return l;
   }

   ListMap(Word capacity, Word poolBytes, const Bounds& bounds)
       : ListMap(Region::anonymous(layout(capacity, poolBytes, bounds))) {}
   explicit ListMap(Region region) : map_(std::move(region)), pool_(map_.region()) {
      std::copy_n(map_.region().header().listMax, Lists, bounds_.begin());
   }
   static ListMap createFile(const std::string& path, Word capacity, Word poolBytes,
                             const Bounds& bounds) {
      return ListMap(Region::createFile(path, layout(capacity, poolBytes, bounds)));
   }
   static ListMap attachFile(const std::string& path, const Bounds& bounds) {
      return ListMap(Region::attachFile(path, layout(0, 0, bounds)));
   }

   // ---- writer ----

   // Inserts or replaces. A list longer than its bound, a full table or a full pool throws
   // and leaves the table as it was.
   void insert(const Key& key, const Head& head, const Items& items) {
      VELT_ASSERT(map_.region().writable());
      for (std::size_t l = 0; l < Lists; ++l) {
         if (items[l].size() > bounds_[l]) {
            listAboveBound(map_.name(), l, bounds_[l], items[l].size());
         }
      }
      Entry entry{head, {}, {}};
      std::size_t first = 0;
      if (items[0].size() <= Inline) {
         std::copy(items[0].begin(), items[0].end(), entry.inlineItems.begin());
         entry.lists[0].count = static_cast<std::uint32_t>(items[0].size());
         first = 1;
      }
      try {
         for (std::size_t l = first; l < Lists; ++l) {
            entry.lists[l] = pool_.write(items[l].data(),
                                         static_cast<std::uint32_t>(items[l].size()),
                                         sizeof(Item));
         }
         auto old = map_.exchange(key, entry);
         if (old) releaseLists(*old);
      } catch (...) {
         releaseLists(entry);
         throw;
      }
   }

   bool erase(const Key& key) {
      auto old = map_.remove(key);
      if (old) releaseLists(*old);
      return old.has_value();
   }

   void clear() {
      map_.clear();
      pool_.reset();
   }

   // Tests only: see FlatMap::debugCorrupt.
   void debugCorrupt(const Key& key) { map_.debugCorrupt(key); }

   // ---- reader ----

   // Copies the record of `key`: returns its head and hands each list to
   // `sink(list, count)`, which returns room for `count` items. The sink may be called
   // again when the record changed during the copy; the last call holds the result.
   template <typename Sink>
   std::optional<Head> find(const Key& key, Sink&& sink) const {
      Entry entry;
      bool found = map_.findInto(key, entry, [&](const Entry& e) -> const char* {
         for (std::size_t l = 0; l < Lists; ++l) {
            if (e.lists[l].count > bounds_[l]) return "list count above its bound";
            Item* dst = sink(l, e.lists[l].count);
            if (l == 0 && e.lists[0].offset == 0 && e.lists[0].count <= Inline) {
               std::copy_n(e.inlineItems.begin(), e.lists[0].count, dst);
               continue;
            }
            if (const char* problem = pool_.read(e.lists[l], dst, sizeof(Item))) {
               return problem;
            }
         }
         return nullptr;
      });
      if (!found) return std::nullopt;
      return entry.head;
   }

   // Calls fn(key, head, counts) for every record, for tools.
   template <typename Fn>
   void forEach(Fn&& fn) const {
      map_.forEach([&](const Key& key, const Entry& e) {
         std::array<std::uint32_t, Lists> counts;
         for (std::size_t l = 0; l < Lists; ++l) counts[l] = e.lists[l].count;
         fn(key, e.head, counts);
      });
   }

   Word size() const { return map_.size(); }
   Word capacity() const { return map_.capacity(); }
   const Bounds& bounds() const { return bounds_; }
   const ExtentPool& pool() const { return pool_; }
   const Region& region() const { return map_.region(); }
   Region& region() { return map_.region(); }

 private:
   void releaseLists(const Entry& entry) {
      for (const ExtentRef& ref : entry.lists) pool_.release(ref);
   }

   Map map_;
   ExtentPool pool_;
   Bounds bounds_{};
};

} // namespace Table
