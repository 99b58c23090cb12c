#include "VeltLib/NhrPluginLoader.h"

#include "Trace/Trace.h"

#include <cstdlib>

namespace Velt {

namespace {

Pelin::Ptr<Plugin::Loader<NhrPluginContext>> makeLoader() {
   auto loader = Pelin::make<Plugin::Loader<NhrPluginContext>>("NhrPluginLoader");
   loader->versionCheckIs(
       Plugin::VersionCheck{pluginVersionMark, "libVeltRouting", versionMajor});
   return loader;
}

} // namespace

const Pelin::Ptr<Plugin::Loader<NhrPluginContext>>& NhrPluginLoader() {
   // Never destroyed: plugins may reach it while the process's statics are torn down.
   static const auto* loader =
       new Pelin::Ptr<Plugin::Loader<NhrPluginContext>>(makeLoader());
   return *loader;
}

void startNhrPlugin(NhrPluginMaker make) {
   Pelin::Ptr<NhrPluginContext> context = NhrPluginLoader()->context();
   VELT_ASSERT(context);
   VELT_ASSERT(context->nhrPlugins());
   NhrRegistrations before(*context);
   Pelin::Ptr<NhrPluginBase> plugin;
   try {
      plugin = make(context);
      context->nhrPlugins()->pluginIs(plugin);
      plugin->doMountProfile(context->entityManager());
   } catch (...) {
      before.restore(*context);
      NhrPlugins& table = *context->nhrPlugins();
      if (plugin && table.plugin(plugin->name()) == plugin)
         table.pluginDel(plugin->name());
      throw;
   }
}

namespace {
// Made when the library is loaded, not when a plugin first asks.
[[maybe_unused]] const bool loaderMadeAtLoad = static_cast<bool>(NhrPluginLoader());
} // namespace

} // namespace Velt

namespace Plugin {

namespace {

// Clears the current plugin name and lets go of the context however the load ends: the
// loader lives as long as the process, the context only as long as its root.
struct LoadReset {
   ~LoadReset() {
      Velt::NhrPluginLoader()->pluginNameIs({});
      Velt::NhrPluginLoader()->contextIs(nullptr);
   }
};

} // namespace

void NhrLoader::loadPlugins(const Pelin::String& dirName,
                            const Pelin::Ptr<Velt::NhrPluginContext>& context,
                            const Pelin::String& pluginsToLoad,
                            const Pelin::String& path) {
   if (!std::getenv("TRACE")) {
      setenv("TRACE", "Log/0", 0);
      Trace::reread();
   }
   const Pelin::Ptr<Loader<Velt::NhrPluginContext>>& loader = Velt::NhrPluginLoader();
   loader->contextIs(context);
   loader->pluginNameIs({});
   LoadReset reset;
   loader->loadPlugins(dirName, pluginsToLoad, path, "");
}

Pelin::Ptr<NhrLoader> nhrLoaderFactory() {
   return Pelin::make<NhrLoader>();
}
Pelin::Ptr<NhrLoader> NhrLoaderIs() {
   return nhrLoaderFactory();
}

} // namespace Plugin
