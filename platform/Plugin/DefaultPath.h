// Where the plugin folders are by default, relative to the platform library, so that a
// build tree and an installed (even relocated) prefix both work without VELT_PLUGIN_PATH.
#pragma once
#include <string>

namespace Plugin::Impl {

// The default plugin directory for a platform library that sits in `libraryDir`:
// `<libraryDir>/velt/plugins` when that folder exists (the installed layout, where
// `libraryDir` is a shared <libdir>), else `<libraryDir>/plugins` (the build tree's).
std::string pluginDirBeside(const std::string& libraryDir);

} // namespace Plugin::Impl
