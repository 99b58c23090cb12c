#include "Plugin/DefaultPath.h"

#include <filesystem>

namespace Plugin::Impl {

std::string pluginDirBeside(const std::string& libraryDir) {
   namespace fs = std::filesystem;
   fs::path installed = fs::path(libraryDir) / "velt" / "plugins";
   std::error_code ec; // an unreadable folder is no installed layout
   if (fs::is_directory(installed, ec)) return installed.string();
   return (fs::path(libraryDir) / "plugins").string();
}

} // namespace Plugin::Impl
