// Table::PrefixMap: longest-prefix match of IPv4 and IPv6 addresses to 64-bit values, in
// a Region like the other shared tables, written by one writer and read without locks.
//
// Every prefix is kept exactly in a FlatMap keyed by family, length and masked bytes. A
// lookup does not probe that map length by length: it reads direct-indexed entries that
// hold the short prefixes expanded, and probes the exact map only at the longer lengths
// known to occur under the address.
//   - /0../8 of either family: 256 entries indexed by the first byte.
//   - IPv4 /9../R: 2^R root entries (R = 24 for large tables, 16 for small ones), each
//     with a bitmap of the lengths above R present under it.
//   - IPv6 /9../16: 2^16 root entries, each telling whether /17../24 prefixes exist under
//     it and which of its /20s hold anchors.
//   - IPv6 /17../24, /25../32 and /41../48: hashed entries keyed by the /24, /32 or /48
//     the prefixes expand to. The /32 and /48 entries are anchors: a /32 anchor also
//     carries a bitmap of the lengths 33..40 present under it and whether /48 anchors
//     exist there, a /48 anchor the lengths 49..128. An anchor exists alone, as a marker,
//     when only longer prefixes need it.
// An expanded entry stores the length of the prefix it came from, so inserting or erasing
// a prefix rewrites only the entries that prefix owns.
//
// Every entry has a generation, odd while the writer is inside it. The generation of a
// root entry or anchor also covers what lies below it, so a lookup re-reads those it used
// and retries if any moved: it returns an answer the table held at one instant, never a
// mix of two.
#pragma once
#include "Table/FlatMap.h"

#include <cstdint>
#include <functional>
#include <optional>
#include <unordered_map>
#include <vector>

namespace Table {

enum class Family : std::uint8_t { ipv4 = 4, ipv6 = 6 };

// A prefix as the tables store it: the address bytes in network order (IPv4 in the first
// four), zero past `length`, then the length and the family. Any prefix type converts to
// it through of().
struct PrefixKey {
   std::uint8_t bytes[16];
   std::uint8_t length;
   Family family;
   std::uint8_t pad[6];

   static constexpr std::uint8_t maxLength(Family f) { return f == Family::ipv4 ? 32 : 128; }
   // `address` holds 4 or 16 bytes by family; bits past `length` are cleared.
   static PrefixKey of(Family family, const std::uint8_t* address, std::uint8_t length);
   static PrefixKey v4(std::uint32_t hostOrder, std::uint8_t length);
   // The same address cut to `length` bits.
   PrefixKey masked(std::uint8_t length) const;
};

struct PrefixMatch {
   std::uint8_t length;
   std::uint64_t value;
};

class PrefixMap {
 public:
   // Holds up to `capacity` prefixes of both families together.
   explicit PrefixMap(Word capacity);
   static PrefixMap createFile(const std::string& path, Word capacity);
   static PrefixMap attachFile(const std::string& path);

   // Writer. The prefix must have its bits past `length` cleared (as of() makes it). A
   // full table throws RangeException and leaves the table as it was; so does an IPv6
   // prefix when the hashed entries (6 x capacity + 256, shared) run out.
   void insert(const PrefixKey& prefix, std::uint64_t value);
   bool erase(const PrefixKey& prefix);
   void clear();

   // Reader: the exact prefix, or the longest one covering `address` (a full-length key).
   // A damaged table, or a writer stuck inside an entry, raises
   // CorruptionDetectedException.
   std::optional<std::uint64_t> find(const PrefixKey& prefix) const { return map_.find(prefix); }
   std::optional<PrefixMatch> longestMatch(const PrefixKey& address) const;

   Word size() const { return map_.size(); }
   const FlatMap<PrefixKey, std::uint64_t>& map() const { return map_; }
   // Hashed IPv6 entries in use, and their bound.
   Word expandedCount() const;
   Word expandedCapacity() const { return hashLimit_; }
   const Region& region() const { return map_.region(); }

   // Tests only: leaves the root entry that `address` is looked up through half-written,
   // as a writer killed inside it would.
   void debugCorrupt(const PrefixKey& address);
   // Tests only: lookups through this map call `pause(stage)` after reading the entries
   // that steer them and before the probes they steer (stage 0: root entries read; 1:
   // IPv6 hashed entries read), so that a test can change the table exactly there.
   void debugPauseReaders(std::function<void(int stage)> pause) {
      pause_ = std::move(pause);
   }

 private:
   struct Slot; // a consistent copy of one hashed entry
   struct Geometry;

   explicit PrefixMap(Region region);
   static Layout layout(Word capacity);

   // Reader.
   std::optional<PrefixMatch> match4(const PrefixKey& address) const;
   std::optional<PrefixMatch> match6(const PrefixKey& address) const;
   bool probe(Word key, Slot& out) const;
   // Exact keys of the address hi:lo at the lengths in `bits` (bit i: base + i), longest
   // first, with their slots requested; then the longest of them present.
   unsigned prepareExact(Family family, Word hi, Word lo, Word bits, unsigned base,
                         PrefixKey* keys) const;
   std::optional<PrefixMatch> findExact(const PrefixKey* keys, unsigned count) const;
   [[noreturn]] void corrupt(const char* what, Word index, const std::string& problem,
                             bool repeat = false) const;
   // True when `entry` is odd at a `meta` a reader found stuck before.
   bool knownStuck(const Word* entry, Word meta) const;
   [[noreturn]] void stuck(const char* family, const Word* shortEntry, Word shortIndex,
                           const Word* rootEntry, Word rootIndex) const;

   // Writer.
   void expandDirect(Word* table, Word first, Word count, unsigned length,
                     std::optional<PrefixMatch> to, bool inserting);
   void expandHashed(unsigned kind, Word hi, unsigned length,
                     std::optional<PrefixMatch> to, bool inserting);
   std::optional<PrefixMatch> coverBelow(const PrefixKey& prefix,
                                         unsigned minLength) const;
   Word hashedRoomNeeded(const PrefixKey& prefix) const;
   Word* findSlot(Word key) const;
   Word* addSlot(Word key, Word meta, Word keyWord, Word value, Word bits);
   void dropSlot(Word* slot);
   bool uncount(Word key); // true when the count reached zero
   Word* anchor32(Word hi, bool added);
   Word* anchor48(Word hi, Word* anchor32, bool added);
   void release48(Word hi, Word* anchor32, Word* anchor48);
   void release32(Word hi, Word* anchor32);
   void insert4(const PrefixKey& prefix, std::uint64_t value, bool added);
   void insert6(const PrefixKey& prefix, std::uint64_t value, bool added);
   void erase4(const PrefixKey& prefix);
   void erase6(const PrefixKey& prefix);

   Word* words(Word offset) const {
      return const_cast<Region&>(map_.region()).words(offset);
   }
   Word* short4() const { return words(short4Offset_); }
   Word* short6() const { return words(short4Offset_ + 256 * 16); }
   Word* root4() const { return words(root4Offset_); }
   Word* root6() const { return words(root6Offset_); }
   Word* slot(Word i) const { return words(hashOffset_) + i * 4; }
   Word& hashLive() const;
   Word& hashTombstones() const;

   FlatMap<PrefixKey, std::uint64_t> map_;
   unsigned rootBits4_;
   Word short4Offset_, root4Offset_, root6Offset_, hashOffset_;
   Word hashMask_, hashLimit_;
   // Writer only: how many prefixes of each length lie under each root entry or anchor,
   // and whether clear() is running (no prefix shorter than the one being erased is
   // left).
   std::unordered_map<Word, std::uint32_t> counts_;
   bool clearing_ = false;
   std::function<void(int)> pause_;
};

} // namespace Table
