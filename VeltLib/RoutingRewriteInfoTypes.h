// Header rewrites and counter actions that a resolved next hop carries: the rewrite
// record base, the counter-action base, RewriteInfos, the ordered list with its size and
// TTL queries, and the rewrite records themselves.
#pragma once
#include "Kor/TypeInfo.h"
#include "Lumo/EthAddr.h"
#include "Lumo/GreHdr.h"
#include "Lumo/Ip6Addr.h"
#include "Lumo/Ip6Hdr.h"
#include "Lumo/IpGenAddr.h"
#include "Lumo/IpHdr.h"
#include "Pelin/Assert.h"
#include "Pelin/Ptr.h"
#include "Pelin/RQueue.h"
#include "Trell/VlanTagStack.h"

#include <cstdint>
#include <optional>

namespace Velt {

// One header rewrite. Records are immutable and shared between lists by reference.
class RewriteInfo : public Pelin::Node {
 public:
   virtual Pelin::String name() const = 0;
   // Bytes added (positive) or removed (negative) at layer 3.
   virtual std::int32_t l3SizeChange() const = 0;
   // Bytes at layer 2; a record that does not say changes layer 2 as much as layer 3.
   virtual std::int32_t l2SizeChange() const { return l3SizeChange(); }
   virtual int newTtl(int inputTtl) const { return inputTtl; }
   virtual bool applyVlanTagsBeforeRewrite() const { return false; }
};

// A counter to bump when the packet is finally sent; subclasses name what they count.
class CounterActionInfo : public Pelin::Node {
 public:
   CounterActionInfo() = default;
   virtual Pelin::String name() const = 0;
};

// Enqueuing a null record, or copying from a null list or from the list itself, is a
// programming error: it stops on an assertion rather than failing a later query.
class RewriteInfos : public Pelin::Node {
 public:
   RewriteInfos() = default;

   void rewriteInfoEnq(const Pelin::Ptr<RewriteInfo>& rewriteInfo) {
      VELT_ASSERT(rewriteInfo);
      rewriteInfo_.enq(rewriteInfo);
   }
   Pelin::Ptr<RewriteInfo> rewriteInfoDeq() { return rewriteInfo_.deq(); }
   Pelin::Ptr<RewriteInfo> rewriteInfoFront() const { return rewriteInfo_.front(); }
   Pelin::Ptr<RewriteInfo> rewriteInfoBack() const { return rewriteInfo_.back(); }
   void rewriteInfoDelAll() { rewriteInfo_.delAll(); }
   const Pelin::RQueue<RewriteInfo>& rewriteInfo() const { return rewriteInfo_; }

   void finalCounterActionInfoEnq(const Pelin::Ptr<CounterActionInfo>& counterAction) {
      VELT_ASSERT(counterAction);
      finalCounterActionInfo_.enq(counterAction);
   }
   Pelin::Ptr<CounterActionInfo> finalCounterActionInfoDeq() {
      return finalCounterActionInfo_.deq();
   }
   Pelin::Ptr<CounterActionInfo> finalCounterActionInfoFront() const {
      return finalCounterActionInfo_.front();
   }
   Pelin::Ptr<CounterActionInfo> finalCounterActionInfoBack() const {
      return finalCounterActionInfo_.back();
   }
   void finalCounterActionInfoDelAll() { finalCounterActionInfo_.delAll(); }
   const Pelin::RQueue<CounterActionInfo>& finalCounterActionInfo() const {
      return finalCounterActionInfo_;
   }

   // The first counter action, front to back, whose name() is exactly `name`.
   Pelin::Ptr<CounterActionInfo> findCounterActionWithName(const Pelin::String& name);
   Pelin::Ptr<CounterActionInfo const>
   findConstCounterActionWithName(const Pelin::String& name) const;

   std::int32_t l2SizeChange() const;
   std::int32_t l3SizeChange() const;
   // The TTL that leaves the last rewrite, folding each rewrite's newTtl front to back.
   int newTtl(int inputTtl) const;

   // Appends other's rewrites, then its counter actions, sharing the records.
   void copyFrom(const Pelin::Ptr<RewriteInfos>& other);

   const Kor::TypeInfo* typeData() const override;

 private:
   Pelin::RQueue<RewriteInfo> rewriteInfo_;
   Pelin::RQueue<CounterActionInfo> finalCounterActionInfo_;
};

Pelin::Ptr<RewriteInfos> RewriteInfosIs();
Pelin::Ptr<RewriteInfos> rewriteInfosFactory();

// ---------------------------------------------------------------------------------------
// Rewrite records. Each is built (constructor, then setters) before it is shared; once a
// list holds it, it is not changed.

// A plain attribute of a record: getter, setter and storage with its default.
#define VELT_REWRITE_ATTR(Type, attr, init)                                              \
 public:                                                                                 \
   Type attr() const { return attr##_; }                                                 \
   void attr##Is(Type v) { attr##_ = v; }                                                \
                                                                                         \
 private:                                                                                \
   Type attr##_ = init;

// Ethernet header fields of the Ethernet rewrite and encapsulation, declared in each so
// that they are the record's own attributes. The defaults keep the header as it is: a
// zero MAC or EtherType is not written; skipIfTrap leaves a trapped packet alone.
#define VELT_ETH_HDR_ATTRS                                                               \
   VELT_REWRITE_ATTR(Lumo::EthAddr, srcMac, {})                                          \
   VELT_REWRITE_ATTR(Lumo::EthAddr, dstMac, {})                                          \
   VELT_REWRITE_ATTR(std::uint16_t, newEthType, 0)                                       \
   VELT_REWRITE_ATTR(bool, skipIfTrap, false)                                            \
   VELT_REWRITE_ATTR(std::optional<bool>, shouldApplyVlanTagsBeforeRewrite, std::nullopt)

// Fields of the IP and UDP encapsulations. skipL2Headers puts the new header before any
// layer-2 header, so the VLAN tags are then applied after the rewrite; the display names
// name the tunnel in traces and tools.
#define VELT_ENCAP_HDR_ATTRS                                                             \
   VELT_REWRITE_ATTR(bool, skipL2Headers, false)                                         \
   VELT_REWRITE_ATTR(Pelin::String, displayName, {})                                     \
   VELT_REWRITE_ATTR(Pelin::String, displayName2, {})

class EthHdrRewriteInfo : public RewriteInfo {
 public:
   EthHdrRewriteInfo() = default;
   Pelin::String name() const override { return "EthHdrRewriteInfo"; }
   std::int32_t l3SizeChange() const override { return 0; }
   bool applyVlanTagsBeforeRewrite() const override {
      return shouldApplyVlanTagsBeforeRewrite().value_or(false);
   }
   const Kor::TypeInfo* typeData() const override;
   VELT_ETH_HDR_ATTRS
};

class EthHdrEncapRewriteInfo : public RewriteInfo {
 public:
   static constexpr std::int32_t ethHdrSize = 14;
   EthHdrEncapRewriteInfo() = default;
   Pelin::String name() const override { return "EthHdrEncapRewriteInfo"; }
   std::int32_t l3SizeChange() const override { return 0; }
   std::int32_t l2SizeChange() const override { return ethHdrSize; }
   bool applyVlanTagsBeforeRewrite() const override {
      return shouldApplyVlanTagsBeforeRewrite().value_or(false);
   }
   const Kor::TypeInfo* typeData() const override;
   VELT_ETH_HDR_ATTRS
};

class StripDot1qTagRewriteInfo : public RewriteInfo {
 public:
   StripDot1qTagRewriteInfo() = default;
   Pelin::String name() const override { return "StripDot1qTagRewriteInfo"; }
   std::int32_t l3SizeChange() const override { return 0; }
   std::int32_t l2SizeChange() const override { return -4; }
   const Kor::TypeInfo* typeData() const override;
};

// Pops numTagsToPop tags, then pushes vlanTagStack, outermost first.
class VlanTagEncapRewriteInfo : public RewriteInfo {
 public:
   VlanTagEncapRewriteInfo() = default;
   Pelin::String name() const override { return "VlanTagEncapRewriteInfo"; }
   std::int32_t l3SizeChange() const override { return 0; }
   std::int32_t l2SizeChange() const override;
   const Kor::TypeInfo* typeData() const override;

   const Trell::VlanTagStack& vlanTagStack() const { return vlanTagStack_; }
   void vlanTagStackIs(std::uint32_t index, const Trell::VlanTag& tag) {
      vlanTagStack_.tagIs(index, tag);
   }

 private:
   Trell::VlanTagStack vlanTagStack_;
   VELT_REWRITE_ATTR(std::int8_t, numTagsToPop, 0)
};

// An outer IPv4 or IPv6 header; its family is that of srcIp. The ttl and tos fields
// default to a header that copies nothing from the inner packet.
class IpHdrEncapRewriteInfo : public RewriteInfo {
 public:
   IpHdrEncapRewriteInfo(const Lumo::IpGenAddr& srcIp, const Lumo::IpGenAddr& dstIp,
                         std::uint8_t protocol);
   Pelin::String name() const override { return "IpHdrEncapRewriteInfo"; }
   std::int32_t l3SizeChange() const override;
   bool applyVlanTagsBeforeRewrite() const override { return !skipL2Headers(); }
   const Kor::TypeInfo* typeData() const override;

   const Lumo::IpGenAddr& srcIp() const { return srcIp_; }
   const Lumo::IpGenAddr& dstIp() const { return dstIp_; }
   std::uint8_t protocol() const { return protocol_; }

 private:
   void defaultInit();

   Lumo::IpGenAddr srcIp_;
   Lumo::IpGenAddr dstIp_;
   std::uint8_t protocol_;
   // Follows srcIp; settable through generic access, where a family that is neither
   // IPv4 nor IPv6 adds no header.
   VELT_REWRITE_ATTR(Lumo::AddressFamily, encapAf, Lumo::AddressFamily::ipunknown_)
   // 0: the outer TTL is not overridden.
   VELT_REWRITE_ATTR(std::uint8_t, ttlOverride, 0)
   // Copy the inner TTL, or TOS, into the outer header.
   VELT_REWRITE_ATTR(bool, ttlUniform, false)
   VELT_REWRITE_ATTR(bool, tosUniform, false)
   VELT_REWRITE_ATTR(bool, doNotFrag, false)
   // Take the protocol from the inner packet instead of `protocol`.
   VELT_REWRITE_ATTR(bool, protocolAuto, false)
   // Protocol of an option header that follows the outer header; 0: none.
   VELT_REWRITE_ATTR(std::uint16_t, optionProtoField, 0)
   VELT_ENCAP_HDR_ATTRS
};

class UdpHdrEncapRewriteInfo : public RewriteInfo {
 public:
   static constexpr std::int32_t udpHdrSize = 8;
   UdpHdrEncapRewriteInfo() = default;
   Pelin::String name() const override { return "UdpHdrEncapRewriteInfo"; }
   std::int32_t l3SizeChange() const override { return udpHdrSize; }
   bool applyVlanTagsBeforeRewrite() const override { return !skipL2Headers(); }
   const Kor::TypeInfo* typeData() const override;
   VELT_ENCAP_HDR_ATTRS

   VELT_REWRITE_ATTR(std::uint16_t, srcPort, 0)
   VELT_REWRITE_ATTR(std::uint16_t, dstPort, 0)
};

// No floor at 0: a TTL of 0 gives -1 and the caller decides what that means.
inline int decrementedTtl(int ttl) {
   return ttl - 1;
}

class Ipv4TtlRewriteInfo : public RewriteInfo {
 public:
   Ipv4TtlRewriteInfo() = default;
   Pelin::String name() const override { return "Ipv4TtlRewriteInfo"; }
   std::int32_t l3SizeChange() const override { return 0; }
   int newTtl(int inputTtl) const override { return decrementedTtl(inputTtl); }
   const Kor::TypeInfo* typeData() const override;
};

class Ipv6HopLimitRewriteInfo : public RewriteInfo {
 public:
   Ipv6HopLimitRewriteInfo() = default;
   Pelin::String name() const override { return "Ipv6HopLimitRewriteInfo"; }
   std::int32_t l3SizeChange() const override { return 0; }
   int newTtl(int inputTtl) const override { return decrementedTtl(inputTtl); }
   const Kor::TypeInfo* typeData() const override;
};

class Ipv6DestinationIpRewriteInfo : public RewriteInfo {
 public:
   explicit Ipv6DestinationIpRewriteInfo(const Lumo::Ip6Addr& newDstIp)
       : newDstIp_(newDstIp) {}
   static Pelin::Ptr<Ipv6DestinationIpRewriteInfo>
   createInfo(const Lumo::Ip6Addr& newDstIp);
   Pelin::String name() const override { return "Ipv6DestinationIpRewriteInfo"; }
   std::int32_t l3SizeChange() const override { return 0; }
   const Kor::TypeInfo* typeData() const override;

   const Lumo::Ip6Addr& newDstIp() const { return newDstIp_; }

 private:
   Lumo::Ip6Addr newDstIp_;
};

class GreHdrEncapRewriteInfo : public RewriteInfo {
 public:
   // Raises Pelin::NullArgumentException for a null header.
   explicit GreHdrEncapRewriteInfo(const Pelin::Ptr<const Lumo::GreHdr>& greHdr);
   Pelin::String name() const override { return "GreHdrEncapRewriteInfo"; }
   // Only the key word is counted beside the first word.
   std::int32_t l3SizeChange() const override;
   const Kor::TypeInfo* typeData() const override;

   const Pelin::Ptr<const Lumo::GreHdr>& greHdr() const { return greHdr_; }

 private:
   Pelin::Ptr<const Lumo::GreHdr> greHdr_;
};

// The outer IP header's size, given exactly one of the two headers. The header builders
// (createInfo) raise Pelin::NullArgumentException for any other null header they need.
std::int32_t ipHdrSizeFromV4OrV6(const Pelin::Ptr<const Lumo::IpHdr>& ipHdr,
                                 const Pelin::Ptr<const Lumo::Ip6Hdr>& ip6Hdr);

class GreDecapRewriteInfo : public RewriteInfo {
 public:
   GreDecapRewriteInfo(std::uint16_t protocol, int greHdrSize, int ipHdrSize)
       : protocol_(protocol), greHdrSize_(greHdrSize), ipHdrSize_(ipHdrSize) {}
   static Pelin::Ptr<GreDecapRewriteInfo>
   createInfo(const Pelin::Ptr<const Lumo::IpHdr>& ipHdr,
              const Pelin::Ptr<const Lumo::Ip6Hdr>& ip6Hdr,
              const Pelin::Ptr<const Lumo::GreHdr>& greHdr);
   Pelin::String name() const override { return "GreDecapRewriteInfo"; }
   std::int32_t l3SizeChange() const override { return -(ipHdrSize_ + greHdrSize_); }
   const Kor::TypeInfo* typeData() const override;

   std::uint16_t protocol() const { return protocol_; }
   std::int32_t greHdrSize() const { return greHdrSize_; }
   std::int32_t ipHdrSize() const { return ipHdrSize_; }

 private:
   std::uint16_t protocol_;
   std::int32_t greHdrSize_;
   std::int32_t ipHdrSize_;
};

class IpIpDecapRewriteInfo : public RewriteInfo {
 public:
   explicit IpIpDecapRewriteInfo(int ipHdrSize) : ipHdrSize_(ipHdrSize) {}
   static Pelin::Ptr<IpIpDecapRewriteInfo>
   createInfo(const Pelin::Ptr<const Lumo::IpHdr>& ipHdr,
              const Pelin::Ptr<const Lumo::Ip6Hdr>& ip6Hdr);
   Pelin::String name() const override { return "IpIpDecapInfo"; }
   std::int32_t l3SizeChange() const override { return -ipHdrSize_; }
   const Kor::TypeInfo* typeData() const override;

   std::int32_t ipHdrSize() const { return ipHdrSize_; }

 private:
   std::int32_t ipHdrSize_;
};

class UdpDecapRewriteInfo : public RewriteInfo {
 public:
   UdpDecapRewriteInfo(std::uint16_t dstPort, int udpHdrSize, int ipHdrSize)
       : dstPort_(dstPort), udpHdrSize_(udpHdrSize), ipHdrSize_(ipHdrSize) {}
   static Pelin::Ptr<UdpDecapRewriteInfo>
   createInfo(std::uint16_t dstPort, const Pelin::Ptr<const Lumo::IpHdr>& ipHdr,
              const Pelin::Ptr<const Lumo::Ip6Hdr>& ip6Hdr);
   Pelin::String name() const override { return "UdpDecapInfo"; }
   std::int32_t l3SizeChange() const override { return -(ipHdrSize_ + udpHdrSize_); }
   const Kor::TypeInfo* typeData() const override;

   std::uint16_t dstPort() const { return dstPort_; }
   std::int32_t udpHdrSize() const { return udpHdrSize_; }
   std::int32_t ipHdrSize() const { return ipHdrSize_; }

 private:
   std::uint16_t dstPort_;
   std::int32_t udpHdrSize_;
   std::int32_t ipHdrSize_;
};

class SetDscpRewriteInfo : public RewriteInfo {
 public:
   explicit SetDscpRewriteInfo(std::uint8_t dscp) : dscp_(dscp) {}
   static Pelin::Ptr<SetDscpRewriteInfo> createInfo(std::uint8_t dscp);
   Pelin::String name() const override { return "SetDscpInfo"; }
   std::int32_t l3SizeChange() const override { return 0; }
   const Kor::TypeInfo* typeData() const override;

   std::uint8_t dscp() const { return dscp_; }

 private:
   std::uint8_t dscp_;
};

#undef VELT_ENCAP_HDR_ATTRS
#undef VELT_ETH_HDR_ATTRS
#undef VELT_REWRITE_ATTR

// Factories and creators, one pair per record.
inline Pelin::Ptr<EthHdrRewriteInfo> ethHdrRewriteInfoFactory() {
   return Pelin::make<EthHdrRewriteInfo>();
}
inline Pelin::Ptr<EthHdrRewriteInfo> EthHdrRewriteInfoIs() {
   return ethHdrRewriteInfoFactory();
}

inline Pelin::Ptr<EthHdrEncapRewriteInfo> ethHdrEncapRewriteInfoFactory() {
   return Pelin::make<EthHdrEncapRewriteInfo>();
}
inline Pelin::Ptr<EthHdrEncapRewriteInfo> EthHdrEncapRewriteInfoIs() {
   return ethHdrEncapRewriteInfoFactory();
}

inline Pelin::Ptr<StripDot1qTagRewriteInfo> stripDot1qTagRewriteInfoFactory() {
   return Pelin::make<StripDot1qTagRewriteInfo>();
}
inline Pelin::Ptr<StripDot1qTagRewriteInfo> StripDot1qTagRewriteInfoIs() {
   return stripDot1qTagRewriteInfoFactory();
}

inline Pelin::Ptr<VlanTagEncapRewriteInfo> vlanTagEncapRewriteInfoFactory() {
   return Pelin::make<VlanTagEncapRewriteInfo>();
}
inline Pelin::Ptr<VlanTagEncapRewriteInfo> VlanTagEncapRewriteInfoIs() {
   return vlanTagEncapRewriteInfoFactory();
}

inline Pelin::Ptr<IpHdrEncapRewriteInfo>
ipHdrEncapRewriteInfoFactory(const Lumo::IpGenAddr& srcIp, const Lumo::IpGenAddr& dstIp,
                             std::uint8_t protocol) {
   return Pelin::make<IpHdrEncapRewriteInfo>(srcIp, dstIp, protocol);
}
inline Pelin::Ptr<IpHdrEncapRewriteInfo>
IpHdrEncapRewriteInfoIs(const Lumo::IpGenAddr& srcIp, const Lumo::IpGenAddr& dstIp,
                        std::uint8_t protocol) {
   return ipHdrEncapRewriteInfoFactory(srcIp, dstIp, protocol);
}

inline Pelin::Ptr<UdpHdrEncapRewriteInfo> udpHdrEncapRewriteInfoFactory() {
   return Pelin::make<UdpHdrEncapRewriteInfo>();
}
inline Pelin::Ptr<UdpHdrEncapRewriteInfo> UdpHdrEncapRewriteInfoIs() {
   return udpHdrEncapRewriteInfoFactory();
}

inline Pelin::Ptr<Ipv4TtlRewriteInfo> ipv4TtlRewriteInfoFactory() {
   return Pelin::make<Ipv4TtlRewriteInfo>();
}
inline Pelin::Ptr<Ipv4TtlRewriteInfo> Ipv4TtlRewriteInfoIs() {
   return ipv4TtlRewriteInfoFactory();
}

inline Pelin::Ptr<Ipv6HopLimitRewriteInfo> ipv6HopLimitRewriteInfoFactory() {
   return Pelin::make<Ipv6HopLimitRewriteInfo>();
}
inline Pelin::Ptr<Ipv6HopLimitRewriteInfo> Ipv6HopLimitRewriteInfoIs() {
   return ipv6HopLimitRewriteInfoFactory();
}

inline Pelin::Ptr<Ipv6DestinationIpRewriteInfo>
ipv6DestinationIpRewriteInfoFactory(const Lumo::Ip6Addr& newDstIp) {
   return Pelin::make<Ipv6DestinationIpRewriteInfo>(newDstIp);
}
inline Pelin::Ptr<Ipv6DestinationIpRewriteInfo>
Ipv6DestinationIpRewriteInfoIs(const Lumo::Ip6Addr& newDstIp) {
   return ipv6DestinationIpRewriteInfoFactory(newDstIp);
}

inline Pelin::Ptr<GreHdrEncapRewriteInfo>
greHdrEncapRewriteInfoFactory(const Pelin::Ptr<const Lumo::GreHdr>& greHdr) {
   return Pelin::make<GreHdrEncapRewriteInfo>(greHdr);
}
inline Pelin::Ptr<GreHdrEncapRewriteInfo>
GreHdrEncapRewriteInfoIs(const Pelin::Ptr<const Lumo::GreHdr>& greHdr) {
   return greHdrEncapRewriteInfoFactory(greHdr);
}

inline Pelin::Ptr<GreDecapRewriteInfo>
greDecapRewriteInfoFactory(std::uint16_t protocol, int greHdrSize, int ipHdrSize) {
   return Pelin::make<GreDecapRewriteInfo>(protocol, greHdrSize, ipHdrSize);
}
inline Pelin::Ptr<GreDecapRewriteInfo>
GreDecapRewriteInfoIs(std::uint16_t protocol, int greHdrSize, int ipHdrSize) {
   return greDecapRewriteInfoFactory(protocol, greHdrSize, ipHdrSize);
}

inline Pelin::Ptr<IpIpDecapRewriteInfo> ipIpDecapRewriteInfoFactory(int ipHdrSize) {
   return Pelin::make<IpIpDecapRewriteInfo>(ipHdrSize);
}
inline Pelin::Ptr<IpIpDecapRewriteInfo> IpIpDecapRewriteInfoIs(int ipHdrSize) {
   return ipIpDecapRewriteInfoFactory(ipHdrSize);
}

inline Pelin::Ptr<UdpDecapRewriteInfo>
udpDecapRewriteInfoFactory(std::uint16_t dstPort, int udpHdrSize, int ipHdrSize) {
   return Pelin::make<UdpDecapRewriteInfo>(dstPort, udpHdrSize, ipHdrSize);
}
inline Pelin::Ptr<UdpDecapRewriteInfo>
UdpDecapRewriteInfoIs(std::uint16_t dstPort, int udpHdrSize, int ipHdrSize) {
   return udpDecapRewriteInfoFactory(dstPort, udpHdrSize, ipHdrSize);
}

inline Pelin::Ptr<SetDscpRewriteInfo> setDscpRewriteInfoFactory(std::uint8_t dscp) {
   return Pelin::make<SetDscpRewriteInfo>(dscp);
}
inline Pelin::Ptr<SetDscpRewriteInfo> SetDscpRewriteInfoIs(std::uint8_t dscp) {
   return setDscpRewriteInfoFactory(dscp);
}

} // namespace Velt
