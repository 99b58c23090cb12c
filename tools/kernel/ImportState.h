// Turns what the kernel holds into the switch state velt resolves over: links become
// interfaces (named by InterfaceNames.h), VRF devices and named tables become VRFs, each
// distinct set of next hops of a table's routes a forward FEC with weighted vias, local
// and broadcast routes receive FECs, blackholes drop FECs, unreachable and prohibit
// routes kernel FECs, and neighbours with a link-layer address neighbour entries.
#pragma once
#include "kernel/InterfaceNames.h"
#include "kernel/KernelState.h"
#include "kernel/TableVrf.h"
#include "velt/state/State.h"

#include <vector>

namespace VeltLinux {

struct ImportOptions {
   std::vector<TableVrf> tableVrfs;
};

// Raises ImportError when the options do not fit the kernel's state (an unknown
// interface or table claimed twice) or an interface cannot be named.
VeltState::State importState(const KernelState& kernel, const ImportOptions& options = {});

} // namespace VeltLinux
