#include "Commands.h"
#include "kernel/ImportState.h"
#include "kernel/ReadKernel.h"

namespace Velt::Tool {

VeltState::State importFromKernel(const GlobalOptions& options) {
   VeltLinux::ImportOptions import;
   for (const std::string& text : options.vrfTables) {
      import.tableVrfs.push_back(VeltLinux::parseTableVrf(text));
   }
   return VeltLinux::importState(VeltLinux::readKernelState(), import);
}

VeltState::State loadState(const GlobalOptions& options) {
   if (options.fromKernel) return importFromKernel(options);
   if (options.stateFile.empty()) {
      return VeltState::parseState(embeddedStateText(), "<embedded leaf.yaml>");
   }
   return VeltState::loadStateFile(options.stateFile);
}

} // namespace Velt::Tool
