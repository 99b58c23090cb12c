// VRF churn through the state machine: 1,000 VRFs brought up (global, local state, id),
// then down, each step a real notification. Reports events per second, and the heap that
// a million such events leave behind, which must stay flat.
#include "VeltLib/ResolverVrfRootSm.h"

#include <benchmark/benchmark.h>
#include <malloc.h>

#include <string>
#include <vector>

namespace {

constexpr int eventsPerVrf = 7;

// The state machine over its inputs; cycle() brings every VRF up and down once.
struct Churn {
   Churn(int vrfs, bool unified) {
      for (int i = 0; i < vrfs; ++i)
         names.emplace_back("tenant" + std::to_string(i));
      wrapper->nameToIdMapIs(ids);
      sm = Velt::resolverVrfRootSmFactory(roots, global, local, wrapper, unified, em);
   }
   void cycle() {
      const int vrfs = static_cast<int>(names.size());
      for (int i = 0; i < vrfs; ++i) {
         global->vrfIs(names[i]);
         local->vrfIs(names[i], Ip::vrfStateActive);
         ids->vrfNameToIdIs(names[i], Vrf::VrfIdMap::VrfId(i + 1));
      }
      for (int i = 0; i < vrfs; ++i) local->vrf(names[i])->stateIs(0);
      for (int i = 0; i < vrfs; ++i) {
         ids->vrfNameToIdDel(names[i]);
         local->vrfDel(names[i]);
         global->vrfDel(names[i]);
      }
   }
   std::int64_t events() const {
      return static_cast<std::int64_t>(names.size()) * eventsPerVrf;
   }

   std::vector<L3::VrfName> names;
   Pelin::Ptr<Velt::ResolverVrfRoots> roots = Velt::resolverVrfRootsFactory();
   Pelin::Ptr<Ip::AllVrfStatusGlobal> global =
       Pelin::make<Ip::AllVrfStatusGlobal>("global");
   Pelin::Ptr<Ip::AllVrfStatusLocal> local = Pelin::make<Ip::AllVrfStatusLocal>("local");
   Pelin::Ptr<Vrf::VrfIdMap::NameToIdMap> ids = Pelin::make<Vrf::VrfIdMap::NameToIdMap>();
   Pelin::Ptr<Vrf::VrfIdMap::NameToIdMapWrapper> wrapper =
       Pelin::make<Vrf::VrfIdMap::NameToIdMapWrapper>("ids");
   Pelin::Ptr<Wexa::EntityManager> em = Pelin::make<Wexa::EntityManager>("bench", false);
   Pelin::Ptr<Velt::ResolverVrfRootSm> sm;
};

void BM_VrfChurn(benchmark::State& state) {
   Churn churn(static_cast<int>(state.range(0)), true);
   for (auto _ : state)
      churn.cycle();
   if (churn.roots->vrfRoot().size() != 1) state.SkipWithError("roots left behind");
   const auto events = static_cast<double>(state.iterations() * churn.events());
   state.SetItemsProcessed(state.iterations() * churn.events());
   state.counters["events/s"] = benchmark::Counter(events, benchmark::Counter::kIsRate);
}
BENCHMARK(BM_VrfChurn)->Arg(1000)->Unit(benchmark::kMillisecond);

// Heap in use after a million events less that after the first cycle, per event, with one
// forwarding table per VRF. Every table the cycle fills it also empties, so anything
// above noise is a leak.
void BM_VrfChurnMemory(benchmark::State& state) {
   Churn churn(1000, false);
   const std::int64_t cycles = (1'000'000 + churn.events() - 1) / churn.events();
   churn.cycle(); // tables and maps reach their working size
   const std::size_t before = mallinfo2().uordblks;
   for (auto _ : state) {
      for (std::int64_t c = 0; c < cycles; ++c)
         churn.cycle();
   }
   const std::size_t after = mallinfo2().uordblks;
   const auto events = static_cast<double>(state.iterations() * cycles * churn.events());
   state.counters["events"] = events;
   state.counters["bytes/event"] =
       (static_cast<double>(after) - static_cast<double>(before)) / events;
   state.counters["mounts"] = static_cast<double>(
       Wexa::sharedMemoryEntityManager("bench", false)->mounts().size());
}
BENCHMARK(BM_VrfChurnMemory)->Iterations(1)->Unit(benchmark::kMillisecond);

} // namespace
