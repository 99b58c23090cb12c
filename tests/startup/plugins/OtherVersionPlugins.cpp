// Test plugins built as if against other versions of the library: with the next major
// version in their mark (VELT_TEST_NEXT_MAJOR) or with no mark at all. Their entry point
// records that it ran, which it never may.
#include "TestPlugins.h"
#include "VeltLib/NhrPluginLoader.h"

#include <cstdlib>

#ifdef VELT_TEST_NEXT_MAJOR
VELT_PLUGIN_VERSION_MARK(VELT_VERSION_MAJOR + 1)
#endif

extern "C" void veltPluginInit() {
   setenv(VeltTest::otherVersionRanVariable, "1", 1);
}
