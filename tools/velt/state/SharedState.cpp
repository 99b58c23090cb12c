#include "velt/state/SharedState.h"

#include "Pelin/Exception.h"
#include "Quarn/TableInfo.h"
#include "Shm/SharedTables.h"
#include "Wexa/Paths.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fmt/format.h>
#include <fstream>

namespace VeltState {

namespace {

using Quarn::FibGen::ForwardingStatus;

void atLeast(ForwardingStatus::Capacity& c, const ForwardingStatus::Capacity& more) {
   c.fecs = std::max(c.fecs, more.fecs);
   c.routes = std::max(c.routes, more.routes);
   c.viaPoolBytes = std::max(c.viaPoolBytes, more.viaPoolBytes);
}

// Written under a temporary name and renamed, so that a reader never loads half of it.
void writeLayoutFile(const std::string& dir, const State& layout) {
   const std::string path = dir + "/" + layoutFileName;
   const std::string temp = fmt::format("{}.new.{}", path, ::getpid());
   {
      std::ofstream out(temp, std::ios::trunc);
      out << writeStateFile(layout);
      if (!out.flush()) throw Pelin::Exception("cannot write " + temp);
   }
   ::chmod(temp.c_str(), 0600);
   if (::rename(temp.c_str(), path.c_str()) != 0) {
      throw Pelin::Exception(
          fmt::format("cannot rename {} to {}: {}", temp, path, std::strerror(errno)));
   }
}

} // namespace

std::string tablePath(bool unifiedFec, std::string_view tableName) {
   if (unifiedFec) return Quarn::Fib::TableInfo::unifiedStatusPath;
   if (std::string problem = Wexa::Paths::componentProblem(tableName); !problem.empty()) {
      throw Pelin::Exception(fmt::format("table name {} cannot name a folder: {}",
                                         Wexa::Paths::shownName(tableName), problem));
   }
   return Quarn::Fib::TableInfo::fecMountPath(Lumo::AddressFamily::ipunknown_,
                                              L3::VrfName(std::string(tableName)), "rib");
}

SharedCapacity capacityFor(const std::vector<State>& versions) {
   SharedCapacity out;
   for (const State& s : versions) {
      for (const TableEntry& t : s.tables) atLeast(out.tables[t.name], capacityFor(t));
      Arp::Table::Status::Capacity n = neighbourCapacityFor(s);
      out.neighbours.arpEntries = std::max(out.neighbours.arpEntries, n.arpEntries);
      out.neighbours.neighborEntries =
          std::max(out.neighbours.neighborEntries, n.neighborEntries);
   }
   return out;
}

Tables createSharedTables(const State& state, const std::string& dir,
                          const SharedCapacity& capacity) {
   Tables out;
   out.unifiedFec = state.unifiedFec;
   for (const auto& [name, cap] : capacity.tables) {
      const std::string path = tablePath(state.unifiedFec, name);
      Shm::makeDirsFor(dir, path);
      auto table = ForwardingStatus::createFiles(name, Shm::fileBase(dir, path), cap);
      if (const TableEntry* t = state.table(name)) fillForwarding(*table, *t);
      out.forwarding.emplace(name, std::move(table));
   }
   Shm::makeDirsFor(dir, Wexa::Paths::arpStatus);
   out.arp = Arp::Table::Status::createFiles(
       "arp", Shm::fileBase(dir, Wexa::Paths::arpStatus), capacity.neighbours);
   fillNeighbours(*out.arp, state);
   fillInterfaces(out, state);
   writeLayoutFile(dir, layoutOf(state, capacity));
   return out;
}

State layoutOf(const State& state, const SharedCapacity& capacity) {
   State layout;
   layout.unifiedFec = state.unifiedFec;
   layout.vrfs = state.vrfs;
   layout.interfaces = state.interfaces;
   for (const auto& [name, cap] : capacity.tables) {
      TableEntry t;
      t.name = name;
      layout.tables.push_back(std::move(t));
   }
   return layout;
}

State loadLayout(const std::string& dir) {
   const std::string path = dir + "/" + layoutFileName;
   struct stat st {};
   if (::stat(path.c_str(), &st) != 0) {
      throw StateError(path, 0, 0,
                       "no shared tables here: start a writer first (velt write STATE)");
   }
   return loadStateFile(path);
}

} // namespace VeltState
