#include "VeltLib/NexthopResolverRoot.h"

#include "Kor/Singleton.h"
#include "VeltLib/NhrPluginLoader.h"

#include <cstdlib>

namespace Velt {

NexthopResolverRoot::NexthopResolverRoot(const Pelin::String& name) : Kor::Entity(name) {
   try {
      resolversIs();
      vrfRootsIs();
      nexthopResolverStepsIs(nhrPipelineName);
      resolverIs(nexthopResolverSteps_, resolvers_, vrfRoots_);
      noIpRouteFallbackStepsIs(noIpRouteFallbackPipelineName);
      noIpRouteFallbackPipelineIs(noIpRouteFallbackSteps_);
      intfSuitabilityHelperIs();
      nhrPluginsIs();
   } catch (...) {
      releaseAll();
      throw;
   }
}

// Undoes a construction that raised: the opposite of the order of construction.
void NexthopResolverRoot::releaseAll() noexcept {
   nhrPlugins_ = nullptr;
   intfSuitabilityHelper_ = nullptr;
   noIpRouteFallbackPipeline_ = nullptr;
   noIpRouteFallbackSteps_ = nullptr;
   resolver_ = nullptr;
   nexthopResolverSteps_ = nullptr;
   vrfRoots_ = nullptr;
   resolvers_ = nullptr;
}

NexthopResolverRoot::~NexthopResolverRoot() {
   beingDestroyedIs();
   resolversDel();
   vrfRootsDel();
   nexthopResolverStepsDel();
   resolverDel();
   noIpRouteFallbackStepsDel();
   noIpRouteFallbackPipelineDel();
   vrfRootSmDel();
   intfSuitabilityHelperDel();
   pluginContextDel();
   // Last: the plugins' resolvers and steps may use anything above until they go.
   nhrPluginsDel();
   publisherDel();
}

Pelin::Ptr<NexthopResolverRoot> NexthopResolverRoot::nexthopResolverRoot() {
   return Kor::singleton<NexthopResolverRoot>();
}

void NexthopResolverRoot::init(
    const Pelin::Ptr<Ip::AllVrfStatusGlobal const>& allVrfStatusGlobal,
    const Pelin::Ptr<Ip::AllVrfStatusLocal const>& allVrfStatusLocal,
    const Pelin::Ptr<Vrf::VrfIdMap::NameToIdMapWrapper const>& vrfNameStatus,
    bool isUnifiedFecMode, const Pelin::Ptr<Wexa::EntityManager>& entityManager) {
   if (initialized_) return;
   vrfRootSmIs(vrfRoots_, allVrfStatusGlobal, allVrfStatusLocal, vrfNameStatus,
               isUnifiedFecMode, entityManager);
   pluginContextIs(entityManager, resolvers_, resolver_, nexthopResolverSteps_,
                   noIpRouteFallbackPipeline_, noIpRouteFallbackSteps_, nhrPlugins_.get(),
                   intfSuitabilityHelper_);
   loadPlugins();
   initializedIs(true);
}

void NexthopResolverRoot::loadPlugins() {
   Pelin::Ptr<Plugin::NhrLoader> loader = Plugin::nhrLoaderFactory();
   const char* plugins = std::getenv(pluginsVariable);
   loader->loadPlugins(pluginDirName, pluginContext_, plugins ? plugins : "", "");
}

template <typename T, typename Same, typename Make>
const Pelin::Ptr<T>& NexthopResolverRoot::instantiate(Pelin::Ptr<T>& field,
                                                      Kor::AttrId attr, Same same,
                                                      Make make) {
   if (field && same(*field)) return field;
   field = make();
   notify(attr);
   return field;
}

template <typename T>
Pelin::Ptr<T> NexthopResolverRoot::release(Pelin::Ptr<T>& field, Kor::AttrId attr) {
   Pelin::Ptr<T> old = std::move(field);
   field = nullptr;
   if (old) notify(attr);
   return old;
}

const Pelin::Ptr<NexthopResolvers>& NexthopResolverRoot::resolversIs() {
   return instantiate(
       resolvers_, kResolvers, [](const NexthopResolvers&) { return true; },
       [] { return nexthopResolversFactory(); });
}

const Pelin::Ptr<ResolverVrfRoots>& NexthopResolverRoot::vrfRootsIs() {
   return instantiate(
       vrfRoots_, kVrfRoots, [](const ResolverVrfRoots&) { return true; },
       [] { return resolverVrfRootsFactory(); });
}

const Pelin::Ptr<GenericPipelineSteps>&
NexthopResolverRoot::nexthopResolverStepsIs(const Pelin::String& name) {
   return instantiate(
       nexthopResolverSteps_, kNexthopResolverSteps,
       [&](const GenericPipelineSteps& s) { return s.name() == name; },
       [&] { return genericPipelineStepsFactory(name); });
}

const Pelin::Ptr<RoutingNexthopResolver>&
NexthopResolverRoot::resolverIs(const Pelin::Ptr<GenericPipelineSteps>& steps,
                                const Pelin::Ptr<NexthopResolvers>& resolvers,
                                const Pelin::Ptr<ResolverVrfRoots>& vrfRoots) {
   return instantiate(
       resolver_, kResolver,
       [&](const RoutingNexthopResolver& r) {
          return r.steps() == steps && r.resolvers() == resolvers &&
                 r.vrfRoots() == vrfRoots;
       },
       [&] { return routingNexthopResolverFactory(steps, resolvers, vrfRoots); });
}

const Pelin::Ptr<GenericPipelineSteps>&
NexthopResolverRoot::noIpRouteFallbackStepsIs(const Pelin::String& name) {
   return instantiate(
       noIpRouteFallbackSteps_, kNoIpRouteFallbackSteps,
       [&](const GenericPipelineSteps& s) { return s.name() == name; },
       [&] { return genericPipelineStepsFactory(name); });
}

const Pelin::Ptr<GenericPipeline>& NexthopResolverRoot::noIpRouteFallbackPipelineIs(
    const Pelin::Ptr<GenericPipelineSteps>& steps) {
   return instantiate(
       noIpRouteFallbackPipeline_, kNoIpRouteFallbackPipeline,
       [&](const GenericPipeline& p) { return p.steps() == steps; },
       [&] { return genericPipelineFactory(steps); });
}

const Pelin::Ptr<IntfSuitabilityHelper>& NexthopResolverRoot::intfSuitabilityHelperIs() {
   return instantiate(
       intfSuitabilityHelper_, kIntfSuitabilityHelper,
       [](const IntfSuitabilityHelper&) { return true; },
       [] { return intfSuitabilityHelperFactory(); });
}

const Pelin::Ptr<NhrPlugins>& NexthopResolverRoot::nhrPluginsIs() {
   return instantiate(
       nhrPlugins_, kNhrPlugins, [](const NhrPlugins&) { return true; },
       [] { return nhrPluginsFactory(); });
}

const Pelin::Ptr<ResolverVrfRootSm>& NexthopResolverRoot::vrfRootSmIs(
    const Pelin::Ptr<ResolverVrfRoots>& vrfRoots,
    const Pelin::Ptr<Ip::AllVrfStatusGlobal const>& allVrfStatusGlobal,
    const Pelin::Ptr<Ip::AllVrfStatusLocal const>& allVrfStatusLocal,
    const Pelin::Ptr<Vrf::VrfIdMap::NameToIdMapWrapper const>& vrfNameStatus,
    bool isUnifiedFecMode, const Pelin::Ptr<Wexa::EntityManager>& entityManager) {
   return instantiate(
       vrfRootSm_, kVrfRootSm,
       [&](const ResolverVrfRootSm& sm) {
          return sm.vrfRoots() == vrfRoots &&
                 sm.allVrfStatusGlobal() == allVrfStatusGlobal &&
                 sm.allVrfStatusLocal() == allVrfStatusLocal &&
                 sm.vrfNameStatus() == vrfNameStatus &&
                 sm.isUnifiedFecMode() == isUnifiedFecMode &&
                 sm.entityManager() == entityManager;
       },
       [&] {
          return resolverVrfRootSmFactory(vrfRoots, allVrfStatusGlobal, allVrfStatusLocal,
                                          vrfNameStatus, isUnifiedFecMode, entityManager);
       });
}

const Pelin::Ptr<NhrPluginContext>& NexthopResolverRoot::pluginContextIs(
    const Pelin::Ptr<Wexa::EntityManager>& entityManager,
    const Pelin::Ptr<NexthopResolvers>& resolvers,
    const Pelin::Ptr<RoutingNexthopResolver>& resolver,
    const Pelin::Ptr<GenericPipelineSteps>& nexthopResolverSteps,
    const Pelin::Ptr<GenericPipeline>& noIpRouteFallbackPipeline,
    const Pelin::Ptr<GenericPipelineSteps>& noIpRouteFallbackSteps,
    NhrPlugins* nhrPlugins,
    const Pelin::Ptr<IntfSuitabilityHelper>& intfSuitabilityHelper) {
   return instantiate(
       pluginContext_, kPluginContext,
       [&](const NhrPluginContext& c) {
          return c.entityManager() == entityManager && c.resolvers() == resolvers &&
                 c.resolver() == resolver && c.resolverSteps() == nexthopResolverSteps &&
                 c.noIpRouteFallbackPipeline() == noIpRouteFallbackPipeline &&
                 c.noIpRouteFallbackSteps() == noIpRouteFallbackSteps &&
                 c.nhrPlugins() == nhrPlugins &&
                 c.intfSuitabilityHelper() == intfSuitabilityHelper;
       },
       [&] {
          return nhrPluginContextFactory(entityManager, resolvers, resolver,
                                         nexthopResolverSteps, noIpRouteFallbackPipeline,
                                         noIpRouteFallbackSteps, nhrPlugins,
                                         intfSuitabilityHelper);
       });
}

void NexthopResolverRoot::pluginsLoadedIs(bool pluginsLoaded) {
   Kor::assign(*this, pluginsLoaded_, pluginsLoaded, kPluginsLoaded);
}

void NexthopResolverRoot::initializedIs(bool initialized) {
   Kor::assign(*this, initialized_, initialized, kInitialized);
}

Pelin::Ptr<NexthopResolvers> NexthopResolverRoot::resolversDel() {
   return release(resolvers_, kResolvers);
}
Pelin::Ptr<ResolverVrfRoots> NexthopResolverRoot::vrfRootsDel() {
   return release(vrfRoots_, kVrfRoots);
}
Pelin::Ptr<GenericPipelineSteps> NexthopResolverRoot::nexthopResolverStepsDel() {
   return release(nexthopResolverSteps_, kNexthopResolverSteps);
}
Pelin::Ptr<RoutingNexthopResolver> NexthopResolverRoot::resolverDel() {
   return release(resolver_, kResolver);
}
Pelin::Ptr<GenericPipelineSteps> NexthopResolverRoot::noIpRouteFallbackStepsDel() {
   return release(noIpRouteFallbackSteps_, kNoIpRouteFallbackSteps);
}
Pelin::Ptr<GenericPipeline> NexthopResolverRoot::noIpRouteFallbackPipelineDel() {
   return release(noIpRouteFallbackPipeline_, kNoIpRouteFallbackPipeline);
}
Pelin::Ptr<ResolverVrfRootSm> NexthopResolverRoot::vrfRootSmDel() {
   return release(vrfRootSm_, kVrfRootSm);
}
Pelin::Ptr<IntfSuitabilityHelper> NexthopResolverRoot::intfSuitabilityHelperDel() {
   return release(intfSuitabilityHelper_, kIntfSuitabilityHelper);
}
Pelin::Ptr<NhrPluginContext> NexthopResolverRoot::pluginContextDel() {
   return release(pluginContext_, kPluginContext);
}
Pelin::Ptr<NhrPlugins> NexthopResolverRoot::nhrPluginsDel() {
   return release(nhrPlugins_, kNhrPlugins);
}

const Kor::TypeInfo* NexthopResolverRoot::typeData() const {
   using R = NexthopResolverRoot;
   static const Kor::TypeInfo info =
       Kor::TypeBuilder<R>("Velt::NexthopResolverRoot")
           .value("name", static_cast<const std::string& (R::*)() const>(&R::name))
           .node("resolvers", &R::resolvers)
           .node("vrfRoots", &R::vrfRoots)
           .node("nexthopResolverSteps", &R::nexthopResolverSteps)
           .node("resolver", &R::resolver)
           .node("noIpRouteFallbackSteps", &R::noIpRouteFallbackSteps)
           .node("noIpRouteFallbackPipeline", &R::noIpRouteFallbackPipeline)
           .node("vrfRootSm", &R::vrfRootSm)
           .node("intfSuitabilityHelper", &R::intfSuitabilityHelper)
           .node("pluginContext", &R::pluginContext)
           .value("pluginsLoaded", &R::pluginsLoaded, &R::pluginsLoadedIs)
           .node("nhrPlugins", &R::nhrPlugins)
           .value("initialized", &R::initialized)
           .build();
   return &info;
}

Pelin::Ptr<NexthopResolverRoot> nexthopResolverRootFactory(const Pelin::String& name) {
   return Pelin::make<NexthopResolverRoot>(name);
}
Pelin::Ptr<NexthopResolverRoot> NexthopResolverRootIs(const Pelin::String& name) {
   return nexthopResolverRootFactory(name);
}

} // namespace Velt
