// Test plugin whose entry point fails.
#include "Pelin/Exception.h"
#include "VeltLib/NhrPluginLoader.h"

VELT_PLUGIN_VERSION_MARK(VELT_VERSION_MAJOR)

extern "C" void veltPluginInit() {
   throw Pelin::Exception("cannot work without its table");
}
