// Test plugin whose entry point fails.
#include "Pelin/Exception.h"

extern "C" void veltPluginInit() {
   throw Pelin::Exception("cannot work without its table");
}
