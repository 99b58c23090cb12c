// What is fixed for one packet while its next hop resolves: the packet context, the input
// interface, the source VRF and the TTL handling. Trace lines and counts take the packet
// id, counter sink and trace prefix from the base.
#pragma once
#include "Kor/Entity.h"
#include "Kor/TypeInfo.h"
#include "L3/VrfName.h"
#include "Lumo/IntfId.h"
#include "Packet/PacketContext.h"
#include "Pelin/Ptr.h"

#include <cstdint>

namespace Velt {

class RoutingContext : public PacketContextBase {
 public:
   static constexpr std::uint32_t ttlNotSet = 0xFFFFFFFF;

   RoutingContext(const Pelin::Ptr<PacketContext>& pktCtx, Lumo::IntfId l3SrcIntfId,
                  const L3::VrfName& srcVrf);

   const Pelin::Ptr<PacketContext>& pktCtx() const { return pktCtx_; }
   Lumo::IntfId l3SrcIntfId() const { return l3SrcIntfId_; }
   const L3::VrfName& srcVrf() const { return srcVrf_; }
   std::uint32_t ipTtl() const { return ipTtl_; }
   void ipTtlIs(std::uint32_t v) { ipTtl_ = v; }
   bool skipTtlDecrement() const { return skipTtlDecrement_; }
   void skipTtlDecrementIs(bool v) { skipTtlDecrement_ = v; }
   // The packet of the packet context; null without one.
   Pelin::Ptr<Lumo::Pkt> getPkt() const { return pktCtx_ ? pktCtx_->pkt() : nullptr; }

   const Kor::TypeInfo* typeData() const override;

 private:
   Pelin::Ptr<PacketContext> pktCtx_;
   Lumo::IntfId l3SrcIntfId_;
   L3::VrfName srcVrf_;
   std::uint32_t ipTtl_ = ttlNotSet;
   bool skipTtlDecrement_ = false;
};

Pelin::Ptr<RoutingContext> routingContextFactory(const Pelin::Ptr<PacketContext>& pktCtx,
                                                 Lumo::IntfId l3SrcIntfId,
                                                 const L3::VrfName& srcVrf);
Pelin::Ptr<RoutingContext> RoutingContextIs(const Pelin::Ptr<PacketContext>& pktCtx,
                                            Lumo::IntfId l3SrcIntfId, const L3::VrfName& srcVrf);

} // namespace Velt
