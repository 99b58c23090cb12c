#include "VeltLib/NhrPluginContext.h"

#include "VeltLib/NhrPluginBase.h"

#include <algorithm>

namespace Velt {

namespace {

template <typename T, typename Range>
std::vector<Pelin::Ptr<T>> saved(const Range* range) {
   std::vector<Pelin::Ptr<T>> out;
   if (range) {
      for (const auto& item : *range)
         out.push_back(item);
   }
   return out;
}

// Makes `range` hold `before` again: drops what was added since (which also takes away
// what it replaced), then files again what is missing.
template <typename T, typename Range, typename Drop, typename File>
void putBack(const Range* range, const std::vector<Pelin::Ptr<T>>& before, Drop drop,
             File file) {
   if (!range) return;
   auto in = [](const std::vector<Pelin::Ptr<T>>& v, const Pelin::Ptr<T>& x) {
      return std::find(v.begin(), v.end(), x) != v.end();
   };
   std::vector<Pelin::Ptr<T>> now = saved<T>(range);
   for (const auto& x : now) {
      if (!in(before, x)) drop(x);
   }
   now = saved<T>(range);
   for (const auto& x : before) {
      if (!in(now, x)) file(x);
   }
}

} // namespace

NhrRegistrations::NhrRegistrations(const NhrPluginContext& c) {
   const NexthopResolvers* r = c.resolvers().get();
   interfaceResolvers_ = saved<InterfaceResolver>(r ? &r->interfaceResolver() : nullptr);
   fecIdResolvers_ = saved<FecIdResolver>(r ? &r->fecIdResolver() : nullptr);
   fecTypeResolvers_ = saved<FecTypeResolver>(r ? &r->fecTypeResolver() : nullptr);
   dstIpResolvers_ = saved<DstIpResolver>(r ? &r->dstIpResolver() : nullptr);
   resolverSteps_ = saved<GenericPipelineStep>(c.resolverSteps().get());
   fallbackSteps_ = saved<GenericPipelineStep>(c.noIpRouteFallbackSteps().get());
   const IntfSuitabilityHelper* h = c.intfSuitabilityHelper().get();
   checkers_ =
       saved<IntfSuitabilityCheckerBase>(h ? &h->intfSuitabilityChecker() : nullptr);
}

void NhrRegistrations::restore(const NhrPluginContext& c) const {
   if (NexthopResolvers* r = c.resolvers().get()) {
      putBack(
          &r->interfaceResolver(), interfaceResolvers_,
          [r](const auto& x) { r->interfaceResolverDel(x->type()); },
          [r](const auto& x) { r->interfaceResolverIs(x); });
      putBack(
          &r->fecIdResolver(), fecIdResolvers_,
          [r](const auto& x) { r->fecIdResolverDel(x->adjType()); },
          [r](const auto& x) { r->fecIdResolverIs(x); });
      putBack(
          &r->fecTypeResolver(), fecTypeResolvers_,
          [r](const auto& x) { r->fecTypeResolverDel(x->fecType()); },
          [r](const auto& x) { r->fecTypeResolverIs(x); });
      putBack(
          &r->dstIpResolver(), dstIpResolvers_,
          [r](const auto& x) { r->dstIpResolverDel(x->addressFamily()); },
          [r](const auto& x) { r->dstIpResolverIs(x); });
   }
   for (const auto& list : {std::pair{c.resolverSteps().get(), &resolverSteps_},
                            std::pair{c.noIpRouteFallbackSteps().get(), &fallbackSteps_}}) {
      GenericPipelineSteps* steps = list.first; // a plain name: lambdas capture it
      putBack(
          steps, *list.second, [steps](const auto& x) { steps->stepDel(x->name()); },
          [steps](const auto& x) { steps->stepIs(x); });
   }
   if (IntfSuitabilityHelper* h = c.intfSuitabilityHelper().get()) {
      putBack(
          &h->intfSuitabilityChecker(), checkers_,
          [h](const auto& x) { h->intfSuitabilityCheckerDel(x->name()); },
          [h](const auto& x) { h->intfSuitabilityCheckerIs(x); });
   }
}

NhrPluginContext::NhrPluginContext(
    const Pelin::Ptr<Wexa::EntityManager>& entityManager,
    const Pelin::Ptr<NexthopResolvers>& resolvers,
    const Pelin::Ptr<RoutingNexthopResolver>& resolver,
    const Pelin::Ptr<GenericPipelineSteps>& resolverSteps,
    const Pelin::Ptr<GenericPipeline>& noIpRouteFallbackPipeline,
    const Pelin::Ptr<GenericPipelineSteps>& noIpRouteFallbackSteps,
    NhrPlugins* nhrPlugins,
    const Pelin::Ptr<IntfSuitabilityHelper>& intfSuitabilityHelper)
    : entityManager_(entityManager), resolvers_(resolvers), resolver_(resolver),
      resolverSteps_(resolverSteps),
      noIpRouteFallbackPipeline_(noIpRouteFallbackPipeline),
      noIpRouteFallbackSteps_(noIpRouteFallbackSteps), nhrPlugins_(nhrPlugins),
      intfSuitabilityHelper_(intfSuitabilityHelper) {}

const Kor::TypeInfo* NhrPluginContext::typeData() const {
   using C = NhrPluginContext;
   static const Kor::TypeInfo info =
       Kor::TypeBuilder<C>("Velt::NhrPluginContext")
           .node("entityManager", &C::entityManager)
           .node("resolvers", &C::resolvers)
           .node("resolver", &C::resolver)
           .node("resolverSteps", &C::resolverSteps)
           .node("noIpRouteFallbackPipeline", &C::noIpRouteFallbackPipeline)
           .node("noIpRouteFallbackSteps", &C::noIpRouteFallbackSteps)
           .node("nhrPlugins", &C::nhrPlugins)
           .node("intfSuitabilityHelper", &C::intfSuitabilityHelper)
           .build();
   return &info;
}

Pelin::Ptr<NhrPluginContext>
nhrPluginContextFactory(const Pelin::Ptr<Wexa::EntityManager>& entityManager,
                        const Pelin::Ptr<NexthopResolvers>& resolvers,
                        const Pelin::Ptr<RoutingNexthopResolver>& resolver,
                        const Pelin::Ptr<GenericPipelineSteps>& resolverSteps,
                        const Pelin::Ptr<GenericPipeline>& noIpRouteFallbackPipeline,
                        const Pelin::Ptr<GenericPipelineSteps>& noIpRouteFallbackSteps,
                        NhrPlugins* nhrPlugins,
                        const Pelin::Ptr<IntfSuitabilityHelper>& intfSuitabilityHelper) {
   return Pelin::make<NhrPluginContext>(entityManager, resolvers, resolver, resolverSteps,
                                        noIpRouteFallbackPipeline, noIpRouteFallbackSteps,
                                        nhrPlugins, intfSuitabilityHelper);
}

Pelin::Ptr<NhrPluginContext>
NhrPluginContextIs(const Pelin::Ptr<Wexa::EntityManager>& entityManager,
                   const Pelin::Ptr<NexthopResolvers>& resolvers,
                   const Pelin::Ptr<RoutingNexthopResolver>& resolver,
                   const Pelin::Ptr<GenericPipelineSteps>& resolverSteps,
                   const Pelin::Ptr<GenericPipeline>& noIpRouteFallbackPipeline,
                   const Pelin::Ptr<GenericPipelineSteps>& noIpRouteFallbackSteps,
                   NhrPlugins* nhrPlugins,
                   const Pelin::Ptr<IntfSuitabilityHelper>& intfSuitabilityHelper) {
   return nhrPluginContextFactory(entityManager, resolvers, resolver, resolverSteps,
                                  noIpRouteFallbackPipeline, noIpRouteFallbackSteps,
                                  nhrPlugins, intfSuitabilityHelper);
}

} // namespace Velt
