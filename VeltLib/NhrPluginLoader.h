// How the resolver root loads its plugins: Plugin::NhrLoader runs the platform loader
// with the plugin context set on the process's loader, NhrPluginLoader(), where each
// plugin's entry point finds it.
#pragma once
#include "Pelin/Ptr.h"
#include "Plugin/Loader.h"
#include "VeltLib/NhrPluginBase.h"
#include "VeltLib/NhrPluginContext.h"

namespace Velt {

// The process's loader of resolver plugins, named "NhrPluginLoader", made at library
// load. A plugin's entry point reads context() and pluginName() from it.
const Pelin::Ptr<Plugin::Loader<NhrPluginContext>>& NhrPluginLoader();

// What a plugin's entry point does: make the plugin over the loader's context, enter it
// in the plugin table and start its set-up.
template <typename PluginType>
void startNhrPlugin() {
   Pelin::Ptr<NhrPluginContext> context = NhrPluginLoader()->context();
   VELT_ASSERT(context);
   Pelin::Ptr<NhrPluginBase> plugin = Pelin::make<PluginType>(context);
   context->nhrPlugins()->pluginIs(plugin);
   plugin->doMountProfile(context->entityManager());
}

} // namespace Velt

// The entry point of a plugin library whose plugin type `PluginType` is constructed from
// the context alone: VELT_NHR_PLUGIN(MyPlugin) once, at namespace scope, in one source
// file.
#define VELT_NHR_PLUGIN(PluginType)                                                      \
   extern "C" void veltPluginInit() {                                                    \
      ::Velt::startNhrPlugin<PluginType>();                                              \
   }

namespace Plugin {

class NhrLoader : public Pelin::Node {
 public:
   // Loads the plugins named in `pluginsToLoad` from the folder `dirName` of the search
   // path `path` (see Plugin::Loader), handing them `context`. Sets TRACE to "Log/0"
   // first when it is unset, so that plugins trace to the log by default. Errors
   // propagate.
   void loadPlugins(const Pelin::String& dirName,
                    const Pelin::Ptr<Velt::NhrPluginContext>& context,
                    const Pelin::String& pluginsToLoad, const Pelin::String& path);
};

Pelin::Ptr<NhrLoader> nhrLoaderFactory();
Pelin::Ptr<NhrLoader> NhrLoaderIs();

} // namespace Plugin
