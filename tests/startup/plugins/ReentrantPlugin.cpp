// Test plugin whose entry point starts another load, which the loader refuses.
#include "VeltLib/NhrPluginLoader.h"

VELT_PLUGIN_VERSION_MARK(VELT_VERSION_MAJOR)

extern "C" void veltPluginInit() {
   Velt::NhrPluginLoader()->loadPlugins("NhrPlugin", "", "", "");
}
