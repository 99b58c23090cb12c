#include "VeltLib/RoutingNexthop.h"

#include "Kor/Enum.h"
#include "Packet/PacketTrace.h"
#include "VeltLib/Traces.h"

namespace Velt {

namespace {

// Attribute ids: the declared order of RoutingNexthop's attributes.
enum NexthopAttr : Kor::AttrId {
   kOutputIntf, kDstMac, kDstIp, kFecId, kFec, kVia, kRoute, kDrop, kResetResolverFields,
   kRewrites, kVrf, kConfig, kArpLookupFailAction, kResolveHierarchical, kDefaultInit,
   kSetCpuTrapNexthop, kToMe, kKernelHandlesPacket, kFullyResolved, kCopyOifAndDstMac,
   kMcastDstNexthops,
};

} // namespace

const char* stringValue(ArpLookupFailAction action) {
   auto i = static_cast<std::size_t>(action);
   const auto& names = Kor::EnumNames<ArpLookupFailAction>::names;
   return i < names.size() ? names[i] : "unknown";
}

NexthopConfig::NexthopConfig(std::string_view text) {
   Kor::Fields fields = Kor::parseComposite(text, "Velt::NexthopConfig");
   try {
      arpLookupFailAction = Kor::fromText<ArpLookupFailAction>(
          Kor::field(fields, "arpLookupFailAction"));
   } catch (const Pelin::DeserializationException& e) {
      throw Pelin::DeserializationException("arpLookupFailAction", e.what());
   }
   resolveHierarchical = Kor::fromText<bool>(Kor::field(fields, "resolveHierarchical"));
}

RoutingNexthop::RoutingNexthop(Lumo::IntfId outputIntf)
    : outputIntf_(outputIntf), rewrites_(RewriteInfosIs()) {}

void RoutingNexthop::outputIntfIs(Lumo::IntfId v) { Kor::assign(*this, outputIntf_, v, kOutputIntf); }
void RoutingNexthop::dstMacIs(const Lumo::EthAddr& v) { Kor::assign(*this, dstMac_, v, kDstMac); }
void RoutingNexthop::dstIpIs(const Lumo::IpGenAddr& v) { Kor::assign(*this, dstIp_, v, kDstIp); }
void RoutingNexthop::fecIdIs(Quarn::Fib::FecId v) { Kor::assign(*this, fecId_, v, kFecId); }
void RoutingNexthop::fecIs(const Quarn::FibGen::Fec& v) { Kor::assign(*this, fec_, v, kFec); }
void RoutingNexthop::viaIs(const Quarn::FibGen::Via& v) { Kor::assign(*this, via_, v, kVia); }
void RoutingNexthop::routeIs(const Lumo::IpGenPrefix& v) { Kor::assign(*this, route_, v, kRoute); }
void RoutingNexthop::dropIs(bool v) { Kor::assign(*this, drop_, v, kDrop); }
void RoutingNexthop::vrfIs(const L3::VrfName& v) { Kor::assign(*this, vrf_, v, kVrf); }
void RoutingNexthop::configIs(const NexthopConfig& v) { Kor::assign(*this, config_, v, kConfig); }
void RoutingNexthop::toMeIs(bool v) { Kor::assign(*this, toMe_, v, kToMe); }

void RoutingNexthop::arpLookupFailActionIs(ArpLookupFailAction v) {
   Kor::assign(*this, config_.arpLookupFailAction, v, kArpLookupFailAction);
}

void RoutingNexthop::resolveHierarchicalIs(bool v) {
   Kor::assign(*this, config_.resolveHierarchical, v, kResolveHierarchical);
}

void RoutingNexthop::kernelHandlesPacketIs(bool v) {
   Kor::assign(*this, kernelHandlesPacket_, v, kKernelHandlesPacket);
}

Pelin::Ptr<RewriteInfos> RoutingNexthop::rewritesIs() {
   if (!rewrites_) {
      rewrites_ = RewriteInfosIs();
      notify(kRewrites);
   }
   return rewrites_;
}

Pelin::Ptr<RewriteInfos> RoutingNexthop::rewritesDel() {
   Pelin::Ptr<RewriteInfos> old = std::move(rewrites_);
   if (old) notify(kRewrites);
   return old;
}

Pelin::Ptr<RoutingNexthops> RoutingNexthop::mcastDstNexthopsIs() {
   if (!mcastDstNexthops_) {
      mcastDstNexthops_ = RoutingNexthopsIs();
      notify(kMcastDstNexthops);
   }
   return mcastDstNexthops_;
}

Pelin::Ptr<RoutingNexthops> RoutingNexthop::mcastDstNexthopsDel() {
   Pelin::Ptr<RoutingNexthops> old = std::move(mcastDstNexthops_);
   if (old) notify(kMcastDstNexthops);
   return old;
}

void RoutingNexthop::resetResolutionFields() {
   dstIpIs(Lumo::IpGenAddr());
   fecIdIs(Quarn::Fib::FecId());
   if (fec_.viaCount() != 0 || fec_.secondaryViaCount() != 0 || fec_.fecId().isValid()) {
      fecIs(Quarn::FibGen::Fec());
   }
   viaIs(Quarn::FibGen::Via());
   routeIs(Lumo::IpGenPrefix());
}

void RoutingNexthop::setCpuTrapNexthop() {
   outputIntfIs(Lumo::cpuIntfId());
   resetResolutionFields();
}

void RoutingNexthop::resetResolverFields(const Pelin::Ptr<PacketContext>& pktCtx) {
   if (pktCtx) VELT_PKT_TRACE(routingTrace(), 3, *pktCtx, "resetResolverFields");
   outputIntfIs(Lumo::IntfId());
   resetResolutionFields();
}

void RoutingNexthop::copyOifAndDstMac(const Pelin::Ptr<RoutingNexthop>& nexthop) {
   VELT_ASSERT(nexthop);
   dstMacIs(nexthop->dstMac());
   outputIntfIs(nexthop->outputIntf());
}

const Kor::TypeInfo* RoutingNexthop::typeData() const {
   using N = RoutingNexthop;
   static const Kor::TypeInfo info =
       Kor::TypeBuilder<N>("Velt::RoutingNexthop")
           .value("outputIntf", &N::outputIntf, &N::outputIntfIs)
           .value("dstMac", &N::dstMac, &N::dstMacIs)
           .value("dstIp", &N::dstIp, &N::dstIpIs)
           .value("fecId", &N::fecId, &N::fecIdIs)
           .value("fec", &N::fec)
           .value("via", &N::via)
           .value("route", &N::route, &N::routeIs)
           .value("drop", &N::drop, &N::dropIs)
           .action("resetResolverFields",
                   [](N& n) { n.resetResolverFields(nullptr); })
           .node("rewrites", &N::rewrites)
           .value("vrf", &N::vrf, &N::vrfIs)
           .value("config", &N::config, &N::configIs)
           .value("arpLookupFailAction", &N::arpLookupFailAction, &N::arpLookupFailActionIs)
           .value("resolveHierarchical", &N::resolveHierarchical, &N::resolveHierarchicalIs)
           .action("defaultInit", &N::defaultInit)
           .action("setCpuTrapNexthop", &N::setCpuTrapNexthop)
           .value("toMe", &N::toMe, &N::toMeIs)
           .value("kernelHandlesPacket", &N::kernelHandlesPacket, &N::kernelHandlesPacketIs)
           .value("fullyResolved", &N::fullyResolved)
           .action("copyOifAndDstMac",
                   [](N&) {
                      throw Pelin::Exception("copyOifAndDstMac takes a next hop argument");
                   })
           .node("mcastDstNexthops", &N::mcastDstNexthops)
           .build();
   return &info;
}

Pelin::Ptr<RoutingNexthop> routingNexthopFactory(Lumo::IntfId outputIntf) {
   return Pelin::make<RoutingNexthop>(outputIntf);
}

Pelin::Ptr<RoutingNexthop> RoutingNexthopIs(Lumo::IntfId outputIntf) {
   return routingNexthopFactory(outputIntf);
}

bool RoutingNexthops::anyFullyResolved() const {
   for (const auto& nh : nexthop_) {
      if (nh->fullyResolved()) return true;
   }
   return false;
}

const Kor::TypeInfo* RoutingNexthops::typeData() const {
   static const Kor::TypeInfo info = Kor::TypeBuilder<RoutingNexthops>("Velt::RoutingNexthops")
                                         .collection("nexthop", &RoutingNexthops::nexthop)
                                         .value("anyFullyResolved",
                                                &RoutingNexthops::anyFullyResolved)
                                         .build();
   return &info;
}

Pelin::Ptr<RoutingNexthops> routingNexthopsFactory() { return Pelin::make<RoutingNexthops>(); }
Pelin::Ptr<RoutingNexthops> RoutingNexthopsIs() { return routingNexthopsFactory(); }

} // namespace Velt
