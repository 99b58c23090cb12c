#include "Commands.h"
#include "Shm/SharedTables.h"
#include "kernel/ImportState.h"
#include "kernel/ReadKernel.h"
#include "velt/state/SharedState.h"

#include <stdexcept>

namespace Velt::Tool {

std::string tableDirOf(const GlobalOptions& options) {
   return options.shmDir.empty() ? Shm::tableDir("velt") : options.shmDir;
}

namespace {

// The set a reader takes its layout and its tables from, resolved once per process: a
// writer publishing a new set meanwhile must not pair one set's layout with another's
// tables.
const std::string& pinnedSet(const GlobalOptions& options) {
   if (!options.stateFile.empty() || options.fromKernel) {
      throw std::invalid_argument(
          "--shm names the state on its own: the tables in shared memory come with the "
          "layout their writer left, so --state and --linux do not go with it");
   }
   static const std::string set = VeltState::publishedTables(tableDirOf(options));
   return set;
}

} // namespace

std::string readerDirOf(const GlobalOptions& options) {
   return options.shm ? pinnedSet(options) : std::string();
}

VeltState::State importFromKernel(const GlobalOptions& options) {
   VeltLinux::ImportOptions import;
   for (const std::string& text : options.vrfTables) {
      import.tableVrfs.push_back(VeltLinux::parseTableVrf(text));
   }
   return VeltLinux::importState(VeltLinux::readKernelState(), import);
}

VeltState::State loadState(const GlobalOptions& options) {
   if (options.shm) return VeltState::loadLayout(pinnedSet(options));
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
