// Reading one netlink answer message into the plain value it describes. Each returns
// nothing for a message of no interest (another type, a cached clone, a family the
// switch does not route, a rule that is not a table lookup).
#pragma once
#include "kernel/KernelState.h"

#include <linux/netlink.h>
#include <linux/rtnetlink.h>

#include <cstddef>
#include <cstdint>
#include <optional>

namespace VeltLinux {

std::optional<KernelLink> parseLink(const nlmsghdr& msg);
std::optional<KernelAddress> parseAddress(const nlmsghdr& msg);
std::optional<KernelRoute> parseRoute(const nlmsghdr& msg);
std::optional<KernelNexthop> parseNexthop(const nlmsghdr& msg);
std::optional<KernelNeighbour> parseNeighbour(const nlmsghdr& msg);
std::optional<KernelRule> parseRule(const nlmsghdr& msg);

// An address of family AF_INET or AF_INET6 from raw bytes or an attribute's payload;
// unset for other families, a missing attribute or too few bytes.
Lumo::IpGenAddr addressOf(int family, const std::uint8_t* bytes, std::size_t length);
Lumo::IpGenAddr addressOf(int family, const rtattr* attribute);

} // namespace VeltLinux
