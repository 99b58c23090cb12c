// Plugin::Loader<Context>: opens plugin libraries named in a list from a plugin folder on
// a search path and runs each one's entry point, which reaches what it extends through
// the loader's context. Syntax, file names and search order: README, section "Plugins".
#pragma once
#include "Pelin/Ptr.h"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace Plugin {

// What every plugin library exports: extern "C" void veltPluginInit();
inline constexpr const char* defaultEntryPoint = "veltPluginInit";
using EntryPoint = void (*)();

// Where the plugin folders are looked for when neither `path` nor VELT_PLUGIN_PATH names
// any.
inline constexpr const char* pluginPathVariable = "VELT_PLUGIN_PATH";

// The version mark a loader may require of the libraries it opens: `symbol`, an
// `extern "C" const unsigned`, holding the major version of `library` the plugin was
// built against, which must equal `major`.
struct VersionCheck {
   std::string symbol;
   std::string library;
   unsigned major = 0;
};

namespace Impl {

class LoaderImpl : public Pelin::Node {
 public:
   explicit LoaderImpl(std::string name) : name_(std::move(name)) {}

   const std::string& name() const noexcept { return name_; }
   // The plugin whose entry point runs now; empty between plugins.
   const std::string& pluginName() const noexcept { return pluginName_; }
   void pluginNameIs(std::string name) { pluginName_ = std::move(name); }
   // When set, a library whose version mark is missing or differs is refused, naming the
   // plugin and both versions, before any entry point runs.
   const std::optional<VersionCheck>& versionCheck() const noexcept {
      return versionCheck_;
   }
   void versionCheckIs(std::optional<VersionCheck> check) {
      versionCheck_ = std::move(check);
   }

   // Opens the libraries of the plugins named in `pluginsToLoad` from the folder
   // `dirName` of each directory of the search path and runs their entry point
   // (`entryPoint`, or veltPluginInit when empty), in list order. Every name is checked
   // and every library found before any is opened. A library whose entry point has
   // already run is skipped. Errors, whatever an entry point throws included, raise
   // Pelin::Exception naming the plugin. Returns the
   // plugins whose entry point ran. Loading from inside an entry point aborts.
   std::vector<std::string> loadPlugins(const std::string& dirName,
                                        const std::string& pluginsToLoad,
                                        const std::string& path,
                                        const std::string& entryPoint);

 private:
   std::string name_;
   std::string pluginName_;
   std::optional<VersionCheck> versionCheck_;
};

// The names of a plugin list, in order, each once; a bad name raises Pelin::Exception.
std::vector<std::string> pluginNames(std::string_view pluginsToLoad);
bool validPluginName(std::string_view name) noexcept;
// The directories searched: `path` when it is not empty, else those of VELT_PLUGIN_PATH
// followed by defaultPluginDir(). Empty elements are skipped.
std::vector<std::string> searchPath(const std::string& path);
// "plugins" beside the platform library, wherever that is installed or built.
std::string defaultPluginDir();
// Libraries that a plugin of `name` may be in, in the order they are tried.
std::vector<std::string> candidateFiles(const std::vector<std::string>& dirs,
                                        const std::string& dirName,
                                        const std::string& name);
// Whether the entry point (veltPluginInit when empty) of the library at `file` has run in
// this process.
bool loaded(const std::string& file, const std::string& entryPoint = {});
// Forgets which entry points ran, so that a test can load its plugins afresh. The
// libraries stay open: objects they made may still be alive.
void loadedDelAll();

} // namespace Impl

template <typename Context>
class Loader : public Impl::LoaderImpl {
 public:
   using Impl::LoaderImpl::LoaderImpl;

   // What the plugins being loaded extend.
   const Pelin::Ptr<Context>& context() const noexcept { return context_; }
   void contextIs(const Pelin::Ptr<Context>& context) { context_ = context; }

 private:
   Pelin::Ptr<Context> context_;
};

} // namespace Plugin
