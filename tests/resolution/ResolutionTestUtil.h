// Small builders shared by the resolution tests: interfaces, addresses, contexts, and a
// next hop carrying a FEC.
#pragma once
#include "Lumo/EthAddr.h"
#include "Lumo/IntfId.h"
#include "Lumo/IpGenAddr.h"
#include "Packet/PacketContext.h"
#include "Quarn/Fec.h"
#include "VeltLib/RoutingContext.h"
#include "VeltLib/RoutingNexthop.h"

#include <cstdint>
#include <string>

namespace VeltTest {

inline Lumo::IntfId intf(const char* name) {
   return Lumo::IntfId(name);
}
inline Lumo::IpGenAddr ip(const char* text) {
   return Lumo::IpGenAddr(text);
}
inline Lumo::EthAddr mac(const char* text) {
   return Lumo::EthAddr(text);
}

// A routing context over a packet of hash `hash`, counting into `counters` when given.
inline Pelin::Ptr<Velt::RoutingContext>
contextFor(const char* vrf, std::uint32_t hash,
           const Pelin::Ptr<VeltNamedCounters>& counters = nullptr,
           std::uint64_t id = 1) {
   PacketContextBase base(id);
   base.countersIs(counters);
   auto pkt = Pelin::make<PacketContext>(base);
   pkt->hashIs(hash);
   return Velt::routingContextFactory(pkt, Lumo::IntfId(), L3::VrfName(vrf));
}

inline std::uint64_t countOf(const Pelin::Ptr<VeltNamedCounters>& c, const char* category,
                             const char* text) {
   return c->value(category, "NHResolver", text);
}

// Total of every count, to check that a path counted nothing.
inline std::uint64_t totalCount(const Pelin::Ptr<VeltNamedCounters>& c) {
   std::uint64_t n = 0;
   for (const auto& e : c->all())
      n += e.count;
   return n;
}

} // namespace VeltTest
