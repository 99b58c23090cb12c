#include "VeltLib/NhrPluginBase.h"

#include "Pelin/Exception.h"
#include "Trace/Emit.h"
#include "VeltLib/Traces.h"

namespace Velt {

NhrPluginBase::NhrPluginBase(const Pelin::String& name,
                             const Pelin::Ptr<NhrPluginContext>& context)
    : Wexa::Mounter(name), context_(context) {}

void NhrPluginBase::doMountProfile(const Pelin::Ptr<Wexa::EntityManager>& entityManager) {
   if (!entityManager) {
      VELT_TRACE_FN(nhrPluginTrace(), 1, __func__, "{}: No entitymanager, testing?",
                    name());
      completePluginInit(entityManager);
      return;
   }
   Pelin::String profile = mountProfileName();
   // A profile the state database does not know is no profile at all.
   if (!entityManager->mountFileInfo().profileLoaded(profile)) profile.clear();
   if (profile.empty()) {
      VELT_TRACE_FN(nhrPluginTrace(), 1, __func__, "{}: No mount profile specified",
                    name());
      completePluginInit(entityManager);
      return;
   }
   VELT_TRACE_FN(nhrPluginTrace(), 1, __func__, "{}: Loading mount profile {}", name(),
                 profile);
   Pelin::Ptr<Wexa::MountGroup> group =
       entityManager->mountGroup(Pelin::Ptr<Wexa::Mounter>(this));
   group->doMountProfile(profile);
   group->doClose(false, "");
}

void NhrPluginBase::doMountsComplete(
    Wexa::MountStatus mountStatus, const Pelin::Ptr<Wexa::EntityManager>& entityManager) {
   VELT_TRACE_FN(nhrPluginTrace(), 1, __func__, "{} {}", name(), __PRETTY_FUNCTION__);
   VELT_ASSERT(mountStatus == Wexa::MountStatus::mountSuccess_);
   completePluginInit(entityManager);
}

void NhrPluginBase::completePluginInit(
    const Pelin::Ptr<Wexa::EntityManager>& entityManager) {
   VELT_TRACE_FN(nhrPluginTrace(), 1, __func__, "{} {}", name(), __PRETTY_FUNCTION__);
   mountsComplete(entityManager);
   setupNhr();
}

void NhrPluginBase::mountsComplete(const Pelin::Ptr<Wexa::EntityManager>&) {}

const Kor::TypeInfo* NhrPluginBase::typeData() const {
   using P = NhrPluginBase;
   static const Kor::TypeInfo info =
       Kor::TypeBuilder<P>("Velt::NhrPluginBase")
           .value("name", static_cast<const std::string& (P::*)() const>(&P::name))
           .node("context", &P::context)
           .build();
   return &info;
}

NhrPlugins::~NhrPlugins() {
   beingDestroyedIs();
   plugin_.clear();
}

void NhrPlugins::pluginIs(const Pelin::Ptr<NhrPluginBase>& plugin) {
   if (!plugin) throw Pelin::NullArgumentException("plugin");
   plugin_.insert(plugin);
}

void NhrPlugins::pluginDel(const Pelin::String& name) {
   plugin_.erase(name);
}

void NhrPlugins::pluginDelAll() {
   plugin_.clear();
}

const Kor::TypeInfo* NhrPlugins::typeData() const {
   using P = NhrPlugins;
   static const Kor::TypeInfo info =
       Kor::TypeBuilder<P>("Velt::NhrPlugins")
           .collection("plugin", static_cast<const PluginMap& (P::*)() const>(&P::plugin))
           .action("pluginDelAll", &P::pluginDelAll)
           .build();
   return &info;
}

Pelin::Ptr<NhrPlugins> nhrPluginsFactory() {
   return Pelin::make<NhrPlugins>();
}
Pelin::Ptr<NhrPlugins> NhrPluginsIs() {
   return nhrPluginsFactory();
}

} // namespace Velt
