// Routes, nexthop objects and policy rules.
#include "kernel/KernelParse.h"
#include "kernel/Netlink.h"

#include <linux/fib_rules.h>
#include <linux/nexthop.h>

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

// A gateway is RTA_GATEWAY of the route's family, or RTA_VIA of any family.
Lumo::IpGenAddr gatewayOf(int family, const Attributes& attrs) {
   if (attrs[RTA_GATEWAY]) return addressOf(family, attrs[RTA_GATEWAY]);
   const rtattr* via = attrs[RTA_VIA];
   if (!via || payloadLength(via) < sizeof(rtvia)) return {};
   const auto* v = reinterpret_cast<const rtvia*>(payload(via));
   return addressOf(v->rtvia_family, payload(via) + sizeof(rtvia),
                    payloadLength(via) - sizeof(rtvia));
}

// RTA_MULTIPATH: a list of rtnexthop, each followed by its own attributes. The kernel
// stores weight - 1 in rtnh_hops.
std::vector<KernelPath> pathsOf(int family, const rtattr* multipath) {
   std::vector<KernelPath> paths;
   const std::uint8_t* p = payload(multipath);
   std::size_t left = payloadLength(multipath);
   while (left >= sizeof(rtnexthop)) {
      const auto* nh = reinterpret_cast<const rtnexthop*>(p);
      if (nh->rtnh_len < sizeof(rtnexthop) || nh->rtnh_len > left) break;
      Attributes attrs(p + RTNH_LENGTH(0), nh->rtnh_len - RTNH_LENGTH(0));
      paths.push_back({nh->rtnh_ifindex, gatewayOf(family, attrs), nh->rtnh_hops + 1u});
      const std::size_t step = RTNH_ALIGN(nh->rtnh_len);
      if (step >= left) break;
      p += step;
      left -= step;
   }
   return paths;
}

} // namespace

std::optional<KernelRoute> parseRoute(const nlmsghdr& msg) {
   if (msg.nlmsg_type != RTM_NEWROUTE) return std::nullopt;
   const auto* rtm = static_cast<const rtmsg*>(NLMSG_DATA(&msg));
   if (rtm->rtm_flags & RTM_F_CLONED) return std::nullopt;
   if (rtm->rtm_family != AF_INET && rtm->rtm_family != AF_INET6) return std::nullopt;
   Attributes attrs(msg, sizeof(rtmsg));
   KernelRoute r;
   r.table = attrs.u32(RTA_TABLE, rtm->rtm_table);
   Lumo::IpGenAddr dst = addressOf(rtm->rtm_family, attrs[RTA_DST]);
   if (dst == Lumo::IpGenAddr()) {
      dst = Lumo::IpGenAddr(rtm->rtm_family == AF_INET ? Lumo::AddressFamily::ipv4_
                                                       : Lumo::AddressFamily::ipv6_);
   }
   r.prefix = Lumo::IpGenPrefix(dst, rtm->rtm_dst_len);
   r.type = routeTypeOf(rtm->rtm_type);
   r.priority = attrs.u32(RTA_PRIORITY);
   r.nexthopId = attrs.u32(RTA_NH_ID);
   if (attrs[RTA_MULTIPATH]) {
      r.paths = pathsOf(rtm->rtm_family, attrs[RTA_MULTIPATH]);
   } else if (r.nexthopId == 0 && (attrs[RTA_OIF] || attrs[RTA_GATEWAY] || attrs[RTA_VIA])) {
      r.paths.push_back({static_cast<int>(attrs.u32(RTA_OIF)), gatewayOf(rtm->rtm_family, attrs), 1});
   }
   return r;
}

std::optional<KernelNexthop> parseNexthop(const nlmsghdr& msg) {
   if (msg.nlmsg_type != RTM_NEWNEXTHOP) return std::nullopt;
   const auto* nhm = static_cast<const nhmsg*>(NLMSG_DATA(&msg));
   Attributes attrs(msg, sizeof(nhmsg));
   KernelNexthop n;
   n.id = attrs.u32(NHA_ID);
   n.blackhole = attrs[NHA_BLACKHOLE] != nullptr;
   n.path.oif = static_cast<int>(attrs.u32(NHA_OIF));
   n.path.gateway = addressOf(nhm->nh_family, attrs[NHA_GATEWAY]);
   if (const rtattr* group = attrs[NHA_GROUP]) {
      const std::size_t count = payloadLength(group) / sizeof(nexthop_grp);
      for (std::size_t i = 0; i < count; ++i) {
         nexthop_grp g;
         std::memcpy(&g, payload(group) + i * sizeof(g), sizeof(g));
         n.group.push_back({g.id, g.weight + 1u}); // stored as weight - 1
      }
   }
   return n;
}

std::optional<KernelRule> parseRule(const nlmsghdr& msg) {
   if (msg.nlmsg_type != RTM_NEWRULE) return std::nullopt;
   const auto* frh = static_cast<const fib_rule_hdr*>(NLMSG_DATA(&msg));
   if (frh->action != FR_ACT_TO_TBL) return std::nullopt;
   Attributes attrs(msg, sizeof(fib_rule_hdr));
   KernelRule r;
   r.priority = attrs.u32(FRA_PRIORITY);
   r.table = attrs.u32(FRA_TABLE, frh->table);
   r.iif = attrs.text(FRA_IIFNAME);
   r.oif = attrs.text(FRA_OIFNAME);
   r.fwmark = attrs.u32(FRA_FWMARK);
   return r;
}

} // namespace VeltLinux
