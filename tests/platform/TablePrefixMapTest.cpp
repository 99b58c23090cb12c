#include "Table/PrefixMap.h"
#include "TableTestTypes.h"

#include <gtest/gtest.h>

#include <random>
#include <vector>

using Table::Family;
using Table::PrefixKey;

namespace {

bool covers(const PrefixKey& prefix, const PrefixKey& address) {
   return prefix.family == address.family &&
          std::memcmp(address.masked(prefix.length).bytes, prefix.bytes, 16) == 0;
}

struct Route {
   PrefixKey prefix;
   std::uint64_t value;
};

std::optional<Table::PrefixMatch> bruteForce(const std::vector<Route>& routes,
                                             const PrefixKey& address) {
   std::optional<Table::PrefixMatch> best;
   for (const Route& r : routes) {
      if (covers(r.prefix, address) && (!best || r.prefix.length > best->length)) {
         best = Table::PrefixMatch{r.prefix.length, r.value};
      }
   }
   return best;
}

// Addresses share a few leading bytes so prefixes nest and compete.
PrefixKey randomAddress(std::mt19937& rng, Family family) {
   std::uint8_t bytes[16];
   for (auto& b : bytes) b = std::uint8_t(rng());
   bytes[0] = std::uint8_t(rng() % 3);
   bytes[1] = std::uint8_t(rng() % 2);
   return PrefixKey::of(family, bytes, PrefixKey::maxLength(family));
}

void checkAgainstBruteForce(Family family) {
   std::mt19937 rng(family == Family::ipv4 ? 4 : 6);
   Table::PrefixMap map(2000);
   std::vector<Route> routes;
   for (std::uint64_t i = 0; i < 1500; ++i) {
      auto len = std::uint8_t(rng() % (PrefixKey::maxLength(family) + 1));
      PrefixKey prefix = randomAddress(rng, family).masked(len);
      std::erase_if(routes, [&](const Route& r) { return !std::memcmp(&r.prefix, &prefix, 24); });
      routes.push_back({prefix, i});
      map.insert(prefix, i);
   }
   auto verify = [&] {
      for (int q = 0; q < 3000; ++q) {
         // Half the queries fall inside a known route, half anywhere in the clustered space.
         PrefixKey address = randomAddress(rng, family);
         if (q % 2) {
            const PrefixKey& p = routes[rng() % routes.size()].prefix;
            for (unsigned b = 0; b < p.length / 8; ++b) address.bytes[b] = p.bytes[b];
         }
         auto want = bruteForce(routes, address);
         auto got = map.longestMatch(address);
         ASSERT_EQ(got.has_value(), want.has_value()) << "query " << q;
         if (got) {
            ASSERT_EQ(got->length, want->length);
            ASSERT_EQ(got->value, want->value);
         }
      }
   };
   verify();
   for (std::size_t i = 0, n = routes.size() / 2; i < n; ++i) { // lengths may empty out
      std::size_t victim = rng() % routes.size();
      ASSERT_TRUE(map.erase(routes[victim].prefix));
      routes.erase(routes.begin() + long(victim));
   }
   verify();
   EXPECT_EQ(map.size(), routes.size());
}

TEST(TablePrefixMap, Ipv4MatchesBruteForce) { checkAgainstBruteForce(Family::ipv4); }
TEST(TablePrefixMap, Ipv6MatchesBruteForce) { checkAgainstBruteForce(Family::ipv6); }

TEST(TablePrefixMap, FamiliesAndDefaultRoutesStayApart) {
   Table::PrefixMap map(10);
   map.insert(PrefixKey::v4(0, 0), 1);
   std::uint8_t v6[16] = {};
   EXPECT_FALSE(map.longestMatch(PrefixKey::of(Family::ipv6, v6, 128)));
   map.insert(PrefixKey::v4(0x0a000000, 8), 2);
   EXPECT_EQ(map.longestMatch(PrefixKey::v4(0x0a010203, 32))->value, 2u);
   EXPECT_EQ(map.longestMatch(PrefixKey::v4(0x0b010203, 32))->value, 1u);
   map.clear();
   EXPECT_FALSE(map.longestMatch(PrefixKey::v4(0x0a010203, 32)));
}

TEST(TablePrefixMap, ReaderMapsTheWritersFile) {
   std::string path = TableTest::scratchPath("prefixmap-shared");
   Table::PrefixMap writer = Table::PrefixMap::createFile(path, 100);
   Table::PrefixMap reader = Table::PrefixMap::attachFile(path);
   writer.insert(PrefixKey::v4(0xc0a80000, 16), 7);
   EXPECT_EQ(reader.longestMatch(PrefixKey::v4(0xc0a80101, 32))->length, 16);
   using Plain = Table::FlatMap<PrefixKey, std::uint64_t>; // same sizes, other kind
   EXPECT_THROW(Plain::attachFile(path), Pelin::Exception);
}

} // namespace
