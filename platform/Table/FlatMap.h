// Table::FlatMap: a fixed-capacity hash map of trivially copyable keys and values inside a
// Region, written by one writer and read without locks (and without writes) by any number
// of readers, in the same process or through a read-only file mapping.
//
// Open addressing with linear probing. Each slot carries a generation (seqlock); a reader
// copies the slot and keeps the copy only if the generation was even and unchanged. Erase
// leaves a tombstone, so keys never move while readers probe; a tombstone becomes empty
// again only when the next slot is empty, where no probe chain can pass through it.
#pragma once
#include "Pelin/Assert.h"
#include "Pelin/Exception.h"
#include "Table/Region.h"
#include "Table/Seqlock.h"

#include <cstring>
#include <fmt/format.h>
#include <memory>
#include <optional>
#include <string>
#include <type_traits>

namespace Table {

enum TableKind : std::uint32_t { flatMapKind = 1, listMapKind = 2, prefixMapKind = 3 };

// Hash of a key's bytes; keys must have no padding so that equal keys hash equally.
template <typename Key>
std::uint64_t hashKey(const Key& key) {
   Word w[wordsFor(sizeof(Key))] = {};
   std::memcpy(w, &key, sizeof(Key));
   std::uint64_t h = 0x9e3779b97f4a7c15ull;
   for (Word x : w) {
      h = (h ^ x) * 0xff51afd7ed558ccdull;
      h ^= h >> 32;
   }
   h *= 0xc4ceb9fe1a85ec53ull;
   return h ^ (h >> 29);
}

// `repeat`: damage raised before and still there (see CorruptionDetectedException).
[[noreturn]] void corruptSlot(const std::string& table, Word slot, const std::string& problem,
                              bool repeat = false);
[[noreturn]] void tableFull(const std::string& table, Word capacity);

template <typename Key, typename Value>
class FlatMap {
   static_assert(std::is_trivially_copyable_v<Key> && std::is_trivially_copyable_v<Value>);
   static_assert(std::has_unique_object_representations_v<Key>,
                 "keys are hashed and compared by their bytes: no padding allowed");
   static constexpr std::size_t kKeyWords = wordsFor(sizeof(Key));
   static constexpr std::size_t kValueWords = wordsFor(sizeof(Value));
   enum State : std::uint32_t { empty = 0, full = 1, tombstone = 2 };
   enum Field { genField = 0, metaField = 1, keyField = 2, valueField = 2 + kKeyWords };

 public:
   static constexpr std::size_t kSlotWords = valueField + kValueWords;

   static Layout layout(Word capacity) {
      Layout l;
      l.kind = flatMapKind;
      l.keySize = sizeof(Key);
      l.valueSize = sizeof(Value);
      l.capacity = capacity;
      l.slotWords = kSlotWords;
      return l;
   }

   // In-process map holding up to `capacity` entries.
   explicit FlatMap(Word capacity) : FlatMap(Region::anonymous(layout(capacity))) {}
   // Over a region made with (an extension of) layout().
   explicit FlatMap(Region region)
       : region_(std::move(region)), stuck_(std::make_unique<StuckGenerations>()) {
      const RegionHeader& h = region_.header();
      VELT_ASSERT(h.keySize == sizeof(Key) && h.valueSize == sizeof(Value));
      slots_ = region_.words(h.slotsOffset);
      mask_ = h.slotCount - 1;
   }
   static FlatMap createFile(const std::string& path, Word capacity) {
      return FlatMap(Region::createFile(path, layout(capacity)));
   }
   static FlatMap attachFile(const std::string& path) {
      return FlatMap(Region::attachFile(path, layout(0)));
   }

   // ---- writer ----

   // Inserts or replaces; returns the value replaced, if any.
   std::optional<Value> exchange(const Key& key, const Value& value) {
      RegionHeader& header = writerHeader();
      std::uint64_t h = hashKey(key);
      Word* free = nullptr;
      for (Word i = h & mask_, n = 0; n <= mask_; i = (i + 1) & mask_, ++n) {
         Word* s = slot(i);
         State state = stateOf(s);
         if (state == empty) {
            if (!free) free = s;
            break;
         }
         if (state == tombstone) {
            if (!free) free = s;
            continue;
         }
         if (tagOf(s) == tag(h) && keyEquals(s, key)) {
            std::optional<Value> old = Value{};
            copyOut(s + valueField, &*old, sizeof(Value));
            writeSlot(s, full, h, key, value);
            return old;
         }
      }
      Word size = loadWord(header.size);
      if (size >= region_.header().capacity || !free) tableFull(name(), capacity());
      if (stateOf(free) == tombstone) add(header.tombstones, Word(-1));
      writeSlot(free, full, h, key, value);
      storeWord(header.size, size + 1);
      return std::nullopt;
   }
   void insert(const Key& key, const Value& value) { exchange(key, value); }

   // Removes `key`; returns its value when it was present.
   std::optional<Value> remove(const Key& key) {
      RegionHeader& header = writerHeader();
      std::uint64_t h = hashKey(key);
      Word i = h & mask_;
      Word* s = probeWriter(key, h, i);
      if (!s) return std::nullopt;
      std::optional<Value> old = Value{};
      copyOut(s + valueField, &*old, sizeof(Value));
      writeState(s, tombstone);
      add(header.size, Word(-1));
      add(header.tombstones, 1);
      // Empty the tombstones that end a chain, from the erased slot backwards.
      while (stateOf(slot(i)) == tombstone && stateOf(slot((i + 1) & mask_)) == empty) {
         writeState(slot(i), empty);
         add(header.tombstones, Word(-1));
         i = (i - 1) & mask_;
      }
      return old;
   }
   bool erase(const Key& key) { return remove(key).has_value(); }

   void clear() {
      RegionHeader& header = writerHeader();
      for (Word i = 0; i <= mask_; ++i) {
         if (stateOf(slot(i)) != empty) writeState(slot(i), empty);
      }
      storeWord(header.size, 0);
      storeWord(header.tombstones, 0);
   }

   // Tests only: leaves the generation of `key`'s slot odd, as a writer killed mid-update.
   void debugCorrupt(const Key& key) {
      writerHeader();
      std::uint64_t h = hashKey(key);
      Word i = h & mask_;
      Word* s = probeWriter(key, h, i);
      VELT_ASSERT(s != nullptr);
      beginWrite(s[genField]);
   }

   // ---- reader ----

   std::optional<Value> find(const Key& key) const {
      std::optional<Value> out(std::in_place);
      if (!findInto(key, *out, [](const Value&) -> const char* { return nullptr; })) {
         out.reset();
      }
      return out;
   }
   Value find(const Key& key, const Value& absent) const { return find(key).value_or(absent); }

   // Starts loading the slot `key` hashes to, so that several finds can wait on memory at
   // once instead of one after another.
   void prefetch(const Key& key) const { __builtin_prefetch(slot(hashKey(key) & mask_)); }

   // Like find, copying straight into `out`; `extra(out)` runs inside the slot's read
   // window to copy data the value refers to, and returns a problem text or null. A problem
   // is corruption only if the slot did not change meanwhile.
   template <typename Extra>
   bool findInto(const Key& key, Value& out, Extra&& extra) const {
      const bool found = findUnverified(key, out, extra);
      region_.verify();
      return found;
   }
   // findInto without the check that the file is still the one mapped.
   template <typename Extra>
   bool findUnverified(const Key& key, Value& out, Extra&& extra) const {
      std::uint64_t h = hashKey(key);
      for (Word i = h & mask_, n = 0; n <= mask_; i = (i + 1) & mask_, ++n) {
         const Word* s = slot(i);
         Word meta = loadWord(s[metaField], std::memory_order_acquire);
         const auto state = static_cast<std::uint32_t>(meta);
         if (state == empty) return false;
         // A damaged state word is judged by the lookups of its own key, which carry its
         // tag; the others pass it as they pass any slot not theirs.
         if (state == tombstone || (meta >> 32) != tag(h)) continue;
         Word seen;
         Key stored;
         const char* problem = nullptr;
         read(i, seen, stored, out, [&] {
            bool mine = (seen & 0xffffffffu) == full &&
                        std::memcmp(&stored, &key, sizeof key) == 0;
            problem = mine ? extra(out) : nullptr;
         });
         if (checkedState(i, seen) == full && std::memcmp(&stored, &key, sizeof key) == 0) {
            if (problem) corruptSlot(name(), i, problem);
            return true;
         }
         // Our tag on another key is either a rare collision or a key damaged in place:
         // the stored key must hash to the tag stored with it.
         if (checkedState(i, seen) == full && (seen >> 32) != tag(hashKey(stored)))
            [[unlikely]] {
            corruptSlot(name(), i, "key does not match its hash");
         }
      }
      return false;
   }

   // Calls fn(key, value) on a consistent copy of every entry (writer or reader side).
   template <typename Fn>
   void forEach(Fn&& fn) const {
      for (Word i = 0; i <= mask_; ++i) {
         if (checkedState(i, loadWord(slot(i)[metaField])) != full) continue;
         Word seen;
         Key key;
         Value value;
         read(i, seen, key, value, [] {});
         region_.verify();
         if (checkedState(i, seen) == full) fn(key, value);
      }
      region_.verify();
   }

   Word size() const { return loadWord(region_.header().size); }
   Word capacity() const { return region_.header().capacity; }
   // The entries this process found left odd by a dead writer; shared with the tables
   // built on this map.
   StuckGenerations& stuckGenerations() const { return *stuck_; }
   const std::string& name() const { return region_.name(); }
   const Region& region() const { return region_; }
   Region& region() { return region_; }

 private:
   static std::uint32_t tag(std::uint64_t h) { return static_cast<std::uint32_t>(h >> 32); }
   Word* slot(Word i) const { return slots_ + i * kSlotWords; }
   static State stateOf(const Word* s) { return State(loadWord(s[metaField]) & 0xffffffffu); }
   static std::uint32_t tagOf(const Word* s) { return loadWord(s[metaField]) >> 32; }

   State checkedState(Word i, Word meta) const {
      auto state = static_cast<std::uint32_t>(meta);
      if (state > tombstone) corruptSlot(name(), i, fmt::format("invalid state {}", state));
      return State(state);
   }

   static bool keyEquals(const Word* s, const Key& key) {
      Key stored;
      copyOut(s + keyField, &stored, sizeof(Key));
      return std::memcmp(&stored, &key, sizeof(Key)) == 0;
   }

   // A consistent copy of slot i's state word, key and value.
   template <typename Extra>
   void read(Word i, Word& meta, Key& key, Value& value, Extra&& extra) const {
      const Word* s = slot(i);
      auto outcome = seqRead(
          s[genField],
          [&] {
             meta = loadWord(s[metaField], std::memory_order_acquire);
             copyOut(s + keyField, &key, sizeof(Key));
             copyOut(s + valueField, &value, sizeof(Value));
             extra();
          },
          *stuck_);
      if (outcome != ReadOutcome::ok) {
         corruptSlot(name(), i, fmt::format("generation {} stays odd", loadWord(s[genField])),
                     outcome == ReadOutcome::stuckAgain);
      }
   }

   RegionHeader& writerHeader() {
      VELT_ASSERT(region_.writable());
      return region_.header();
   }
   static void add(Word& counter, Word delta) { storeWord(counter, loadWord(counter) + delta); }

   Word* probeWriter(const Key& key, std::uint64_t h, Word& i) {
      for (Word n = 0; n <= mask_; i = (i + 1) & mask_, ++n) {
         Word* s = slot(i);
         State state = stateOf(s);
         if (state == empty) return nullptr;
         if (state == full && tagOf(s) == tag(h) && keyEquals(s, key)) return s;
      }
      return nullptr;
   }

   static void writeSlot(Word* s, State state, std::uint64_t h, const Key& key,
                         const Value& value) {
      beginWrite(s[genField]);
      storeWord(s[metaField], state | (Word(tag(h)) << 32), std::memory_order_release);
      copyIn(s + keyField, &key, sizeof(Key));
      copyIn(s + valueField, &value, sizeof(Value));
      endWrite(s[genField]);
   }

   static void writeState(Word* s, State state) {
      beginWrite(s[genField]);
      storeWord(s[metaField], (loadWord(s[metaField]) & ~Word(0xffffffffu)) | state,
                std::memory_order_release);
      endWrite(s[genField]);
   }

   Region region_;
   Word* slots_ = nullptr;
   Word mask_ = 0;
   std::unique_ptr<StuckGenerations> stuck_; // process-local: the mapping is read-only
};

} // namespace Table
