#include "BenchState.h"

#include "Lumo/FecIdIntfId.h"
#include "Quarn/Fec.h"

#include <random>

namespace Velt::Tool {

namespace {

using Quarn::Fib::FecId;
namespace T = Quarn::FibGen::FecType;

FecId gen(std::uint64_t index) { return FecId(Quarn::Fib::AdjType::fibGenAdj, index); }

Lumo::IntfId uplink(int i) { return Lumo::IntfId("Ethernet" + std::to_string(49 + i)); }
Lumo::IpGenAddr hop(int i) { return Lumo::IpGenAddr("10.255." + std::to_string(i) + ".2"); }

VeltState::ViaEntry via(int uplinkIndex, std::uint32_t weight) {
   VeltState::ViaEntry v;
   v.intf = uplink(uplinkIndex);
   v.hop = hop(uplinkIndex);
   v.weight = weight;
   return v;
}

// The i-th route's prefix: IPv4 /24s from 11.0.0.0, IPv6 /64s inside 2001:db8::/32.
Lumo::IpGenPrefix routePrefix(std::uint32_t i, bool v6) {
   if (!v6) {
      std::uint32_t a = (11u << 24) + (i << 8);
      return Lumo::IpGenPrefix(Lumo::IpGenAddr(fmt::format("{}.{}.{}.0", a >> 24, (a >> 16) & 255,
                                                           (a >> 8) & 255)),
                               24);
   }
   return Lumo::IpGenPrefix(
       Lumo::IpGenAddr(fmt::format("2001:db8:{:x}:{:x}::", i >> 16, i & 0xffff)), 64);
}

} // namespace

FecId BenchFecs::fourWay() { return gen(1); }
FecId BenchFecs::fourWayBackup() { return gen(2); }
FecId BenchFecs::twoLevel() { return gen(3); }
FecId BenchFecs::wide() { return gen(4); }

VeltState::State benchState(std::uint32_t routes) {
   VeltState::State s;
   for (int i = 0; i < 5; ++i) {
      VeltState::IntfEntry intf;
      intf.intf = uplink(i);
      s.interfaces.push_back(intf);
      VeltState::NeighbourEntry n;
      n.intf = uplink(i);
      n.ip = hop(i);
      n.mac = Lumo::EthAddr(fmt::format("02:00:00:00:ff:{:02x}", i));
      s.neighbours.push_back(n);
   }
   VeltState::TableEntry table;
   table.name = "default";
   VeltState::FecEntry four;
   four.id = BenchFecs::fourWay();
   four.vias = {via(0, 4), via(1, 4), via(2, 2), via(3, 2)};
   VeltState::FecEntry backup = four;
   backup.id = BenchFecs::fourWayBackup();
   backup.vias.push_back(via(4, 1));
   backup.backupVia = 4;
   VeltState::FecEntry two;
   two.id = BenchFecs::twoLevel();
   VeltState::ViaEntry inner;
   inner.intf = Lumo::FecIdIntfId::fecIdToIntfId(BenchFecs::fourWay());
   two.vias = {inner};
   VeltState::FecEntry wide;
   wide.id = BenchFecs::wide();
   for (std::uint32_t i = 0; i < Quarn::FibGen::Fec::maxVias; ++i) {
      wide.vias.push_back(via(static_cast<int>(i % 4), 1 + i % 7));
   }
   for (auto* f : {&four, &backup, &two, &wide}) f->type = T::forward;
   table.fecs = {four, backup, two, wide};
   table.routes.reserve(std::size_t(routes) * 2);
   for (bool v6 : {false, true}) {
      for (std::uint32_t i = 0; i < routes; ++i) {
         table.routes.push_back({routePrefix(i, v6), BenchFecs::fourWay(), {}});
      }
   }
   s.tables.push_back(std::move(table));
   return s;
}

std::vector<Lumo::IpGenAddr> benchDestinations(std::uint32_t routes, bool v6, std::size_t count) {
   std::mt19937 rng(42);
   std::vector<Lumo::IpGenAddr> out;
   out.reserve(count);
   for (std::size_t k = 0; k < count; ++k) {
      std::uint32_t i = routes ? rng() % routes : 0;
      std::uint32_t host = 1 + rng() % 250;
      Lumo::IpGenPrefix p = routePrefix(i, v6);
      std::string text = fmt::format("{}", p.addr());
      if (!v6) {
         text = text.substr(0, text.rfind('.') + 1) + std::to_string(host);
      } else {
         text += fmt::format("{:x}", host);
      }
      out.emplace_back(text);
   }
   return out;
}

} // namespace Velt::Tool
