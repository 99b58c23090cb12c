// The resolution driver over test steps, and genFec from a large forwarding table.
#include "HeapCounter.h"
#include "VeltLib/NexthopResolver.h"

#include <benchmark/benchmark.h>

namespace {

using namespace Velt;

// Moves the next hop one stage along per pass: a FEC id becomes a destination IP, the
// IP an output interface, the interface a MAC. Three passes to resolve.
struct StageStep : NhrPipelineStep {
   StageStep() : NhrPipelineStep("Stage", 100) { stopsByPriorityIs(true); }
   bool process(const Pelin::Ptr<NhrPipelineContext>& ctx) override {
      RoutingNexthop& nh = *ctx->nexthop();
      if (nh.fecId().isValid()) {
         nh.fecIdIs(Quarn::Fib::FecId());
         nh.dstIpIs(ip_);
      } else if (!nh.outputIntf().isValid()) {
         nh.outputIntfIs(intf_);
      } else {
         nh.dstMacIs(mac_);
      }
      return false;
   }
   Lumo::IpGenAddr ip_{"192.0.2.1"};
   Lumo::IntfId intf_{"Ethernet1"};
   Lumo::EthAddr mac_{"02:00:00:00:00:01"};
};

void BM_ResolveThreePasses(benchmark::State& state) {
   auto steps = genericPipelineStepsFactory(nhrPipelineName);
   steps->stepIs(Pelin::make<StageStep>());
   auto roots = resolverVrfRootsFactory();
   roots->vrfRootIs("default", Vrf::VrfIdMap::VrfId(0), nullptr);
   auto driver = routingNexthopResolverFactory(steps, nexthopResolversFactory(), roots);
   auto ctx = routingContextFactory(nullptr, Lumo::IntfId(), "default");
   auto nh = routingNexthopFactory(Lumo::IntfId());
   const Quarn::Fib::FecId fecId(Quarn::Fib::AdjType::fibGenAdj, 5);
   unsigned long heapBefore = gHeapAllocations.load();
   for (auto _ : state) {
      nh->resetResolverFields(nullptr);
      nh->dstMacIs(Lumo::EthAddr());
      nh->fecIdIs(fecId);
      driver->resolve(ctx, nh);
      benchmark::DoNotOptimize(nh->fullyResolved());
   }
   state.counters["heapAllocsPerResolve"] = benchmark::Counter(
       double(gHeapAllocations.load() - heapBefore) / double(state.iterations()));
}
BENCHMARK(BM_ResolveThreePasses);

Quarn::FibGen::Fec fecWithVias(std::uint64_t index, std::uint32_t vias) {
   Quarn::FibGen::Fec fec(Quarn::Fib::FecId(Quarn::Fib::AdjType::fibGenAdj, index));
   for (std::uint32_t v = 0; v < vias; ++v) {
      fec.viaAppend(Quarn::FibGen::Via(Lumo::IntfId::fromType(2, v % 64 + 1), v + 1,
                                       Lumo::IpGenAddr("198.51.100.1")));
   }
   return fec;
}

// A table of 100,000 FECs of `vias` vias; genFec of random ids.
void BM_GenFec(benchmark::State& state) {
   const auto vias = static_cast<std::uint32_t>(state.range(0));
   constexpr std::uint64_t kFecs = 100000;
   Quarn::FibGen::ForwardingStatus::Capacity cap;
   cap.fecs = 1 << 18;
   cap.viaPoolBytes = std::uint64_t(vias > 4 ? 1000 : kFecs) * 64 * (vias + 2) + (64 << 20);
   auto table = Pelin::make<Quarn::FibGen::ForwardingStatus>("bench", cap);
   const std::uint64_t count = vias > 4 ? 1000 : kFecs; // 600-via FECs: fewer, same table
   for (std::uint64_t i = 1; i <= count; ++i) table->fecIs(fecWithVias(i, vias));
   for (std::uint64_t i = count + 1; i <= kFecs; ++i) table->fecIs(fecWithVias(i, 1));
   auto root = resolverVrfRootFactory("default", Vrf::VrfIdMap::VrfId(0), table);
   std::uint64_t x = 88172645463325252ull;
   for (auto _ : state) {
      x ^= x << 13, x ^= x >> 7, x ^= x << 17;
      Quarn::Fib::FecId id(Quarn::Fib::AdjType::fibGenAdj, x % count + 1);
      auto fec = root->genFec(id);
      benchmark::DoNotOptimize(fec.viaCount());
   }
}
BENCHMARK(BM_GenFec)->Arg(4)->Arg(600);

} // namespace
