#include "Table/PrefixMap.h"
#include "TableTestTypes.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <functional>
#include <map>
#include <random>
#include <set>
#include <thread>
#include <vector>

using Table::Family;
using Table::PrefixKey;
using Table::PrefixMatch;

namespace {

// Capacities on either side of the switch from a 16-bit to a 24-bit IPv4 root.
constexpr Table::Word kNarrow = 4000;
constexpr Table::Word kWide = 1 << 17;

std::string messageOf(const std::function<void()>& fn) {
   try {
      fn();
   } catch (const Pelin::Exception& e) {
      return e.what();
   }
   return "no exception";
}

PrefixKey v6(std::initializer_list<std::uint16_t> groups, std::uint8_t length) {
   std::uint8_t bytes[16] = {};
   unsigned i = 0;
   for (std::uint16_t g : groups) {
      bytes[i++] = std::uint8_t(g >> 8);
      bytes[i++] = std::uint8_t(g);
   }
   return PrefixKey::of(Family::ipv6, bytes, length);
}

PrefixKey host(const PrefixKey& p) {
   return p.masked(PrefixKey::maxLength(p.family));
}

// The last address of `p`, and the addresses just below and above it.
PrefixKey lastOf(const PrefixKey& p) {
   PrefixKey a = host(p);
   for (unsigned bit = p.length; bit < PrefixKey::maxLength(p.family); ++bit) {
      a.bytes[bit / 8] |= std::uint8_t(0x80 >> (bit % 8));
   }
   return a;
}
PrefixKey step(PrefixKey a, int delta) { // wraps around the address space
   for (int i = PrefixKey::maxLength(a.family) / 8 - 1; i >= 0; --i) {
      auto b = std::uint8_t(a.bytes[i] + delta);
      bool carry = delta > 0 ? b < a.bytes[i] : b > a.bytes[i];
      a.bytes[i] = b;
      if (!carry) break;
   }
   return a;
}

bool covers(const PrefixKey& prefix, const PrefixKey& address) {
   return prefix.family == address.family &&
          std::memcmp(address.masked(prefix.length).bytes, prefix.bytes, 16) == 0;
}

bool sameKey(const PrefixKey& a, const PrefixKey& b) {
   return std::memcmp(&a, &b, 24) == 0;
}

// The reference: every prefix with its value, matched by scanning them all.
struct Reference {
   std::vector<std::pair<PrefixKey, std::uint64_t>> routes;

   std::optional<PrefixMatch> match(const PrefixKey& address) const {
      std::optional<PrefixMatch> best;
      for (const auto& [p, v] : routes) {
         if (covers(p, address) && (!best || p.length > best->length)) {
            best = PrefixMatch{p.length, v};
         }
      }
      return best;
   }
   auto at(const PrefixKey& p) {
      return std::find_if(routes.begin(), routes.end(),
                          [&](const auto& r) { return sameKey(r.first, p); });
   }
};

std::string text(const std::optional<PrefixMatch>& m) {
   return m ? fmt::format("/{}={}", m->length, m->value) : "none";
}

std::string text(const PrefixKey& k) {
   std::string s;
   for (unsigned i = 0; i < (k.family == Family::ipv4 ? 4u : 16u); ++i) {
      s += fmt::format("{:02x}", k.bytes[i]);
   }
   return fmt::format("{}/{}", s, k.length);
}

// Addresses drawn from a few byte values, so that prefixes of every length nest, share
// roots and anchors, and compete.
PrefixKey clustered(std::mt19937& rng, Family family) {
   static constexpr std::uint8_t kBytes[] = {0x00, 0x80, 0xff};
   std::uint8_t bytes[16];
   for (auto& b : bytes) b = rng() % 8 ? kBytes[rng() % 3] : std::uint8_t(rng());
   return PrefixKey::of(family, bytes, PrefixKey::maxLength(family));
}

// Every structure boundary, and its neighbours, is drawn often.
std::uint8_t randomLength(std::mt19937& rng, Family family) {
   static constexpr std::uint8_t kEdges4[] = {0,  1,  7,  8,  9,  15, 16,
                                              17, 23, 24, 25, 31, 32};
   static constexpr std::uint8_t kEdges6[] = {0,  1,  8,  9,  16, 17,  24,  25,  32, 33,
                                              40, 41, 48, 49, 64, 112, 113, 127, 128};
   unsigned max = PrefixKey::maxLength(family);
   if (rng() % 2) return std::uint8_t(rng() % (max + 1));
   return family == Family::ipv4 ? kEdges4[rng() % std::size(kEdges4)]
                                 : kEdges6[rng() % std::size(kEdges6)];
}

// Half the time a prefix nests just inside or just above one present, so that chains of
// covering prefixes form at every depth; otherwise anywhere in the clustered space.
PrefixKey randomPrefix(std::mt19937& rng, Family family, const Reference& ref) {
   for (int tries = 0; tries < 4 && !ref.routes.empty() && rng() % 2; ++tries) {
      const PrefixKey& base = ref.routes[rng() % ref.routes.size()].first;
      if (base.family != family) continue;
      PrefixKey address = clustered(rng, family);
      for (unsigned bit = 0; bit < base.length; ++bit) {
         auto mask = std::uint8_t(0x80 >> (bit % 8));
         address.bytes[bit / 8] = std::uint8_t((address.bytes[bit / 8] & ~mask) |
                                               (base.bytes[bit / 8] & mask));
      }
      int length = int(base.length) + int(rng() % 17) - (rng() % 3 ? 0 : 16);
      return address.masked(
          std::uint8_t(std::clamp(length, 0, int(PrefixKey::maxLength(family)))));
   }
   return clustered(rng, family).masked(randomLength(rng, family));
}

void expectSameAnswers(const Table::PrefixMap& map, const Reference& ref,
                       const std::vector<PrefixKey>& addresses, const std::string& when) {
   for (const PrefixKey& a : addresses) {
      auto want = ref.match(a);
      auto got = map.longestMatch(a);
      ASSERT_EQ(text(got), text(want)) << text(a) << " " << when;
   }
}

// Inserts, value changes and erases of both families in one map, checked after every
// batch against the reference at random addresses and at the edges of the routes present.
void churnAgainstReference(Table::Word capacity, unsigned seed) {
   Table::PrefixMap map(capacity);
   Reference ref;
   std::mt19937 rng(seed);
   auto verify = [&](int stepNo) {
      std::vector<PrefixKey> addresses;
      for (int i = 0; i < 400; ++i)
         addresses.push_back(clustered(rng, i % 2 ? Family::ipv4 : Family::ipv6));
      for (int i = 0; i < 150 && !ref.routes.empty(); ++i) {
         const PrefixKey& p = ref.routes[rng() % ref.routes.size()].first;
         PrefixKey last = lastOf(p);
         for (const PrefixKey& a : {host(p), last, step(host(p), -1), step(last, 1)}) {
            addresses.push_back(a);
         }
      }
      expectSameAnswers(map, ref, addresses, fmt::format("after step {}", stepNo));
      ASSERT_EQ(map.size(), ref.routes.size());
   };
   for (int s = 1; s <= 6000; ++s) {
      unsigned op = rng() % 20;
      if (op < 9 || ref.routes.empty()) { // a new prefix, or a new value for one present
         Family f = rng() % 2 ? Family::ipv4 : Family::ipv6;
         PrefixKey p = randomPrefix(rng, f, ref);
         auto it = ref.at(p);
         if (it == ref.routes.end()) ref.routes.push_back({p, 0});
         ref.at(p)->second = std::uint64_t(s);
         map.insert(p, std::uint64_t(s));
      } else if (op < 12) {
         auto& r = ref.routes[rng() % ref.routes.size()];
         r.second = std::uint64_t(s);
         map.insert(r.first, r.second);
      } else if (op < 19) {
         std::size_t victim = rng() % ref.routes.size();
         ASSERT_TRUE(map.erase(ref.routes[victim].first));
         ref.routes.erase(ref.routes.begin() + long(victim));
      } else {
         Family f = rng() % 2 ? Family::ipv4 : Family::ipv6;
         PrefixKey p = clustered(rng, f).masked(randomLength(rng, f));
         auto it = ref.at(p);
         EXPECT_EQ(map.erase(p), it != ref.routes.end());
         if (it != ref.routes.end()) ref.routes.erase(it);
      }
      if (s % 150 == 0) {
         verify(s);
         if (testing::Test::HasFatalFailure()) return;
      }
   }
   for (const auto& [p, v] : ref.routes) ASSERT_EQ(map.find(p), v) << text(p);
   // Emptied one by one, nothing may be left behind in the expanded entries.
   std::shuffle(ref.routes.begin(), ref.routes.end(), rng);
   while (ref.routes.size() > 40) {
      ASSERT_TRUE(map.erase(ref.routes.back().first));
      ref.routes.pop_back();
   }
   verify(-1);
   for (const auto& [p, v] : ref.routes) map.erase(p);
   EXPECT_EQ(map.size(), 0u);
   EXPECT_EQ(map.expandedCount(), 0u);
   ref.routes.clear();
   verify(-2);
}

TEST(TablePrefixMap, ChurnMatchesBruteForceWithNarrowRoot) {
   churnAgainstReference(kNarrow, 1);
}
TEST(TablePrefixMap, ChurnMatchesBruteForceWithWideRoot) {
   churnAgainstReference(kWide, 2);
}

TEST(TablePrefixMap, ClearLeavesAnEmptyReusableTable) {
   Table::PrefixMap map(kNarrow);
   std::mt19937 rng(5);
   Reference ref;
   for (int i = 0; i < 1500; ++i) {
      Family f = i % 2 ? Family::ipv4 : Family::ipv6;
      PrefixKey p = clustered(rng, f).masked(randomLength(rng, f));
      map.insert(p, 7);
   }
   map.clear();
   EXPECT_EQ(map.size(), 0u);
   EXPECT_EQ(map.expandedCount(), 0u);
   std::vector<PrefixKey> addresses;
   for (int i = 0; i < 500; ++i)
      addresses.push_back(clustered(rng, i % 2 ? Family::ipv4 : Family::ipv6));
   expectSameAnswers(map, ref, addresses, "after clear");
   map.insert(v6({0x2001, 0xdb8}, 32), 9);
   ref.routes.push_back({v6({0x2001, 0xdb8}, 32), 9});
   expectSameAnswers(map, ref, {host(v6({0x2001, 0xdb8, 1}, 48))}, "after reuse");
}

TEST(TablePrefixMap, FamiliesAndDefaultRoutesStayApart) {
   Table::PrefixMap map(10);
   map.insert(PrefixKey::v4(0, 0), 1);
   std::uint8_t zero[16] = {};
   EXPECT_FALSE(map.longestMatch(PrefixKey::of(Family::ipv6, zero, 128)));
   map.insert(PrefixKey::v4(0x0a000000, 8), 2);
   EXPECT_EQ(map.longestMatch(PrefixKey::v4(0x0a010203, 32))->value, 2u);
   EXPECT_EQ(map.longestMatch(PrefixKey::v4(0x0b010203, 32))->value, 1u);
   map.insert(PrefixKey::of(Family::ipv6, zero, 0), 3);
   EXPECT_EQ(map.longestMatch(PrefixKey::v4(0x0b010203, 32))->value, 1u);
   EXPECT_EQ(map.longestMatch(host(v6({0x0a01}, 16)))->value, 3u);
   map.clear();
   EXPECT_FALSE(map.longestMatch(PrefixKey::v4(0x0a010203, 32)));
}

TEST(TablePrefixMap, FullTableOrFullExpansionsLeaveTheTableAsItWas) {
   Table::PrefixMap map(3);                 // room for 3 x 6 + 256 expanded IPv6 entries
   map.insert(v6({0x2001, 0x8000}, 17), 1); // 128 /24 entries
   map.insert(v6({0x2001, 0xdb8, 0x80}, 41), 2); // a /32 anchor and 128 /48 ones
   EXPECT_EQ(map.expandedCount(), 257u);
   const std::string full =
       "table heap: IPv6 expanded entries full at their capacity of 274";
   EXPECT_EQ(messageOf([&] { map.insert(v6({0x2003}, 17), 3); }), full);
   EXPECT_EQ(messageOf([&] { map.insert(v6({0x2002, 0, 0x80}, 41), 3); }), full);
   map.insert(PrefixKey::v4(0x0a000000, 8), 4);
   EXPECT_EQ(messageOf([&] { map.insert(PrefixKey::v4(0x0b000000, 8), 5); }),
             "table heap: full at its capacity of 3 entries");
   map.insert(v6({0x2001, 0x8000}, 17), 6); // replacing needs no room
   map.insert(v6({0x2001, 0xdb8, 0x80}, 41), 7);
   EXPECT_EQ(map.size(), 3u);
   EXPECT_EQ(map.expandedCount(), 257u);
   EXPECT_FALSE(map.longestMatch(host(v6({0x2003}, 17))));
   EXPECT_FALSE(map.longestMatch(host(v6({0x2002, 0, 0x80}, 41))));
   EXPECT_FALSE(map.longestMatch(PrefixKey::v4(0x0b000001, 32)));
   EXPECT_EQ(map.longestMatch(host(v6({0x2001, 0x8123}, 32)))->value, 6u);
   EXPECT_EQ(map.longestMatch(host(v6({0x2001, 0xdb8, 0xff, 1}, 64)))->value, 7u);
}

TEST(TablePrefixMap, StuckOrDamagedEntriesAreCorruption) {
   Table::PrefixMap map(100);
   PrefixKey a4 = PrefixKey::v4(0x0a010203, 32), b4 = PrefixKey::v4(0x0b010203, 32);
   PrefixKey a6 = host(v6({0x2001, 0xdb8}, 32)), b6 = host(v6({0x2002}, 32));
   map.insert(PrefixKey::v4(0, 0), 1);
   map.insert(v6({0x2001, 0xdb8}, 32), 2);
   map.insert(v6({0x2001, 0xdb8, 0, 1}, 64), 3);
   map.debugCorrupt(a4);
   map.debugCorrupt(a6);
   EXPECT_THAT(
       messageOf([&] { map.longestMatch(a4); }),
       testing::MatchesRegex("table heap: IPv4 root entry [0-9]+ is corrupt: generation "
                             "[0-9]+ stays odd"));
   EXPECT_THROW(map.longestMatch(a6), Pelin::CorruptionDetectedException);
   EXPECT_EQ(map.longestMatch(b4)->value, 1u); // other roots stay readable
   EXPECT_FALSE(map.longestMatch(b6));
   // Scribble over every entry, as damaged memory would: even generations, impossible
   // lengths.
   const Table::RegionHeader& h = map.region().header();
   Table::Word* pool = map.region().words(h.poolOffset);
   for (Table::Word i = 0; i < h.poolBytes / 8; ++i) pool[i] = 0x00ff0000000000f0ull;
   EXPECT_THROW(map.longestMatch(b4), Pelin::CorruptionDetectedException);
   EXPECT_THAT(messageOf([&] { map.longestMatch(b6); }),
               testing::HasSubstr("is corrupt: length outside its range"));
}

TEST(TablePrefixMapDeathTest, UnmaskedPrefixOrReaderWriteIsAProgrammingError) {
   Table::PrefixMap map(10);
   PrefixKey sloppy = PrefixKey::v4(0x0a000000, 8);
   sloppy.bytes[3] = 1; // a bit past the length
   EXPECT_DEATH(map.insert(sloppy, 1), "memcmp\\(&clean, &prefix");
   std::string path = TableTest::scratchPath("prefixmap-readonly");
   Table::PrefixMap writer = Table::PrefixMap::createFile(path, 10);
   Table::PrefixMap reader = Table::PrefixMap::attachFile(path);
   EXPECT_DEATH(reader.insert(PrefixKey::v4(0, 0), 1), "region\\(\\).writable\\(\\)");
   EXPECT_DEATH(reader.erase(PrefixKey::v4(0, 0)), "region\\(\\).writable\\(\\)");
}

TEST(TablePrefixMap, ReaderMapsTheWritersFile) {
   std::string path = TableTest::scratchPath("prefixmap-shared");
   Table::PrefixMap writer = Table::PrefixMap::createFile(path, 100);
   Table::PrefixMap reader = Table::PrefixMap::attachFile(path);
   writer.insert(PrefixKey::v4(0xc0a80000, 16), 7);
   writer.insert(v6({0x2001, 0xdb8, 0x1}, 48), 8);
   EXPECT_EQ(reader.longestMatch(PrefixKey::v4(0xc0a80101, 32))->length, 16);
   EXPECT_EQ(reader.longestMatch(host(v6({0x2001, 0xdb8, 1, 2}, 64)))->value, 8u);
   using Plain = Table::FlatMap<PrefixKey, std::uint64_t>; // same sizes, other kind
   EXPECT_THROW(Plain::attachFile(path), Pelin::Exception);
}

// ---- one writer, one reader ----

// A chain of nested prefixes per family, crossing every structure boundary. The writer,
// in turn for each link, gives the outer prefix a shadow value, restores it, erases the
// inner prefix and puts it back: the shadow value is only ever visible where the inner
// prefix does not reach, so a lookup mixing two moments shows up as an illegal answer.
struct Scenario {
   std::vector<PrefixKey> chain;
   std::vector<PrefixKey>
       others; // inserted and erased around the chain, never covering probes
   std::vector<PrefixKey> probes;
   std::map<std::string, std::set<std::string>> legal;

   static std::uint64_t normal(std::size_t i) { return 100 + i; }
   static std::uint64_t shadow(std::size_t i) { return 200 + i; }

   // Each writer step; `apply` is the table being changed.
   template <typename Apply>
   void cycle(Apply&& apply) const {
      for (std::size_t i = 0; i + 1 < chain.size(); ++i) {
         if (chain[i].family != chain[i + 1].family) continue;
         apply(chain[i], shadow(i), true);
         apply(others[i % others.size()], 1, true);
         apply(chain[i], normal(i), true);
         apply(chain[i + 1], 0, false);
         apply(others[i % others.size()], 0, false);
         apply(chain[i + 1], normal(i + 1), true);
      }
   }

   Scenario() {
      chain = {PrefixKey::v4(0, 0),           PrefixKey::v4(0x0a000000, 8),
               PrefixKey::v4(0x0a400000, 12), PrefixKey::v4(0x0a410000, 16),
               PrefixKey::v4(0x0a414000, 20), PrefixKey::v4(0x0a414100, 24),
               PrefixKey::v4(0x0a414180, 28), PrefixKey::v4(0x0a414181, 32)};
      std::vector<PrefixKey> chain6 = {
          v6({}, 0),
          v6({0x2000}, 8),
          v6({0x2040}, 12),
          v6({0x2041}, 16),
          v6({0x2041, 0x1000}, 20),
          v6({0x2041, 0x1100}, 24),
          v6({0x2041, 0x1110}, 28),
          v6({0x2041, 0x1111}, 32),
          v6({0x2041, 0x1111, 0x2200}, 40),
          v6({0x2041, 0x1111, 0x2220}, 44),
          v6({0x2041, 0x1111, 0x2222}, 48),
          v6({0x2041, 0x1111, 0x2222, 3}, 64),
          v6({0x2041, 0x1111, 0x2222, 3, 4, 5, 0x6000}, 100),
          v6({0x2041, 0x1111, 0x2222, 3, 4, 5, 0x6007}, 128)};
      std::size_t v4Links = chain.size();
      chain.insert(chain.end(), chain6.begin(), chain6.end());
      others = {PrefixKey::v4(0x0a41c800, 24), PrefixKey::v4(0x0a414177, 32),
                v6({0x2041, 0x2222}, 32), v6({0x2041, 0x1111, 0x9999}, 48),
                v6({0x2041, 0x1155, 0x9999}, 48)};
      // Inside each prefix but outside the next one of its family, and the innermost.
      for (std::size_t i = 0; i < chain.size(); ++i) {
         bool lastOfFamily = i + 1 == v4Links || i + 1 == chain.size();
         probes.push_back(lastOfFamily ? host(chain[i]) : lastOf(chain[i]));
      }
      // Every state the cycle passes through, judged by the reference.
      Reference ref;
      for (std::size_t i = 0; i < chain.size(); ++i)
         ref.routes.push_back({chain[i], normal(i)});
      auto record = [&] {
         for (const PrefixKey& p : probes) legal[text(p)].insert(text(ref.match(p)));
      };
      record();
      cycle([&](const PrefixKey& p, std::uint64_t v, bool on) {
         if (ref.at(p) != ref.routes.end()) ref.routes.erase(ref.at(p));
         if (on) ref.routes.push_back({p, v});
         record();
      });
   }
};

// The writer changes a link of the chain exactly while a lookup sits between the entries
// that steer it and the probes they steer: forward, the outer prefix loses its shadow
// value and the inner one goes; backward, the inner one comes and the outer one takes its
// shadow value. A lookup must answer as before or as after, never with the outer shadow
// value.
void changeInsideLookups(Table::Word capacity) {
   Scenario scenario;
   const auto& chain = scenario.chain;
   Table::PrefixMap map(capacity);
   for (std::size_t i = 0; i < chain.size(); ++i)
      map.insert(chain[i], Scenario::normal(i));
   int fired = 0;
   for (std::size_t i = 0; i + 1 < chain.size(); ++i) {
      if (chain[i].family != chain[i + 1].family) continue;
      const PrefixKey &outer = chain[i], &inner = chain[i + 1],
                      &probe = scenario.probes[i + 1];
      for (bool forward : {true, false}) {
         for (int stage : {0, 1}) {
            if (forward) {
               map.insert(outer, Scenario::shadow(i));
            } else {
               map.erase(inner);
            }
            auto before = text(map.longestMatch(probe));
            bool done = false;
            map.debugPauseReaders([&](int at) {
               if (at != stage || std::exchange(done, true)) return;
               ++fired;
               if (forward) {
                  map.insert(outer, Scenario::normal(i));
                  map.erase(inner);
               } else {
                  map.insert(inner, Scenario::normal(i + 1));
                  map.insert(outer, Scenario::shadow(i));
               }
            });
            auto during = text(map.longestMatch(probe));
            map.debugPauseReaders(nullptr);
            auto after = text(map.longestMatch(probe));
            EXPECT_THAT(during, testing::AnyOf(before, after))
                << text(outer) << " over " << text(inner)
                << (forward ? " forward" : " backward") << " at stage " << stage;
            map.insert(outer, Scenario::normal(i));
            map.insert(inner, Scenario::normal(i + 1));
         }
      }
   }
   EXPECT_EQ(fired, 2 * (7 + 13) + 2 * 13); // stage 0 in every lookup, 1 in IPv6 ones
}

TEST(TablePrefixMap, ChangeInsideALookupIsNeverHalfSeen) {
   changeInsideLookups(kNarrow);
   changeInsideLookups(kWide);
}

// After each change the writer waits a moment for a lookup to finish, so that a reader is
// not starved by changes back to back on its root entry, while lookups still overlap
// writer steps all the time.
void raceWriterAgainstReader(Table::Word capacity, const std::string& file) {
   Scenario scenario;
   std::string path = TableTest::scratchPath(file);
   Table::PrefixMap writer = Table::PrefixMap::createFile(path, capacity);
   for (std::size_t i = 0; i < scenario.chain.size(); ++i) {
      writer.insert(scenario.chain[i], Scenario::normal(i));
   }
   Table::PrefixMap reader = Table::PrefixMap::attachFile(path);
   std::vector<const std::set<std::string>*> legal;
   for (const PrefixKey& p : scenario.probes) {
      legal.push_back(&scenario.legal.at(text(p)));
      // Each probe's shadow link must be able to show up as illegal.
      EXPECT_GE(legal.back()->size(), 2u) << text(p);
   }
   std::atomic<bool> stop{false};
   std::atomic<std::uint64_t> reads{0};
   std::uint64_t illegal = 0, errors = 0;
   std::string firstIllegal, firstError;
   std::thread thread([&] {
      auto until = std::chrono::steady_clock::now() + std::chrono::milliseconds(1500);
      while (std::chrono::steady_clock::now() < until) {
         for (std::size_t i = 0; i < scenario.probes.size(); ++i) {
            try {
               std::string got = text(reader.longestMatch(scenario.probes[i]));
               if (!legal[i]->count(got) && illegal++ == 0) {
                  firstIllegal = text(scenario.probes[i]) + " -> " + got;
               }
            } catch (const Pelin::Exception& e) {
               if (errors++ == 0) firstError = e.what();
            }
            reads.fetch_add(1, std::memory_order_release);
         }
      }
      stop = true;
   });
   std::uint64_t cycles = 0;
   for (; !stop; ++cycles) {
      scenario.cycle([&](const PrefixKey& p, std::uint64_t v, bool on) {
         if (on) {
            writer.insert(p, v);
         } else {
            writer.erase(p);
         }
         auto seen = reads.load();
         auto until = std::chrono::steady_clock::now() + std::chrono::microseconds(20);
         while (reads.load() == seen && std::chrono::steady_clock::now() < until) {}
      });
   }
   thread.join();
   EXPECT_GT(cycles, 20u) << reads.load() << " reads";
   EXPECT_GT(reads.load(), 20'000u) << cycles << " cycles";
   EXPECT_EQ(illegal, 0u) << firstIllegal;
   EXPECT_EQ(errors, 0u) << firstError;
}

TEST(TablePrefixMap, ReaderRacingWriterSeesOnlyAnswersTheTableHeld) {
   raceWriterAgainstReader(kNarrow, "prefixmap-race-narrow");
}
TEST(TablePrefixMap, ReaderRacingWriterSeesOnlyAnswersTheTableHeldWithWideRoot) {
   raceWriterAgainstReader(kWide, "prefixmap-race-wide");
}

} // namespace
