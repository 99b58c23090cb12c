// The library's version, for tools that report what they run on.
#pragma once

namespace Velt {
const char* libraryVersion();
}
