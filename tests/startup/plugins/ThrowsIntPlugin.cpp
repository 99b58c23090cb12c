// Test plugin whose entry point throws something that is not a std::exception.
#include "VeltLib/NhrPluginLoader.h"

VELT_PLUGIN_VERSION_MARK(VELT_VERSION_MAJOR)

extern "C" void veltPluginInit() {
   throw 42;
}
