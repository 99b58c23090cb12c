// State files, read from memory as the tool reads them, and the layout file that readers of
// a shared-memory folder load.
#include "FuzzInput.h"

#include "velt/state/SharedState.h"
#include "velt/state/State.h"

namespace Fuzz {

void stateFile(Input in) {
   try {
      VeltState::parseState(std::string(in.begin(), in.end()), "fuzz.yaml");
   } catch (const VeltState::StateError&) {
   }
}

void layoutFile(Input in) {
   writeFile(scratchDir() + "/" + VeltState::layoutFileName, in);
   try {
      VeltState::loadLayout(scratchDir());
   } catch (const VeltState::StateError&) {
   }
}

} // namespace Fuzz
