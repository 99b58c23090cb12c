#include "Commands.h"

namespace Velt::Tool {

VeltState::State loadState(const GlobalOptions& options) {
   if (options.stateFile.empty()) {
      return VeltState::parseState(embeddedStateText(), "<embedded leaf.yaml>");
   }
   return VeltState::loadStateFile(options.stateFile);
}

} // namespace Velt::Tool
