#include "Plugin/Loader.h"
#include "Plugin/DefaultPath.h"

#include "Pelin/Assert.h"
#include "Pelin/Exception.h"

#include <dlfcn.h>

#include <cstdlib>
#include <filesystem>
#include <map>
#include <set>
#include <utility>

namespace Plugin::Impl {

namespace {

namespace fs = std::filesystem;

// Process-wide, as dlopen() is: a plugin's entry point may not start another load, since
// the loader's context and current plugin name describe the load under way.
bool loadInProgress = false;

// Never closed: objects, vtables and per-type allocator counts of a plugin live in its
// library for as long as the process may touch them. Never destroyed, for the same
// reason.
std::map<std::string, void*>& openLibraries() {
   static auto* libraries = new std::map<std::string, void*>;
   return *libraries;
}

// Entry points that have run, by canonical path of their library and symbol name.
std::set<std::pair<std::string, std::string>>& ranEntryPoints() {
   static std::set<std::pair<std::string, std::string>> ran;
   return ran;
}

bool isSeparator(char c) {
   return c == ',' || c == ':' || c == ' ' || c == '\t' || c == '\n' || c == '\r' ||
          c == '\v' || c == '\f';
}

// Built by appending: the same text as a chain of operator+ makes g++ 12 at -O3 warn of
// overlapping copies (-Wrestrict) that cannot happen.
std::string inQuotes(std::string_view s) {
   std::string out;
   out.reserve(s.size() + 2);
   out += '"';
   out += s;
   out += '"';
   return out;
}

std::string joined(const std::vector<std::string>& items) {
   std::string out;
   for (const std::string& item : items) {
      if (!out.empty()) out += ", ";
      out += item;
   }
   return out;
}

std::string canonical(const std::string& file) {
   std::error_code ec;
   fs::path p = fs::canonical(file, ec);
   return ec ? file : p.string();
}

struct Found {
   std::string name;
   std::string file;
   EntryPoint entry = nullptr;
};

Pelin::Exception entryFailed(const Found& f, const std::string& entryName,
                             std::string_view what) {
   std::string text = "plugin " + inQuotes(f.name) + ": ";
   text += entryName;
   text += " of ";
   text += f.file;
   text += " failed: ";
   text += what;
   return Pelin::Exception(text);
}

// Refuses a library built against another major version of the library that the loader
// serves, before any of its code runs: its objects would not match ours.
void checkVersion(const Found& f, void* handle, const VersionCheck& check) {
   const auto* mark = static_cast<const unsigned*>(dlsym(handle, check.symbol.c_str()));
   const std::string plugin = "plugin " + inQuotes(f.name) + ": " + f.file;
   if (!mark) {
      throw Pelin::Exception(plugin + " carries no " + check.library + " version (no " +
                             check.symbol + "); rebuild it against " + check.library +
                             " " + std::to_string(check.major) + ".x");
   }
   if (*mark != check.major) {
      throw Pelin::Exception(plugin + " was built against " + check.library + " " +
                             std::to_string(*mark) + ".x, this process runs " +
                             check.library + " " + std::to_string(check.major) +
                             ".x; rebuild the plugin against it");
   }
}

// Clears the current plugin name and the in-progress flag however the load ends.
class LoadScope {
 public:
   explicit LoadScope(LoaderImpl& loader) : loader_(loader) { loadInProgress = true; }
   ~LoadScope() {
      loader_.pluginNameIs({});
      loadInProgress = false;
   }
   LoadScope(const LoadScope&) = delete;
   LoadScope& operator=(const LoadScope&) = delete;

 private:
   LoaderImpl& loader_;
};

} // namespace

bool validPluginName(std::string_view name) noexcept {
   if (name.empty()) return false;
   for (char c : name) {
      bool ok = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') ||
                (c >= '0' && c <= '9') || c == '-' || c == '_';
      if (!ok) return false;
   }
   return true;
}

std::vector<std::string> pluginNames(std::string_view pluginsToLoad) {
   std::vector<std::string> names;
   std::size_t at = 0;
   while (at < pluginsToLoad.size()) {
      if (isSeparator(pluginsToLoad[at])) {
         ++at;
         continue;
      }
      std::size_t end = at;
      while (end < pluginsToLoad.size() && !isSeparator(pluginsToLoad[end]))
         ++end;
      std::string_view name = pluginsToLoad.substr(at, end - at);
      at = end;
      if (!validPluginName(name)) {
         throw Pelin::Exception("plugin " + inQuotes(name) + " in plugin list " +
                                inQuotes(pluginsToLoad) +
                                ": a plugin name has only letters, digits, '-' and '_'");
      }
      bool seen = false;
      for (const std::string& n : names)
         seen = seen || n == name;
      if (!seen) names.emplace_back(name);
   }
   return names;
}

std::string defaultPluginDir() {
   Dl_info info{};
   if (!dladdr(reinterpret_cast<void*>(&defaultPluginDir), &info) || !info.dli_fname) {
      return {};
   }
   std::error_code ec;
   fs::path lib = fs::weakly_canonical(info.dli_fname, ec);
   if (ec) lib = info.dli_fname;
   return pluginDirBeside(lib.parent_path().string());
}

std::vector<std::string> searchPath(const std::string& path) {
   auto split = [](std::string_view list, std::vector<std::string>& out) {
      while (!list.empty()) {
         std::size_t colon = list.find(':');
         std::string_view dir = list.substr(0, colon);
         if (!dir.empty()) out.emplace_back(dir);
         if (colon == std::string_view::npos) break;
         list.remove_prefix(colon + 1);
      }
   };
   std::vector<std::string> dirs;
   if (!path.empty()) {
      split(path, dirs);
      return dirs;
   }
   if (const char* env = std::getenv(pluginPathVariable)) split(env, dirs);
   if (std::string dir = defaultPluginDir(); !dir.empty()) dirs.push_back(dir);
   return dirs;
}

std::vector<std::string> candidateFiles(const std::vector<std::string>& dirs,
                                        const std::string& dirName,
                                        const std::string& name) {
   std::vector<std::string> files;
   for (const std::string& dir : dirs) {
      fs::path folder = dirName.empty() ? fs::path(dir) : fs::path(dir) / dirName;
      files.push_back((folder / ("lib" + name + ".so")).string());
      files.push_back((folder / (name + ".so")).string());
   }
   return files;
}

bool loaded(const std::string& file, const std::string& entryPoint) {
   const std::string entryName = entryPoint.empty() ? defaultEntryPoint : entryPoint;
   return ranEntryPoints().count({canonical(file), entryName}) != 0;
}

void loadedDelAll() {
   ranEntryPoints().clear();
}

std::vector<std::string> LoaderImpl::loadPlugins(const std::string& dirName,
                                                 const std::string& pluginsToLoad,
                                                 const std::string& path,
                                                 const std::string& entryPoint) {
   VELT_ASSERT(!loadInProgress);
   LoadScope scope(*this);
   const std::string entryName = entryPoint.empty() ? defaultEntryPoint : entryPoint;

   // Check every name and find every library before opening any, so that a mistake in the
   // list leaves the process as it was.
   std::vector<std::string> names = pluginNames(pluginsToLoad);
   std::vector<std::string> dirs =
       names.empty() ? std::vector<std::string>() : searchPath(path);
   std::vector<Found> found;
   for (const std::string& name : names) {
      std::vector<std::string> candidates = candidateFiles(dirs, dirName, name);
      Found f{name, {}, nullptr};
      for (const std::string& c : candidates) {
         std::error_code ec;
         if (fs::is_regular_file(c, ec)) {
            f.file = canonical(c);
            break;
         }
      }
      if (f.file.empty()) {
         throw Pelin::Exception(
             "plugin " + inQuotes(name) + ": no library found; looked for " +
             (candidates.empty() ? std::string("nothing (empty search path)")
                                 : joined(candidates)));
      }
      if (ranEntryPoints().count({f.file, entryName})) continue;
      bool listed = false;
      for (const Found& other : found)
         listed = listed || other.file == f.file;
      if (!listed) found.push_back(std::move(f));
   }

   for (Found& f : found) {
      void*& handle = openLibraries()[f.file];
      if (!handle) {
         handle = dlopen(f.file.c_str(), RTLD_NOW | RTLD_LOCAL);
         if (!handle) {
            const char* error = dlerror();
            openLibraries().erase(f.file);
            throw Pelin::Exception("plugin " + inQuotes(f.name) + ": cannot open " +
                                   f.file + ": " + (error ? error : "unknown error"));
         }
      }
      dlerror();
      void* symbol = dlsym(handle, entryName.c_str());
      if (!symbol) {
         throw Pelin::Exception("plugin " + inQuotes(f.name) + ": " + f.file +
                                " has no entry point " + entryName);
      }
      f.entry = reinterpret_cast<EntryPoint>(symbol);
      if (versionCheck_) checkVersion(f, handle, *versionCheck_);
   }

   std::vector<std::string> ran;
   for (const Found& f : found) {
      pluginNameIs(f.name);
      try {
         f.entry();
      } catch (const std::exception& e) {
         throw entryFailed(f, entryName, e.what());
      } catch (...) {
         throw entryFailed(f, entryName, "an exception that is not a std::exception");
      }
      ranEntryPoints().insert({f.file, entryName});
      ran.push_back(f.name);
      pluginNameIs({});
   }
   return ran;
}

} // namespace Plugin::Impl
