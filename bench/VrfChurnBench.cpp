// VRF churn through the state machine: 1,000 VRFs brought up (global, local state, id),
// then down, each step a real notification. Reports events per second.
#include "VeltLib/ResolverVrfRootSm.h"

#include <benchmark/benchmark.h>

#include <string>
#include <vector>

namespace {

void BM_VrfChurn(benchmark::State& state) {
   const int vrfs = static_cast<int>(state.range(0));
   std::vector<L3::VrfName> names;
   for (int i = 0; i < vrfs; ++i) names.emplace_back("tenant" + std::to_string(i));
   auto roots = Velt::resolverVrfRootsFactory();
   auto global = Pelin::make<Ip::AllVrfStatusGlobal>("global");
   auto local = Pelin::make<Ip::AllVrfStatusLocal>("local");
   auto ids = Pelin::make<Vrf::VrfIdMap::NameToIdMap>();
   auto wrapper = Pelin::make<Vrf::VrfIdMap::NameToIdMapWrapper>("ids");
   wrapper->nameToIdMapIs(ids);
   auto em = Pelin::make<Wexa::EntityManager>("bench", false);
   auto sm = Velt::resolverVrfRootSmFactory(roots, global, local, wrapper, true, em);
   for (auto _ : state) {
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
   if (roots->vrfRoot().size() != 1) state.SkipWithError("roots left behind");
   state.SetItemsProcessed(state.iterations() * vrfs * 7);
   state.counters["events/s"] =
       benchmark::Counter(static_cast<double>(state.iterations() * vrfs * 7),
                          benchmark::Counter::kIsRate);
}
BENCHMARK(BM_VrfChurn)->Arg(1000)->Unit(benchmark::kMillisecond);

} // namespace
