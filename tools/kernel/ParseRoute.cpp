// Routes, nexthop objects and policy rules.
#include "kernel/KernelParse.h"
#include "kernel/Netlink.h"

#include <linux/fib_rules.h>
#include <linux/nexthop.h>

#include <fmt/format.h>

#include <algorithm>
#include <cstring>
#include <sys/socket.h>

namespace VeltLinux {

namespace {

RouteType routeTypeOf(unsigned char type) {
   switch (type) {
   case RTN_UNICAST: return RouteType::unicast;
   case RTN_LOCAL: return RouteType::local;
   case RTN_BROADCAST: return RouteType::broadcast;
   case RTN_BLACKHOLE: return RouteType::blackhole;
   case RTN_UNREACHABLE: return RouteType::unreachable;
   case RTN_PROHIBIT: return RouteType::prohibit;
   default: return RouteType::other;
   }
}

constexpr const char* routeWhat = "netlink route";

// A gateway is RTA_GATEWAY of the route's family, or RTA_VIA of any family.
Lumo::IpGenAddr gatewayOf(int family, const Attributes& attrs) {
   if (attrs[RTA_GATEWAY]) return addressOf(family, attrs, RTA_GATEWAY);
   if (!attrs[RTA_VIA]) return {};
   const auto via = attrs.payload(RTA_VIA);
   if (via.size() < sizeof(rtvia)) attrs.badLength(RTA_VIA, via.size(), "an address family");
   rtvia head;
   std::memcpy(&head, via.data(), sizeof(head));
   return addressOf(head.rtvia_family, via.subspan(sizeof(rtvia)), routeWhat);
}

// RTA_MULTIPATH: a list of rtnexthop, each followed by its own attributes. The kernel
// stores weight - 1 in rtnh_hops.
std::vector<KernelPath> pathsOf(int family, std::span<const std::uint8_t> multipath) {
   std::vector<KernelPath> paths;
   while (!multipath.empty()) {
      rtnexthop nh;
      if (multipath.size() < sizeof(nh)) {
         throw NetlinkError(fmt::format("{} message: {} bytes left in a multipath list are "
                                        "no next hop",
                                        routeWhat, multipath.size()));
      }
      std::memcpy(&nh, multipath.data(), sizeof(nh));
      if (nh.rtnh_len < sizeof(nh) || nh.rtnh_len > multipath.size()) {
         throw NetlinkError(fmt::format("{} message: a multipath next hop of {} bytes where "
                                        "{} to {} are left",
                                        routeWhat, nh.rtnh_len, sizeof(nh), multipath.size()));
      }
      const auto own = multipath.subspan(RTNH_LENGTH(0), nh.rtnh_len - RTNH_LENGTH(0));
      Attributes attrs(own.data(), own.size(), routeWhat);
      paths.push_back({nh.rtnh_ifindex, gatewayOf(family, attrs), nh.rtnh_hops + 1u});
      multipath = multipath.subspan(std::min<std::size_t>(RTNH_ALIGN(nh.rtnh_len), multipath.size()));
   }
   return paths;
}

} // namespace

std::optional<KernelRoute> parseRoute(const nlmsghdr& msg) {
   if (msg.nlmsg_type != RTM_NEWROUTE) return std::nullopt;
   const auto& rtm = familyHeader<rtmsg>(msg, routeWhat);
   if (rtm.rtm_flags & RTM_F_CLONED) return std::nullopt;
   if (rtm.rtm_family != AF_INET && rtm.rtm_family != AF_INET6) return std::nullopt;
   Attributes attrs(msg, sizeof(rtmsg), routeWhat);
   KernelRoute r;
   r.table = attrs.u32(RTA_TABLE, rtm.rtm_table);
   Lumo::IpGenAddr dst = addressOf(rtm.rtm_family, attrs, RTA_DST);
   if (dst == Lumo::IpGenAddr()) {
      dst = Lumo::IpGenAddr(rtm.rtm_family == AF_INET ? Lumo::AddressFamily::ipv4_
                                                      : Lumo::AddressFamily::ipv6_);
   }
   r.prefix = prefixOf(dst, rtm.rtm_dst_len, routeWhat);
   r.type = routeTypeOf(rtm.rtm_type);
   r.priority = attrs.u32(RTA_PRIORITY);
   r.nexthopId = attrs.u32(RTA_NH_ID);
   if (attrs[RTA_MULTIPATH]) {
      r.paths = pathsOf(rtm.rtm_family, attrs.payload(RTA_MULTIPATH));
   } else if (r.nexthopId == 0 && (attrs[RTA_OIF] || attrs[RTA_GATEWAY] || attrs[RTA_VIA])) {
      r.paths.push_back({static_cast<int>(attrs.u32(RTA_OIF)), gatewayOf(rtm.rtm_family, attrs), 1});
   }
   return r;
}

std::optional<KernelNexthop> parseNexthop(const nlmsghdr& msg) {
   constexpr const char* what = "netlink nexthop";
   if (msg.nlmsg_type != RTM_NEWNEXTHOP) return std::nullopt;
   const auto& nhm = familyHeader<nhmsg>(msg, what);
   Attributes attrs(msg, sizeof(nhmsg), what);
   KernelNexthop n;
   n.id = attrs.u32(NHA_ID);
   n.blackhole = attrs[NHA_BLACKHOLE] != nullptr;
   n.path.oif = static_cast<int>(attrs.u32(NHA_OIF));
   n.path.gateway = addressOf(nhm.nh_family, attrs, NHA_GATEWAY);
   const auto group = attrs.payload(NHA_GROUP);
   if (group.size() % sizeof(nexthop_grp) != 0) {
      attrs.badLength(NHA_GROUP, group.size(),
                      fmt::format("a multiple of {} (group members)", sizeof(nexthop_grp)));
   }
   for (std::size_t at = 0; at < group.size(); at += sizeof(nexthop_grp)) {
      nexthop_grp g;
      std::memcpy(&g, group.data() + at, sizeof(g));
      n.group.push_back({g.id, g.weight + 1u}); // stored as weight - 1
   }
   return n;
}

std::optional<KernelRule> parseRule(const nlmsghdr& msg) {
   constexpr const char* what = "netlink rule";
   if (msg.nlmsg_type != RTM_NEWRULE) return std::nullopt;
   const auto& frh = familyHeader<fib_rule_hdr>(msg, what);
   if (frh.action != FR_ACT_TO_TBL) return std::nullopt;
   Attributes attrs(msg, sizeof(fib_rule_hdr), what);
   KernelRule r;
   r.priority = attrs.u32(FRA_PRIORITY);
   r.table = attrs.u32(FRA_TABLE, frh.table);
   r.iif = attrs.text(FRA_IIFNAME);
   r.oif = attrs.text(FRA_OIFNAME);
   r.fwmark = attrs.u32(FRA_FWMARK);
   return r;
}

} // namespace VeltLinux
