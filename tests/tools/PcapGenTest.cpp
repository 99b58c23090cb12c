// Runs the built velt-pcapgen and checks its files through the pcap reader and the
// parser.
#include "Lumo/IpGenPrefix.h"
#include "Packet/PacketParser.h"
#include "ToolTestUtil.h"
#include "tools/common/PcapReader.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <tuple>

namespace {

using Lumo::ParsedPkt;
using ::testing::HasSubstr;

ToolTest::Run pcapgen(const std::string& args) {
   return ToolTest::run(VELT_PCAPGEN, args);
}

using FiveTuple = std::tuple<Lumo::IpGenAddr, Lumo::IpGenAddr, int, int, int>;

TEST(PcapGen, WritesMixedFlowsThatParseBack) {
   const auto path = ToolTest::tmpPath("pcapgen-mixed.pcap");
   auto r =
       pcapgen("-o " + path + " --dst 198.51.100.0/24=2 --dst 2001:db8:5::/64 --seed 3");
   ASSERT_EQ(r.status, 0) << r.output;
   EXPECT_EQ(r.output, "");

   const Lumo::IpGenPrefix dst4("198.51.100.0/24"), dst6("2001:db8:5::/64");
   VeltTools::PcapReader reader(path);
   EXPECT_EQ(reader.linkType(), 1);
   PacketParser parser;
   std::map<FiveTuple, std::vector<std::uint8_t>> flows;
   unsigned packets = 0, v4 = 0, tcp = 0;
   while (auto pkt = reader.next()) {
      ++packets;
      const ParsedPkt p = parser.parse(pkt->data(), pkt->size());
      ASSERT_TRUE(p.has(ParsedPkt::portsFound)) << packets;
      ASSERT_FALSE(p.has(ParsedPkt::truncated)) << packets;
      const bool isV4 = p.af() == Lumo::AddressFamily::ipv4_;
      v4 += isV4;
      tcp += p.protocol() == 6;
      EXPECT_TRUE((isV4 ? dst4 : dst6).contains(p.dstIp()))
          << fmt::format("{}", p.dstIp());
      FiveTuple key{p.srcIp(), p.dstIp(), p.protocol(), p.srcPort(), p.dstPort()};
      std::vector<std::uint8_t> bytes(pkt->begin(), pkt->end());
      auto [it, fresh] = flows.emplace(key, bytes);
      EXPECT_TRUE(fresh || it->second == bytes) << "a flow's packets differ";
   }
   EXPECT_EQ(packets, 4000u);
   EXPECT_EQ(flows.size(), 500u);
   EXPECT_GT(v4, 2000u); // weight 2 of 3
   EXPECT_LT(v4, 3400u);
   EXPECT_GT(tcp, 1000u);
   EXPECT_LT(tcp, 3000u);
}

TEST(PcapGen, SameSeedSameBytes) {
   const auto a = ToolTest::tmpPath("pcapgen-seed-a.pcap");
   const auto b = ToolTest::tmpPath("pcapgen-seed-b.pcap");
   const auto c = ToolTest::tmpPath("pcapgen-seed-c.pcap");
   const std::string common = " --dst 10.20.0.0/16 --dst 2001:db8::/32=3 -n 300 -f 40"
                              " --payload 20 --tcp-percent 30";
   ASSERT_EQ(pcapgen("-o " + a + common + " -s 77").status, 0);
   ASSERT_EQ(pcapgen("-o " + b + common + " -s 77").status, 0);
   ASSERT_EQ(pcapgen("-o " + c + common + " -s 78").status, 0);
   const auto bytesA = ToolTest::fileBytes(a);
   EXPECT_EQ(ToolTest::fileBytes(b), bytesA);
   EXPECT_NE(ToolTest::fileBytes(c), bytesA);

   std::map<FiveTuple, int> flows;
   PacketParser parser;
   for (const auto& pkt : VeltTools::readPcapFile(a)) {
      const ParsedPkt p = parser.parse(pkt.data(), pkt.size());
      EXPECT_EQ(pkt.size(), p.l4Offset() + (p.protocol() == 6 ? 20u : 8u) + 20u);
      ++flows[{p.srcIp(), p.dstIp(), p.protocol(), p.srcPort(), p.dstPort()}];
   }
   EXPECT_EQ(flows.size(), 40u);
}

TEST(PcapGen, FewerPacketsThanFlows) {
   const auto path = ToolTest::tmpPath("pcapgen-few.pcap");
   ASSERT_EQ(pcapgen("-o " + path + " --dst 192.0.2.1 -n 7").status, 0);
   const auto packets = VeltTools::readPcapFile(path);
   ASSERT_EQ(packets.size(), 7u);
   PacketParser parser;
   for (const auto& pkt : packets)
      EXPECT_EQ(parser.parse(pkt.data(), pkt.size()).dstIp(),
                Lumo::IpGenAddr("192.0.2.1"));
}

TEST(PcapGen, BadArgumentsNameTheArgument) {
   const auto out = ToolTest::tmpPath("pcapgen-bad.pcap");
   struct Case {
      std::string args;
      int status;
      const char* says;
   };
   const std::vector<Case> cases = {
       {"-o " + out + " --dst 10.0.0.0/33", 2, "--dst: bad prefix length '33'"},
       {"-o " + out + " --dst 10.0.0.0/8 --dst nonsense", 2, "'nonsense'"},
       {"-o " + out + " --dst 10.0.0.0/8=0", 2, "--dst: weight must be at least 1"},
       {"-o " + out + " --dst 10.0.0.0/8 -n 0", 2, "--packets"},
       {"-o " + out + " --dst 10.0.0.0/8 --flows 0", 2, "--flows"},
       {"-o " + out + " --dst 10.0.0.0/8 --tcp-percent 101", 2, "--tcp-percent"},
       {"-o " + out, 2, "--dst is required"},
       {"--dst 10.0.0.0/8", 2, "--out is required"},
       {"-o " + out + " --dst 10.0.0.0/8 --bogus", 2, "--bogus"},
       {"-o /nonexistent-dir/x.pcap --dst 10.0.0.0/8", 1,
        "--out: /nonexistent-dir/x.pcap"},
   };
   for (const auto& c : cases) {
      auto r = pcapgen(c.args);
      EXPECT_EQ(r.status, c.status) << c.args << "\n" << r.output;
      EXPECT_THAT(r.output, HasSubstr(c.says)) << c.args;
   }
   auto help = pcapgen("--help");
   EXPECT_EQ(help.status, 0);
   EXPECT_THAT(help.output, HasSubstr("--dst"));
}

} // namespace
