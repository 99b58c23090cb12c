#include "VeltLib/Version.h"

namespace Velt {
const char* libraryVersion() { return "0.1"; }
} // namespace Velt
