#include "Packet/PacketParser.h"
#include "TestPackets.h"

#include <gtest/gtest.h>

#include <random>

namespace {

using Lumo::ParsedPkt;
using namespace TestPackets;

constexpr unsigned E = ParsedPkt::ethFound, V4 = ParsedPkt::ipv4Found,
                   V6 = ParsedPkt::ipv6Found, P = ParsedPkt::portsFound,
                   FR = ParsedPkt::fragment, LF = ParsedPkt::laterFragment,
                   TR = ParsedPkt::truncated, MF = ParsedPkt::malformed;

ParsedPkt parse(const std::vector<std::uint8_t>& bytes) {
   return PacketParser().parse(bytes.data(), bytes.size());
}

TEST(PacketParser, EthernetIpv4UdpFields) {
   auto p = parse(udp4("10.0.0.1", "192.0.2.7", 1234, 53));
   EXPECT_EQ(p.flags(), E | V4 | P);
   EXPECT_EQ(p.dstMac(), Lumo::EthAddr("02:00:00:00:00:01"));
   EXPECT_EQ(p.srcMac(), Lumo::EthAddr("02:00:00:00:00:02"));
   EXPECT_EQ(p.etherType(), 0x0800);
   EXPECT_EQ(p.vlanCount(), 0u);
   EXPECT_EQ(p.srcIp(), Lumo::IpGenAddr("10.0.0.1"));
   EXPECT_EQ(p.dstIp(), Lumo::IpGenAddr("192.0.2.7"));
   EXPECT_EQ(p.protocol(), kUdp);
   EXPECT_EQ(p.ttl(), 64);
   EXPECT_EQ(p.srcPort(), 1234);
   EXPECT_EQ(p.dstPort(), 53);
   EXPECT_EQ(p.l3Offset(), 14);
   EXPECT_EQ(p.l4Offset(), 34);
}

TEST(PacketParser, VlanTagsAndIpv6Fields) {
   auto one = parse(vlanTcp4());
   ASSERT_EQ(one.vlanCount(), 1u);
   EXPECT_EQ(one.vlan(0).vlanId(), 100);
   EXPECT_EQ(one.vlan(0).pcp(), 5);
   EXPECT_EQ(one.etherType(), 0x0800);
   EXPECT_EQ(one.ttl(), 9);
   EXPECT_EQ(one.l3Offset(), 18);
   EXPECT_EQ(one.l4Offset(), 18 + 24);
   EXPECT_EQ(one.srcPort(), 80);

   auto qinq = parse(qinqFragUdp6());
   ASSERT_EQ(qinq.vlanCount(), 2u);
   EXPECT_EQ(qinq.vlan(0).tpid, 0x88a8);
   EXPECT_EQ(qinq.vlan(0).vlanId(), 200);
   EXPECT_EQ(qinq.vlan(1).vlanId(), 300);
   EXPECT_EQ(qinq.l3Offset(), 22);

   auto v6 = parse(tcp6("2001:db8::1", "2001:db8:1::2", 40000, 443));
   EXPECT_EQ(v6.flags(), E | V6 | P);
   EXPECT_EQ(v6.etherType(), 0x86dd);
   EXPECT_EQ(v6.srcIp(), Lumo::IpGenAddr("2001:db8::1"));
   EXPECT_EQ(v6.dstIp(), Lumo::IpGenAddr("2001:db8:1::2"));
   EXPECT_EQ(v6.protocol(), kTcp);
   EXPECT_EQ(v6.ttl(), 64);
   EXPECT_EQ(v6.srcPort(), 40000);
   EXPECT_EQ(v6.dstPort(), 443);
   EXPECT_EQ(v6.l4Offset(), 54);
   EXPECT_EQ(PacketParser().parse(Lumo::Pkt(tcp6())).dstPort(), 443);
}

std::vector<std::uint8_t> v4Udp(unsigned frag, unsigned ihl = 5) {
   return Bytes().eth(0x0800).ip4("10.0.0.1", "10.0.0.2", kUdp, 8, frag, ihl).udp(1, 2).v;
}
std::vector<std::uint8_t> v6(unsigned next, unsigned payload) {
   return Bytes().eth(0x86dd).ip6("::1", "::2", next, payload).v;
}
std::vector<std::uint8_t> operator+(std::vector<std::uint8_t> a, const Bytes& b) {
   a.insert(a.end(), b.v.begin(), b.v.end());
   return a;
}
std::vector<std::uint8_t> withByte(std::vector<std::uint8_t> b, std::size_t at, int v) {
   b[at] = static_cast<std::uint8_t>(v);
   return b;
}
std::vector<std::uint8_t> cutTo(std::vector<std::uint8_t> b, std::size_t n) {
   b.resize(n, 0xee); // growing pads, as Ethernet does short frames
   return b;
}

// Each packet shape: which flags it sets, its transport protocol and where ports start.
TEST(PacketParser, FlagsProtocolAndOffsetPerShape) {
   struct Shape {
      const char* name;
      std::vector<std::uint8_t> bytes;
      unsigned flags, protocol, l4Offset;
   };
   Bytes deepChain;
   for (unsigned i = 0; i < 8; ++i)
      deepChain.ip6Ext(0);
   const Shape shapes[] = {
       {"IPv4 options", v4Udp(0, 7), E | V4 | P, kUdp, 42},
       {"IHL 0", withByte(udp4(), 14, 0x40), E | MF, 0, 0},
       {"IHL 4", withByte(udp4(), 14, 0x44), E | MF, 0, 0},
       {"version 6 as IPv4", withByte(udp4(), 14, 0x65), E | MF, 0, 0},
       {"options cut off", cutTo(v4Udp(0, 15), 54), E | V4 | TR, kUdp, 0},
       {"first fragment", v4Udp(0x2000), E | V4 | FR | P, kUdp, 34},
       {"middle fragment", v4Udp(0x2000 | 185), E | V4 | FR | LF, kUdp, 0},
       {"last fragment", v4Udp(185), E | V4 | FR | LF, kUdp, 0},
       {"don't fragment", v4Udp(0x4000), E | V4 | P, kUdp, 34},
       // Total length says 2 transport bytes: the rest is padding, not a port.
       {"padded",
        cutTo(Bytes().eth(0x0800).ip4("1.0.0.1", "1.0.0.2", kUdp, 2).u16(9).v, 60),
        E | V4 | TR, kUdp, 34},
       {"IPv6 options", v6(0, 40) + Bytes().ip6Ext(60).ip6Ext(kUdp, 2).udp(5, 6),
        E | V6 | P, kUdp, 54 + 8 + 24},
       {"IPv6 first fragment", v6(44, 16) + Bytes().ip6Frag(kUdp, 1).udp(5, 6),
        E | V6 | FR | P, kUdp, 62},
       {"IPv6 later fragment", v6(44, 16) + Bytes().ip6Frag(kUdp, 100 << 3).udp(5, 6),
        E | V6 | FR | LF, kUdp, 0},
       {"IPv6 ESP", v6(50, 8) + Bytes().u32(1).u32(2), E | V6, 50, 0},
       {"9 extension headers", v6(0, 80) + deepChain + Bytes().ip6Ext(kUdp).udp(1, 2),
        E | V6 | ParsedPkt::extLimit, 0, 0},
       {"three tags",
        Bytes().macs().tag(0x88a8, 1).tag(0x8100, 2).tag(0x8100, 3).u16(0x0800).v +
            Bytes().ip4("10.0.0.1", "10.0.0.2", kUdp, 8).udp(1, 2),
        E | ParsedPkt::tooManyTags, 0, 0},
       {"ARP", Bytes().eth(0x0806).zeros(28).v, E, 0, 0},
       {"empty", {}, TR, 0, 0},
   };
   for (const auto& s : shapes) {
      const ParsedPkt p = parse(s.bytes);
      EXPECT_EQ(p.flags(), s.flags) << s.name;
      EXPECT_EQ(p.protocol(), s.protocol) << s.name;
      EXPECT_EQ(p.l4Offset(), s.l4Offset) << s.name;
   }
}

// Every prefix of a packet that cuts a header is a partial parse: it finds a subset of
// what the whole packet has, with the same values, and says it was cut. Exact-size copies
// let ASan see overreads.
TEST(PacketParser, TruncationAtEveryLength) {
   const unsigned found = E | V4 | V6 | P;
   for (const auto& full : {udp4(), tcp6(), vlanTcp4(), qinqFragUdp6()}) {
      const ParsedPkt whole = parse(full);
      ASSERT_EQ(whole.flags() & (P | TR), P);
      for (std::size_t n = 0; n < full.size(); ++n) {
         SCOPED_TRACE(n);
         const ParsedPkt p = parse({full.begin(), full.begin() + std::ptrdiff_t(n)});
         if (n >= whole.l4Offset() + 4u) { // only bytes after the ports are gone
            EXPECT_EQ(p.flags(), whole.flags());
            continue;
         }
         EXPECT_EQ(p.flags() & (P | TR), TR);
         EXPECT_EQ(p.flags() & found & ~whole.flags(), 0u);
         EXPECT_EQ(p.has(ParsedPkt::ethFound), n >= 14);
         EXPECT_TRUE(!p.isIp() || p.dstIp() == whole.dstIp());
      }
   }
}

// Random bytes, and valid packets with random bytes changed and a random length, must
// parse without reading out of bounds and keep the flags consistent.
TEST(PacketParser, SurvivesRandomAndDamagedBytes) {
   std::mt19937 rng(20240611);
   const std::vector<std::vector<std::uint8_t>> seeds = {udp4(), tcp6(), vlanTcp4(),
                                                         qinqFragUdp6()};
   PacketParser parser;
   unsigned ipSeen = 0, portsSeen = 0;
   for (int i = 0; i < 200000; ++i) {
      std::vector<std::uint8_t> bytes;
      if (i % 4 == 0) {
         bytes.resize(rng() % 128);
         for (auto& b : bytes)
            b = static_cast<std::uint8_t>(rng());
      } else {
         bytes = seeds[rng() % seeds.size()];
         for (unsigned flips = rng() % 4; flips > 0; --flips)
            bytes[rng() % bytes.size()] = static_cast<std::uint8_t>(rng());
         bytes.resize(rng() % (bytes.size() + 1));
         bytes.shrink_to_fit();
      }
      const ParsedPkt p = parser.parse(bytes.data(), bytes.size());
      ASSERT_NE(p.flags() & (V4 | V6), V4 | V6);
      ASSERT_LE(p.l4Offset() + (p.has(ParsedPkt::portsFound) ? 4u : 0u), bytes.size());
      ASSERT_TRUE(!p.has(ParsedPkt::portsFound) || (p.isIp() && !(p.flags() & LF)));
      ASSERT_TRUE(!(p.flags() & LF) || (p.flags() & FR));
      ipSeen += p.isIp();
      portsSeen += p.has(ParsedPkt::portsFound);
   }
   // The damaged packets must reach deep enough for the test to mean something.
   EXPECT_GT(ipSeen, 30000u);
   EXPECT_GT(portsSeen, 15000u) << portsSeen;
}

TEST(PacketParserDeathTest, NullBytesWithALength) {
   EXPECT_DEATH(PacketParser().parse(nullptr, 4), "b != nullptr \\|\\| len == 0");
}

} // namespace
