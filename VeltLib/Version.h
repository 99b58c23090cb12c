// The library's version, written here and nowhere else: the build reads it for the
// project version and the shared libraries' SONAME, and every plugin compiles the major
// version into the mark that the plugin loader checks.
#pragma once

#define VELT_VERSION_MAJOR 0
#define VELT_VERSION_MINOR 1

namespace Velt {

inline constexpr unsigned versionMajor = VELT_VERSION_MAJOR;
inline constexpr unsigned versionMinor = VELT_VERSION_MINOR;
// "<major>.<minor>", for tools that report what they run on.
const char* libraryVersion();

} // namespace Velt
