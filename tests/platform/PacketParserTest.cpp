#include "Packet/PacketParser.h"
#include "TestPackets.h"

#include <gtest/gtest.h>

#include <random>

namespace {

using Lumo::ParsedPkt;
using namespace TestPackets;

ParsedPkt parse(const std::vector<std::uint8_t>& bytes) {
   return PacketParser().parse(bytes.data(), bytes.size());
}

TEST(PacketParser, EthernetIpv4Udp) {
   auto p = parse(udp4("10.0.0.1", "192.0.2.7", 1234, 53));
   EXPECT_EQ(p.flags(),
             ParsedPkt::ethFound | ParsedPkt::ipv4Found | ParsedPkt::portsFound);
   EXPECT_EQ(p.dstMac(), Lumo::EthAddr("02:00:00:00:00:01"));
   EXPECT_EQ(p.srcMac(), Lumo::EthAddr("02:00:00:00:00:02"));
   EXPECT_EQ(p.etherType(), 0x0800);
   EXPECT_EQ(p.vlanCount(), 0u);
   EXPECT_EQ(p.af(), Lumo::AddressFamily::ipv4_);
   EXPECT_EQ(p.srcIp(), Lumo::IpGenAddr("10.0.0.1"));
   EXPECT_EQ(p.dstIp(), Lumo::IpGenAddr("192.0.2.7"));
   EXPECT_EQ(p.protocol(), kUdp);
   EXPECT_EQ(p.ttl(), 64);
   EXPECT_EQ(p.srcPort(), 1234);
   EXPECT_EQ(p.dstPort(), 53);
   EXPECT_EQ(p.l3Offset(), 14);
   EXPECT_EQ(p.l4Offset(), 34);
}

TEST(PacketParser, VlanTagsUpToTwo) {
   auto one = parse(Bytes()
                        .macs()
                        .tag(0x8100, 0xa064)
                        .u16(0x0800)
                        .ip4("10.1.1.1", "10.2.2.2", kTcp, 20, 0, 5, 9)
                        .tcp(80, 5555)
                        .v);
   EXPECT_TRUE(one.has(ParsedPkt::portsFound));
   ASSERT_EQ(one.vlanCount(), 1u);
   EXPECT_EQ(one.vlan(0).vlanId(), 100);
   EXPECT_EQ(one.vlan(0).pcp(), 5);
   EXPECT_EQ(one.etherType(), 0x0800);
   EXPECT_EQ(one.ttl(), 9);
   EXPECT_EQ(one.srcPort(), 80);
   EXPECT_EQ(one.l3Offset(), 18);

   auto qinq = parse(Bytes()
                         .macs()
                         .tag(0x88a8, 200)
                         .tag(0x8100, 300)
                         .u16(0x86dd)
                         .ip6("2001:db8::1", "2001:db8::2", kUdp, 8)
                         .udp(7, 8)
                         .v);
   ASSERT_EQ(qinq.vlanCount(), 2u);
   EXPECT_EQ(qinq.vlan(0).tpid, 0x88a8);
   EXPECT_EQ(qinq.vlan(0).vlanId(), 200);
   EXPECT_EQ(qinq.vlan(1).vlanId(), 300);
   EXPECT_EQ(qinq.l3Offset(), 22);
   EXPECT_EQ(qinq.dstPort(), 8);

   auto three = parse(Bytes()
                          .macs()
                          .tag(0x88a8, 1)
                          .tag(0x8100, 2)
                          .tag(0x8100, 3)
                          .u16(0x0800)
                          .ip4("10.0.0.1", "10.0.0.2", kUdp, 8)
                          .udp(1, 2)
                          .v);
   EXPECT_EQ(three.flags(), ParsedPkt::ethFound | ParsedPkt::tooManyTags);
   EXPECT_EQ(three.etherType(), 0x8100);
}

TEST(PacketParser, Ipv4HeaderLengthIsHonoured) {
   auto opts = parse(
       Bytes().eth(0x0800).ip4("10.0.0.1", "10.0.0.2", kUdp, 8, 0, 7).udp(1111, 2222).v);
   EXPECT_TRUE(opts.has(ParsedPkt::portsFound));
   EXPECT_EQ(opts.l4Offset(), 14 + 28);
   EXPECT_EQ(opts.srcPort(), 1111);

   for (unsigned ihl : {0u, 4u}) {
      auto bytes = udp4();
      bytes[14] = static_cast<std::uint8_t>(0x40 | ihl);
      EXPECT_EQ(parse(bytes).flags(), ParsedPkt::ethFound | ParsedPkt::malformed) << ihl;
   }
   // Options announced but cut off: the fixed header is still read.
   auto cut = Bytes().eth(0x0800).ip4("10.0.0.1", "10.0.0.2", kUdp, 0, 0, 15).v;
   cut.resize(14 + 40);
   auto p = parse(cut);
   EXPECT_TRUE(p.has(ParsedPkt::ipv4Found));
   EXPECT_TRUE(p.has(ParsedPkt::truncated));
   EXPECT_FALSE(p.has(ParsedPkt::portsFound));

   auto v6InV4 = udp4();
   v6InV4[14] = 0x65;
   EXPECT_TRUE(parse(v6InV4).has(ParsedPkt::malformed));
}

TEST(PacketParser, Ipv4FragmentsCarryPortsOnlyInTheFirst) {
   const unsigned moreFragments = 0x2000, dontFragment = 0x4000;
   auto first = parse(Bytes()
                          .eth(0x0800)
                          .ip4("10.0.0.1", "10.0.0.2", kUdp, 8, moreFragments)
                          .udp(1, 2)
                          .v);
   EXPECT_TRUE(first.has(ParsedPkt::fragment));
   EXPECT_FALSE(first.has(ParsedPkt::laterFragment));
   EXPECT_TRUE(first.has(ParsedPkt::portsFound));

   for (unsigned frag : {185u, moreFragments | 185u}) {
      auto later = parse(
          Bytes().eth(0x0800).ip4("10.0.0.1", "10.0.0.2", kUdp, 8, frag).udp(1, 2).v);
      EXPECT_TRUE(later.has(ParsedPkt::fragment));
      EXPECT_TRUE(later.has(ParsedPkt::laterFragment));
      EXPECT_FALSE(later.has(ParsedPkt::portsFound));
      EXPECT_EQ(later.srcPort(), 0);
   }
   auto whole = parse(Bytes()
                          .eth(0x0800)
                          .ip4("10.0.0.1", "10.0.0.2", kUdp, 8, dontFragment)
                          .udp(1, 2)
                          .v);
   EXPECT_FALSE(whole.has(ParsedPkt::fragment));
}

TEST(PacketParser, Ipv4TotalLengthExcludesEthernetPadding) {
   // A 2-byte UDP "header" padded to the 60-byte minimum frame: the padding is no port.
   auto bytes = Bytes().eth(0x0800).ip4("10.0.0.1", "10.0.0.2", kUdp, 2).u16(99).v;
   bytes.resize(60, 0xee);
   auto p = parse(bytes);
   EXPECT_TRUE(p.has(ParsedPkt::truncated));
   EXPECT_FALSE(p.has(ParsedPkt::portsFound));
}

TEST(PacketParser, Ipv6Tcp) {
   auto p = parse(tcp6("2001:db8::1", "2001:db8:1::2", 40000, 443));
   EXPECT_EQ(p.flags(),
             ParsedPkt::ethFound | ParsedPkt::ipv6Found | ParsedPkt::portsFound);
   EXPECT_EQ(p.etherType(), 0x86dd);
   EXPECT_EQ(p.af(), Lumo::AddressFamily::ipv6_);
   EXPECT_EQ(p.srcIp(), Lumo::IpGenAddr("2001:db8::1"));
   EXPECT_EQ(p.dstIp(), Lumo::IpGenAddr("2001:db8:1::2"));
   EXPECT_EQ(p.protocol(), kTcp);
   EXPECT_EQ(p.ttl(), 64);
   EXPECT_EQ(p.srcPort(), 40000);
   EXPECT_EQ(p.dstPort(), 443);
   EXPECT_EQ(p.l4Offset(), 54);
}

TEST(PacketParser, Ipv6ExtensionHeaders) {
   auto ext = parse(Bytes()
                        .eth(0x86dd)
                        .ip6("::1", "::2", 0, 8 + 24 + 8)
                        .ip6Ext(60)
                        .ip6Ext(kUdp, 2)
                        .udp(5, 6)
                        .v);
   EXPECT_TRUE(ext.has(ParsedPkt::portsFound));
   EXPECT_EQ(ext.protocol(), kUdp);
   EXPECT_EQ(ext.l4Offset(), 54 + 8 + 24);
   EXPECT_EQ(ext.dstPort(), 6);

   auto first =
       parse(Bytes().eth(0x86dd).ip6("::1", "::2", 44, 16).ip6Frag(kUdp, 1).udp(5, 6).v);
   EXPECT_TRUE(first.has(ParsedPkt::fragment));
   EXPECT_TRUE(first.has(ParsedPkt::portsFound));
   auto later = parse(
       Bytes().eth(0x86dd).ip6("::1", "::2", 44, 16).ip6Frag(kUdp, 100 << 3).udp(5, 6).v);
   EXPECT_TRUE(later.has(ParsedPkt::laterFragment));
   EXPECT_FALSE(later.has(ParsedPkt::portsFound));
   EXPECT_EQ(later.protocol(), kUdp);

   auto esp = parse(Bytes().eth(0x86dd).ip6("::1", "::2", 50, 8).u32(1).u32(2).v);
   EXPECT_EQ(esp.flags(), ParsedPkt::ethFound | ParsedPkt::ipv6Found);
   EXPECT_EQ(esp.protocol(), 50);

   Bytes chain;
   chain.eth(0x86dd).ip6("::1", "::2", 0, 8 * 9 + 8);
   for (unsigned i = 0; i < 8; ++i)
      chain.ip6Ext(0);
   chain.ip6Ext(kUdp).udp(1, 2);
   auto deep = parse(chain.v);
   EXPECT_TRUE(deep.has(ParsedPkt::extLimit));
   EXPECT_FALSE(deep.has(ParsedPkt::portsFound));
}

TEST(PacketParser, NonIpAndEmpty) {
   auto arp = parse(Bytes().eth(0x0806).zeros(28).v);
   EXPECT_EQ(arp.flags(), ParsedPkt::ethFound);
   EXPECT_EQ(arp.etherType(), 0x0806);
   EXPECT_FALSE(arp.isIp());
   EXPECT_EQ(PacketParser().parse(nullptr, 0).flags(), ParsedPkt::truncated);
   EXPECT_EQ(PacketParser().parse(Lumo::Pkt(udp4())).srcPort(), 1234);
}

// Every prefix of a packet that cuts a header is a partial parse: it finds a subset of
// what the whole packet has, with the same values, and says it was cut. Exact-size copies
// let ASan see overreads.
TEST(PacketParser, TruncationAtEveryLength) {
   const std::vector<std::vector<std::uint8_t>> packets = {
       udp4(),
       tcp6(),
       Bytes()
           .macs()
           .tag(0x8100, 5)
           .u16(0x0800)
           .ip4("1.2.3.4", "5.6.7.8", kTcp, 20, 0, 6)
           .tcp(1, 2)
           .v,
       Bytes()
           .macs()
           .tag(0x88a8, 5)
           .tag(0x8100, 6)
           .u16(0x86dd)
           .ip6("::1", "::2", 0, 40)
           .ip6Ext(44)
           .ip6Frag(kUdp, 1)
           .udp(9, 10)
           .v,
   };
   const std::uint16_t found = ParsedPkt::ethFound | ParsedPkt::ipv4Found |
                               ParsedPkt::ipv6Found | ParsedPkt::portsFound;
   for (const auto& full : packets) {
      const ParsedPkt whole = parse(full);
      ASSERT_TRUE(whole.has(ParsedPkt::portsFound));
      ASSERT_FALSE(whole.has(ParsedPkt::truncated));
      for (std::size_t n = 0; n < full.size(); ++n) {
         std::vector<std::uint8_t> cut(full.begin(), full.begin() + std::ptrdiff_t(n));
         const ParsedPkt p = parse(cut);
         SCOPED_TRACE(n);
         if (n >= whole.l4Offset() + 4u) { // only bytes after the ports are gone
            EXPECT_EQ(p.flags(), whole.flags());
            EXPECT_EQ(p.dstPort(), whole.dstPort());
            continue;
         }
         EXPECT_TRUE(p.has(ParsedPkt::truncated));
         EXPECT_FALSE(p.has(ParsedPkt::portsFound));
         EXPECT_EQ(p.flags() & found & ~whole.flags(), 0);
         if (p.isIp()) {
            EXPECT_EQ(p.srcIp(), whole.srcIp());
            EXPECT_EQ(p.dstIp(), whole.dstIp());
         }
         EXPECT_EQ(p.has(ParsedPkt::ethFound), n >= 14);
      }
   }
}

// Random bytes, and valid packets with random bytes changed and a random length, must
// parse without reading out of bounds and keep the flags consistent.
TEST(PacketParser, SurvivesRandomAndDamagedBytes) {
   std::mt19937 rng(20240611);
   const std::vector<std::vector<std::uint8_t>> seeds = {
       udp4(), tcp6(),
       Bytes()
           .eth(0x86dd)
           .ip6("::1", "::2", 0, 24)
           .ip6Ext(44)
           .ip6Frag(kTcp, 1)
           .tcp(1, 2)
           .v,
       Bytes()
           .macs()
           .tag(0x8100, 1)
           .tag(0x88a8, 2)
           .u16(0x0800)
           .ip4("1.1.1.1", "2.2.2.2", kUdp, 8, 0, 9)
           .udp(3, 4)
           .v};
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
      ASSERT_FALSE(p.has(ParsedPkt::ipv4Found) && p.has(ParsedPkt::ipv6Found));
      ASSERT_LE(p.l3Offset(), bytes.size());
      ASSERT_LE(p.l4Offset(), bytes.size());
      if (p.has(ParsedPkt::portsFound)) {
         ASSERT_TRUE(p.isIp());
         ASSERT_FALSE(p.has(ParsedPkt::laterFragment));
         ASSERT_LE(p.l4Offset() + 4u, bytes.size());
         ++portsSeen;
      }
      ASSERT_TRUE(!p.has(ParsedPkt::laterFragment) || p.has(ParsedPkt::fragment));
      if (p.isIp()) ++ipSeen;
   }
   // The damaged packets must reach deep enough for the test to mean something.
   EXPECT_GT(ipSeen, 40000u) << ipSeen;
   EXPECT_GT(portsSeen, 15000u);
}

TEST(PacketParserDeathTest, NullBytesWithALength) {
   EXPECT_DEATH(PacketParser().parse(nullptr, 4), "b != nullptr \\|\\| len == 0");
}

} // namespace
