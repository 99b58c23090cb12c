// Reader and writer costs of the shared tables at production sizes.
#include "LegacyPrefixMap.h"
#include "Table/ListMap.h"
#include "Table/PrefixMap.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <memory>
#include <random>
#include <unistd.h>
#include <vector>

namespace {

struct Via { // the size of a forwarding via
   std::uint64_t words[6];
};

struct FecHead {
   std::uint64_t id;
   std::uint32_t type;
   std::uint32_t flags;
};

constexpr std::uint64_t kFecs = 100'000;

std::vector<std::uint64_t> shuffledKeys(std::uint64_t n, std::uint64_t count) {
   std::mt19937_64 rng(1);
   std::vector<std::uint64_t> keys(count);
   for (auto& k : keys) k = rng() % n;
   return keys;
}

void BM_FlatMapFind(benchmark::State& state) {
   Table::FlatMap<std::uint64_t, Via> map(kFecs);
   for (std::uint64_t k = 0; k < kFecs; ++k) map.insert(k, Via{{k}});
   auto keys = shuffledKeys(kFecs, 1 << 16);
   std::size_t i = 0;
   for (auto _ : state) benchmark::DoNotOptimize(map.find(keys[i++ & 0xffff]));
}
BENCHMARK(BM_FlatMapFind);

using Fecs = Table::ListMap<std::uint64_t, FecHead, Via, 2, 4>; // 4 vias inline

// 100,000 FECs of `vias` vias each; reads land on random FECs among the first `hot`.
void readFecs(benchmark::State& state, std::uint32_t vias, std::uint64_t hot = kFecs) {
   static Fecs* fecs = nullptr;
   static std::uint32_t built = 0;
   if (built != vias) {
      delete fecs;
      fecs = new Fecs(kFecs, Fecs::poolBytesFor(kFecs, vias), {600, 128});
      std::vector<Via> list(vias);
      for (std::uint64_t k = 0; k < kFecs; ++k) fecs->insert(k, {k, 1, 0}, {list, {}});
      built = vias;
   }
   auto keys = shuffledKeys(hot, 1 << 16);
   std::vector<Via> out[2] = {std::vector<Via>(600), std::vector<Via>(128)};
   std::size_t i = 0;
   for (auto _ : state) {
      auto head = fecs->find(keys[i++ & 0xffff], [&](std::size_t l, std::uint32_t) {
         return out[l].data();
      });
      benchmark::DoNotOptimize(head);
   }
}

void BM_ListMapRead4Vias(benchmark::State& state) { readFecs(state, 4); }
void BM_ListMapRead600Vias(benchmark::State& state) { readFecs(state, 600); }
// Traffic mostly uses few FECs: 1,000 hot ones stay in cache.
void BM_ListMapRead4ViasHot(benchmark::State& state) { readFecs(state, 4, 1000); }
BENCHMARK(BM_ListMapRead4Vias);
BENCHMARK(BM_ListMapRead4ViasHot);
BENCHMARK(BM_ListMapRead600Vias);

// ---- longest-prefix match at 1,000,000 routes, against the per-length hash it replaced
// ----

using Bench::LegacyPrefixMap;
using Table::Family;
using Table::PrefixKey;

constexpr std::size_t kRoutes = 1'000'000;

PrefixKey keyOf(Family family, const std::array<std::uint8_t, 16>& bytes, int length) {
   return PrefixKey::of(family, bytes.data(), std::uint8_t(length));
}

// The address `prefix` with its host bits random.
PrefixKey inside(const PrefixKey& prefix, std::mt19937_64& rng) {
   PrefixKey address = prefix.masked(PrefixKey::maxLength(prefix.family));
   PrefixKey noise = address;
   for (auto& b : noise.bytes) b = std::uint8_t(rng());
   for (unsigned i = 0; i < 16; ++i) {
      unsigned bits = i * 8;
      std::uint8_t keep = bits >= prefix.length ? 0
                          : prefix.length - bits >= 8
                              ? 0xff
                              : std::uint8_t(0xff00 >> (prefix.length - bits));
      address.bytes[i] =
          std::uint8_t((prefix.bytes[i] & keep) | (noise.bytes[i] & ~keep));
   }
   return address.masked(PrefixKey::maxLength(prefix.family));
}

std::vector<PrefixKey> distinct(std::vector<PrefixKey> keys) {
   auto less = [](const PrefixKey& a, const PrefixKey& b) {
      return std::memcmp(&a, &b, 24) < 0;
   };
   std::sort(keys.begin(), keys.end(), less);
   keys.erase(std::unique(keys.begin(), keys.end(),
                          [](const PrefixKey& a, const PrefixKey& b) {
                             return std::memcmp(&a, &b, 24) == 0;
                          }),
              keys.end());
   std::shuffle(keys.begin(), keys.end(), std::mt19937_64(9));
   return keys;
}

// IPv4 shaped like an Internet table: mostly /24, the rest /8 to /32.
const std::vector<PrefixKey>& ipv4Routes() {
   static const std::vector<PrefixKey> routes = [] {
      std::mt19937_64 rng(2);
      std::discrete_distribution<int> lengths(
          {0,  0,  0,  0,  0,  0,  0,   0,   1, 0, 0, 0, 2, 3, 5, 8, 40,
           15, 20, 30, 40, 60, 80, 100, 600, 2, 2, 2, 2, 2, 2, 2, 5});
      std::vector<PrefixKey> keys;
      while (keys.size() < kRoutes) {
         while (keys.size() < kRoutes) {
            keys.push_back(
                PrefixKey::v4(std::uint32_t(rng()), std::uint8_t(lengths(rng))));
         }
         keys = distinct(std::move(keys));
      }
      return keys;
   }();
   return routes;
}

// IPv6 under 2000::/3: 40,000 allocations of /29 to /32, holding mostly /48 to /64, with
// some /36 to /44 and a few longer ones down to host routes.
const std::vector<PrefixKey>& ipv6Routes() {
   static const std::vector<PrefixKey> routes = [] {
      std::mt19937_64 rng(3);
      std::vector<std::array<std::uint8_t, 16>> allocations(40'000);
      for (auto& a : allocations) {
         a = {};
         Table::Word top = (Table::Word(1) << 61) | (rng() >> 3);
         for (int i = 0; i < 8; ++i) a[i] = std::uint8_t(top >> (56 - 8 * i));
         for (int i = 8; i < 16; ++i) a[i] = std::uint8_t(rng());
      }
      const int lengthOf[] = {29, 32, 36, 40, 44,  48,  52,  56,
                              60, 64, 80, 96, 112, 126, 127, 128};
      std::discrete_distribution<int> pick(
          {1, 4, 1, 4, 6, 45, 2, 12, 3, 18, 0.5, 0.5, 0.5, 0.5, 0.5, 1.5});
      std::vector<PrefixKey> keys;
      while (keys.size() < kRoutes) {
         while (keys.size() < kRoutes) {
            auto a = allocations[rng() % allocations.size()];
            int length = lengthOf[pick(rng)];
            for (int i = 4; i < 16; ++i) a[i] = std::uint8_t(rng()); // below the /32
            keys.push_back(keyOf(Family::ipv6, a, length));
         }
         keys = distinct(std::move(keys));
      }
      return keys;
   }();
   return routes;
}

const std::vector<PrefixKey>& routesOf(Family family) {
   return family == Family::ipv4 ? ipv4Routes() : ipv6Routes();
}

double residentMiB() {
   long pages = 0, resident = 0;
   if (FILE* f = std::fopen("/proc/self/statm", "r")) {
      if (std::fscanf(f, "%ld %ld", &pages, &resident) != 2) resident = 0;
      std::fclose(f);
   }
   return double(resident) * double(::sysconf(_SC_PAGESIZE)) / (1 << 20);
}

template <typename Map>
struct Loaded {
   Map* map = nullptr;
   double residentMiB = 0; // grown while loading
};

// Each table is loaded once per family and kept for the run.
template <typename Map>
const Loaded<Map>& loaded(Family family) {
   static Loaded<Map> tables[2];
   Loaded<Map>& t = tables[family == Family::ipv6];
   if (!t.map) {
      const auto& routes = routesOf(family);
      double before = residentMiB();
      t.map = new Map(kRoutes);
      for (std::size_t i = 0; i < routes.size(); ++i) t.map->insert(routes[i], i);
      t.residentMiB = residentMiB() - before;
   }
   return t;
}

// 65,536 addresses inside random routes, or matching none (IPv6: under 2000::/3).
const std::vector<PrefixKey>& probesOf(Family family, bool covered) {
   static std::vector<PrefixKey> probes[2][2];
   auto& out = probes[family == Family::ipv6][covered];
   if (out.empty()) {
      std::mt19937_64 rng(4);
      const auto& routes = routesOf(family);
      const Table::PrefixMap& map = *loaded<Table::PrefixMap>(family).map;
      while (out.size() < (1 << 16)) {
         PrefixKey a;
         if (covered) {
            a = inside(routes[rng() % routes.size()], rng);
         } else {
            std::array<std::uint8_t, 16> bytes;
            for (auto& b : bytes) b = std::uint8_t(rng());
            if (family == Family::ipv6) bytes[0] = std::uint8_t(0x20 | (bytes[0] & 0x1f));
            a = keyOf(family, bytes, PrefixKey::maxLength(family));
            if (map.longestMatch(a)) continue;
         }
         out.push_back(a);
      }
   }
   return out;
}

template <typename Map>
void lookups(benchmark::State& state, Family family, bool covered) {
   const auto& table = loaded<Map>(family);
   const auto& probes = probesOf(family, covered);
   std::size_t i = 0;
   for (auto _ : state)
      benchmark::DoNotOptimize(table.map->longestMatch(probes[i++ & 0xffff]));
   state.counters["tableMiB"] = double(table.map->region().bytes()) / (1 << 20);
   state.counters["residentMiB"] = table.residentMiB;
}

// Each address depends on the previous answer: the latency of one lookup, not the rate of
// many overlapping ones.
template <typename Map>
void chainedLookups(benchmark::State& state, Family family) {
   const auto& table = loaded<Map>(family);
   const auto& probes = probesOf(family, true);
   std::size_t i = 0;
   for (auto _ : state) {
      auto m = table.map->longestMatch(probes[i & 0xffff]);
      i += 1 + (m ? m->value & 1 : 0);
   }
}

template <typename Map>
void inserts(benchmark::State& state, Family family) {
   const auto& routes = routesOf(family);
   for (auto _ : state) {
      state.PauseTiming();
      auto map = std::make_unique<Map>(kRoutes);
      state.ResumeTiming();
      for (std::size_t i = 0; i < routes.size(); ++i) map->insert(routes[i], i);
      state.PauseTiming();
      map.reset();
      state.ResumeTiming();
   }
   state.SetItemsProcessed(std::int64_t(state.iterations() * routes.size()));
}

// One route erased and put back per iteration, through the loaded table: the cost of a
// single update (two changes) once the table is warm.
void updates(benchmark::State& state, Family family) {
   Table::PrefixMap& map = *loaded<Table::PrefixMap>(family).map;
   const auto& routes = routesOf(family);
   std::mt19937_64 rng(5);
   for (auto _ : state) {
      std::size_t i = rng() % routes.size();
      map.erase(routes[i]);
      map.insert(routes[i], i);
   }
}

void BM_LpmIpv4Covered(benchmark::State& state) {
   lookups<Table::PrefixMap>(state, Family::ipv4, true);
}
void BM_LpmIpv4CoveredLegacy(benchmark::State& state) {
   lookups<LegacyPrefixMap>(state, Family::ipv4, true);
}
void BM_LpmIpv4Uncovered(benchmark::State& state) {
   lookups<Table::PrefixMap>(state, Family::ipv4, false);
}
void BM_LpmIpv4UncoveredLegacy(benchmark::State& state) {
   lookups<LegacyPrefixMap>(state, Family::ipv4, false);
}
void BM_LpmIpv6Covered(benchmark::State& state) {
   lookups<Table::PrefixMap>(state, Family::ipv6, true);
}
void BM_LpmIpv6CoveredLegacy(benchmark::State& state) {
   lookups<LegacyPrefixMap>(state, Family::ipv6, true);
}
void BM_LpmIpv6Uncovered(benchmark::State& state) {
   lookups<Table::PrefixMap>(state, Family::ipv6, false);
}
void BM_LpmIpv6UncoveredLegacy(benchmark::State& state) {
   lookups<LegacyPrefixMap>(state, Family::ipv6, false);
}
void BM_LpmIpv4Chained(benchmark::State& state) {
   chainedLookups<Table::PrefixMap>(state, Family::ipv4);
}
void BM_LpmIpv4ChainedLegacy(benchmark::State& state) {
   chainedLookups<LegacyPrefixMap>(state, Family::ipv4);
}
void BM_LpmIpv6Chained(benchmark::State& state) {
   chainedLookups<Table::PrefixMap>(state, Family::ipv6);
}
void BM_LpmIpv6ChainedLegacy(benchmark::State& state) {
   chainedLookups<LegacyPrefixMap>(state, Family::ipv6);
}
void BM_LpmUpdateIpv4(benchmark::State& state) { updates(state, Family::ipv4); }
void BM_LpmUpdateIpv6(benchmark::State& state) { updates(state, Family::ipv6); }
void BM_LpmInsertIpv4(benchmark::State& state) {
   inserts<Table::PrefixMap>(state, Family::ipv4);
}
void BM_LpmInsertIpv4Legacy(benchmark::State& state) {
   inserts<LegacyPrefixMap>(state, Family::ipv4);
}
void BM_LpmInsertIpv6(benchmark::State& state) {
   inserts<Table::PrefixMap>(state, Family::ipv6);
}
void BM_LpmInsertIpv6Legacy(benchmark::State& state) {
   inserts<LegacyPrefixMap>(state, Family::ipv6);
}

BENCHMARK(BM_LpmIpv4Covered);
BENCHMARK(BM_LpmIpv4CoveredLegacy);
BENCHMARK(BM_LpmIpv4Uncovered);
BENCHMARK(BM_LpmIpv4UncoveredLegacy);
BENCHMARK(BM_LpmIpv6Covered);
BENCHMARK(BM_LpmIpv6CoveredLegacy);
BENCHMARK(BM_LpmIpv6Uncovered);
BENCHMARK(BM_LpmIpv6UncoveredLegacy);
BENCHMARK(BM_LpmIpv4Chained);
BENCHMARK(BM_LpmIpv4ChainedLegacy);
BENCHMARK(BM_LpmIpv6Chained);
BENCHMARK(BM_LpmIpv6ChainedLegacy);
BENCHMARK(BM_LpmUpdateIpv4);
BENCHMARK(BM_LpmUpdateIpv6);
BENCHMARK(BM_LpmInsertIpv4)->Unit(benchmark::kMillisecond)->Iterations(1);
BENCHMARK(BM_LpmInsertIpv4Legacy)->Unit(benchmark::kMillisecond)->Iterations(1);
BENCHMARK(BM_LpmInsertIpv6)->Unit(benchmark::kMillisecond)->Iterations(1);
BENCHMARK(BM_LpmInsertIpv6Legacy)->Unit(benchmark::kMillisecond)->Iterations(1);

} // namespace
