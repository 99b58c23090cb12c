#include "VeltLib/Version.h"

#define VELT_TEXT(x) #x
#define VELT_VERSION_TEXT(major, minor) VELT_TEXT(major) "." VELT_TEXT(minor)

namespace Velt {
const char* libraryVersion() {
   return VELT_VERSION_TEXT(VELT_VERSION_MAJOR, VELT_VERSION_MINOR);
}
} // namespace Velt
