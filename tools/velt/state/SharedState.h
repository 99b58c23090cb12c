// A state's tables as files in a shared-memory directory: the writer creates them with
// room for every version it will apply, as one set published whole (Shm::TableSet), and
// readers attach them read-only. Beside them in the set, "layout.yaml" holds what readers
// need besides the tables: the VRFs, the interfaces and the names of the tables (a state
// without FECs, routes or neighbours).
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

// The writer's side: makes the files of every table of `capacity` in a new set under
// `dir`, fills them with `state`, writes the layout and publishes the set in place of an
// earlier writer's. A table too small for `state`, or a file system without room for a
// file, raises Pelin::Exception naming it; the earlier set then stays published.
Tables createSharedTables(const State& state, const std::string& dir,
                          const SharedCapacity& capacity);

// The layout of `state` whose tables are those of `capacity`.
State layoutOf(const State& state, const SharedCapacity& capacity);
// The set of tables published in `dir`, whose files and layout a reader takes together;
// raises StateError when no writer published one.
std::string publishedTables(const std::string& dir);
// The layout of the set `set` (from publishedTables); raises StateError when it has none.
State loadLayout(const std::string& set);

} // namespace VeltState
