#include "Packet/PacketParser.h"

#include "Lumo/PktBytes.h"
#include "Pelin/Assert.h"

namespace {

using Lumo::ParsedPkt;

constexpr std::size_t kEthBytes = 14;
constexpr std::size_t kTagBytes = 4;
constexpr std::size_t kIp4MinBytes = 20;
constexpr std::size_t kIp6Bytes = 40;
constexpr std::size_t kIp6FragBytes = 8;

constexpr std::uint16_t kEtherIp4 = 0x0800;
constexpr std::uint16_t kEtherIp6 = 0x86dd;

constexpr std::uint8_t kProtoTcp = 6;
constexpr std::uint8_t kProtoUdp = 17;
constexpr std::uint8_t kIp6HopByHop = 0;
constexpr std::uint8_t kIp6Routing = 43;
constexpr std::uint8_t kIp6Fragment = 44;
constexpr std::uint8_t kIp6Auth = 51;
constexpr std::uint8_t kIp6DstOpts = 60;

bool isVlanTpid(std::uint16_t type) {
   return type == 0x8100 || type == 0x88a8 || type == 0x9100;
}

std::uint16_t offset16(std::size_t off) {
   return static_cast<std::uint16_t>(off);
}

} // namespace

Lumo::ParsedPkt PacketParser::parse(const std::uint8_t* b, std::size_t len) const {
   VELT_ASSERT(b != nullptr || len == 0);
   ParsedPkt p;
   if (len < kEthBytes) {
      p.flags_ |= ParsedPkt::truncated;
      return p;
   }
   p.dstMac_ = Lumo::EthAddr(b);
   p.srcMac_ = Lumo::EthAddr(b + 6);
   std::uint16_t type = Lumo::load16(b + 12);
   p.flags_ |= ParsedPkt::ethFound;
   std::size_t off = kEthBytes;
   while (isVlanTpid(type)) {
      if (p.vlanCount_ == ParsedPkt::maxVlanTags) {
         p.flags_ |= ParsedPkt::tooManyTags;
         break;
      }
      if (len - off < kTagBytes) {
         p.flags_ |= ParsedPkt::truncated;
         break;
      }
      p.vlans_[p.vlanCount_++] = {type, Lumo::load16(b + off)};
      type = Lumo::load16(b + off + 2);
      off += kTagBytes;
   }
   p.etherType_ = type;
   if (p.flags_ & (ParsedPkt::tooManyTags | ParsedPkt::truncated)) return p;
   if (type == kEtherIp4) parseIp4(b, off, len, p);
   if (type == kEtherIp6) parseIp6(b, off, len, p);
   return p;
}

void PacketParser::parseIp4(const std::uint8_t* b, std::size_t off, std::size_t end,
                            Lumo::ParsedPkt& p) const {
   p.l3Offset_ = offset16(off);
   if (end - off < kIp4MinBytes) {
      p.flags_ |= ParsedPkt::truncated;
      return;
   }
   const std::uint8_t* h = b + off;
   const std::size_t ihl = std::size_t(h[0] & 0xf) * 4;
   if (h[0] >> 4 != 4 || ihl < kIp4MinBytes) {
      p.flags_ |= ParsedPkt::malformed;
      return;
   }
   p.flags_ |= ParsedPkt::ipv4Found;
   p.ttl_ = h[8];
   p.protocol_ = h[9];
   p.srcIp_ = Lumo::IpGenAddr(Lumo::AddressFamily::ipv4_, h + 12);
   p.dstIp_ = Lumo::IpGenAddr(Lumo::AddressFamily::ipv4_, h + 16);
   const std::uint16_t frag = Lumo::load16(h + 6);
   if (frag & 0x3fff) p.flags_ |= ParsedPkt::fragment; // more-fragments or an offset
   if (frag & 0x1fff) p.flags_ |= ParsedPkt::laterFragment;
   if (end - off < ihl) {
      p.flags_ |= ParsedPkt::truncated; // options cut short
      return;
   }
   // Trailing Ethernet padding is not payload; a total length we cannot trust is ignored.
   const std::size_t total = Lumo::load16(h + 2);
   if (total >= ihl && total <= end - off) end = off + total;
   if (p.has(ParsedPkt::laterFragment)) return;
   if (p.protocol_ == kProtoTcp || p.protocol_ == kProtoUdp)
      parsePorts(b, off + ihl, end, p);
}

void PacketParser::parseIp6(const std::uint8_t* b, std::size_t off, std::size_t end,
                            Lumo::ParsedPkt& p) const {
   p.l3Offset_ = offset16(off);
   if (end - off < kIp6Bytes) {
      p.flags_ |= ParsedPkt::truncated;
      return;
   }
   const std::uint8_t* h = b + off;
   if (h[0] >> 4 != 6) {
      p.flags_ |= ParsedPkt::malformed;
      return;
   }
   p.flags_ |= ParsedPkt::ipv6Found;
   std::uint8_t next = h[6];
   p.ttl_ = h[7];
   p.srcIp_ = Lumo::IpGenAddr(Lumo::AddressFamily::ipv6_, h + 8);
   p.dstIp_ = Lumo::IpGenAddr(Lumo::AddressFamily::ipv6_, h + 24);
   // A zero payload length is a jumbogram's; otherwise it bounds the payload.
   const std::size_t payload = Lumo::load16(h + 4);
   if (payload != 0 && payload <= end - off - kIp6Bytes) end = off + kIp6Bytes + payload;

   std::size_t cur = off + kIp6Bytes;
   unsigned walked = 0;
   for (;; ++walked) {
      p.protocol_ = next;
      const bool generic = next == kIp6HopByHop || next == kIp6Routing ||
                           next == kIp6DstOpts || next == kIp6Auth;
      if (!generic && next != kIp6Fragment) break;
      if (walked == maxIp6ExtHeaders) {
         p.flags_ |= ParsedPkt::extLimit;
         return;
      }
      if (end - cur < 2) {
         p.flags_ |= ParsedPkt::truncated;
         return;
      }
      std::size_t extLen = kIp6FragBytes;
      if (next == kIp6Auth)
         extLen = (std::size_t(b[cur + 1]) + 2) * 4;
      else if (generic)
         extLen = (std::size_t(b[cur + 1]) + 1) * 8;
      if (end - cur < extLen) {
         p.flags_ |= ParsedPkt::truncated;
         return;
      }
      if (next == kIp6Fragment) {
         const std::uint16_t frag = Lumo::load16(b + cur + 2);
         p.flags_ |= ParsedPkt::fragment;
         if (frag & 0xfff8) p.flags_ |= ParsedPkt::laterFragment;
      }
      next = b[cur];
      cur += extLen;
   }
   if (p.has(ParsedPkt::laterFragment)) return;
   if (next == kProtoTcp || next == kProtoUdp) parsePorts(b, cur, end, p);
}

void PacketParser::parsePorts(const std::uint8_t* b, std::size_t off, std::size_t end,
                              Lumo::ParsedPkt& p) const {
   p.l4Offset_ = offset16(off);
   if (end - off < 4) {
      p.flags_ |= ParsedPkt::truncated;
      return;
   }
   p.srcPort_ = Lumo::load16(b + off);
   p.dstPort_ = Lumo::load16(b + off + 2);
   p.flags_ |= ParsedPkt::portsFound;
}
