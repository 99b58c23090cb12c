// NexthopResolverRoot owns and wires the whole resolver: registry, VRF roots, both step
// lists, driver, fallback pipeline, VRF root state machine, suitability helper and
// plugins. One per process, built empty and started by init() once the state database is
// mounted.
#pragma once
#include "Ip/VrfStatus.h"
#include "Kor/Entity.h"
#include "Kor/TypeInfo.h"
#include "Pelin/Ptr.h"
#include "Pipeline/GenericPipeline.h"
#include "VeltLib/IntfSuitabilityHelper.h"
#include "VeltLib/NexthopResolver.h"
#include "VeltLib/NexthopResolverTypes.h"
#include "VeltLib/NhrPluginBase.h"
#include "VeltLib/NhrPluginContext.h"
#include "VeltLib/ResolverVrfRoot.h"
#include "VeltLib/ResolverVrfRootSm.h"
#include "Vrf/NameToIdMap.h"
#include "Wexa/EntityManager.h"

namespace Velt {

class NexthopResolverRoot : public Kor::Entity {
 public:
   static constexpr const char* singletonName = "Velt::NexthopResolverRoot";
   // The plugin list, and the folder plugins are found in on the search path.
   static constexpr const char* pluginsVariable = "VELT_NHR_PLUGINS";
   static constexpr const char* pluginDirName = "NhrPlugin";

   enum Attr : Kor::AttrId {
      kName,
      kResolvers,
      kVrfRoots,
      kNexthopResolverSteps,
      kResolver,
      kNoIpRouteFallbackSteps,
      kNoIpRouteFallbackPipeline,
      kVrfRootSm,
      kIntfSuitabilityHelper,
      kPluginContext,
      kPluginsLoaded,
      kNhrPlugins,
      kInitialized,
   };

   // Builds the empty registry, VRF roots, step lists, driver, fallback pipeline,
   // suitability helper and plugin table; if one raises, the others go in reverse order.
   explicit NexthopResolverRoot(const Pelin::String& name);
   ~NexthopResolverRoot() override;

   // The process's root, made on first use.
   static Pelin::Ptr<NexthopResolverRoot> nexthopResolverRoot();

   // Starts the VRF root state machine, makes the plugin context and loads the plugins of
   // VELT_NHR_PLUGINS. Runs once: later calls return at once. An error propagates and
   // leaves the root uninitialised, so that a later call tries again.
   void init(const Pelin::Ptr<Ip::AllVrfStatusGlobal const>& allVrfStatusGlobal,
             const Pelin::Ptr<Ip::AllVrfStatusLocal const>& allVrfStatusLocal,
             const Pelin::Ptr<Vrf::VrfIdMap::NameToIdMapWrapper const>& vrfNameStatus,
             bool isUnifiedFecMode, const Pelin::Ptr<Wexa::EntityManager>& entityManager);
   void loadPlugins();

   const Pelin::Ptr<NexthopResolvers>& resolvers() const { return resolvers_; }
   const Pelin::Ptr<ResolverVrfRoots>& vrfRoots() const { return vrfRoots_; }
   const Pelin::Ptr<GenericPipelineSteps>& nexthopResolverSteps() const {
      return nexthopResolverSteps_;
   }
   const Pelin::Ptr<RoutingNexthopResolver>& resolver() const { return resolver_; }
   const Pelin::Ptr<GenericPipelineSteps>& noIpRouteFallbackSteps() const {
      return noIpRouteFallbackSteps_;
   }
   const Pelin::Ptr<GenericPipeline>& noIpRouteFallbackPipeline() const {
      return noIpRouteFallbackPipeline_;
   }
   const Pelin::Ptr<ResolverVrfRootSm>& vrfRootSm() const { return vrfRootSm_; }
   const Pelin::Ptr<IntfSuitabilityHelper>& intfSuitabilityHelper() const {
      return intfSuitabilityHelper_;
   }
   const Pelin::Ptr<NhrPluginContext>& pluginContext() const { return pluginContext_; }
   // For observers only: the root itself never sets it.
   bool pluginsLoaded() const { return pluginsLoaded_; }
   const Pelin::Ptr<NhrPlugins>& nhrPlugins() const { return nhrPlugins_; }
   bool initialized() const { return initialized_; }

   // Each returns the object present when it was made from the same arguments, else
   // replaces it with a new one and publishes the change.
   const Pelin::Ptr<NexthopResolvers>& resolversIs();
   const Pelin::Ptr<ResolverVrfRoots>& vrfRootsIs();
   const Pelin::Ptr<GenericPipelineSteps>&
   nexthopResolverStepsIs(const Pelin::String& name);
   const Pelin::Ptr<RoutingNexthopResolver>&
   resolverIs(const Pelin::Ptr<GenericPipelineSteps>& steps,
              const Pelin::Ptr<NexthopResolvers>& resolvers,
              const Pelin::Ptr<ResolverVrfRoots>& vrfRoots);
   const Pelin::Ptr<GenericPipelineSteps>&
   noIpRouteFallbackStepsIs(const Pelin::String& name);
   const Pelin::Ptr<GenericPipeline>&
   noIpRouteFallbackPipelineIs(const Pelin::Ptr<GenericPipelineSteps>& steps);
   const Pelin::Ptr<IntfSuitabilityHelper>& intfSuitabilityHelperIs();
   const Pelin::Ptr<NhrPlugins>& nhrPluginsIs();
   const Pelin::Ptr<ResolverVrfRootSm>&
   vrfRootSmIs(const Pelin::Ptr<ResolverVrfRoots>& vrfRoots,
               const Pelin::Ptr<Ip::AllVrfStatusGlobal const>& allVrfStatusGlobal,
               const Pelin::Ptr<Ip::AllVrfStatusLocal const>& allVrfStatusLocal,
               const Pelin::Ptr<Vrf::VrfIdMap::NameToIdMapWrapper const>& vrfNameStatus,
               bool isUnifiedFecMode,
               const Pelin::Ptr<Wexa::EntityManager>& entityManager);
   const Pelin::Ptr<NhrPluginContext>&
   pluginContextIs(const Pelin::Ptr<Wexa::EntityManager>& entityManager,
                   const Pelin::Ptr<NexthopResolvers>& resolvers,
                   const Pelin::Ptr<RoutingNexthopResolver>& resolver,
                   const Pelin::Ptr<GenericPipelineSteps>& nexthopResolverSteps,
                   const Pelin::Ptr<GenericPipeline>& noIpRouteFallbackPipeline,
                   const Pelin::Ptr<GenericPipelineSteps>& noIpRouteFallbackSteps,
                   NhrPlugins* nhrPlugins,
                   const Pelin::Ptr<IntfSuitabilityHelper>& intfSuitabilityHelper);
   void pluginsLoadedIs(bool pluginsLoaded);
   void initializedIs(bool initialized);

   // Each releases the object, publishes when there was one, and returns it.
   Pelin::Ptr<NexthopResolvers> resolversDel();
   Pelin::Ptr<ResolverVrfRoots> vrfRootsDel();
   Pelin::Ptr<GenericPipelineSteps> nexthopResolverStepsDel();
   Pelin::Ptr<RoutingNexthopResolver> resolverDel();
   Pelin::Ptr<GenericPipelineSteps> noIpRouteFallbackStepsDel();
   Pelin::Ptr<GenericPipeline> noIpRouteFallbackPipelineDel();
   Pelin::Ptr<ResolverVrfRootSm> vrfRootSmDel();
   Pelin::Ptr<IntfSuitabilityHelper> intfSuitabilityHelperDel();
   Pelin::Ptr<NhrPluginContext> pluginContextDel();
   Pelin::Ptr<NhrPlugins> nhrPluginsDel();

   const Kor::TypeInfo* typeData() const override;

 private:
   template <typename T, typename Same, typename Make>
   const Pelin::Ptr<T>& instantiate(Pelin::Ptr<T>& field, Kor::AttrId attr, Same same,
                                    Make make);
   template <typename T>
   Pelin::Ptr<T> release(Pelin::Ptr<T>& field, Kor::AttrId attr);
   void releaseAll() noexcept;

   Pelin::Ptr<NexthopResolvers> resolvers_;
   Pelin::Ptr<ResolverVrfRoots> vrfRoots_;
   Pelin::Ptr<GenericPipelineSteps> nexthopResolverSteps_;
   Pelin::Ptr<RoutingNexthopResolver> resolver_;
   Pelin::Ptr<GenericPipelineSteps> noIpRouteFallbackSteps_;
   Pelin::Ptr<GenericPipeline> noIpRouteFallbackPipeline_;
   Pelin::Ptr<ResolverVrfRootSm> vrfRootSm_;
   Pelin::Ptr<IntfSuitabilityHelper> intfSuitabilityHelper_;
   Pelin::Ptr<NhrPluginContext> pluginContext_;
   bool pluginsLoaded_ = false;
   Pelin::Ptr<NhrPlugins> nhrPlugins_;
   bool initialized_ = false;
};

Pelin::Ptr<NexthopResolverRoot> nexthopResolverRootFactory(const Pelin::String& name);
Pelin::Ptr<NexthopResolverRoot> NexthopResolverRootIs(const Pelin::String& name);

} // namespace Velt
