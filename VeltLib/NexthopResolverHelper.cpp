#include "VeltLib/NexthopResolverHelper.h"

#include "Kor/Singleton.h"
#include "VeltLib/RoutingContext.h"

namespace Velt {

namespace {
// Numbers the packet contexts of every helper of the process. Agents call from their one
// event-loop thread, so a plain integer is enough.
std::uint64_t packetContextCounter = 0;

// The id of the empty interface name: no interface.
constexpr Lumo::IntfId noIntf{};
} // namespace

NexthopResolverHelper::NexthopResolverHelper(
    const Pelin::Ptr<NexthopResolverRoot>& resolverRoot)
    : resolverRoot_(resolverRoot) {}

NexthopResolverHelper::~NexthopResolverHelper() {
   beingDestroyedIs();
   publisherDel();
}

void NexthopResolverHelper::parserRootIs(const Pelin::Ptr<PacketParserRoot>& parserRoot) {
   Kor::assign(*this, parserRoot_, parserRoot, kParserRoot);
}

std::uint64_t NexthopResolverHelper::nextPacketContextId() {
   return packetContextCounter;
}

void NexthopResolverHelper::resolve(const Pelin::Ptr<RoutingNexthop>& nexthop,
                                    const L3::VrfName& vrfName) {
   PacketContextBase base(packetContextCounter++);
   auto pktCtx = Pelin::make<PacketContext>(base, noIntf, Pelin::Ptr<PacketHasher>());
   pktCtx->initializeParsedPkt(Pelin::Ptr<PacketParser>());
   run(pktCtx, nexthop, vrfName);
}

void NexthopResolverHelper::resolveWithPkt(const Pelin::Ptr<RoutingNexthop>& nexthop,
                                           const L3::VrfName& vrfName,
                                           const Pelin::Ptr<Lumo::Pkt>& pkt) {
   VELT_ASSERT(parserRoot());
   PacketContextBase base(packetContextCounter++);
   base.pktIs(pkt);
   auto pktCtx = Pelin::make<PacketContext>(base, noIntf, parserRoot_->hasher());
   pktCtx->initializeParsedPkt(parserRoot_->parser());
   run(pktCtx, nexthop, vrfName);
}

void NexthopResolverHelper::run(const Pelin::Ptr<PacketContext>& pktCtx,
                                const Pelin::Ptr<RoutingNexthop>& nexthop,
                                const L3::VrfName& vrfName) {
   Pelin::Ptr<RoutingContext> rCtx = routingContextFactory(pktCtx, noIntf, vrfName);
   resolverRoot_->resolver()->resolve(rCtx, nexthop);
}

const Kor::TypeInfo* NexthopResolverHelper::typeData() const {
   using H = NexthopResolverHelper;
   static const Kor::TypeInfo info = Kor::TypeBuilder<H>("Velt::NexthopResolverHelper")
                                         .node("resolverRoot", &H::resolverRoot)
                                         .node("parserRoot", &H::parserRoot)
                                         .build();
   return &info;
}

Pelin::Ptr<NexthopResolverHelper>
nexthopResolverHelperFactory(const Pelin::Ptr<NexthopResolverRoot>& resolverRoot) {
   return Pelin::make<NexthopResolverHelper>(resolverRoot);
}
Pelin::Ptr<NexthopResolverHelper>
NexthopResolverHelperIs(const Pelin::Ptr<NexthopResolverRoot>& resolverRoot) {
   return nexthopResolverHelperFactory(resolverRoot);
}

RoutingNexthopResolverHelperHolder::RoutingNexthopResolverHelperHolder(
    const Pelin::String& name)
    : Kor::Entity(name) {}

RoutingNexthopResolverHelperHolder::~RoutingNexthopResolverHelperHolder() {
   beingDestroyedIs();
   publisherDel();
}

Pelin::Ptr<RoutingNexthopResolverHelperHolder>
RoutingNexthopResolverHelperHolder::singleton() {
   return Kor::singleton<RoutingNexthopResolverHelperHolder>();
}

void RoutingNexthopResolverHelperHolder::helperIs(
    const Pelin::Ptr<NexthopResolverHelper>& helper) {
   if (helper == helper_) return;
   // The previous helper goes only after observers have seen the new one.
   Pelin::Ptr<NexthopResolverHelper> previous = std::move(helper_);
   helper_ = helper;
   notify(kHelper);
}

const Kor::TypeInfo* RoutingNexthopResolverHelperHolder::typeData() const {
   using H = RoutingNexthopResolverHelperHolder;
   static const Kor::TypeInfo info =
       Kor::TypeBuilder<H>("Velt::RoutingNexthopResolverHelperHolder")
           .value("name", static_cast<const std::string& (H::*)() const>(&H::name))
           .node("helper", &H::helper)
           .build();
   return &info;
}

Pelin::Ptr<RoutingNexthopResolverHelperHolder>
routingNexthopResolverHelperHolderFactory(const Pelin::String& name) {
   return Pelin::make<RoutingNexthopResolverHelperHolder>(name);
}
Pelin::Ptr<RoutingNexthopResolverHelperHolder>
RoutingNexthopResolverHelperHolderIs(const Pelin::String& name) {
   return routingNexthopResolverHelperHolderFactory(name);
}

} // namespace Velt
