#include "VeltLib/NhrPluginBase.h"

#include "Pelin/Exception.h"
#include "Trace/Emit.h"
#include "VeltLib/Traces.h"

#include <optional>

namespace Velt {

namespace {

std::string describe(const std::exception_ptr& error) {
   try {
      std::rethrow_exception(error);
   } catch (const std::exception& e) {
      return e.what();
   } catch (...) {
      return "an exception that is not a std::exception";
   }
}

} // namespace

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
   if (retired_) {
      VELT_TRACE_FN(nhrPluginTrace(), 1, __func__,
                    "{}: left the plugin table before its mounts completed; not set up",
                    name());
      return;
   }
   try {
      completePluginInit(entityManager);
   } catch (...) {
      // Already undone, recorded in the plugin table and traced; the event loop that
      // delivered the mounts has nobody to hand it to.
   }
}

void NhrPluginBase::completePluginInit(
    const Pelin::Ptr<Wexa::EntityManager>& entityManager) {
   VELT_TRACE_FN(nhrPluginTrace(), 1, __func__, "{} {}", name(), __PRETTY_FUNCTION__);
   std::optional<NhrRegistrations> before;
   if (context_) before.emplace(*context_);
   try {
      mountsComplete(entityManager);
      setupNhr();
   } catch (...) {
      if (before) before->restore(*context_);
      setUpFailed(describe(std::current_exception()));
      throw;
   }
}

void NhrPluginBase::setUpFailed(const std::string& error) {
   VELT_TRACE_FN(nhrPluginTrace(), 0, "completePluginInit",
                 "{}: set-up failed, its registrations are undone: {}", name(), error);
   if (!table_) return;
   Pelin::Ptr<NhrPluginBase> self(this); // the table may hold the last reference
   NhrPlugins* table = table_;
   if (table->plugin(name()) == self) table->pluginDel(name());
   table->failedPluginIs(name(), error);
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
   pluginDelAll();
}

void NhrPlugins::release(NhrPluginBase& plugin) {
   plugin.table_ = nullptr;
   plugin.retired_ = true;
}

void NhrPlugins::pluginIs(const Pelin::Ptr<NhrPluginBase>& plugin) {
   if (!plugin) throw Pelin::NullArgumentException("plugin");
   Pelin::Ptr<NhrPluginBase> old = plugin_.value(plugin->name());
   if (old == plugin) return;
   plugin_.insert(plugin);
   if (old) release(*old);
   plugin->table_ = this;
   plugin->retired_ = false;
   failed_.erase(plugin->name());
}

void NhrPlugins::pluginDel(const Pelin::String& name) {
   bool found = false;
   Pelin::Ptr<NhrPluginBase> old = plugin_.erase(name, &found);
   if (found && old) release(*old);
}

void NhrPlugins::pluginDelAll() {
   plugin_.drain([](const Pelin::String&, Pelin::Ptr<NhrPluginBase>&& p) {
      if (p) release(*p);
   });
}

void NhrPlugins::failedPluginIs(const Pelin::String& name, const std::string& error) {
   failed_[name] = error;
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
