// The next hop under resolution and its queue: RoutingNexthop is the mutable record that
// steps and resolvers complete pass after pass; RoutingNexthops queues them for
// multi-next-hop resolution and multicast fan-out. NexthopConfig and ArpLookupFailAction
// are the per-next-hop policy values.
#pragma once
#include "Kor/Entity.h"
#include "Kor/Enum.h"
#include "Kor/TypeInfo.h"
#include "L3/VrfName.h"
#include "Lumo/EthAddr.h"
#include "Lumo/IntfId.h"
#include "Lumo/IpGenAddr.h"
#include "Lumo/IpGenPrefix.h"
#include "Pelin/Assert.h"
#include "Pelin/Ptr.h"
#include "Packet/PacketContext.h"
#include "Pelin/RingQueue.h"
#include "Quarn/Fec.h"
#include "Quarn/FecId.h"
#include "Quarn/Via.h"
#include "VeltLib/RoutingRewriteInfoTypes.h"

#include <cstdint>
#include <cstring>
#include <string_view>



namespace Velt {

// What the ARP lookup handler does when the next hop's neighbour is unknown.
enum class ArpLookupFailAction : std::uint8_t {
   trapTraceCount = 0, // trap to the CPU and let the kernel handle the packet (default)
   dropTraceCount = 1, // drop, with a trace and a count
   silentlyIgnore = 2, // drop quietly
};

const char* stringValue(ArpLookupFailAction action);

// Per-next-hop policy knobs; two bytes, compared bytewise.
struct NexthopConfig {
   NexthopConfig() = default;
   NexthopConfig(ArpLookupFailAction a, bool hierarchical)
       : arpLookupFailAction(a), resolveHierarchical(hierarchical) {}
   // Parses the value text {arpLookupFailAction=..., resolveHierarchical=...}; a bad
   // action name is reported as a deserialisation error naming "arpLookupFailAction".
   explicit NexthopConfig(std::string_view text);

   static bool isEq(const NexthopConfig& a, const NexthopConfig& b) {
      return &a == &b || (a.arpLookupFailAction == b.arpLookupFailAction &&
                          a.resolveHierarchical == b.resolveHierarchical);
   }
   bool operator==(const NexthopConfig& o) const { return isEq(*this, o); }

   ArpLookupFailAction arpLookupFailAction = ArpLookupFailAction::trapTraceCount;
   bool resolveHierarchical = true;
};

class RoutingNexthops;

class RoutingNexthop : public Kor::Notifier {
 public:
   explicit RoutingNexthop(Lumo::IntfId outputIntf);

   Lumo::IntfId outputIntf() const { return outputIntf_; }
   void outputIntfIs(Lumo::IntfId v);
   const Lumo::EthAddr& dstMac() const { return dstMac_; }
   void dstMacIs(const Lumo::EthAddr& v);
   const Lumo::IpGenAddr& dstIp() const { return dstIp_; }
   void dstIpIs(const Lumo::IpGenAddr& v);
   Quarn::Fib::FecId fecId() const { return fecId_; }
   void fecIdIs(Quarn::Fib::FecId v);
   const Quarn::FibGen::Fec& fec() const { return fec_; }
   void fecIs(const Quarn::FibGen::Fec& v);
   // The FEC's own storage, for a reader that fills it in place rather than pass a copy to
   // fecIs(): only while the FEC is empty and nobody watches this next hop, so that the
   // two cannot be told apart; null otherwise. The reader leaves it filled or empty.
   Quarn::FibGen::Fec* fecStorage() {
      return fec_.isEmpty() && !hasPublisher() ? &fec_ : nullptr;
   }
   const Quarn::FibGen::Via& via() const { return via_; }
   void viaIs(const Quarn::FibGen::Via& v);
   const Lumo::IpGenPrefix& route() const { return route_; }
   void routeIs(const Lumo::IpGenPrefix& v);
   bool drop() const { return drop_; }
   void dropIs(bool v);
   const L3::VrfName& vrf() const { return vrf_; }
   void vrfIs(const L3::VrfName& v);
   const NexthopConfig& config() const { return config_; }
   void configIs(const NexthopConfig& v);
   ArpLookupFailAction arpLookupFailAction() const { return config_.arpLookupFailAction; }
   void arpLookupFailActionIs(ArpLookupFailAction v);
   bool resolveHierarchical() const { return config_.resolveHierarchical; }
   void resolveHierarchicalIs(bool v);
   bool toMe() const { return toMe_; }
   void toMeIs(bool v);
   bool kernelHandlesPacket() const { return kernelHandlesPacket_; }
   void kernelHandlesPacketIs(bool v);

   const Pelin::Ptr<RewriteInfos>& rewrites() const { return rewrites_; }
   // Get-or-create: the current list, made empty first when there is none.
   Pelin::Ptr<RewriteInfos> rewritesIs();
   Pelin::Ptr<RewriteInfos> rewritesDel();
   const Pelin::Ptr<RoutingNexthops>& mcastDstNexthops() const { return mcastDstNexthops_; }
   Pelin::Ptr<RoutingNexthops> mcastDstNexthopsIs();
   Pelin::Ptr<RoutingNexthops> mcastDstNexthopsDel();

   void defaultInit() { rewritesIs(); }
   // The packet goes to the CPU: the output interface becomes "Cpu" and the resolution
   // fields are reset; the MAC, flags, VRF, policy and rewrites are kept.
   void setCpuTrapNexthop();
   // Clears the output interface and the resolution fields (traced on the packet);
   // keeps the MAC, flags, VRF, policy and rewrites.
   void resetResolverFields(const Pelin::Ptr<PacketContext>& pktCtx);
   // toMe, or the CPU interface, or a valid interface with a non-zero MAC. Inline: the
   // driver asks after every pass.
   bool fullyResolved() const {
      if (toMe_) return true;
      if (outputIntf_ == cpuIntf) return true;
      if (!outputIntf_.isValid()) return false;
      return !isZeroMac(dstMac_);
   }
   // Lumo::EthAddr::isZero() in two loads: the == of its std::array is a memcmp call.
   static bool isZeroMac(const Lumo::EthAddr& mac) {
      std::uint32_t high;
      std::uint16_t low;
      std::memcpy(&high, mac.bytes(), sizeof high);
      std::memcpy(&low, mac.bytes() + sizeof high, sizeof low);
      return (high | low) == 0;
   }
   void copyOifAndDstMac(const Pelin::Ptr<RoutingNexthop>& nexthop);

   const Kor::TypeInfo* typeData() const override;

 private:
   // Lumo::cpuIntfId() as a constant, so that the test above is a compare, not a call.
   static constexpr Lumo::IntfId cpuIntf =
       Lumo::IntfId::fromType(Lumo::GenericIntfId::cpuTypeId, 0);

   void resetResolutionFields();

   Lumo::IntfId outputIntf_;
   Lumo::EthAddr dstMac_;
   Lumo::IpGenAddr dstIp_;
   Quarn::Fib::FecId fecId_;
   Quarn::FibGen::Via via_;
   Lumo::IpGenPrefix route_;
   bool drop_ = false;
   bool toMe_ = false;
   bool kernelHandlesPacket_ = false;
   NexthopConfig config_;
   L3::VrfName vrf_;
   Pelin::Ptr<RewriteInfos> rewrites_;
   Pelin::Ptr<RoutingNexthops> mcastDstNexthops_;
   Quarn::FibGen::Fec fec_; // last: large, mostly untouched storage
};

Pelin::Ptr<RoutingNexthop> routingNexthopFactory(Lumo::IntfId outputIntf);
Pelin::Ptr<RoutingNexthop> RoutingNexthopIs(Lumo::IntfId outputIntf);

class RoutingNexthops : public Pelin::Node {
 public:
   using Queue = Pelin::RingQueue<RoutingNexthop>;

   RoutingNexthops() = default;

   // A null next hop is a programming error.
   void nexthopEnq(const Pelin::Ptr<RoutingNexthop>& nexthop) {
      VELT_ASSERT(nexthop);
      nexthop_.enq(nexthop);
   }
   Pelin::Ptr<RoutingNexthop> nexthopDeq() { return nexthop_.deq(); }
   Pelin::Ptr<RoutingNexthop> nexthopFront() const { return nexthop_.front(); }
   Pelin::Ptr<RoutingNexthop> nexthopBack() const { return nexthop_.back(); }
   void nexthopDelAll() { nexthop_.delAll(); }
   const Queue& nexthop() const { return nexthop_; }
   std::size_t size() const { return nexthop_.size(); }
   bool empty() const { return nexthop_.empty(); }
   bool anyFullyResolved() const;

   const Kor::TypeInfo* typeData() const override;

 private:
   Queue nexthop_;
};

Pelin::Ptr<RoutingNexthops> routingNexthopsFactory();
Pelin::Ptr<RoutingNexthops> RoutingNexthopsIs();

} // namespace Velt

template <>
struct Kor::EnumNames<Velt::ArpLookupFailAction> {
   static constexpr const char* typeName = "Velt::ArpLookupFailAction";
   static constexpr std::array<const char*, 3> names = {"trapTraceCount", "dropTraceCount",
                                                        "silentlyIgnore"};
};

template <>
struct Kor::ValueText<Velt::NexthopConfig> {
   static std::string print(const Velt::NexthopConfig& c) {
      return Kor::printComposite(
          {{"arpLookupFailAction", Velt::stringValue(c.arpLookupFailAction)},
           {"resolveHierarchical", Kor::toText(c.resolveHierarchical)}});
   }
   static Velt::NexthopConfig parse(std::string_view s) { return Velt::NexthopConfig(s); }
};
