// Test plugin whose entry point starts another load, which the loader refuses.
#include "VeltLib/NhrPluginLoader.h"

extern "C" void veltPluginInit() {
   Velt::NhrPluginLoader()->loadPlugins("NhrPlugin", "", "", "");
}
