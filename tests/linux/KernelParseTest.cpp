// Netlink answers built byte by byte, as the kernel sends them, read by the parsers:
// multipath weights (stored as weight - 1), tables beyond 255, nexthop groups, neighbour
// link-layer addresses and the messages that are of no interest.
#include "kernel/KernelParse.h"

#include <gtest/gtest.h>
#include <linux/fib_rules.h>
#include <linux/neighbour.h>
#include <linux/nexthop.h>
#include <linux/rtnetlink.h>

#include <arpa/inet.h>
#include <cstring>
#include <vector>

namespace {

using namespace VeltLinux;

// One message: netlink header, family header, then attributes appended in order.
class Message {
 public:
   template <typename Header>
   Message(std::uint16_t type, const Header& header) {
      bytes_.resize(NLMSG_HDRLEN);
      append(&header, sizeof(header));
      head()->nlmsg_type = type;
   }
   void attr(std::uint16_t type, const void* data, std::size_t len) {
      rtattr a{static_cast<unsigned short>(RTA_LENGTH(len)), type};
      append(&a, sizeof(a));
      append(data, len);
   }
   void u32(std::uint16_t type, std::uint32_t v) { attr(type, &v, sizeof(v)); }
   void ipv4(std::uint16_t type, const char* text) {
      in_addr a;
      inet_pton(AF_INET, text, &a);
      attr(type, &a, sizeof(a));
   }
   const nlmsghdr& msg() {
      head()->nlmsg_len = static_cast<std::uint32_t>(bytes_.size());
      return *head();
   }

 private:
   nlmsghdr* head() { return reinterpret_cast<nlmsghdr*>(bytes_.data()); }
   void append(const void* data, std::size_t len) {
      const std::size_t at = bytes_.size();
      bytes_.resize(at + RTA_ALIGN(len), 0);
      std::memcpy(bytes_.data() + at, data, len);
   }
   std::vector<std::uint8_t> bytes_;
};

// An rtnexthop with an RTA_GATEWAY, as one entry of RTA_MULTIPATH.
std::vector<std::uint8_t> hop(int ifindex, unsigned char hops, const char* gateway) {
   std::vector<std::uint8_t> out(RTNH_LENGTH(RTA_LENGTH(4)), 0);
   rtnexthop nh{static_cast<unsigned short>(out.size()), 0, hops, ifindex};
   std::memcpy(out.data(), &nh, sizeof(nh));
   rtattr a{static_cast<unsigned short>(RTA_LENGTH(4)), RTA_GATEWAY};
   std::memcpy(out.data() + RTNH_LENGTH(0), &a, sizeof(a));
   inet_pton(AF_INET, gateway, out.data() + RTNH_LENGTH(0) + RTA_LENGTH(0));
   return out;
}

TEST(KernelParseTest, MultipathRouteKeepsWeightsGatewaysAndItsTable) {
   rtmsg rtm{};
   rtm.rtm_family = AF_INET;
   rtm.rtm_dst_len = 24;
   rtm.rtm_table = RT_TABLE_COMPAT; // tables beyond 255 are in RTA_TABLE only
   rtm.rtm_type = RTN_UNICAST;
   Message m(RTM_NEWROUTE, rtm);
   m.ipv4(RTA_DST, "198.51.100.0");
   m.u32(RTA_TABLE, 1000);
   m.u32(RTA_PRIORITY, 20);
   std::vector<std::uint8_t> multipath = hop(2, 0, "192.0.2.2");
   std::vector<std::uint8_t> second = hop(3, 2, "192.0.2.3");
   multipath.insert(multipath.end(), second.begin(), second.end());
   m.attr(RTA_MULTIPATH, multipath.data(), multipath.size());
   auto r = parseRoute(m.msg());
   ASSERT_TRUE(r);
   EXPECT_EQ(r->table, 1000u);
   EXPECT_EQ(r->prefix, Lumo::IpGenPrefix("198.51.100.0/24"));
   EXPECT_EQ(r->priority, 20u);
   ASSERT_EQ(r->paths.size(), 2u);
   EXPECT_EQ(r->paths[0], (KernelPath{2, Lumo::IpGenAddr("192.0.2.2"), 1}));
   EXPECT_EQ(r->paths[1], (KernelPath{3, Lumo::IpGenAddr("192.0.2.3"), 3}));
}

TEST(KernelParseTest, RouteWithoutDestinationIsTheDefaultAndClonesAreSkipped) {
   rtmsg rtm{};
   rtm.rtm_family = AF_INET6;
   rtm.rtm_table = RT_TABLE_MAIN;
   rtm.rtm_type = RTN_UNREACHABLE;
   Message m(RTM_NEWROUTE, rtm);
   m.u32(RTA_NH_ID, 0);
   auto r = parseRoute(m.msg());
   ASSERT_TRUE(r);
   EXPECT_EQ(r->prefix, Lumo::IpGenPrefix("::/0"));
   EXPECT_EQ(r->type, RouteType::unreachable);
   EXPECT_TRUE(r->paths.empty());

   rtm.rtm_flags = RTM_F_CLONED;
   EXPECT_FALSE(parseRoute(Message(RTM_NEWROUTE, rtm).msg()));
   rtm.rtm_flags = 0;
   rtm.rtm_family = AF_MPLS;
   EXPECT_FALSE(parseRoute(Message(RTM_NEWROUTE, rtm).msg()));
   EXPECT_FALSE(parseRoute(Message(RTM_NEWLINK, rtm).msg()));
}

TEST(KernelParseTest, NexthopGroupWeightsAndSinglePaths) {
   nhmsg nhm{};
   nhm.nh_family = AF_INET;
   Message group(RTM_NEWNEXTHOP, nhm);
   group.u32(NHA_ID, 10);
   nexthop_grp members[2] = {{1, 0, 0, 0}, {3, 4, 0, 0}};
   group.attr(NHA_GROUP, members, sizeof(members));
   auto g = parseNexthop(group.msg());
   ASSERT_TRUE(g);
   EXPECT_EQ(g->id, 10u);
   ASSERT_EQ(g->group.size(), 2u);
   EXPECT_EQ(g->group[0].weight, 1u);
   EXPECT_EQ(g->group[1].id, 3u);
   EXPECT_EQ(g->group[1].weight, 5u);

   Message one(RTM_NEWNEXTHOP, nhm);
   one.u32(NHA_ID, 3);
   one.u32(NHA_OIF, 7);
   one.ipv4(NHA_GATEWAY, "192.0.2.9");
   auto n = parseNexthop(one.msg());
   ASSERT_TRUE(n);
   EXPECT_EQ(n->path, (KernelPath{7, Lumo::IpGenAddr("192.0.2.9"), 1}));
   EXPECT_TRUE(n->group.empty());
   EXPECT_FALSE(n->blackhole);
}

TEST(KernelParseTest, NeighbourWithAndWithoutLinkLayerAddress) {
   ndmsg nd{};
   nd.ndm_family = AF_INET;
   nd.ndm_ifindex = 4;
   nd.ndm_state = NUD_STALE;
   Message m(RTM_NEWNEIGH, nd);
   m.ipv4(NDA_DST, "192.0.2.2");
   const std::uint8_t mac[6] = {2, 0, 0, 0, 1, 2};
   m.attr(NDA_LLADDR, mac, sizeof(mac));
   auto n = parseNeighbour(m.msg());
   ASSERT_TRUE(n);
   EXPECT_EQ(n->index, 4);
   EXPECT_EQ(n->state, NUD_STALE);
   EXPECT_TRUE(n->hasMac);
   EXPECT_EQ(n->mac, Lumo::EthAddr("02:00:00:00:01:02"));

   nd.ndm_state = NUD_INCOMPLETE;
   Message bare(RTM_NEWNEIGH, nd);
   bare.ipv4(NDA_DST, "192.0.2.3");
   auto b = parseNeighbour(bare.msg());
   ASSERT_TRUE(b);
   EXPECT_FALSE(b->hasMac);
}

TEST(KernelParseTest, RulesKeepTableLookupsWithTheirSelectors) {
   fib_rule_hdr frh{};
   frh.family = AF_INET;
   frh.action = FR_ACT_TO_TBL;
   Message m(RTM_NEWRULE, frh);
   m.u32(FRA_PRIORITY, 1000);
   m.u32(FRA_TABLE, 10);
   const char iif[] = "e3";
   m.attr(FRA_IIFNAME, iif, sizeof(iif));
   auto r = parseRule(m.msg());
   ASSERT_TRUE(r);
   EXPECT_EQ(r->table, 10u);
   EXPECT_EQ(r->iif, "e3");
   EXPECT_EQ(r->oif, "");

   frh.action = FR_ACT_BLACKHOLE;
   EXPECT_FALSE(parseRule(Message(RTM_NEWRULE, frh).msg()));
}

} // namespace
