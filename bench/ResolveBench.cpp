// Cost of one resolution through the real pipeline over the test network: time and heap
// allocations per resolve. Slab objects (the next hop, the pipeline context,
// pre-resolution temporaries) come from warm slabs and are not heap allocations.
#include "tests/resolution/NetworkFixture.h"

#include <atomic>
#include <benchmark/benchmark.h>
#include <cstdlib>
#include <new>

// The replacements below pair new with free by design.
#pragma GCC diagnostic ignored "-Wmismatched-new-delete"

namespace {
std::atomic<std::uint64_t> heapAllocs{0};
} // namespace

void* operator new(std::size_t n) {
   heapAllocs.fetch_add(1, std::memory_order_relaxed);
   if (void* p = std::malloc(n ? n : 1)) return p;
   throw std::bad_alloc();
}
void* operator new[](std::size_t n) {
   return operator new(n);
}
void operator delete(void* p) noexcept {
   std::free(p);
}
void operator delete[](void* p) noexcept {
   std::free(p);
}
void operator delete(void* p, std::size_t) noexcept {
   std::free(p);
}
void operator delete[](void* p, std::size_t) noexcept {
   std::free(p);
}

namespace {

using VeltTest::Fecs;
using VeltTest::Network;

// Shared by every case: slabs and counter slots stay warm across cases.
Network& network() {
   static Network net;
   return net;
}

// Resolves next hops starting at `fecId` with a new flow hash each time. The next hop is
// made inside the loop, as every caller does; nexthopCreate measures that part alone.
void resolveFec(benchmark::State& state, Quarn::Fib::FecId fecId, const char* dstIp) {
   Network& net = network();
   auto ctx = net.context(1);
   const Pelin::Ptr<PacketContext>& pkt = ctx->pktCtx();
   std::uint32_t flow = 0;
   auto once = [&] {
      pkt->hashIs((++flow * 2654435761u) | 1);
      auto nh = Network::fecNexthop(fecId, dstIp);
      net.driver->resolve(ctx, nh);
      if (!nh->fullyResolved()) state.SkipWithError("next hop did not resolve");
      benchmark::DoNotOptimize(nh.get());
   };
   for (int i = 0; i < 1000; ++i)
      once(); // warm the slabs
   std::uint64_t before = heapAllocs.load();
   for (auto _ : state)
      once();
   state.counters["heapAllocs/resolve"] =
       double(heapAllocs.load() - before) / double(state.iterations());
}

void fourWeightedVias(benchmark::State& s) {
   resolveFec(s, Fecs::fourWay(), "");
}
void fourWeightedViasWithBackup(benchmark::State& s) {
   resolveFec(s, Fecs::fourWayBackup(), "");
}
void twoLevelThroughFecIdIntf(benchmark::State& s) {
   resolveFec(s, Fecs::twoLevel(), "10.100.0.1");
}
void sixHundredVias(benchmark::State& s) {
   resolveFec(s, Fecs::wide(), "");
}

// Everything an embedding agent does per packet: a packet context (id, counter sink, flow
// hash), a routing context in the packet's VRF and a next hop from a FEC id, then the
// resolve. The figure to hold against the per-core packet rate.
void fourWeightedViasAllIn(benchmark::State& state) {
   Network& net = network();
   const L3::VrfName vrf("red");
   std::uint64_t packetId = 0;
   std::uint32_t flow = 0;
   auto once = [&] {
      PacketContextBase base(++packetId);
      base.countersIs(net.counters);
      auto pkt = Pelin::make<PacketContext>(base);
      pkt->hashIs((++flow * 2654435761u) | 1);
      auto ctx = Velt::routingContextFactory(pkt, Lumo::IntfId(), vrf);
      auto nh = Velt::routingNexthopFactory(Lumo::IntfId());
      nh->fecIdIs(Fecs::fourWay());
      net.driver->resolve(ctx, nh);
      if (!nh->fullyResolved()) state.SkipWithError("next hop did not resolve");
      benchmark::DoNotOptimize(nh.get());
   };
   for (int i = 0; i < 1000; ++i)
      once(); // warm the slabs
   std::uint64_t before = heapAllocs.load();
   for (auto _ : state)
      once();
   state.counters["heapAllocs/resolve"] =
       double(heapAllocs.load() - before) / double(state.iterations());
}

void nexthopCreate(benchmark::State& state) {
   for (auto _ : state) {
      auto nh = Network::fecNexthop(Fecs::fourWay());
      benchmark::DoNotOptimize(nh.get());
   }
}

BENCHMARK(fourWeightedVias);
BENCHMARK(fourWeightedViasWithBackup);
BENCHMARK(twoLevelThroughFecIdIntf);
BENCHMARK(sixHundredVias);
BENCHMARK(fourWeightedViasAllIn);
BENCHMARK(nexthopCreate);

} // namespace
