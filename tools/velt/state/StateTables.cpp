#include "velt/state/StateTables.h"

#include "Pelin/Assert.h"
#include "Quarn/Fec.h"

#include <algorithm>
#include <memory>

namespace VeltState {

namespace {

using Quarn::FibGen::ForwardingStatus;

// Room for as much again as the state holds, and never less than a small table.
std::uint64_t withHeadroom(std::uint64_t count, std::uint64_t minimum) {
   return std::max(minimum, 2 * count);
}

Quarn::FibGen::Via viaOf(const ViaEntry& v) {
   return Quarn::FibGen::Via(v.intf, v.weight, v.hop, v.fecId);
}

} // namespace

Pelin::Ptr<ForwardingStatus> Tables::forwardingOf(std::string_view vrfName) const {
   auto it = forwarding.find(unifiedFec ? unifiedTableName : vrfName);
   return it == forwarding.end() ? nullptr : it->second;
}

ForwardingStatus::Capacity capacityFor(const TableEntry& table) {
   ForwardingStatus::Capacity c;
   c.fecs = withHeadroom(table.fecs.size(), 1024);
   c.routes = withHeadroom(table.routes.size(), 1024);
   std::uint64_t poolBytes = 0;
   for (const FecEntry& f : table.fecs) {
      poolBytes += ForwardingStatus::FecTable::poolBytesFor(1, f.vias.size());
   }
   c.viaPoolBytes = withHeadroom(poolBytes, 1 << 20);
   return c;
}

Arp::Table::Status::Capacity neighbourCapacityFor(const State& state) {
   std::uint64_t v4 = 0;
   for (const NeighbourEntry& n : state.neighbours) {
      if (n.ip.af() == Lumo::AddressFamily::ipv4_) ++v4;
   }
   return {withHeadroom(v4, 1024), withHeadroom(state.neighbours.size() - v4, 1024)};
}

void fecFrom(const FecEntry& f, Quarn::FibGen::Fec& fec) {
   fec.fecIdIs(f.id);
   fec.viaCountIs(0);
   fec.fecTypeIs(f.type);
   fec.loopbackOnlyIs(f.loopbackOnly);
   fec.backupViaIndexIs(f.backupVia);
   for (const ViaEntry& v : f.vias)
      fec.viaAppend(viaOf(v));
}

Arp::Table::ArpEntry neighbourFrom(const NeighbourEntry& n, const State& state) {
   auto vrfId = state.vrfId(n.vrf);
   VELT_ASSERT(vrfId.has_value());
   return Arp::Table::ArpEntry(Arp::Table::ArpKey(n.intf, *vrfId, n.ip), n.mac);
}

void fillForwarding(ForwardingStatus& table, const TableEntry& t) {
   // A FEC is some 30 KB: one on the heap is reused for the whole table.
   auto fec = std::make_unique<Quarn::FibGen::Fec>();
   for (const FecEntry& f : t.fecs) {
      fecFrom(f, *fec);
      table.fecIs(*fec);
   }
   for (const RouteEntry& r : t.routes)
      table.routeIs(r.prefix, r.fec);
}

void fillNeighbours(Arp::Table::Status& arp, const State& state) {
   for (const NeighbourEntry& n : state.neighbours)
      arp.entryIs(neighbourFrom(n, state));
}

void fillInterfaces(Tables& out, const State& state) {
   out.l3IntfStatus = L3::Intf::statusDirFactory();
   out.ethIntfStatus = Interface::ethIntfStatusDirFactory();
   for (const IntfEntry& i : state.interfaces) {
      out.l3IntfStatus->intfStatusIs(i.intf, i.vrf);
      out.ethIntfStatus->intfStatusIs(i.intf,
                                      i.operStatus == OperStatus::up
                                          ? Interface::IntfOperStatus::intfOperUp
                                          : Interface::IntfOperStatus::intfOperDown);
   }
}

Tables buildTables(const State& state) {
   Tables out;
   out.unifiedFec = state.unifiedFec;
   for (const TableEntry& t : state.tables) {
      auto fwd = Pelin::make<ForwardingStatus>(t.name, capacityFor(t));
      fillForwarding(*fwd, t);
      out.forwarding.emplace(t.name, std::move(fwd));
   }
   out.arp = Pelin::make<Arp::Table::Status>("arp", neighbourCapacityFor(state));
   fillNeighbours(*out.arp, state);
   fillInterfaces(out, state);
   return out;
}

} // namespace VeltState
