#include "VeltLib/Version.h"

namespace Velt {
const char* libraryVersion() { return VELT_VERSION_TEXT; }
} // namespace Velt
