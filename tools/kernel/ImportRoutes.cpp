// Routes of the tables VRFs stand for, and the FECs they share.
#include "kernel/ImportParts.h"

#include "Quarn/Fec.h"

#include <fmt/format.h>

#include <tuple>

namespace VeltLinux {

namespace {

using VeltState::FecEntry;
using VeltState::ViaEntry;
namespace FecType = Quarn::FibGen::FecType;

// Which of two routes to one prefix in one VRF a lookup finds: the local table is asked
// before the others, then the lower metric wins.
std::tuple<int, std::uint32_t> rankOf(const KernelRoute& r) {
   return {r.table == localTable ? 0 : 1, r.priority};
}

// The paths a route forwards over, its nexthop object's when it has one.
std::vector<KernelPath> pathsOf(const KernelState& kernel, const KernelRoute& r) {
   if (r.nexthopId == 0) return r.paths;
   const KernelNexthop* nh = kernel.nexthop(r.nexthopId);
   if (!nh) return {};
   if (nh->group.empty()) return {nh->path};
   std::vector<KernelPath> paths;
   for (const KernelNexthop::Member& m : nh->group) {
      if (const KernelNexthop* member = kernel.nexthop(m.id)) {
         KernelPath p = member->path;
         p.weight = m.weight;
         paths.push_back(p);
      }
   }
   return paths;
}

bool isBlackholeObject(const KernelState& kernel, const KernelRoute& r) {
   const KernelNexthop* nh = r.nexthopId ? kernel.nexthop(r.nexthopId) : nullptr;
   return nh && nh->blackhole;
}

std::uint8_t fecTypeOf(const KernelState& kernel, const KernelRoute& r) {
   switch (r.type) {
   case RouteType::local: return FecType::receive;
   case RouteType::broadcast: return FecType::receiveBcast;
   case RouteType::blackhole: return FecType::drop;
   case RouteType::unreachable:
   case RouteType::prohibit: return FecType::kernel;
   default: return isBlackholeObject(kernel, r) ? FecType::drop : FecType::forward;
   }
}

// FECs of one table, one per distinct type and via list.
class FecPool {
 public:
   explicit FecPool(VeltState::TableEntry& table) : table_(table) {}

   Quarn::Fib::FecId fecFor(std::uint8_t type, std::vector<ViaEntry> vias) {
      std::string key = std::to_string(type);
      for (const ViaEntry& v : vias) {
         key += fmt::format("|{} {} {}", v.intf.value(), v.hop, v.weight);
      }
      auto [it, fresh] = ids_.emplace(key, Quarn::Fib::FecId());
      if (!fresh) return it->second;
      it->second = Quarn::Fib::FecId(Quarn::Fib::AdjType::fibGenAdj, ids_.size());
      FecEntry fec;
      fec.id = it->second;
      fec.type = type;
      fec.vias = std::move(vias);
      table_.fecs.push_back(std::move(fec));
      return it->second;
   }

 private:
   VeltState::TableEntry& table_;
   std::map<std::string, Quarn::Fib::FecId> ids_;
};

std::vector<ViaEntry> viasOf(const KernelState& kernel, const KernelRoute& r) {
   std::vector<ViaEntry> vias;
   for (const KernelPath& p : pathsOf(kernel, r)) {
      const KernelLink* link = kernel.link(p.oif);
      if (!link) continue; // a path without a usable device forwards nowhere
      ViaEntry v;
      v.intf = toolInterfaceOf(*link);
      v.hop = p.gateway;
      v.weight = p.weight;
      vias.push_back(v);
   }
   return vias;
}

} // namespace

std::vector<VeltState::TableEntry> importTables(const KernelState& kernel,
                                                const VrfLayout& layout) {
   // Per VRF, per prefix: the route a lookup finds.
   std::map<std::string, std::map<Lumo::IpGenPrefix, const KernelRoute*>> chosen;
   for (const KernelRoute& r : kernel.routes) {
      const std::string* vrf = layout.vrfOfTable(r.table);
      if (!vrf || r.type == RouteType::other) continue;
      const KernelRoute*& slot = chosen[*vrf][r.prefix];
      if (!slot || rankOf(r) < rankOf(*slot)) slot = &r;
   }
   std::vector<VeltState::TableEntry> tables;
   auto addTable = [&](const std::string& vrf) {
      auto it = chosen.find(vrf);
      if (it == chosen.end()) return;
      VeltState::TableEntry& table = tables.emplace_back();
      table.name = vrf;
      FecPool pool(table);
      for (const auto& [prefix, route] : it->second) {
         const std::uint8_t type = fecTypeOf(kernel, *route);
         std::vector<ViaEntry> vias;
         if (type == FecType::forward) {
            vias = viasOf(kernel, *route);
            if (vias.empty()) continue;
         }
         table.routes.push_back({prefix, pool.fecFor(type, std::move(vias)), {}});
      }
   };
   addTable(std::string(VeltState::defaultVrfName));
   for (const auto& v : layout.vrfs) addTable(v.name);
   return tables;
}

} // namespace VeltLinux
