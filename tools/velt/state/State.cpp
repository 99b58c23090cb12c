#include "velt/state/State.h"

#include <fmt/format.h>

namespace VeltState {

StateError::StateError(const std::string& file, int line, int column,
                       const std::string& problem)
    : std::runtime_error(fmt::format("{}:{}:{}: {}", file, line, column, problem)),
      file_(file), line_(line), column_(column), problem_(problem) {}

const FecEntry* TableEntry::fec(Quarn::Fib::FecId id) const {
   for (const FecEntry& f : fecs) {
      if (f.id == id) return &f;
   }
   return nullptr;
}

std::optional<Vrf::VrfIdMap::VrfId> State::vrfId(std::string_view vrfName) const {
   for (const VrfEntry& v : vrfs) {
      if (v.name == vrfName) return v.id;
   }
   if (vrfName == defaultVrfName) return Vrf::VrfIdMap::VrfId(0);
   return std::nullopt;
}

const IntfEntry* State::interface(Lumo::IntfId intf) const {
   for (const IntfEntry& i : interfaces) {
      if (i.intf == intf) return &i;
   }
   return nullptr;
}

const TableEntry* State::table(std::string_view name) const {
   for (const TableEntry& t : tables) {
      if (t.name == name) return &t;
   }
   return nullptr;
}

const TableEntry* State::tableOf(std::string_view vrfName) const {
   return table(unifiedFec ? unifiedTableName : vrfName);
}

} // namespace VeltState
