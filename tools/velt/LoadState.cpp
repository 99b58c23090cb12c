#include "Commands.h"

#include "Shm/SharedTables.h"
#include "velt/state/SharedState.h"

namespace Velt::Tool {

std::string tableDirOf(const GlobalOptions& options) {
   return options.shmDir.empty() ? Shm::tableDir("velt") : options.shmDir;
}

std::string readerDirOf(const GlobalOptions& options) {
   return options.shm ? tableDirOf(options) : std::string();
}

VeltState::State loadState(const GlobalOptions& options) {
   if (options.shm) {
      if (!options.stateFile.empty()) {
         throw std::invalid_argument(
             "--state and --shm both name the state: the tables in shared memory come with "
             "the layout their writer left");
      }
      return VeltState::loadLayout(tableDirOf(options));
   }
   if (options.stateFile.empty()) {
      return VeltState::parseState(embeddedStateText(), "<embedded leaf.yaml>");
   }
   return VeltState::loadStateFile(options.stateFile);
}

} // namespace Velt::Tool
