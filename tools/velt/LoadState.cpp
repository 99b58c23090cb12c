#include "Commands.h"
#include "kernel/ImportState.h"
#include "kernel/ReadKernel.h"

#include <stdexcept>

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
   if (!options.vrfTables.empty()) {
      throw std::invalid_argument("--vrf-table names tables of the kernel: it needs --linux");
   }
   if (options.stateFile.empty()) {
      return VeltState::parseState(embeddedStateText(), "<embedded leaf.yaml>");
   }
   return VeltState::loadStateFile(options.stateFile);
}

} // namespace Velt::Tool
