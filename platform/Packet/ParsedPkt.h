// Lumo::ParsedPkt: the header fields the forwarding path reads from a packet, filled by
// PacketParser. A flat value (no heap); flags say which groups of fields are valid.
#pragma once
#include "Lumo/EthAddr.h"
#include "Lumo/IpGenAddr.h"

#include <array>
#include <cstdint>

class PacketParser;

namespace Lumo {

class ParsedPkt {
 public:
   static constexpr unsigned maxVlanTags = 2;

   enum Flag : std::uint16_t {
      ethFound = 1 << 0,      // macs and etherType
      ipv4Found = 1 << 1,     // addresses, protocol, ttl
      ipv6Found = 1 << 2,     // addresses, protocol (last next header), ttl (hop limit)
      portsFound = 1 << 3,    // TCP or UDP ports
      fragment = 1 << 4,      // one fragment of a larger datagram
      laterFragment = 1 << 5, // a fragment other than the first: it carries no ports
      truncated = 1 << 6,     // the bytes ended inside a header that should be there
      malformed = 1 << 7,     // a header is present but unusable (bad IHL, version)
      tooManyTags = 1 << 8,   // more VLAN tags than maxVlanTags; parsing stopped there
      extLimit = 1 << 9,      // more IPv6 extension headers than we walk; no ports
   };

   struct VlanTag {
      std::uint16_t tpid = 0;
      std::uint16_t tci = 0;
      std::uint16_t vlanId() const { return tci & 0xfff; }
      std::uint8_t pcp() const { return static_cast<std::uint8_t>(tci >> 13); }
   };

   std::uint16_t flags() const { return flags_; }
   bool has(Flag f) const { return (flags_ & f) != 0; }
   bool isIp() const { return (flags_ & (ipv4Found | ipv6Found)) != 0; }

   const EthAddr& dstMac() const { return dstMac_; }
   const EthAddr& srcMac() const { return srcMac_; }
   // The EtherType after any VLAN tags.
   std::uint16_t etherType() const { return etherType_; }
   unsigned vlanCount() const { return vlanCount_; }
   // Outermost first; i < vlanCount().
   const VlanTag& vlan(unsigned i) const { return vlans_[i]; }

   const IpGenAddr& srcIp() const { return srcIp_; }
   const IpGenAddr& dstIp() const { return dstIp_; }
   AddressFamily af() const { return srcIp_.af(); }
   std::uint8_t protocol() const { return protocol_; }
   std::uint8_t ttl() const { return ttl_; }
   std::uint16_t srcPort() const { return srcPort_; }
   std::uint16_t dstPort() const { return dstPort_; }
   // Offsets into the packet bytes of the IP and transport headers; 0 when not reached.
   std::uint16_t l3Offset() const { return l3Offset_; }
   std::uint16_t l4Offset() const { return l4Offset_; }

 private:
   friend class ::PacketParser;

   EthAddr dstMac_;
   EthAddr srcMac_;
   std::uint16_t etherType_ = 0;
   std::uint16_t flags_ = 0;
   std::array<VlanTag, maxVlanTags> vlans_{};
   std::uint8_t vlanCount_ = 0;
   std::uint8_t protocol_ = 0;
   std::uint8_t ttl_ = 0;
   IpGenAddr srcIp_;
   IpGenAddr dstIp_;
   std::uint16_t srcPort_ = 0;
   std::uint16_t dstPort_ = 0;
   std::uint16_t l3Offset_ = 0;
   std::uint16_t l4Offset_ = 0;
};

} // namespace Lumo
