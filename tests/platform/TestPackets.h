// Byte-by-byte packet building for the parser and hasher tests: each call appends one
// header in wire order, so a test reads like the packet it makes.
#pragma once
#include "Lumo/IpGenAddr.h"

#include <cstdint>
#include <vector>

namespace TestPackets {

constexpr std::uint8_t kTcp = 6;
constexpr std::uint8_t kUdp = 17;

struct Bytes {
   std::vector<std::uint8_t> v;

   Bytes& u8(unsigned x) {
      v.push_back(static_cast<std::uint8_t>(x));
      return *this;
   }
   Bytes& u16(unsigned x) { return u8(x >> 8).u8(x); }
   Bytes& u32(std::uint32_t x) { return u16(x >> 16).u16(x); }
   Bytes& zeros(std::size_t n) {
      v.insert(v.end(), n, 0);
      return *this;
   }
   Bytes& addr(const char* text) {
      Lumo::IpGenAddr a(text);
      v.insert(v.end(), a.bytes(), a.bytes() + a.byteLength());
      return *this;
   }

   // dst 02:00:00:00:00:01, src 02:00:00:00:00:02; the type (or first TPID) follows.
   Bytes& macs() { return u32(0x02000000).u16(0x0001).u32(0x02000000).u16(0x0002); }
   Bytes& eth(unsigned type) { return macs().u16(type); }
   // A tag, after macs() or another tag: TPID, TCI.
   Bytes& tag(unsigned tpid, unsigned tci) { return u16(tpid).u16(tci); }
   // `frag` is the flags + fragment offset word; `ihl` in 32-bit words (options zeroed).
   Bytes& ip4(const char* src, const char* dst, unsigned proto, unsigned payload,
              unsigned frag = 0, unsigned ihl = 5, unsigned ttl = 64) {
      u8(0x40 | ihl).u8(0).u16(ihl * 4 + payload).u16(0x1234).u16(frag);
      u8(ttl).u8(proto).u16(0).addr(src).addr(dst);
      return zeros(ihl > 5 ? (ihl - 5) * 4 : 0);
   }
   Bytes& ip6(const char* src, const char* dst, unsigned next, unsigned payload,
              unsigned hopLimit = 64) {
      return u32(0x60000000).u16(payload).u8(next).u8(hopLimit).addr(src).addr(dst);
   }
   // A hop-by-hop, routing or destination-options header of (len + 1) * 8 bytes.
   Bytes& ip6Ext(unsigned next, unsigned len = 0) {
      return u8(next).u8(len).zeros(6 + len * 8);
   }
   // `offsetAndMore` is the fragment offset (in 8-byte units) << 3 | more-fragments.
   Bytes& ip6Frag(unsigned next, unsigned offsetAndMore) {
      return u8(next).u8(0).u16(offsetAndMore).u32(0xabcd);
   }
   Bytes& udp(unsigned sport, unsigned dport, unsigned payload = 0) {
      return u16(sport).u16(dport).u16(8 + payload).u16(0);
   }
   Bytes& tcp(unsigned sport, unsigned dport) {
      return u16(sport).u16(dport).u32(1).u32(0).u16(0x5002).u16(0xffff).u32(0);
   }
};

// Ethernet + IPv4 + UDP, 42 bytes, no payload.
inline std::vector<std::uint8_t> udp4(const char* src = "10.0.0.1",
                                      const char* dst = "192.0.2.7",
                                      unsigned sport = 1234, unsigned dport = 53) {
   return Bytes().eth(0x0800).ip4(src, dst, kUdp, 8).udp(sport, dport).v;
}

// Ethernet + IPv6 + TCP, 74 bytes, no payload.
inline std::vector<std::uint8_t> tcp6(const char* src = "2001:db8::1",
                                      const char* dst = "2001:db8:1::2",
                                      unsigned sport = 40000, unsigned dport = 443) {
   return Bytes().eth(0x86dd).ip6(src, dst, kTcp, 20).tcp(sport, dport).v;
}

// One 802.1Q tag (VLAN 100, PCP 5) + IPv4 with one option word + TCP 80 -> 5555.
inline std::vector<std::uint8_t> vlanTcp4() {
   Bytes b;
   b.macs().tag(0x8100, 0xa064).u16(0x0800);
   return b.ip4("10.1.1.1", "10.2.2.2", kTcp, 20, 0, 6, 9).tcp(80, 5555).v;
}

// 802.1ad 200 + 802.1Q 300 + IPv6 + hop-by-hop + first fragment + UDP 7 -> 8.
inline std::vector<std::uint8_t> qinqFragUdp6() {
   Bytes b;
   b.macs().tag(0x88a8, 200).tag(0x8100, 300).u16(0x86dd);
   return b.ip6("::1", "::2", 0, 24).ip6Ext(44).ip6Frag(kUdp, 1).udp(7, 8).v;
}

} // namespace TestPackets
