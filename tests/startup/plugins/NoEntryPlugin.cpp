// Test library without veltPluginInit. Its other entry point, for a loader asked to run
// that one, records that it ran.
#include "TestPlugins.h"

#include <cstdlib>

extern "C" void veltTestAltEntry() {
   setenv(VeltTest::altEntryRanVariable, "1", 1);
}
