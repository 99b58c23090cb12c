// The base of every resolver plugin, and the table of loaded plugins. A plugin mounts the
// state its profile names, if any, and then registers its resolvers and steps in
// setupNhr(). Set-up is all or nothing: a plugin whose set-up throws leaves no
// registration and no table entry behind, and the table records why it failed.
#pragma once
#include "Kor/HashMap.h"
#include "Kor/TypeInfo.h"
#include "Pelin/Ptr.h"
#include "VeltLib/NhrPluginContext.h"
#include "Wexa/EntityManager.h"

#include <map>
#include <string>

namespace Velt {

class NhrPluginBase : public Wexa::Mounter {
 public:
   // A plugin named Foo mounts the profile "Velt-NhrPlugin-Foo" when one is loaded.
   static constexpr const char* mountProfilePrefix = "Velt-NhrPlugin-";

   NhrPluginBase(const Pelin::String& name, const Pelin::Ptr<NhrPluginContext>& context);

   const Pelin::Ptr<NhrPluginContext>& context() const { return context_; }
   Pelin::String mountProfileName() const { return mountProfilePrefix + name(); }

   // Starts the plugin's set-up once it is in the table: mounts its profile, when the
   // state database has it loaded, and sets up when the mounts complete; else sets up at
   // once.
   void doMountProfile(const Pelin::Ptr<Wexa::EntityManager>& entityManager);
   // A failed mount stops the process: the plugin cannot work without its state. Runs on
   // the event loop, so a failing set-up is recorded and traced rather than raised; a
   // plugin that left its table before its mounts completed is not set up.
   void doMountsComplete(Wexa::MountStatus mountStatus,
                         const Pelin::Ptr<Wexa::EntityManager>& entityManager) override;
   // Runs mountsComplete() and setupNhr(). If either throws, undoes what they registered,
   // leaves the table with the error recorded, traces it, and raises it again.
   void completePluginInit(const Pelin::Ptr<Wexa::EntityManager>& entityManager);

   // Runs after the mounts, before setupNhr(); nothing by default.
   virtual void mountsComplete(const Pelin::Ptr<Wexa::EntityManager>& entityManager);
   // Registers the plugin's resolvers and steps through its context; runs exactly once.
   virtual void setupNhr() = 0;

   const Kor::TypeInfo* typeData() const override;

 private:
   friend class NhrPlugins;
   void setUpFailed(const std::string& error);

   Pelin::Ptr<NhrPluginContext> context_;
   NhrPlugins* table_ = nullptr; // the table holding it; cleared when released
   bool retired_ = false;        // released by a table; never set up after that
};

// The loaded plugins by name. Nobody watches it, so it publishes nothing.
class NhrPlugins : public Pelin::Node {
 public:
   using PluginMap = Kor::HashMap<Pelin::String, Pelin::Ptr<NhrPluginBase>,
                                  Kor::PtrKey<&NhrPluginBase::name>>;

   NhrPlugins() = default;
   ~NhrPlugins() override;

   Pelin::Ptr<NhrPluginBase> plugin(const Pelin::String& name) const {
      return plugin_.value(name);
   }
   const PluginMap& plugin() const { return plugin_; }
   // Files `plugin` under its name, replacing a plugin of that name, and forgets an
   // earlier failure of that name.
   void pluginIs(const Pelin::Ptr<NhrPluginBase>& plugin);
   void pluginDel(const Pelin::String& name);
   void pluginDelAll();

   // Plugins whose set-up failed, by name, with the error; they are not in plugin().
   const std::map<Pelin::String, std::string>& failedPlugin() const { return failed_; }
   void failedPluginIs(const Pelin::String& name, const std::string& error);

   const Kor::TypeInfo* typeData() const override;

 private:
   static void release(NhrPluginBase& plugin);

   PluginMap plugin_;
   std::map<Pelin::String, std::string> failed_;
};

Pelin::Ptr<NhrPlugins> nhrPluginsFactory();
Pelin::Ptr<NhrPlugins> NhrPluginsIs();

} // namespace Velt
