// Links, addresses and neighbours.
#include "kernel/KernelParse.h"
#include "kernel/Netlink.h"

#include <linux/if.h>
#include <linux/if_addr.h>
#include <linux/if_link.h>
#include <linux/neighbour.h>

#include <sys/socket.h>

namespace VeltLinux {

Lumo::IpGenAddr addressOf(int family, const std::uint8_t* bytes, std::size_t length) {
   if (family == AF_INET && length >= 4) return Lumo::IpGenAddr(Lumo::AddressFamily::ipv4_, bytes);
   if (family == AF_INET6 && length >= 16) {
      return Lumo::IpGenAddr(Lumo::AddressFamily::ipv6_, bytes);
   }
   return {};
}

Lumo::IpGenAddr addressOf(int family, const rtattr* a) {
   return a ? addressOf(family, payload(a), payloadLength(a)) : Lumo::IpGenAddr();
}

namespace {

// The kind and, for a VRF device, its table, from the nested IFLA_LINKINFO.
void readLinkInfo(const rtattr* info, KernelLink& link) {
   if (!info) return;
   Attributes nested(payload(info), payloadLength(info));
   link.kind = nested.text(IFLA_INFO_KIND);
   const rtattr* data = nested[IFLA_INFO_DATA];
   if (link.kind == "vrf" && data) {
      link.vrfTable = Attributes(payload(data), payloadLength(data)).u32(IFLA_VRF_TABLE);
   }
}

} // namespace

std::optional<KernelLink> parseLink(const nlmsghdr& msg) {
   if (msg.nlmsg_type != RTM_NEWLINK) return std::nullopt;
   const auto* ifi = static_cast<const ifinfomsg*>(NLMSG_DATA(&msg));
   Attributes attrs(msg, sizeof(ifinfomsg));
   KernelLink link;
   link.index = ifi->ifi_index;
   link.name = attrs.text(IFLA_IFNAME);
   link.loopback = (ifi->ifi_flags & IFF_LOOPBACK) != 0;
   // lo reports its operational state as unknown: up is then what the flags say.
   const rtattr* oper = attrs[IFLA_OPERSTATE];
   const std::uint8_t operState = oper ? *payload(oper) : std::uint8_t(IF_OPER_UNKNOWN);
   link.up = (ifi->ifi_flags & IFF_UP) &&
             (operState == IF_OPER_UP ||
              (operState == IF_OPER_UNKNOWN && (ifi->ifi_flags & IFF_RUNNING)));
   link.master = static_cast<int>(attrs.u32(IFLA_MASTER));
   readLinkInfo(attrs[IFLA_LINKINFO], link);
   return link;
}

std::optional<KernelAddress> parseAddress(const nlmsghdr& msg) {
   if (msg.nlmsg_type != RTM_NEWADDR) return std::nullopt;
   const auto* ifa = static_cast<const ifaddrmsg*>(NLMSG_DATA(&msg));
   Attributes attrs(msg, sizeof(ifaddrmsg));
   // IFA_LOCAL is the own address on point-to-point links; IFA_ADDRESS the peer there.
   const rtattr* a = attrs[IFA_LOCAL] ? attrs[IFA_LOCAL] : attrs[IFA_ADDRESS];
   KernelAddress address{static_cast<int>(ifa->ifa_index), addressOf(ifa->ifa_family, a),
                         ifa->ifa_prefixlen};
   if (address.ip == Lumo::IpGenAddr()) return std::nullopt;
   return address;
}

std::optional<KernelNeighbour> parseNeighbour(const nlmsghdr& msg) {
   if (msg.nlmsg_type != RTM_NEWNEIGH) return std::nullopt;
   const auto* nd = static_cast<const ndmsg*>(NLMSG_DATA(&msg));
   Attributes attrs(msg, sizeof(ndmsg));
   KernelNeighbour n;
   n.index = nd->ndm_ifindex;
   n.ip = addressOf(nd->ndm_family, attrs[NDA_DST]);
   if (n.ip == Lumo::IpGenAddr()) return std::nullopt;
   n.state = nd->ndm_state;
   const rtattr* ll = attrs[NDA_LLADDR];
   if (ll && payloadLength(ll) == 6) {
      n.hasMac = true;
      n.mac = Lumo::EthAddr(payload(ll));
   }
   return n;
}

} // namespace VeltLinux
