#include "VeltLib/NhrPluginContext.h"

#include "VeltLib/NhrPluginBase.h"

namespace Velt {

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
