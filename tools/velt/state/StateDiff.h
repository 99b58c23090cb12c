// Turning tables that hold one state into tables that hold another by single-record
// changes, as a writer does while readers look: FECs are added before the routes that
// use them and removed after, so a reader never finds a route to a FEC not yet there.
#pragma once
#include "velt/state/State.h"
#include "velt/state/StateTables.h"

#include <cstdint>
#include <string>
#include <vector>

namespace VeltState {

struct ChangeCounts {
   std::uint64_t added = 0;
   std::uint64_t changed = 0;
   std::uint64_t removed = 0;
   std::uint64_t total() const { return added + changed + removed; }
};

struct ChangeSummary {
   ChangeCounts fecs;
   ChangeCounts routes;
   ChangeCounts neighbours;
   // What differed but is not carried by the tables ("vrfs", "interfaces").
   std::vector<std::string> notApplied;
};

// Applies to `tables`, which hold `from`, the changes that make them hold `to`. Tables
// named in `to` must exist in `tables`; a table absent from `to` is emptied. Changing
// between unified and per-VRF FECs raises StateError naming `toFile`.
ChangeSummary applyChanges(Tables& tables, const State& from, const State& to,
                           const std::string& toFile);

} // namespace VeltState
