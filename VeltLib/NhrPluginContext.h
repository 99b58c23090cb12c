// What a plugin is given to extend the resolver with: the registry, the driver, both step
// lists, the fallback pipeline, the suitability helper, the plugin table and the
// state-database handle. Fixed once made.
#pragma once
#include "Kor/TypeInfo.h"
#include "Pelin/Ptr.h"
#include "Pipeline/GenericPipeline.h"
#include "VeltLib/IntfSuitabilityHelper.h"
#include "VeltLib/NexthopResolver.h"
#include "VeltLib/NexthopResolverTypes.h"
#include "Wexa/EntityManager.h"

#include <vector>

namespace Velt {

class NhrPlugins;

class NhrPluginContext : public Pelin::Node {
 public:
   NhrPluginContext(const Pelin::Ptr<Wexa::EntityManager>& entityManager,
                    const Pelin::Ptr<NexthopResolvers>& resolvers,
                    const Pelin::Ptr<RoutingNexthopResolver>& resolver,
                    const Pelin::Ptr<GenericPipelineSteps>& resolverSteps,
                    const Pelin::Ptr<GenericPipeline>& noIpRouteFallbackPipeline,
                    const Pelin::Ptr<GenericPipelineSteps>& noIpRouteFallbackSteps,
                    NhrPlugins* nhrPlugins,
                    const Pelin::Ptr<IntfSuitabilityHelper>& intfSuitabilityHelper);

   // Null when the resolver runs without a state database (tests).
   const Pelin::Ptr<Wexa::EntityManager>& entityManager() const { return entityManager_; }
   const Pelin::Ptr<NexthopResolvers>& resolvers() const { return resolvers_; }
   const Pelin::Ptr<RoutingNexthopResolver>& resolver() const { return resolver_; }
   const Pelin::Ptr<GenericPipelineSteps>& resolverSteps() const {
      return resolverSteps_;
   }
   const Pelin::Ptr<GenericPipeline>& noIpRouteFallbackPipeline() const {
      return noIpRouteFallbackPipeline_;
   }
   const Pelin::Ptr<GenericPipelineSteps>& noIpRouteFallbackSteps() const {
      return noIpRouteFallbackSteps_;
   }
   // The resolver root's table; the root outlives its context's use, so it is not owned.
   NhrPlugins* nhrPlugins() const { return nhrPlugins_; }
   const Pelin::Ptr<IntfSuitabilityHelper>& intfSuitabilityHelper() const {
      return intfSuitabilityHelper_;
   }

   const Kor::TypeInfo* typeData() const override;

 private:
   Pelin::Ptr<Wexa::EntityManager> entityManager_;
   Pelin::Ptr<NexthopResolvers> resolvers_;
   Pelin::Ptr<RoutingNexthopResolver> resolver_;
   Pelin::Ptr<GenericPipelineSteps> resolverSteps_;
   Pelin::Ptr<GenericPipeline> noIpRouteFallbackPipeline_;
   Pelin::Ptr<GenericPipelineSteps> noIpRouteFallbackSteps_;
   NhrPlugins* nhrPlugins_;
   Pelin::Ptr<IntfSuitabilityHelper> intfSuitabilityHelper_;
};

// What plugins have registered through a context (resolvers, steps of both lists,
// interface checkers) as it stood when taken. Taken before a plugin sets up and restored
// when the set-up fails, so that a failed plugin leaves nothing of itself registered, and
// whatever it replaced is back.
class NhrRegistrations {
 public:
   explicit NhrRegistrations(const NhrPluginContext& context);
   void restore(const NhrPluginContext& context) const;

 private:
   std::vector<Pelin::Ptr<InterfaceResolver>> interfaceResolvers_;
   std::vector<Pelin::Ptr<FecIdResolver>> fecIdResolvers_;
   std::vector<Pelin::Ptr<FecTypeResolver>> fecTypeResolvers_;
   std::vector<Pelin::Ptr<DstIpResolver>> dstIpResolvers_;
   std::vector<Pelin::Ptr<GenericPipelineStep>> resolverSteps_;
   std::vector<Pelin::Ptr<GenericPipelineStep>> fallbackSteps_;
   std::vector<Pelin::Ptr<IntfSuitabilityCheckerBase>> checkers_;
};

Pelin::Ptr<NhrPluginContext>
nhrPluginContextFactory(const Pelin::Ptr<Wexa::EntityManager>& entityManager,
                        const Pelin::Ptr<NexthopResolvers>& resolvers,
                        const Pelin::Ptr<RoutingNexthopResolver>& resolver,
                        const Pelin::Ptr<GenericPipelineSteps>& resolverSteps,
                        const Pelin::Ptr<GenericPipeline>& noIpRouteFallbackPipeline,
                        const Pelin::Ptr<GenericPipelineSteps>& noIpRouteFallbackSteps,
                        NhrPlugins* nhrPlugins,
                        const Pelin::Ptr<IntfSuitabilityHelper>& intfSuitabilityHelper);
Pelin::Ptr<NhrPluginContext>
NhrPluginContextIs(const Pelin::Ptr<Wexa::EntityManager>& entityManager,
                   const Pelin::Ptr<NexthopResolvers>& resolvers,
                   const Pelin::Ptr<RoutingNexthopResolver>& resolver,
                   const Pelin::Ptr<GenericPipelineSteps>& resolverSteps,
                   const Pelin::Ptr<GenericPipeline>& noIpRouteFallbackPipeline,
                   const Pelin::Ptr<GenericPipelineSteps>& noIpRouteFallbackSteps,
                   NhrPlugins* nhrPlugins,
                   const Pelin::Ptr<IntfSuitabilityHelper>& intfSuitabilityHelper);

} // namespace Velt
