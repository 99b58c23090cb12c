#include "Kor/TypeInfo.h"
#include "VeltLib/RoutingRewriteInfoTypes.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

using namespace Velt;
using Lumo::IpGenAddr;

namespace {

const IpGenAddr v4a("10.0.0.1"), v4b("10.0.0.2"), v6a("2001:db8::1");

// An IPv4 header with one word of options (router alert), then a payload byte.
std::vector<std::uint8_t> ipv4WithOptions() {
   return {0x46, 0, 0, 25, 0, 0, 0, 0,   64, 4, 0, 0,   10,
           0,    0, 1, 10, 0, 0, 2, 148, 4,  0, 0, 0xaa};
}

Pelin::Ptr<const Lumo::Ip6Hdr> ip6Hdr() {
   return Pelin::make<Lumo::Ip6Hdr>(Lumo::Ip6Addr("2001:db8::1"), Lumo::Ip6Addr("::2"),
                                    17);
}

} // namespace

TEST(RewriteRecords, NamesAreFixed) {
   auto gre = Pelin::make<Lumo::GreHdr>(0x0800);
   std::vector<std::pair<Pelin::Ptr<RewriteInfo>, std::string>> cases = {
       {EthHdrRewriteInfoIs(), "EthHdrRewriteInfo"},
       {EthHdrEncapRewriteInfoIs(), "EthHdrEncapRewriteInfo"},
       {StripDot1qTagRewriteInfoIs(), "StripDot1qTagRewriteInfo"},
       {VlanTagEncapRewriteInfoIs(), "VlanTagEncapRewriteInfo"},
       {IpHdrEncapRewriteInfoIs(v4a, v4b, 47), "IpHdrEncapRewriteInfo"},
       {UdpHdrEncapRewriteInfoIs(), "UdpHdrEncapRewriteInfo"},
       {Ipv4TtlRewriteInfoIs(), "Ipv4TtlRewriteInfo"},
       {Ipv6HopLimitRewriteInfoIs(), "Ipv6HopLimitRewriteInfo"},
       {Ipv6DestinationIpRewriteInfo::createInfo(Lumo::Ip6Addr("::1")),
        "Ipv6DestinationIpRewriteInfo"},
       {GreHdrEncapRewriteInfoIs(gre), "GreHdrEncapRewriteInfo"},
       {GreDecapRewriteInfoIs(0x0800, 4, 20), "GreDecapRewriteInfo"},
       {IpIpDecapRewriteInfoIs(20), "IpIpDecapInfo"},
       {UdpDecapRewriteInfoIs(4789, 8, 20), "UdpDecapInfo"},
       {SetDscpRewriteInfo::createInfo(46), "SetDscpInfo"},
   };
   for (const auto& [record, name] : cases) {
      EXPECT_EQ(record->name(), name);
      EXPECT_EQ(Kor::get(*record, "name"), name);
   }
}

TEST(RewriteRecords, GreOverIpv4EncapChain) {
   auto list = RewriteInfosIs();
   list->rewriteInfoEnq(Ipv4TtlRewriteInfoIs());
   auto gre = Pelin::make<Lumo::GreHdr>(0x0800, Lumo::GreHdr::keyBit, 42);
   list->rewriteInfoEnq(GreHdrEncapRewriteInfoIs(gre));
   list->rewriteInfoEnq(IpHdrEncapRewriteInfoIs(v4a, v4b, 47));
   auto vlan = VlanTagEncapRewriteInfoIs();
   vlan->vlanTagStackIs(0, Trell::VlanTag(0x8100, 0, false, 100));
   list->rewriteInfoEnq(vlan);
   list->rewriteInfoEnq(EthHdrRewriteInfoIs());

   EXPECT_EQ(list->l3SizeChange(), 8 + 20);
   EXPECT_EQ(list->l2SizeChange(), 8 + 20 + 4);
   EXPECT_EQ(list->newTtl(64), 63);
   EXPECT_EQ(list->newTtl(0), -1);
}

TEST(RewriteRecords, GreEncapCountsOnlyTheKey) {
   auto keyed = Pelin::make<Lumo::GreHdr>(0x86dd, Lumo::GreHdr::keyBit, 7);
   EXPECT_EQ(GreHdrEncapRewriteInfoIs(keyed)->l2SizeChange(), 8);
   auto csumSeq = Pelin::make<Lumo::GreHdr>(
       0x86dd, Lumo::GreHdr::checksumBit | Lumo::GreHdr::sequenceBit, 0, 9);
   EXPECT_EQ(csumSeq->headerSize(), 12);
   EXPECT_EQ(csumSeq->sequence(), 9u);
   EXPECT_EQ(GreHdrEncapRewriteInfoIs(csumSeq)->l3SizeChange(), 4);
   EXPECT_THROW(GreHdrEncapRewriteInfoIs(nullptr), Pelin::NullArgumentException);
}

TEST(RewriteRecords, DecapsFromPacketHeaders) {
   auto bytes = ipv4WithOptions();
   auto ip = Lumo::IpHdr::fromBytes(bytes.data(), bytes.size());
   ASSERT_TRUE(ip);
   EXPECT_EQ(ip->headerBytes(), 24);
   EXPECT_EQ(ip->src(), v4a);
   auto ipip = IpIpDecapRewriteInfo::createInfo(ip, nullptr);
   EXPECT_EQ(ipip->l3SizeChange(), -24);
   EXPECT_EQ(ipip->l2SizeChange(), -24);

   auto udp = UdpDecapRewriteInfo::createInfo(4789, nullptr, ip6Hdr());
   EXPECT_EQ(udp->l2SizeChange(), -48);
   EXPECT_EQ(udp->dstPort(), 4789);

   std::uint8_t greBytes[] = {0x20, 0x00, 0x65, 0x58, 0, 0, 0, 5};
   auto gre = Lumo::GreHdr::fromBytes(greBytes, sizeof greBytes);
   ASSERT_TRUE(gre);
   auto decap = GreDecapRewriteInfo::createInfo(ip, nullptr, gre);
   EXPECT_EQ(decap->protocol(), 0x6558);
   EXPECT_EQ(decap->greHdrSize(), 8);
   EXPECT_EQ(decap->l3SizeChange(), -32);
}

TEST(RewriteRecords, HeadersAreNotReadPastTheBuffer) {
   auto bytes = ipv4WithOptions();
   EXPECT_FALSE(Lumo::IpHdr::fromBytes(bytes.data(), 22)); // options cut off
   bytes[0] = 0x44;                                        // header length below 5 words
   EXPECT_FALSE(Lumo::IpHdr::fromBytes(bytes.data(), bytes.size()));
   std::uint8_t greKeyCut[] = {0x20, 0x00, 0x08, 0x00, 0, 0};
   EXPECT_FALSE(Lumo::GreHdr::fromBytes(greKeyCut, sizeof greKeyCut));
   std::uint8_t v6[40] = {0x60};
   EXPECT_FALSE(Lumo::Ip6Hdr::fromBytes(v6, 39));
   EXPECT_EQ(Lumo::Ip6Hdr::fromBytes(v6, 40)->nextHeader(), 0);
   // Two tags, then the IPv4 EtherType ends the stack; a cut tag is not read.
   std::uint8_t tags[] = {0x88, 0xa8, 0x00, 0x0a, 0x81, 0x00, 0x20, 0x14, 0x08, 0x00};
   auto stack = Trell::VlanTagStack::fromBytes(tags, sizeof tags);
   ASSERT_EQ(stack.size(), 2u);
   EXPECT_EQ(stack.tag(1).vid(), 20);
   EXPECT_EQ(stack.tag(1).pcp(), 1);
   EXPECT_EQ(Trell::VlanTagStack::fromBytes(tags, 7).size(), 1u);
}

TEST(RewriteRecords, VlanPushAndPop) {
   auto vlan = VlanTagEncapRewriteInfoIs();
   vlan->vlanTagStackIs(0, Trell::VlanTag(0x88a8, 0, false, 10));
   vlan->vlanTagStackIs(1, Trell::VlanTag(0x8100, 0, false, 20));
   vlan->numTagsToPopIs(1);
   EXPECT_EQ(vlan->l2SizeChange(), 4);
   EXPECT_EQ(vlan->l3SizeChange(), 0);
   EXPECT_THROW(vlan->vlanTagStackIs(3, Trell::VlanTag()), Pelin::RangeException);
   auto popOnly = VlanTagEncapRewriteInfoIs();
   popOnly->numTagsToPopIs(2);
   EXPECT_EQ(popOnly->l2SizeChange(), -8);
   std::vector<std::string> seen;
   Kor::forEach(*vlan, "vlanTagStack", [&](const Kor::CollectionEntry& e) {
      seen.push_back(e.key + "=" + e.value);
   });
   EXPECT_EQ(seen, (std::vector<std::string>{"0=0x88a8:0:0:10", "1=0x8100:0:0:20"}));
}

TEST(RewriteRecords, VlanTagsBeforeRewrite) {
   auto eth = EthHdrEncapRewriteInfoIs();
   EXPECT_FALSE(eth->applyVlanTagsBeforeRewrite());
   EXPECT_EQ(Kor::get(*eth, "shouldApplyVlanTagsBeforeRewrite"), "none");
   Kor::set(*eth, "shouldApplyVlanTagsBeforeRewrite", "true");
   EXPECT_TRUE(eth->applyVlanTagsBeforeRewrite());
   EXPECT_EQ(eth->l2SizeChange(), 14);

   auto ip6 = IpHdrEncapRewriteInfoIs(v6a, IpGenAddr("2001:db8::2"), 41);
   EXPECT_EQ(ip6->encapAf(), Lumo::AddressFamily::ipv6_);
   EXPECT_EQ(ip6->l2SizeChange(), 40);
   EXPECT_TRUE(ip6->applyVlanTagsBeforeRewrite());
   auto udp = UdpHdrEncapRewriteInfoIs();
   Kor::set(*udp, "skipL2Headers", "true");
   EXPECT_FALSE(udp->applyVlanTagsBeforeRewrite());
   EXPECT_EQ(udp->l2SizeChange(), 8);
   EXPECT_FALSE(StripDot1qTagRewriteInfoIs()->applyVlanTagsBeforeRewrite());
}

TEST(RewriteRecordsDeathTest, CallerErrorsStopTheProcess) {
   auto bytes = ipv4WithOptions();
   auto ip = Lumo::IpHdr::fromBytes(bytes.data(), bytes.size());
   EXPECT_DEATH(ipHdrSizeFromV4OrV6(ip, ip6Hdr()), "Assertion failed: !ip6Hdr\n");
   EXPECT_DEATH(IpIpDecapRewriteInfo::createInfo(nullptr, nullptr),
                "Assertion failed: false && \"Need to specify a ip hdr\"\n");
   EXPECT_DEATH(IpHdrEncapRewriteInfoIs(v4a, v6a, 4),
                "Assertion failed: srcIp\\(\\).af\\(\\) == dstIp\\(\\).af\\(\\) && "
                "srcIp\\(\\).af\\(\\) != Lumo::AddressFamily::ipunknown_\n"
                "  in void Velt::IpHdrEncapRewriteInfo::defaultInit\\(\\)");
   EXPECT_DEATH(IpHdrEncapRewriteInfoIs(IpGenAddr(), IpGenAddr(), 4), "ipunknown_");
   auto encap = IpHdrEncapRewriteInfoIs(v4a, v4b, 4);
   encap->encapAfIs(static_cast<Lumo::AddressFamily>(9));
   EXPECT_EQ(encap->l3SizeChange(), 0);
   Kor::set(*encap, "encapAf", "ipunknown_");
   EXPECT_DEATH(encap->l3SizeChange(),
                "Assertion failed: false && \"Unknown Ip version\"\n");
}
