// The synthetic switch that `velt bench` measures: four weighted uplinks with neighbours,
// the FECs of each scenario and `routes` IPv4 and IPv6 routes to the 4-via FEC.
#pragma once
#include "velt/state/State.h"

#include <cstdint>
#include <vector>

namespace Velt::Tool {

struct BenchFecs {
   static Quarn::Fib::FecId fourWay();
   static Quarn::Fib::FecId fourWayBackup();
   static Quarn::Fib::FecId twoLevel();
   static Quarn::Fib::FecId wide();
};

VeltState::State benchState(std::uint32_t routes);
// Addresses covered by the routes of benchState(routes), in random order.
std::vector<Lumo::IpGenAddr> benchDestinations(std::uint32_t routes, bool v6, std::size_t count);

} // namespace Velt::Tool
