// Reader costs of the shared tables at production sizes.
#include "Table/ListMap.h"
#include "Table/PrefixMap.h"

#include <benchmark/benchmark.h>

#include <random>
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

// 1,000,000 IPv4 routes shaped like an Internet table: mostly /24, the rest /8 to /32.
Table::PrefixMap& internetTable(std::vector<Table::PrefixKey>& probes) {
   static Table::PrefixMap* map = nullptr;
   static std::vector<Table::PrefixKey> routes;
   if (!map) {
      map = new Table::PrefixMap(1'000'000);
      std::mt19937 rng(2);
      std::discrete_distribution<int> lengths({0, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0, 0, 2, 3, 5, 8,
                                               40, 15, 20, 30, 40, 60, 80, 100, 600, 2, 2, 2,
                                               2, 2, 2, 2, 5});
      while (map->size() < 1'000'000) {
         auto key = Table::PrefixKey::v4(rng(), std::uint8_t(lengths(rng)));
         if (!map->find(key)) routes.push_back(key);
         map->insert(key, map->size());
      }
   }
   std::mt19937 rng(3);
   probes.clear();
   for (int i = 0; i < (1 << 16); ++i) {
      auto p = routes[rng() % routes.size()];
      auto address = Table::PrefixKey::v4(rng(), 32);
      std::memcpy(address.bytes, p.bytes, p.length / 8); // inside a route
      probes.push_back(address);
   }
   return *map;
}

void BM_PrefixMapLpmIpv4(benchmark::State& state) {
   std::vector<Table::PrefixKey> probes;
   auto& map = internetTable(probes);
   std::size_t i = 0;
   for (auto _ : state) benchmark::DoNotOptimize(map.longestMatch(probes[i++ & 0xffff]));
}
BENCHMARK(BM_PrefixMapLpmIpv4);

} // namespace
