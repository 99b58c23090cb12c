#include "velt/state/SharedState.h"

#include "Pelin/Exception.h"
#include "Quarn/TableInfo.h"
#include "Shm/SharedTables.h"
#include "Shm/TableSet.h"
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

// Readers see it only once its set is published, so it is written in place.
void writeLayoutFile(const std::string& dir, const State& layout) {
   const std::string path = dir + "/" + layoutFileName;
   const std::string text = writeStateFile(layout);
   errno = 0;
   std::ofstream out(path, std::ios::trunc);
   if (!(out << text).flush() || ::chmod(path.c_str(), 0600) != 0) {
      throw Pelin::Exception(fmt::format("layout file {}: cannot write its {} bytes: {}",
                                         path, text.size(),
                                         errno ? std::strerror(errno) : "write failed"));
   }
}

[[noreturn]] void noTables(const std::string& where) {
   throw StateError(where, 0, 0,
                    "no shared tables here: start a writer first (velt write STATE)");
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
   Shm::makeDirsFor(dir, "");
   Shm::TableSet set(dir);
   const std::string& at = set.path();
   for (const auto& [name, cap] : capacity.tables) {
      const std::string path = tablePath(state.unifiedFec, name);
      Shm::makeDirsFor(at, path);
      auto table = ForwardingStatus::createFiles(name, Shm::fileBase(at, path), cap);
      if (const TableEntry* t = state.table(name)) fillForwarding(*table, *t);
      out.forwarding.emplace(name, std::move(table));
   }
   Shm::makeDirsFor(at, Wexa::Paths::arpStatus);
   out.arp = Arp::Table::Status::createFiles(
       "arp", Shm::fileBase(at, Wexa::Paths::arpStatus), capacity.neighbours);
   fillNeighbours(*out.arp, state);
   fillInterfaces(out, state);
   writeLayoutFile(at, layoutOf(state, capacity));
   set.publish();
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

std::string publishedTables(const std::string& dir) {
   auto set = Shm::publishedSet(dir);
   if (!set) noTables(dir + "/" + Shm::currentLinkName);
   return *set;
}

State loadLayout(const std::string& set) {
   const std::string path = set + "/" + layoutFileName;
   struct stat st {};
   if (::stat(path.c_str(), &st) != 0) noTables(path);
   return loadStateFile(path);
}

} // namespace VeltState
