#include "kernel/ReadKernel.h"

#include "kernel/KernelParse.h"
#include "kernel/Netlink.h"

#include <linux/fib_rules.h>
#include <linux/if_addr.h>
#include <linux/neighbour.h>
#include <linux/nexthop.h>

#include <sys/socket.h>

namespace VeltLinux {

namespace {

template <typename Header>
std::span<const std::uint8_t> bytesOf(const Header& h) {
   return {reinterpret_cast<const std::uint8_t*>(&h), sizeof(h)};
}

// Runs one dump per family and collects what `parse` makes of each answer.
template <typename Header, typename Value, typename Parse>
void collect(NetlinkSocket& socket, std::uint16_t type, Header header,
             unsigned char Header::*family, std::initializer_list<unsigned char> families,
             const std::string& what, Parse parse, std::vector<Value>& out) {
   for (unsigned char f : families) {
      header.*family = f;
      socket.dump(type, bytesOf(header), what, [&](const nlmsghdr& msg) {
         if (auto v = parse(msg)) out.push_back(std::move(*v));
      });
   }
}

} // namespace

KernelState readKernelState() {
   NetlinkSocket socket;
   KernelState s;
   collect(socket, RTM_GETLINK, ifinfomsg{}, &ifinfomsg::ifi_family, {AF_UNSPEC}, "link",
           parseLink, s.links);
   collect(socket, RTM_GETADDR, ifaddrmsg{}, &ifaddrmsg::ifa_family, {AF_INET, AF_INET6},
           "address", parseAddress, s.addresses);
   collect(socket, RTM_GETROUTE, rtmsg{}, &rtmsg::rtm_family, {AF_INET, AF_INET6}, "route",
           parseRoute, s.routes);
   try {
      collect(socket, RTM_GETNEXTHOP, nhmsg{}, &nhmsg::nh_family, {AF_UNSPEC}, "nexthop",
              parseNexthop, s.nexthops);
   } catch (const NetlinkError&) {
      // Kernels before nexthop objects refuse the dump; their routes carry their own paths.
      s.nexthops.clear();
   }
   collect(socket, RTM_GETNEIGH, ndmsg{}, &ndmsg::ndm_family, {AF_INET, AF_INET6}, "neighbour",
           parseNeighbour, s.neighbours);
   collect(socket, RTM_GETRULE, fib_rule_hdr{}, &fib_rule_hdr::family, {AF_INET, AF_INET6},
           "rule", parseRule, s.rules);
   return s;
}

} // namespace VeltLinux
