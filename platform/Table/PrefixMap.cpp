#include "Table/PrefixMap.h"

#include <bit>

namespace Table {

static_assert(sizeof(PrefixKey) == 24);

namespace {
constexpr Word kBuckets = 1 << 16;
constexpr unsigned kBucketLength = 16;
constexpr Word kShortLengths = (Word(1) << kBucketLength) - 1;
unsigned bucketOf(const PrefixKey& key) { return key.bytes[0] << 8 | key.bytes[1]; }
} // namespace

PrefixKey PrefixKey::of(Family family, const std::uint8_t* address, std::uint8_t length) {
   VELT_ASSERT(length <= maxLength(family));
   PrefixKey key{};
   std::memcpy(key.bytes, address, family == Family::ipv4 ? 4 : 16);
   key.family = family;
   return key.masked(length);
}

PrefixKey PrefixKey::v4(std::uint32_t hostOrder, std::uint8_t length) {
   std::uint8_t bytes[4] = {std::uint8_t(hostOrder >> 24), std::uint8_t(hostOrder >> 16),
                            std::uint8_t(hostOrder >> 8), std::uint8_t(hostOrder)};
   return of(Family::ipv4, bytes, length);
}

PrefixKey PrefixKey::masked(std::uint8_t len) const {
   PrefixKey key = *this;
   key.length = len;
   for (unsigned i = 0; i < 16; ++i) {
      unsigned bits = i * 8;
      if (bits >= len) {
         key.bytes[i] = 0;
      } else if (len - bits < 8) {
         key.bytes[i] &= std::uint8_t(0xff00 >> (len - bits));
      }
   }
   return key;
}

Layout PrefixMap::layout(Word capacity) {
   Layout l = FlatMap<PrefixKey, std::uint64_t>::layout(capacity);
   l.kind = prefixMapKind;
   l.poolBytes = kBuckets * sizeof(Word); // the per-/16 length bitmaps
   return l;
}

PrefixMap::PrefixMap(Region region)
    : map_(std::move(region)), bucketOffset_(map_.region().header().poolOffset),
      bucketCounts_(map_.region().writable() ? kBuckets * (33 - kBucketLength) : 0) {
   if (map_.region().header().poolBytes != kBuckets * sizeof(Word)) {
      throw Pelin::Exception(fmt::format("table file {}: prefix map without its /16 bitmaps",
                                         map_.name()));
   }
}
PrefixMap::PrefixMap(Word capacity) : PrefixMap(Region::anonymous(layout(capacity))) {}

PrefixMap PrefixMap::createFile(const std::string& path, Word capacity) {
   return PrefixMap(Region::createFile(path, layout(capacity)));
}

PrefixMap PrefixMap::attachFile(const std::string& path) {
   return PrefixMap(Region::attachFile(path, layout(0)));
}

Word* PrefixMap::lengthBits(Family family) const {
   Word* aux = const_cast<Region&>(map_.region()).header().aux;
   return family == Family::ipv4 ? aux : aux + 1;
}

void PrefixMap::flip(Word& bits, unsigned bit, bool on) {
   Word mask = Word(1) << bit;
   storeWord(bits, on ? loadWord(bits) | mask : loadWord(bits) & ~mask);
}

void PrefixMap::countLength(const PrefixKey& prefix, int delta) {
   Word& count = counts_[(prefix.family == Family::ipv4 ? 0 : 33) + prefix.length];
   count += delta;
   flip(lengthBits(prefix.family)[prefix.length / 64], prefix.length % 64, count != 0);
   if (prefix.family == Family::ipv4 && prefix.length >= kBucketLength) {
      unsigned bucket = bucketOf(prefix);
      auto& n = bucketCounts_[bucket * (33 - kBucketLength) + prefix.length - kBucketLength];
      n += delta;
      flip(buckets()[bucket], prefix.length, n != 0);
   }
}

void PrefixMap::insert(const PrefixKey& prefix, std::uint64_t value) {
   VELT_ASSERT(prefix.length <= PrefixKey::maxLength(prefix.family));
   // Announce the length first: a reader may probe it before the prefix lands, never after.
   bool added = !map_.find(prefix);
   if (added) countLength(prefix, +1);
   try {
      map_.insert(prefix, value);
   } catch (...) {
      if (added) countLength(prefix, -1);
      throw;
   }
}

bool PrefixMap::erase(const PrefixKey& prefix) {
   if (!map_.erase(prefix)) return false;
   countLength(prefix, -1);
   return true;
}

void PrefixMap::clear() {
   map_.clear();
   for (Word& c : counts_) c = 0;
   for (Word i = 0; i < 4; ++i) storeWord(map_.region().header().aux[i], 0);
   for (Word i = 0; i < kBuckets; ++i) storeWord(buckets()[i], 0);
   std::fill(bucketCounts_.begin(), bucketCounts_.end(), 0);
}

std::optional<PrefixMatch> PrefixMap::longestMatch(const PrefixKey& address) const {
   const Word* bits = lengthBits(address.family);
   std::uint8_t top = PrefixKey::maxLength(address.family);
   for (int w = top / 64; w >= 0; --w) {
      Word set = loadWord(bits[w]);
      if (address.family == Family::ipv4) {
         set = (set & kShortLengths) | loadWord(buckets()[bucketOf(address)]);
      }
      for (; set; set &= ~(Word(1) << (63 - std::countl_zero(set)))) {
         auto len = std::uint8_t(w * 64 + 63 - std::countl_zero(set));
         if (auto value = map_.find(address.masked(len))) return PrefixMatch{len, *value};
      }
   }
   return std::nullopt;
}

} // namespace Table
