// A state's tables as files in a shared-memory directory: the writer creates them with
// room for every version it will apply, and readers attach them read-only. Beside them,
// "layout.yaml" holds what readers need besides the tables: the VRFs, the interfaces and
// the names of the tables (a state without FECs, routes or neighbours).
#pragma once
#include "velt/state/State.h"
#include "velt/state/StateTables.h"

#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace VeltState {

inline constexpr const char* layoutFileName = "layout.yaml";

// Where table `tableName` sits in the shared-memory entity manager.
std::string tablePath(bool unifiedFec, std::string_view tableName);

struct SharedCapacity {
   std::map<std::string, Quarn::FibGen::ForwardingStatus::Capacity, std::less<>> tables;
   Arp::Table::Status::Capacity neighbours;
};

// Room for the largest of `versions`, table by table; every table any version names.
SharedCapacity capacityFor(const std::vector<State>& versions);

// The writer's side: makes the files of every table of `capacity` under `dir` (replacing
// files of an earlier writer), fills them with `state` and writes the layout. A table
// too small for `state` raises Pelin::Exception naming it.
Tables createSharedTables(const State& state, const std::string& dir,
                          const SharedCapacity& capacity);

// The layout of `state` whose tables are those of `capacity`.
State layoutOf(const State& state, const SharedCapacity& capacity);
// The layout a writer left in `dir`; raises StateError when there is none.
State loadLayout(const std::string& dir);

} // namespace VeltState
