// Copying a FEC must cost in proportion to its vias, not to its 728-via capacity.
#include "Quarn/Fec.h"

#include <benchmark/benchmark.h>

namespace {

void copyFec(benchmark::State& state) {
   Quarn::FibGen::Fec fec(Quarn::Fib::FecId(1));
   for (std::int64_t i = 0; i < state.range(0); ++i) {
      fec.viaAppend(Quarn::FibGen::Via(Lumo::IntfId("Ethernet1"), 1, Lumo::IpGenAddr("10.0.0.1")));
   }
   for (auto _ : state) {
      Quarn::FibGen::Fec copy(fec);
      benchmark::DoNotOptimize(copy);
      benchmark::ClobberMemory();
   }
}
BENCHMARK(copyFec)->Arg(4)->Arg(600);

} // namespace
