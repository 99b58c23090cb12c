// Reading one netlink answer message into the plain value it describes. Each returns
// nothing for a message of no interest (another type, a cached clone, a family the
// switch does not route, a rule that is not a table lookup), and raises NetlinkError for
// a message that does not add up (a short header or attribute, a prefix longer than its
// address). `msg` must lie whole in memory, as forEachMessage hands it over.
#pragma once
#include "kernel/KernelState.h"
#include "kernel/Netlink.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

namespace VeltLinux {

std::optional<KernelLink> parseLink(const nlmsghdr& msg);
std::optional<KernelAddress> parseAddress(const nlmsghdr& msg);
std::optional<KernelRoute> parseRoute(const nlmsghdr& msg);
std::optional<KernelNexthop> parseNexthop(const nlmsghdr& msg);
std::optional<KernelNeighbour> parseNeighbour(const nlmsghdr& msg);
std::optional<KernelRule> parseRule(const nlmsghdr& msg);

// An address of family AF_INET or AF_INET6 from exactly its 4 or 16 bytes; unset for other
// families. Another length raises NetlinkError naming `what`.
Lumo::IpGenAddr addressOf(int family, std::span<const std::uint8_t> bytes, const char* what);
// The address in attribute `type`, as above; unset when the attribute is missing.
Lumo::IpGenAddr addressOf(int family, const Attributes& attrs, std::size_t type);

// The prefix `length` bits long at `addr`; a length beyond the address raises NetlinkError.
Lumo::IpGenPrefix prefixOf(const Lumo::IpGenAddr& addr, unsigned length, const char* what);

} // namespace VeltLinux
