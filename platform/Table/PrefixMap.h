// Table::PrefixMap: longest-prefix match of IPv4 and IPv6 addresses to 64-bit values, in a
// Region like the other shared tables. One FlatMap holds every prefix keyed by family,
// length and masked bytes; bitmaps of the lengths present (in the region, for readers) let a
// lookup probe only those lengths, longest first. IPv4 lengths of 16 and more are tracked
// per /16, so an address is probed only at the lengths its own /16 holds.
#pragma once
#include "Table/FlatMap.h"

#include <cstdint>
#include <optional>
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
   explicit PrefixMap(Word capacity);
   static PrefixMap createFile(const std::string& path, Word capacity);
   static PrefixMap attachFile(const std::string& path);

   // Writer. The prefix must have its bits past `length` cleared (as of() makes it).
   void insert(const PrefixKey& prefix, std::uint64_t value);
   bool erase(const PrefixKey& prefix);
   void clear();

   // Reader: the exact prefix, or the longest one covering `address` (a full-length key).
   std::optional<std::uint64_t> find(const PrefixKey& prefix) const { return map_.find(prefix); }
   std::optional<PrefixMatch> longestMatch(const PrefixKey& address) const;

   Word size() const { return map_.size(); }
   const FlatMap<PrefixKey, std::uint64_t>& map() const { return map_; }

 private:
   explicit PrefixMap(Region region);
   static Layout layout(Word capacity);
   // Bitmap words of a family's present lengths, in the region header.
   Word* lengthBits(Family family) const;
   void countLength(const PrefixKey& prefix, int delta);
   static void flip(Word& bits, unsigned bit, bool on);
   Word* buckets() const { return const_cast<Region&>(map_.region()).words(bucketOffset_); }

   FlatMap<PrefixKey, std::uint64_t> map_;
   Word bucketOffset_;
   // Writer only: prefixes per family and length, and per IPv4 /16 and length 16..32.
   Word counts_[33 + 129] = {};
   std::vector<std::uint32_t> bucketCounts_;
};

} // namespace Table
