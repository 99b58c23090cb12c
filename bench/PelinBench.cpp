#include "Pelin/Ptr.h"

#include <benchmark/benchmark.h>

namespace {

struct Obj : Pelin::Node {
   char payload[48];
};

void BM_PtrCopy(benchmark::State& state) {
   auto p = Pelin::make<Obj>();
   for (auto _ : state) {
      Pelin::Ptr<Obj> q = p;
      benchmark::DoNotOptimize(q);
   }
}
BENCHMARK(BM_PtrCopy);

void BM_SlabAllocFree(benchmark::State& state) {
   for (auto _ : state) {
      Obj* o = Pallox::create<Obj>();
      benchmark::DoNotOptimize(o);
      Pallox::destroy(o);
   }
}
BENCHMARK(BM_SlabAllocFree);

void BM_NewDelete(benchmark::State& state) {
   for (auto _ : state) {
      Obj* o = new Obj;
      benchmark::DoNotOptimize(o);
      delete o;
   }
}
BENCHMARK(BM_NewDelete);

} // namespace
