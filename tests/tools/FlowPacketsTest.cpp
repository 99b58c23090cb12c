#include "tools/pcapgen/FlowPackets.h"
#include "Lumo/PktBytes.h"
#include "Packet/PacketParser.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>

namespace {

using ::testing::HasSubstr;
using namespace VeltTools;

Flow flow(const char* src, const char* dst, std::uint8_t proto, std::uint16_t sport,
          std::uint16_t dport) {
   return Flow{Lumo::IpGenAddr(src), Lumo::IpGenAddr(dst), proto, sport, dport};
}

// The one's-complement sum of a correctly checksummed range is 0xffff.
std::uint32_t onesSum(const std::uint8_t* p, std::size_t n, std::uint32_t acc = 0) {
   for (std::size_t i = 0; i < n; i += 2)
      acc += std::uint32_t(p[i]) << 8 | (i + 1 < n ? p[i + 1] : 0);
   while (acc >> 16)
      acc = (acc & 0xffff) + (acc >> 16);
   return acc;
}

TEST(FlowPacket, ParsesBackWithValidChecksums) {
   const std::vector<Flow> flows = {flow("10.0.0.1", "192.0.2.9", kProtoUdp, 5000, 53),
                                    flow("10.0.0.1", "192.0.2.9", kProtoTcp, 5001, 443),
                                    flow("fd00::1", "2001:db8::9", kProtoUdp, 6000, 4789),
                                    flow("fd00::1", "2001:db8::9", kProtoTcp, 6001, 80)};
   for (std::size_t payload : {0, 1, 33}) {
      for (const auto& f : flows) {
         auto bytes = flowPacket(f, FrameOptions{.payloadBytes = payload});
         auto p = PacketParser().parse(bytes.data(), bytes.size());
         SCOPED_TRACE(fmt::format("{} -> {} proto {} payload {}", f.src, f.dst,
                                  f.protocol, payload));
         ASSERT_TRUE(p.has(Lumo::ParsedPkt::portsFound));
         EXPECT_FALSE(p.has(Lumo::ParsedPkt::truncated));
         EXPECT_EQ(p.srcIp(), f.src);
         EXPECT_EQ(p.dstIp(), f.dst);
         EXPECT_EQ(p.protocol(), f.protocol);
         EXPECT_EQ(p.srcPort(), f.srcPort);
         EXPECT_EQ(p.dstPort(), f.dstPort);
         EXPECT_EQ(p.dstMac(), Lumo::EthAddr("02:00:00:00:00:01"));
         const std::size_t l4Len = bytes.size() - p.l4Offset();
         EXPECT_EQ(l4Len, (f.protocol == kProtoTcp ? 20u : 8u) + payload);
         const std::uint8_t* ip = bytes.data() + p.l3Offset();
         std::uint32_t pseudo = f.protocol + std::uint32_t(l4Len);
         if (p.af() == Lumo::AddressFamily::ipv4_) {
            EXPECT_EQ(onesSum(ip, 20), 0xffffu) << "IPv4 header checksum";
            EXPECT_EQ(Lumo::load16(ip + 2), 20 + l4Len);
            pseudo = onesSum(ip + 12, 8, pseudo);
         } else {
            EXPECT_EQ(Lumo::load16(ip + 4), l4Len);
            pseudo = onesSum(ip + 8, 32, pseudo);
         }
         EXPECT_EQ(onesSum(bytes.data() + p.l4Offset(), l4Len, pseudo), 0xffffu)
             << "transport checksum";
      }
   }
}

TEST(FlowPacketDeathTest, FamiliesMustMatch) {
   EXPECT_DEATH(flowPacket(flow("10.0.0.1", "2001:db8::1", kProtoUdp, 1, 2)),
                "flow.src.af\\(\\) == flow.dst.af\\(\\)");
}

TEST(Destination, ParsesPrefixesAddressesAndWeights) {
   struct Good {
      const char* text;
      const char* prefix;
      std::uint32_t weight;
   };
   for (const auto& g :
        {Good{"10.0.0.0/8", "10.0.0.0/8", 1}, Good{"10.1.2.3/16=7", "10.1.0.0/16", 7},
         Good{"192.0.2.1", "192.0.2.1/32", 1},
         Good{"2001:db8::/32=3", "2001:db8::/32", 3},
         Good{"2001:db8::5", "2001:db8::5/128", 1}, Good{"0.0.0.0/0", "0.0.0.0/0", 1}}) {
      auto d = parseDestination(g.text);
      EXPECT_EQ(d.prefix, Lumo::IpGenPrefix(g.prefix)) << g.text;
      EXPECT_EQ(d.weight, g.weight) << g.text;
   }
   for (const char* bad : {"", "10.0.0.0/33", "2001:db8::/129", "10.0.0/8", "foo",
                           "10.0.0.0/", "10.0.0.0/8=", "10.0.0.0/8=0", "10.0.0.0/8=x",
                           "10.0.0.0/-1", "/8", "10.0.0.0/8=2=3"}) {
      try {
         parseDestination(bad);
         ADD_FAILURE() << "accepted '" << bad << "'";
      } catch (const BadDestination& e) {
         EXPECT_THAT(e.what(), HasSubstr(std::string(bad).substr(0, 8))) << bad;
      }
   }
}

FlowMix mixOf(std::vector<const char*> dsts, unsigned flows, std::uint64_t seed = 1) {
   FlowMix mix;
   for (const char* d : dsts)
      mix.destinations.push_back(parseDestination(d));
   mix.flows = flows;
   mix.seed = seed;
   return mix;
}

TEST(MakeFlows, DistinctSeededAndInsideThePrefixes) {
   const auto mix = mixOf({"198.51.100.0/24=3", "2001:db8:7::/48"}, 4000);
   const auto flows = makeFlows(mix);
   ASSERT_EQ(flows.size(), 4000u);
   EXPECT_EQ(makeFlows(mix), flows);
   EXPECT_NE(makeFlows(mixOf({"198.51.100.0/24=3", "2001:db8:7::/48"}, 4000, 2)), flows);
   EXPECT_EQ(std::set<Flow>(flows.begin(), flows.end()).size(), flows.size());

   unsigned v4 = 0, tcp = 0;
   std::set<Lumo::IpGenAddr> dsts;
   for (const auto& f : flows) {
      const bool isV4 = f.dst.af() == Lumo::AddressFamily::ipv4_;
      v4 += isV4;
      tcp += f.protocol == kProtoTcp;
      EXPECT_TRUE(mix.destinations[isV4 ? 0 : 1].prefix.contains(f.dst))
          << fmt::format("{}", f.dst);
      EXPECT_TRUE((isV4 ? mix.src4 : mix.src6).contains(f.src))
          << fmt::format("{}", f.src);
      EXPECT_GE(f.srcPort, 1024);
      dsts.insert(f.dst);
   }
   // Weight 3 to 1, and half TCP, within a few standard deviations (about 27 flows).
   EXPECT_NEAR(v4, 3000, 120);
   EXPECT_NEAR(tcp, 2000, 120);
   EXPECT_GT(dsts.size(), 200u); // addresses are spread inside the prefixes
}

TEST(MakeFlows, ProtocolShareAndErrors) {
   auto mix = mixOf({"10.9.0.0/16"}, 200);
   mix.tcpPercent = 0;
   for (const auto& f : makeFlows(mix))
      EXPECT_EQ(f.protocol, kProtoUdp);
   mix.tcpPercent = 100;
   for (const auto& f : makeFlows(mix))
      EXPECT_EQ(f.protocol, kProtoTcp);
   mix.tcpPercent = 101;
   EXPECT_THROW(makeFlows(mix), std::invalid_argument);
   EXPECT_THROW(makeFlows(mixOf({}, 10)), std::invalid_argument);
}

TEST(PacketOrder, EveryFlowAppearsAndOrderIsSeeded) {
   auto order = packetOrder(500, 4000, 9);
   ASSERT_EQ(order.size(), 4000u);
   EXPECT_EQ(std::set<std::size_t>(order.begin(), order.end()).size(), 500u);
   EXPECT_EQ(packetOrder(500, 4000, 9), order);
   EXPECT_NE(packetOrder(500, 4000, 10), order);
   // Fewer packets than flows: each packet a different flow.
   auto few = packetOrder(500, 50, 9);
   EXPECT_EQ(std::set<std::size_t>(few.begin(), few.end()).size(), 50u);
   EXPECT_LT(*std::max_element(few.begin(), few.end()), 500u);
   EXPECT_TRUE(packetOrder(0, 10, 1).empty());
}

} // namespace
