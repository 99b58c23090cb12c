#include "VeltLib/RoutingContext.h"

namespace Velt {

RoutingContext::RoutingContext(const Pelin::Ptr<PacketContext>& pktCtx,
                               Lumo::IntfId l3SrcIntfId, const L3::VrfName& srcVrf)
    : PacketContextBase(pktCtx ? pktCtx->id() : 0), pktCtx_(pktCtx),
      l3SrcIntfId_(l3SrcIntfId), srcVrf_(srcVrf) {
   if (pktCtx) {
      countersIs(pktCtx->counters());
      // Usually empty, as the base's own prefix already is: no string to copy then.
      if (!pktCtx->tracePrefix().empty()) tracePrefixIs(pktCtx->tracePrefix());
   }
}

const Kor::TypeInfo* RoutingContext::typeData() const {
   using C = RoutingContext;
   static const Kor::TypeInfo info = Kor::TypeBuilder<C>("Velt::RoutingContext")
                                         .node("pktCtx", &C::pktCtx)
                                         .value("l3SrcIntfId", &C::l3SrcIntfId)
                                         .value("srcVrf", &C::srcVrf)
                                         .value("ipTtl", &C::ipTtl, &C::ipTtlIs)
                                         .value("skipTtlDecrement", &C::skipTtlDecrement,
                                                &C::skipTtlDecrementIs)
                                         .build();
   return &info;
}

Pelin::Ptr<RoutingContext> routingContextFactory(const Pelin::Ptr<PacketContext>& pktCtx,
                                                 Lumo::IntfId l3SrcIntfId,
                                                 const L3::VrfName& srcVrf) {
   return Pelin::make<RoutingContext>(pktCtx, l3SrcIntfId, srcVrf);
}

Pelin::Ptr<RoutingContext> RoutingContextIs(const Pelin::Ptr<PacketContext>& pktCtx,
                                            Lumo::IntfId l3SrcIntfId, const L3::VrfName& srcVrf) {
   return routingContextFactory(pktCtx, l3SrcIntfId, srcVrf);
}

} // namespace Velt
