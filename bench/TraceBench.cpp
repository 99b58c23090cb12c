#include "Packet/PacketTrace.h"
#include "Pelin/Threading.h"
#include "Ringlog/Ringlog.h"
#include "Trace/Emit.h"

#include <benchmark/benchmark.h>

#include <cstdlib>
#include <string>

namespace {

// A 1 MiB ring: millions of iterations wrap it many times, so page reuse counts.
void openRing(benchmark::State& state) {
   const char* dir = std::getenv("TMPDIR");
   std::string error;
   if (!Ringlog::open(std::string(dir ? dir : "/tmp") + "/velt-bench.ring", 1 << 20, &error))
      state.SkipWithError(error.c_str());
}

void BM_RinglogOpen0(benchmark::State& state) {
   openRing(state);
   for (auto _ : state) VELT_RINGLOG("Bench", 3, "no arguments");
   Ringlog::close();
}
BENCHMARK(BM_RinglogOpen0);

void BM_RinglogOpen2(benchmark::State& state) {
   openRing(state);
   std::uint64_t id = 0;
   for (auto _ : state) VELT_RINGLOG("Bench", 3, "Pkt{}: Step: {}", ++id, 7u);
   Ringlog::close();
}
BENCHMARK(BM_RinglogOpen2);

void BM_RinglogOpen4(benchmark::State& state) {
   openRing(state);
   std::uint64_t id = 0;
   const std::string prefix = "vrf-red";
   for (auto _ : state)
      VELT_RINGLOG("Bench", 3, "{} Pkt{}: fec {} via {}", prefix, ++id, 0x1234567ull, true);
   Ringlog::close();
}
BENCHMARK(BM_RinglogOpen4);

// Writer threads share the ring through its reservation lock.
void BM_RinglogOpen2Threads(benchmark::State& state) {
   if (state.thread_index() == 0) {
      openRing(state);
      Pelin::multiThreadedIs(true);
   }
   std::uint64_t id = 0;
   for (auto _ : state) VELT_RINGLOG("Bench", 3, "Pkt{}: Step: {}", ++id, 7u);
   if (state.thread_index() == 0) {
      Pelin::multiThreadedIs(false);
      Ringlog::close();
   }
}
BENCHMARK(BM_RinglogOpen2Threads)->Threads(1)->Threads(2);

void BM_RinglogClosed(benchmark::State& state) {
   std::uint64_t id = 0;
   for (auto _ : state) VELT_RINGLOG("Bench", 3, "Pkt{}: Step: {}", ++id, 7u);
   benchmark::DoNotOptimize(id);
}
BENCHMARK(BM_RinglogClosed);

Trace::Handle& handle() {
   static Trace::Handle h("Velt::Bench");
   return h;
}

void BM_TextTraceLevelOff(benchmark::State& state) {
   Trace::Handle& h = handle();
   h.levelsIs(1u << 0);
   std::uint64_t id = 0;
   for (auto _ : state) {
      if (h.enabled(3)) h.write(3, "Pkt{}: Step: {}", ++id, 7u);
      benchmark::ClobberMemory();
   }
   h.levelsIs(0);
}
BENCHMARK(BM_TextTraceLevelOff);

void BM_PktTraceAllOff(benchmark::State& state) {
   Trace::Handle& h = handle();
   PacketContextBase ctx(1);
   for (auto _ : state) {
      VELT_PKT_TRACE(h, 3, ctx, "Step: {}", 7u);
      benchmark::ClobberMemory();
   }
}
BENCHMARK(BM_PktTraceAllOff);

} // namespace
