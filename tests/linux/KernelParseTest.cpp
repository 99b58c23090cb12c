// Netlink answers built byte by byte, as the kernel sends them, read by the parsers:
// multipath weights (stored as weight - 1), tables beyond 255, nexthop groups, neighbour
// link-layer addresses and the messages that are of no interest; and damaged answers
// (cut short, unaligned, lengths that do not add up) refused with errors naming the fault.
#include "kernel/KernelParse.h"

#include <gtest/gtest.h>
#include <linux/fib_rules.h>
#include <linux/neighbour.h>
#include <linux/nexthop.h>
#include <linux/rtnetlink.h>

#include <arpa/inet.h>
#include <cstring>
#include <string>
#include <optional>
#include <span>
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
   // The message with its last `cut` bytes gone and its length saying so, unaligned.
   std::vector<std::uint8_t> cutBy(std::size_t cut) {
      msg();
      std::vector<std::uint8_t> out(bytes_.begin(), bytes_.end() - static_cast<long>(cut));
      reinterpret_cast<nlmsghdr*>(out.data())->nlmsg_len = static_cast<std::uint32_t>(out.size());
      return out;
   }

 private:
   nlmsghdr* head() { return reinterpret_cast<nlmsghdr*>(bytes_.data()); }
   void append(const void* data, std::size_t len) {
      const std::size_t at = bytes_.size();
      bytes_.resize(at + RTA_ALIGN(len), 0);
      if (len > 0) std::memcpy(bytes_.data() + at, data, len);
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

// What parsing `msg` raises; "accepted" when it does not.
template <typename Parse>
std::string errorOf(Parse parse, const nlmsghdr& msg) {
   try {
      parse(msg);
   } catch (const NetlinkError& e) {
      return e.what();
   }
   return "accepted";
}

std::vector<std::uint16_t> typesIn(std::span<const std::uint8_t> buffer) {
   std::vector<std::uint16_t> types;
   forEachMessage(buffer, [&](const nlmsghdr& m) { types.push_back(m.nlmsg_type); });
   return types;
}

rtmsg ipv4Route(unsigned char length) {
   rtmsg rtm{};
   rtm.rtm_family = AF_INET;
   rtm.rtm_dst_len = length;
   rtm.rtm_table = RT_TABLE_MAIN;
   rtm.rtm_type = RTN_UNICAST;
   return rtm;
}

TEST(KernelParseTest, WalkStopsAtTheBufferWhateverTheLengthsSay) {
   Message route(RTM_NEWROUTE, ipv4Route(24));
   route.ipv4(RTA_DST, "198.51.100.0");
   std::vector<std::uint8_t> two(route.msg().nlmsg_len * 2);
   std::memcpy(two.data(), &route.msg(), route.msg().nlmsg_len);
   std::memcpy(two.data() + route.msg().nlmsg_len, &route.msg(), route.msg().nlmsg_len);
   EXPECT_EQ(typesIn(two), (std::vector<std::uint16_t>{RTM_NEWROUTE, RTM_NEWROUTE}));

   // A last message whose length is not a multiple of 4 ends the walk; its remainder
   // once wrapped around to 2^32 and the walk read on past the buffer.
   std::vector<std::uint8_t> unaligned = Message(RTM_NEWROUTE, ipv4Route(0)).cutBy(3);
   EXPECT_EQ(typesIn(unaligned), (std::vector<std::uint16_t>{RTM_NEWROUTE}));

   // A message claiming more bytes than there are, or bytes too few for a header.
   std::vector<std::uint8_t> claims = two;
   reinterpret_cast<nlmsghdr*>(claims.data())->nlmsg_len = 4096;
   EXPECT_THROW(typesIn(claims), NetlinkError);
   // A length of 2^31 or more passes libmnl's signed check and once sent the walk far away.
   reinterpret_cast<nlmsghdr*>(claims.data())->nlmsg_len = 0xffffff2c;
   EXPECT_THROW(typesIn(claims), NetlinkError);
   try {
      typesIn(std::span(two).first(two.size() - 1));
      ADD_FAILURE() << "a cut message was walked";
   } catch (const NetlinkError& e) {
      EXPECT_EQ(std::string(e.what()),
                "netlink answer: " + std::to_string(route.msg().nlmsg_len - 1) +
                    " bytes at offset " + std::to_string(route.msg().nlmsg_len) +
                    " are no whole message");
   }
   EXPECT_TRUE(typesIn({}).empty());
}

TEST(KernelParseTest, AttributeCutShortAtTheEndOfTheMessageIsNotReadPast) {
   Message m(RTM_NEWROUTE, ipv4Route(24));
   m.ipv4(RTA_DST, "198.51.100.0");
   m.u32(RTA_PRIORITY, 7);
   // The priority's last byte is gone: the attribute no longer fits and is left out.
   std::vector<std::uint8_t> bytes = m.cutBy(1);
   std::optional<KernelRoute> r;
   forEachMessage(bytes, [&](const nlmsghdr& msg) { r = parseRoute(msg); });
   ASSERT_TRUE(r);
   EXPECT_EQ(r->prefix, Lumo::IpGenPrefix("198.51.100.0/24"));
   EXPECT_EQ(r->priority, 0u);
}

TEST(KernelParseTest, PrefixLengthsBeyondTheAddressAreRefused) {
   Message v4(RTM_NEWROUTE, ipv4Route(160));
   v4.ipv4(RTA_DST, "198.51.100.0");
   EXPECT_EQ(errorOf(parseRoute, v4.msg()),
             "netlink route message: prefix length 160 is above 32 for IPv4");
   rtmsg rtm6 = ipv4Route(129);
   rtm6.rtm_family = AF_INET6;
   EXPECT_EQ(errorOf(parseRoute, Message(RTM_NEWROUTE, rtm6).msg()),
             "netlink route message: prefix length 129 is above 128 for IPv6");

   ifaddrmsg ifa{};
   ifa.ifa_family = AF_INET;
   ifa.ifa_prefixlen = 33;
   ifa.ifa_index = 2;
   Message address(RTM_NEWADDR, ifa);
   address.ipv4(IFA_LOCAL, "192.0.2.1");
   EXPECT_EQ(errorOf(parseAddress, address.msg()),
             "netlink address message: prefix length 33 is above 32 for IPv4");
}

TEST(KernelParseTest, HeadersAndAttributesOfTheWrongSizeAreRefused) {
   // Only the netlink header and two bytes where a route header needs twelve.
   std::vector<std::uint8_t> shortHead(NLMSG_HDRLEN + 4, 0);
   auto* h = reinterpret_cast<nlmsghdr*>(shortHead.data());
   h->nlmsg_len = NLMSG_HDRLEN + 2;
   h->nlmsg_type = RTM_NEWROUTE;
   EXPECT_EQ(errorOf(parseRoute, *h),
             "netlink route message of 18 bytes is too short for its 12-byte header");

   Message table(RTM_NEWROUTE, ipv4Route(0));
   const std::uint16_t half = 1000;
   table.attr(RTA_TABLE, &half, sizeof(half));
   EXPECT_EQ(errorOf(parseRoute, table.msg()),
             "netlink route message: attribute 15 has 2 payload bytes, expected 4");

   Message gateway(RTM_NEWROUTE, ipv4Route(0));
   const std::uint8_t three[3] = {192, 0, 2};
   gateway.attr(RTA_GATEWAY, three, sizeof(three));
   EXPECT_EQ(errorOf(parseRoute, gateway.msg()),
             "netlink route message: attribute 5 has 3 payload bytes, expected 4 (an IPv4 "
             "address)");

   nhmsg nhm{};
   nhm.nh_family = AF_INET;
   Message group(RTM_NEWNEXTHOP, nhm);
   const std::uint8_t partial[11] = {};
   group.attr(NHA_GROUP, partial, sizeof(partial));
   EXPECT_EQ(errorOf(parseNexthop, group.msg()),
             "netlink nexthop message: attribute 2 has 11 payload bytes, expected a multiple "
             "of 8 (group members)");

   ifinfomsg ifi{};
   Message link(RTM_NEWLINK, ifi);
   link.attr(IFLA_OPERSTATE, nullptr, 0);
   EXPECT_EQ(errorOf(parseLink, link.msg()),
             "netlink link message: attribute 16 has 0 payload bytes, expected 1");
}

TEST(KernelParseTest, MultipathEntriesMustFitTheirList) {
   std::vector<std::uint8_t> multipath = hop(2, 0, "192.0.2.2");
   reinterpret_cast<rtnexthop*>(multipath.data())->rtnh_len = 200;
   Message m(RTM_NEWROUTE, ipv4Route(0));
   m.attr(RTA_MULTIPATH, multipath.data(), multipath.size());
   EXPECT_EQ(errorOf(parseRoute, m.msg()),
             "netlink route message: a multipath next hop of 200 bytes where 8 to 16 are left");

   std::vector<std::uint8_t> trailing = hop(2, 0, "192.0.2.2");
   trailing.resize(trailing.size() + 4, 0);
   Message t(RTM_NEWROUTE, ipv4Route(0));
   t.attr(RTA_MULTIPATH, trailing.data(), trailing.size());
   EXPECT_EQ(errorOf(parseRoute, t.msg()),
             "netlink route message: 4 bytes left in a multipath list are no next hop");
}

} // namespace
