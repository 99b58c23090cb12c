// How the resolver root loads its plugins: Plugin::NhrLoader runs the platform loader
// with the plugin context set on the process's loader, NhrPluginLoader(), where each
// plugin's entry point finds it.
#pragma once
#include "Pelin/Ptr.h"
#include "Plugin/Loader.h"
#include "VeltLib/NhrPluginBase.h"
#include "VeltLib/NhrPluginContext.h"
#include "VeltLib/Version.h"

namespace Velt {

// The process's loader of resolver plugins, named "NhrPluginLoader", made at library
// load. A plugin's entry point reads context() and pluginName() from it.
const Pelin::Ptr<Plugin::Loader<NhrPluginContext>>& NhrPluginLoader();

// The symbol holding the major library version a plugin was built against; the loader
// refuses a plugin whose mark is missing or differs from versionMajor.
inline constexpr const char* pluginVersionMark = "veltPluginAbiMajor";

using NhrPluginMaker = Pelin::Ptr<NhrPluginBase> (*)(const Pelin::Ptr<NhrPluginContext>&);

// What a plugin's entry point does: make the plugin over the loader's context, enter it
// in the plugin table and start its set-up. If any of that throws, what the plugin
// registered and its table entry are undone before the error goes on to the loader.
void startNhrPlugin(NhrPluginMaker make);

template <typename PluginType>
void startNhrPlugin() {
   startNhrPlugin([](const Pelin::Ptr<NhrPluginContext>& context) {
      return Pelin::Ptr<NhrPluginBase>(Pelin::make<PluginType>(context));
   });
}

} // namespace Velt

// The version mark of a plugin library: compiled in by VELT_NHR_PLUGIN.
#define VELT_PLUGIN_VERSION_MARK(major)                                                  \
   extern "C" const unsigned veltPluginAbiMajor = (major);

// The entry point of a plugin library whose plugin type `PluginType` is constructed from
// the context alone, with the mark of the library version it is built against:
// VELT_NHR_PLUGIN(MyPlugin) once, at namespace scope, in one source file.
#define VELT_NHR_PLUGIN(PluginType)                                                      \
   VELT_PLUGIN_VERSION_MARK(VELT_VERSION_MAJOR)                                          \
   extern "C" void veltPluginInit() {                                                    \
      ::Velt::startNhrPlugin<PluginType>();                                              \
   }

namespace Plugin {

class NhrLoader : public Pelin::Node {
 public:
   // Loads the plugins named in `pluginsToLoad` from the folder `dirName` of the search
   // path `path` (see Plugin::Loader), handing them `context` for as long as this call
   // runs. Sets TRACE to "Log/0" first when it is unset, so that plugins trace to the log
   // by default. Errors propagate.
   void loadPlugins(const Pelin::String& dirName,
                    const Pelin::Ptr<Velt::NhrPluginContext>& context,
                    const Pelin::String& pluginsToLoad, const Pelin::String& path);
};

Pelin::Ptr<NhrLoader> nhrLoaderFactory();
Pelin::Ptr<NhrLoader> NhrLoaderIs();

} // namespace Plugin
