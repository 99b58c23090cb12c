// Links, addresses and neighbours.
#include "kernel/KernelParse.h"
#include "kernel/Netlink.h"

#include <linux/if.h>
#include <linux/if_addr.h>
#include <linux/if_link.h>
#include <linux/neighbour.h>

#include <fmt/format.h>
#include <sys/socket.h>

namespace VeltLinux {

namespace {

// The address length of `family`: 0 for a family the switch does not route.
std::size_t addressLength(int family) {
   return family == AF_INET ? 4 : family == AF_INET6 ? 16 : 0;
}

std::string addressLengthText(int family) {
   return family == AF_INET ? "4 (an IPv4 address)" : "16 (an IPv6 address)";
}

} // namespace

Lumo::IpGenAddr addressOf(int family, std::span<const std::uint8_t> bytes, const char* what) {
   const std::size_t want = addressLength(family);
   if (want == 0) return {};
   if (bytes.size() != want) {
      throw NetlinkError(fmt::format("{} message: an address of {} bytes, expected {}", what,
                                     bytes.size(), addressLengthText(family)));
   }
   return Lumo::IpGenAddr(family == AF_INET ? Lumo::AddressFamily::ipv4_
                                            : Lumo::AddressFamily::ipv6_,
                          bytes.data());
}

Lumo::IpGenAddr addressOf(int family, const Attributes& attrs, std::size_t type) {
   if (!attrs[type] || addressLength(family) == 0) return {};
   const auto bytes = attrs.payload(type);
   if (bytes.size() != addressLength(family)) {
      attrs.badLength(type, bytes.size(), addressLengthText(family));
   }
   return addressOf(family, bytes, attrs.what());
}

Lumo::IpGenPrefix prefixOf(const Lumo::IpGenAddr& addr, unsigned length, const char* what) {
   const std::size_t bits = addr.byteLength() * 8;
   if (length > bits) {
      throw NetlinkError(fmt::format("{} message: prefix length {} is above {} for {}", what,
                                     length, bits,
                                     addr.af() == Lumo::AddressFamily::ipv4_ ? "IPv4" : "IPv6"));
   }
   return Lumo::IpGenPrefix(addr, static_cast<std::uint8_t>(length));
}

namespace {

constexpr const char* linkWhat = "netlink link";

// The kind and, for a VRF device, its table, from the nested IFLA_LINKINFO.
void readLinkInfo(const Attributes& attrs, KernelLink& link) {
   const auto info = attrs.payload(IFLA_LINKINFO);
   if (info.empty()) return;
   Attributes nested(info.data(), info.size(), linkWhat);
   link.kind = nested.text(IFLA_INFO_KIND);
   const auto data = nested.payload(IFLA_INFO_DATA);
   if (link.kind == "vrf" && !data.empty()) {
      link.vrfTable = Attributes(data.data(), data.size(), linkWhat).u32(IFLA_VRF_TABLE);
   }
}

} // namespace

std::optional<KernelLink> parseLink(const nlmsghdr& msg) {
   if (msg.nlmsg_type != RTM_NEWLINK) return std::nullopt;
   const auto& ifi = familyHeader<ifinfomsg>(msg, linkWhat);
   Attributes attrs(msg, sizeof(ifinfomsg), linkWhat);
   KernelLink link;
   link.index = ifi.ifi_index;
   link.name = attrs.text(IFLA_IFNAME);
   link.loopback = (ifi.ifi_flags & IFF_LOOPBACK) != 0;
   // lo reports its operational state as unknown: up is then what the flags say.
   const std::uint8_t operState = attrs.u8(IFLA_OPERSTATE, IF_OPER_UNKNOWN);
   link.up = (ifi.ifi_flags & IFF_UP) &&
             (operState == IF_OPER_UP ||
              (operState == IF_OPER_UNKNOWN && (ifi.ifi_flags & IFF_RUNNING)));
   link.master = static_cast<int>(attrs.u32(IFLA_MASTER));
   readLinkInfo(attrs, link);
   return link;
}

std::optional<KernelAddress> parseAddress(const nlmsghdr& msg) {
   constexpr const char* what = "netlink address";
   if (msg.nlmsg_type != RTM_NEWADDR) return std::nullopt;
   const auto& ifa = familyHeader<ifaddrmsg>(msg, what);
   Attributes attrs(msg, sizeof(ifaddrmsg), what);
   // IFA_LOCAL is the own address on point-to-point links; IFA_ADDRESS the peer there.
   KernelAddress address{static_cast<int>(ifa.ifa_index),
                         addressOf(ifa.ifa_family, attrs, attrs[IFA_LOCAL] ? IFA_LOCAL : IFA_ADDRESS),
                         ifa.ifa_prefixlen};
   if (address.ip == Lumo::IpGenAddr()) return std::nullopt;
   prefixOf(address.ip, address.prefixLength, what); // checks the length
   return address;
}

std::optional<KernelNeighbour> parseNeighbour(const nlmsghdr& msg) {
   constexpr const char* what = "netlink neighbour";
   if (msg.nlmsg_type != RTM_NEWNEIGH) return std::nullopt;
   const auto& nd = familyHeader<ndmsg>(msg, what);
   Attributes attrs(msg, sizeof(ndmsg), what);
   KernelNeighbour n;
   n.index = nd.ndm_ifindex;
   n.ip = addressOf(nd.ndm_family, attrs, NDA_DST);
   if (n.ip == Lumo::IpGenAddr()) return std::nullopt;
   n.state = nd.ndm_state;
   // Link-layer addresses of other lengths (tunnels, InfiniBand) are no Ethernet neighbour.
   const auto ll = attrs.payload(NDA_LLADDR);
   if (ll.size() == 6) {
      n.hasMac = true;
      n.mac = Lumo::EthAddr(ll.data());
   }
   return n;
}

} // namespace VeltLinux
