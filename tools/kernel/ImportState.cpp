// Interfaces, neighbours and addresses; VRFs and tables come from ImportVrfs and
// ImportRoutes.
#include "kernel/ImportParts.h"

#include "Quarn/Fec.h"

#include <linux/neighbour.h>

#include <algorithm>
#include <set>
#include <tuple>

namespace VeltLinux {

namespace {

// Entries whose link-layer address the kernel holds and would use.
constexpr std::uint16_t usableNeighbourStates =
    NUD_PERMANENT | NUD_REACHABLE | NUD_STALE | NUD_DELAY | NUD_PROBE;

void importInterfaces(const KernelState& kernel, const VrfLayout& layout,
                      VeltState::State& state) {
   std::vector<const KernelLink*> links;
   for (const KernelLink& l : kernel.links) {
      if (l.kind != "vrf") links.push_back(&l); // a VRF device is the VRF, not a port
   }
   std::sort(links.begin(), links.end(),
             [](const KernelLink* a, const KernelLink* b) { return a->index < b->index; });
   for (const KernelLink* l : links) {
      VeltState::IntfEntry e;
      e.intf = toolInterfaceOf(*l);
      e.vrf = layout.vrfOfLink(l->index);
      e.operStatus = l->up ? VeltState::OperStatus::up : VeltState::OperStatus::down;
      e.linuxName = l->name;
      state.interfaces.push_back(std::move(e));
   }
}

void importNeighbours(const KernelState& kernel, const VrfLayout& layout,
                      VeltState::State& state) {
   std::set<std::tuple<std::string, std::uint32_t, Lumo::IpGenAddr>> seen;
   for (const KernelNeighbour& n : kernel.neighbours) {
      const KernelLink* link = kernel.link(n.index);
      if (!n.hasMac || !(n.state & usableNeighbourStates) || !link || link->kind == "vrf") {
         continue;
      }
      VeltState::NeighbourEntry e;
      e.vrf = layout.vrfOfLink(n.index);
      e.intf = toolInterfaceOf(*link);
      e.ip = n.ip;
      e.mac = n.mac;
      if (seen.emplace(e.vrf, e.intf.value(), e.ip).second) state.neighbours.push_back(e);
   }
}

VeltState::TableEntry& tableOf(VeltState::State& state, const std::string& vrf) {
   for (auto& t : state.tables) {
      if (t.name == vrf) return t;
   }
   state.tables.push_back({});
   state.tables.back().name = vrf;
   return state.tables.back();
}

// An address the tables do not already route as a host route (a table without its local
// routes) is received all the same: the kernel takes packets to its own addresses.
void receiveOwnAddresses(const KernelState& kernel, const VrfLayout& layout,
                         VeltState::State& state) {
   for (const KernelAddress& a : kernel.addresses) {
      if (!kernel.link(a.index)) continue;
      VeltState::TableEntry& table = tableOf(state, layout.vrfOfLink(a.index));
      const Lumo::IpGenPrefix host(a.ip, a.ip.af() == Lumo::AddressFamily::ipv4_ ? 32 : 128);
      const bool routed = std::any_of(table.routes.begin(), table.routes.end(),
                                      [&](const auto& r) { return r.prefix == host; });
      if (routed) continue;
      auto receive = std::find_if(table.fecs.begin(), table.fecs.end(), [](const auto& f) {
         return f.type == Quarn::FibGen::FecType::receive;
      });
      Quarn::Fib::FecId id;
      if (receive != table.fecs.end()) {
         id = receive->id;
      } else {
         id = Quarn::Fib::FecId(Quarn::Fib::AdjType::fibGenAdj, table.fecs.size() + 1);
         VeltState::FecEntry fec;
         fec.id = id;
         fec.type = Quarn::FibGen::FecType::receive;
         table.fecs.push_back(fec);
      }
      table.routes.push_back({host, id, {}});
   }
}

} // namespace

VeltState::State importState(const KernelState& kernel, const ImportOptions& options) {
   VrfLayout layout = layoutVrfs(kernel, options);
   VeltState::State state;
   state.vrfs = layout.vrfs;
   importInterfaces(kernel, layout, state);
   importNeighbours(kernel, layout, state);
   state.tables = importTables(kernel, layout);
   receiveOwnAddresses(kernel, layout, state);
   return state;
}

} // namespace VeltLinux
