#include "VeltLib/NexthopResolverTypes.h"

#include "Packet/PacketTrace.h"
#include "VeltLib/ResolverVrfRoot.h"
#include "VeltLib/Traces.h"

#include <typeinfo>

namespace Velt {

namespace {

enum ResolversAttr : Kor::AttrId {
   kInterfaceResolver, kFecIdResolver, kFecTypeResolver, kDstIpResolver,
};

template <typename Key>
std::uint8_t slotOf(Key key) {
   static_assert(sizeof(Key) == 1, "the per-packet index holds one-byte keys only");
   return static_cast<std::uint8_t>(key);
}

// Registration shared by the four maps: null is refused, the last registration wins.
// The index is written before anyone is told, so a listener already finds the resolver.
template <typename Map, typename R, typename Resolver>
void registerIn(const NexthopResolvers& self, Map& map,
                NexthopResolvers::Index<Resolver>& index, const Pelin::Ptr<R>& r,
                Kor::AttrId attr, const char* attrName) {
   if (!r) throw Pelin::NullArgumentException(attrName);
   auto key = Map::keyOf(r);
   Kor::Stored s = map.set(key, r);
   index[slotOf(key)] = r.get();
   if (s == Kor::Stored::added) self.notify(attr, key, Kor::Change::added);
   if (s == Kor::Stored::replaced) self.notify(attr, key, Kor::Change::changed);
}

template <typename Map, typename Key, typename Resolver>
typename Map::value_type unregisterFrom(const NexthopResolvers& self, Map& map,
                                        NexthopResolvers::Index<Resolver>& index,
                                        const Key& key, Kor::AttrId attr) {
   bool found = false;
   auto old = map.erase(key, &found);
   index[slotOf(key)] = nullptr;
   if (found) self.notify(attr, key, Kor::Change::removed);
   return old;
}

template <typename Map, typename Resolver>
void unregisterAll(const NexthopResolvers& self, Map& map,
                   NexthopResolvers::Index<Resolver>& index, Kor::AttrId attr) {
   map.drain([&](const auto& key, auto&&) {
      index[slotOf(key)] = nullptr;
      self.notify(attr, key, Kor::Change::removed);
   });
}

template <typename Map, typename Key>
typename Map::value_type lookup(const Map& map, const Key& key) {
   const auto* found = map.find(key);
   return found ? *found : nullptr;
}

} // namespace

void NexthopResolvers::interfaceResolverIs(const Pelin::Ptr<InterfaceResolver>& r) {
   registerIn(*this, interfaceResolver_, interfaceAt_, r, kInterfaceResolver,
              "interfaceResolver");
}
Pelin::Ptr<InterfaceResolver> NexthopResolvers::interfaceResolverDel(std::uint8_t type) {
   return unregisterFrom(*this, interfaceResolver_, interfaceAt_, type, kInterfaceResolver);
}
void NexthopResolvers::interfaceResolverDelAll() {
   unregisterAll(*this, interfaceResolver_, interfaceAt_, kInterfaceResolver);
}
Pelin::Ptr<InterfaceResolver> NexthopResolvers::interfaceResolver(std::uint8_t type) const {
   return lookup(interfaceResolver_, type);
}

void NexthopResolvers::fecIdResolverIs(const Pelin::Ptr<FecIdResolver>& r) {
   registerIn(*this, fecIdResolver_, fecIdAt_, r, kFecIdResolver, "fecIdResolver");
}
Pelin::Ptr<FecIdResolver> NexthopResolvers::fecIdResolverDel(Quarn::Fib::AdjType adjType) {
   return unregisterFrom(*this, fecIdResolver_, fecIdAt_, adjType, kFecIdResolver);
}
void NexthopResolvers::fecIdResolverDelAll() {
   unregisterAll(*this, fecIdResolver_, fecIdAt_, kFecIdResolver);
}
Pelin::Ptr<FecIdResolver> NexthopResolvers::fecIdResolver(Quarn::Fib::AdjType adjType) const {
   return lookup(fecIdResolver_, adjType);
}

void NexthopResolvers::fecTypeResolverIs(const Pelin::Ptr<FecTypeResolver>& r) {
   registerIn(*this, fecTypeResolver_, fecTypeAt_, r, kFecTypeResolver, "fecTypeResolver");
}
Pelin::Ptr<FecTypeResolver> NexthopResolvers::fecTypeResolverDel(std::uint8_t fecType) {
   return unregisterFrom(*this, fecTypeResolver_, fecTypeAt_, fecType, kFecTypeResolver);
}
void NexthopResolvers::fecTypeResolverDelAll() {
   unregisterAll(*this, fecTypeResolver_, fecTypeAt_, kFecTypeResolver);
}
Pelin::Ptr<FecTypeResolver> NexthopResolvers::fecTypeResolver(std::uint8_t fecType) const {
   return lookup(fecTypeResolver_, fecType);
}

void NexthopResolvers::dstIpResolverIs(const Pelin::Ptr<DstIpResolver>& r) {
   registerIn(*this, dstIpResolver_, dstIpAt_, r, kDstIpResolver, "dstIpResolver");
}
Pelin::Ptr<DstIpResolver> NexthopResolvers::dstIpResolverDel(Lumo::AddressFamily af) {
   return unregisterFrom(*this, dstIpResolver_, dstIpAt_, af, kDstIpResolver);
}
void NexthopResolvers::dstIpResolverDelAll() {
   unregisterAll(*this, dstIpResolver_, dstIpAt_, kDstIpResolver);
}
Pelin::Ptr<DstIpResolver> NexthopResolvers::dstIpResolver(Lumo::AddressFamily af) const {
   return lookup(dstIpResolver_, af);
}

const Kor::TypeInfo* NexthopResolvers::typeData() const {
   using R = NexthopResolvers;
   static const Kor::TypeInfo info =
       Kor::TypeBuilder<R>("Velt::NexthopResolvers")
           .collection("interfaceResolver", &R::interfaceResolver)
           .collection("fecIdResolver", &R::fecIdResolver)
           .collection("fecTypeResolver", &R::fecTypeResolver)
           .collection("dstIpResolver", &R::dstIpResolver)
           .build();
   return &info;
}

Pelin::Ptr<NexthopResolvers> nexthopResolversFactory() { return Pelin::make<NexthopResolvers>(); }
Pelin::Ptr<NexthopResolvers> NexthopResolversIs() { return nexthopResolversFactory(); }

NhrPipelineContext::NhrPipelineContext(const Pelin::Ptr<RoutingContext>& rCtx,
                                       const Pelin::Ptr<ResolverVrfRoot const>& vrfRoot,
                                       const Pelin::Ptr<RoutingNexthop>& nexthop)
    : rCtx_(rCtx), vrfRoot_(vrfRoot), nexthop_(nexthop) {}

NhrPipelineContext::~NhrPipelineContext() {
   // Released in reverse order of declaration on purpose: next hop, root, then context.
   nexthop_ = nullptr;
   vrfRoot_ = nullptr;
   rCtx_ = nullptr;
}

Pelin::Ptr<NhrPipelineContext>
NhrPipelineContext::NhrPipelineContextIs(const Pelin::Ptr<RoutingContext>& rCtx,
                                         const Pelin::Ptr<ResolverVrfRoot const>& vrfRoot,
                                         const Pelin::Ptr<RoutingNexthop>& nexthop) {
   return nhrPipelineContextFactory(rCtx, vrfRoot, nexthop);
}

Pelin::Ptr<NhrPipelineContext>
nhrPipelineContextFactory(const Pelin::Ptr<RoutingContext>& rCtx,
                          const Pelin::Ptr<ResolverVrfRoot const>& vrfRoot,
                          const Pelin::Ptr<RoutingNexthop>& nexthop) {
   return Pelin::make<NhrPipelineContext>(rCtx, vrfRoot, nexthop);
}

namespace {

// The "NH:" dump of the next hop after a step, when bit 0 of the verbose bitmap is set.
void dumpNexthop(const RoutingContext& rCtx, const RoutingNexthop& nh) {
   if (!(velt_trace_verbose_bitmap & 1u)) return;
   static const Quarn::FibGen::Fec emptyFec{Quarn::Fib::FecId()};
   Quarn::FibGen::Fec fec = nh.fec(); // the copy keeps the FEC's bounds checks
   bool fecSet = !Quarn::FibGen::Fec::isEq(fec, emptyFec);
   bool viaSet = !Quarn::FibGen::Via::isEq(nh.via(), Quarn::FibGen::Via());
   VELT_PKT_TRACE(nhResolverTrace(), 9, rCtx,
                  "NH: Intf: {} dstMac: {} dstIp: {} fecId: {} fec: {} via: {}",
                  nh.outputIntf(), nh.dstMac(), nh.dstIp(), nh.fecId(), fecSet, viaSet);
}

// The checked cast both step bases start with. The driver's own context is recognised by
// its exact type, one compare per step; anything else takes the full dynamic_cast.
Pelin::Ptr<NhrPipelineContext> asNhrContext(const Pelin::Ptr<GenericPipelineContext>& ctx) {
   GenericPipelineContext* p = ctx.get();
   if (p && typeid(*p) == typeid(NhrPipelineContext)) {
      return Pelin::static_ptr_cast<NhrPipelineContext>(ctx);
   }
   return Pelin::ptr_cast<NhrPipelineContext>(ctx);
}

} // namespace

const char NhrPipelineStep::familyMark_ = 0;

NhrPipelineStep::NhrPipelineStep(const Pelin::String& name, unsigned int priority)
    : GenericPipelineStep(name, priority, nhrPipelineName) {
   familyIs(mark());
}

void NhrPipelineStep::call(const Pelin::Ptr<GenericPipelineContext>& ctx) {
   Pelin::Ptr<NhrPipelineContext> nhrCtx = asNhrContext(ctx);
   VELT_ASSERT_IN(nhrCtx, "virtual void Velt::NhrPipelineStep::call(const Ptr&)");
   VELT_PKT_TRACE(nhResolverTrace(), 3, *nhrCtx->rCtx(), "Step: {}", name());
   bool result = process(nhrCtx);
   dumpNexthop(*nhrCtx->rCtx(), *nhrCtx->nexthop());
   ctx->stepResultIs(result);
}

NoIpRouteFallbackPipelineStep::NoIpRouteFallbackPipelineStep(const Pelin::String& name,
                                                             unsigned int priority)
    : GenericPipelineStep(name, priority, noIpRouteFallbackPipelineName) {}

void NoIpRouteFallbackPipelineStep::call(const Pelin::Ptr<GenericPipelineContext>& ctx) {
   Pelin::Ptr<NhrPipelineContext> nhrCtx = asNhrContext(ctx);
   VELT_ASSERT_IN(nhrCtx,
                  "virtual void Velt::NoIpRouteFallbackPipelineStep::call(const Ptr&)");
   VELT_PKT_TRACE(nhResolverTrace(), 3, *nhrCtx->rCtx(), "No IP route fallback step: {}",
                  name());
   bool result = process(nhrCtx);
   dumpNexthop(*nhrCtx->rCtx(), *nhrCtx->nexthop());
   ctx->stepResultIs(result);
}

} // namespace Velt
