#include "Packet/PacketContext.h"
#include "Packet/PacketParserRoot.h"
#include "TestPackets.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <array>
#include <functional>
#include <random>
#include <set>

namespace {

using Lumo::ParsedPkt;
using namespace TestPackets;

std::uint32_t hashOf(const std::vector<std::uint8_t>& bytes, std::uint32_t seed = 0) {
   return PacketHasher(seed).hash(PacketParser().parse(bytes.data(), bytes.size()));
}

TEST(PacketHasher, SameFlowSameHashAnyFieldChangesIt) {
   const std::uint32_t base = hashOf(udp4("10.0.0.1", "192.0.2.7", 1234, 53));
   EXPECT_NE(base, 0u);
   EXPECT_EQ(hashOf(udp4("10.0.0.1", "192.0.2.7", 1234, 53)), base);
   // Macs, tags and TTL are not part of the flow.
   EXPECT_EQ(hashOf(Bytes()
                        .macs()
                        .tag(0x8100, 7)
                        .u16(0x0800)
                        .ip4("10.0.0.1", "192.0.2.7", kUdp, 8, 0, 5, 3)
                        .udp(1234, 53)
                        .v),
             base);
   const std::set<std::uint32_t> changed = {
       base,
       hashOf(udp4("10.0.0.2", "192.0.2.7", 1234, 53)),
       hashOf(udp4("10.0.0.1", "192.0.2.8", 1234, 53)),
       hashOf(udp4("10.0.0.1", "192.0.2.7", 1235, 53)),
       hashOf(udp4("10.0.0.1", "192.0.2.7", 1234, 54)),
       hashOf(udp4("192.0.2.7", "10.0.0.1", 53, 1234)),
       hashOf(Bytes().eth(0x0800).ip4("10.0.0.1", "192.0.2.7", kTcp, 20).tcp(1234, 53).v),
       hashOf(udp4("10.0.0.1", "192.0.2.7", 1234, 53), 1),
   };
   EXPECT_EQ(changed.size(), 8u);

   const std::uint32_t v6 = hashOf(tcp6());
   EXPECT_NE(v6, 0u);
   EXPECT_EQ(hashOf(tcp6()), v6);
   EXPECT_NE(hashOf(tcp6("2001:db8::1", "2001:db8:1::3")), v6);
   EXPECT_NE(hashOf(tcp6("2001:db8::1", "2001:db8:1::2", 40001)), v6);
}

TEST(PacketHasher, FragmentsOfADatagramHashAlikeAndNonIpIsZero) {
   auto frag = [](unsigned word) {
      return hashOf(
          Bytes().eth(0x0800).ip4("10.0.0.1", "10.0.0.2", kUdp, 8, word).udp(1, 2).v);
   };
   EXPECT_EQ(frag(0x2000), frag(0x2000 | 185));
   EXPECT_EQ(frag(0x2000), frag(370));
   EXPECT_NE(frag(0x2000), 0u);
   EXPECT_EQ(hashOf(Bytes().eth(0x0806).zeros(28).v), 0u);
   EXPECT_EQ(PacketHasher().hash(ParsedPkt()), 0u);
   // An IP header without ports still hashes.
   EXPECT_NE(hashOf(Bytes().eth(0x86dd).ip6("::1", "::2", 50, 0).v), 0u);
}

// Pearson's chi-square over 16 buckets (15 degrees of freedom); 37.7 is exceeded by
// chance once in a thousand runs, and the flows are seeded so a pass stays a pass.
double chiSquare(const std::array<unsigned, 16>& counts, unsigned total) {
   const double expected = total / 16.0;
   double chi = 0;
   for (unsigned c : counts)
      chi += (c - expected) * (c - expected) / expected;
   return chi;
}

TEST(PacketHasher, SpreadsRandomAndSequentialFlowsEvenly) {
   std::mt19937 rng(7);
   PacketHasher hasher;
   PacketParser parser;
   auto addr4 = [&] {
      return fmt::format("10.{}.{}.{}", rng() % 256, rng() % 256, rng() % 256);
   };
   auto addr6 = [&] {
      return fmt::format("2001:db8:{:x}::{:x}", rng() % 65536, rng() % 65536);
   };
   struct Case {
      const char* name;
      std::function<std::vector<std::uint8_t>(unsigned)> make;
   };
   const std::vector<Case> cases = {
       {"random v4",
        [&](unsigned) {
           return udp4(addr4().c_str(), addr4().c_str(), rng() % 65536, rng() % 65536);
        }},
       {"random v6",
        [&](unsigned) {
           return tcp6(addr6().c_str(), addr6().c_str(), rng() % 65536, rng() % 65536);
        }},
       {"v4 source port walk",
        [&](unsigned i) { return udp4("10.0.0.1", "192.0.2.1", 10000 + i, 4789); }},
       {"v6 destination walk",
        [&](unsigned i) {
           auto dst = fmt::format("2001:db8::{:x}", i);
           return tcp6("2001:db8::99", dst.c_str(), 33000, 80);
        }},
   };
   const unsigned flows = 10000;
   for (const auto& c : cases) {
      std::array<unsigned, 16> low{}, high{};
      for (unsigned i = 0; i < flows; ++i) {
         auto bytes = c.make(i);
         const std::uint32_t h = hasher.hash(parser.parse(bytes.data(), bytes.size()));
         ++low[h % 16];
         ++high[h >> 28];
      }
      EXPECT_LT(chiSquare(low, flows), 37.7) << c.name;
      EXPECT_LT(chiSquare(high, flows), 37.7) << c.name;
   }
}

Pelin::Ptr<PacketContext> contextWith(std::vector<std::uint8_t> bytes,
                                      const Pelin::Ptr<PacketHasher>& hasher) {
   PacketContextBase base(9);
   if (!bytes.empty()) base.pktIs(Pelin::make<Lumo::Pkt>(std::move(bytes)));
   return Pelin::make<PacketContext>(base, Lumo::IntfId("Ethernet4"), hasher);
}

TEST(PacketContext, InitializeParsedPktParsesAndHashesOnce) {
   auto root = packetParserRootFactory();
   ASSERT_TRUE(root->parser() && root->hasher());

   auto ctx = contextWith(udp4(), root->hasher());
   EXPECT_EQ(ctx->id(), 9u);
   EXPECT_EQ(ctx->inIntf(), Lumo::IntfId("Ethernet4"));
   EXPECT_EQ(ctx->parsedPkt(), nullptr);
   EXPECT_EQ(ctx->hash(), 0u);
   ctx->initializeParsedPkt(root->parser());
   ASSERT_NE(ctx->parsedPkt(), nullptr);
   EXPECT_EQ(ctx->parsedPkt()->dstPort(), 53);
   EXPECT_EQ(ctx->hash(), hashOf(udp4()));
   ctx->hashIs(42); // an explicit hash still wins afterwards
   EXPECT_EQ(ctx->hash(), 42u);

   // A non-IP packet parses, and its hash says "none".
   auto arp = contextWith(Bytes().eth(0x0806).zeros(28).v, root->hasher());
   arp->hashIs(5);
   arp->initializeParsedPkt(root->parser());
   ASSERT_NE(arp->parsedPkt(), nullptr);
   EXPECT_EQ(arp->hash(), 0u);
}

TEST(PacketContext, WithoutParserPacketOrHasher) {
   auto root = packetParserRootFactory();
   auto noParser = contextWith(udp4(), root->hasher());
   noParser->initializeParsedPkt(nullptr);
   EXPECT_EQ(noParser->parsedPkt(), nullptr);
   EXPECT_EQ(noParser->hash(), 0u);

   auto noPkt = contextWith({}, root->hasher());
   noPkt->initializeParsedPkt(root->parser());
   EXPECT_EQ(noPkt->parsedPkt(), nullptr);

   auto noHasher = contextWith(tcp6(), nullptr);
   noHasher->hashIs(77);
   noHasher->initializeParsedPkt(root->parser());
   ASSERT_NE(noHasher->parsedPkt(), nullptr);
   EXPECT_EQ(noHasher->parsedPkt()->srcPort(), 40000);
   EXPECT_EQ(noHasher->hash(), 77u);

   // Parsing again with no parser forgets the earlier parse.
   noHasher->initializeParsedPkt(nullptr);
   EXPECT_EQ(noHasher->parsedPkt(), nullptr);
}

TEST(PacketParserRootDeathTest, NeedsBothParts) {
   EXPECT_DEATH(PacketParserRoot(nullptr, Pelin::make<PacketHasher>()),
                "parser_ && hasher_");
   EXPECT_DEATH(PacketParserRoot(Pelin::make<PacketParser>(), nullptr),
                "parser_ && hasher_");
}

} // namespace
