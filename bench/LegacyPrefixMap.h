// The prefix map as it was before direct-indexed entries, kept only to compare against in
// the same benchmark run: every prefix in one FlatMap, bitmaps of the lengths present
// (per IPv4 /16 for lengths 16..32), and a lookup that probes each present length,
// longest first.
#pragma once
#include "Table/PrefixMap.h"

#include <bit>
#include <vector>

namespace Bench {

using Table::Family;
using Table::PrefixKey;
using Table::PrefixMatch;
using Table::Word;

class LegacyPrefixMap {
   static constexpr Word kBuckets = 1 << 16;
   static constexpr unsigned kBucketLength = 16;
   static constexpr Word kShortLengths = (Word(1) << kBucketLength) - 1;
   using Map = Table::FlatMap<PrefixKey, std::uint64_t>;

 public:
   explicit LegacyPrefixMap(Word capacity)
       : map_(Table::Region::anonymous(layout(capacity))),
         bucketCounts_(kBuckets * (33 - kBucketLength)) {}

   void insert(const PrefixKey& prefix, std::uint64_t value) {
      if (!map_.find(prefix)) countLength(prefix);
      map_.insert(prefix, value);
   }

   std::optional<PrefixMatch> longestMatch(const PrefixKey& address) const {
      const Word* bits = lengthBits(address.family);
      std::uint8_t top = PrefixKey::maxLength(address.family);
      for (int w = top / 64; w >= 0; --w) {
         Word set = Table::loadWord(bits[w]);
         if (address.family == Family::ipv4) {
            set = (set & kShortLengths) | Table::loadWord(buckets()[bucketOf(address)]);
         }
         for (; set; set &= ~(Word(1) << (63 - std::countl_zero(set)))) {
            auto len = std::uint8_t(w * 64 + 63 - std::countl_zero(set));
            if (auto value = map_.find(address.masked(len)))
               return PrefixMatch{len, *value};
         }
      }
      return std::nullopt;
   }

   Word size() const { return map_.size(); }
   const Table::Region& region() const { return map_.region(); }

 private:
   static Table::Layout layout(Word capacity) {
      Table::Layout l = Map::layout(capacity);
      l.kind = Table::prefixMapKind;
      l.poolBytes = kBuckets * sizeof(Word);
      return l;
   }
   static unsigned bucketOf(const PrefixKey& key) {
      return key.bytes[0] << 8 | key.bytes[1];
   }
   Word* words(Word offset) const {
      return const_cast<Table::Region&>(map_.region()).words(offset);
   }
   Word* buckets() const { return words(map_.region().header().poolOffset); }
   Word* lengthBits(Family family) const {
      Word* aux = const_cast<Table::Region&>(map_.region()).header().aux;
      return family == Family::ipv4 ? aux : aux + 1;
   }
   static void set(Word& bits, unsigned bit) {
      Table::storeWord(bits, Table::loadWord(bits) | Word(1) << bit);
   }
   void countLength(const PrefixKey& prefix) {
      set(lengthBits(prefix.family)[prefix.length / 64], prefix.length % 64);
      if (prefix.family == Family::ipv4 && prefix.length >= kBucketLength) {
         unsigned bucket = bucketOf(prefix);
         ++bucketCounts_[bucket * (33 - kBucketLength) + prefix.length - kBucketLength];
         set(buckets()[bucket], prefix.length);
      }
   }

   Map map_;
   std::vector<std::uint32_t> bucketCounts_;
};

} // namespace Bench
