// Reads the current network namespace's links, addresses, routes of all tables, nexthop
// objects, neighbours and rules over netlink. Raises NetlinkError when a dump fails.
#pragma once
#include "kernel/KernelState.h"

namespace VeltLinux {

KernelState readKernelState();

} // namespace VeltLinux
