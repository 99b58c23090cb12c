#include "VeltLib/NhrPluginLoader.h"

#include "Trace/Trace.h"

#include <cstdlib>

namespace Velt {

const Pelin::Ptr<Plugin::Loader<NhrPluginContext>>& NhrPluginLoader() {
   // Never destroyed: plugins may reach it while the process's statics are torn down.
   static const auto* loader = new Pelin::Ptr<Plugin::Loader<NhrPluginContext>>(
       Pelin::make<Plugin::Loader<NhrPluginContext>>("NhrPluginLoader"));
   return *loader;
}

namespace {
// Made when the library is loaded, not when a plugin first asks.
[[maybe_unused]] const bool loaderMadeAtLoad = static_cast<bool>(NhrPluginLoader());
} // namespace

} // namespace Velt

namespace Plugin {

namespace {

// Clears the current plugin name however the load ends.
struct PluginNameReset {
   ~PluginNameReset() { Velt::NhrPluginLoader()->pluginNameIs({}); }
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
   PluginNameReset reset;
   loader->loadPlugins(dirName, pluginsToLoad, path, "");
}

Pelin::Ptr<NhrLoader> nhrLoaderFactory() {
   return Pelin::make<NhrLoader>();
}
Pelin::Ptr<NhrLoader> NhrLoaderIs() {
   return nhrLoaderFactory();
}

} // namespace Plugin
