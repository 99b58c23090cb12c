// A flow named on the command line, "SRC,DST,PROTO,SPORT,DPORT", and its hash: the packet
// hasher's hash of a packet of that flow, as a switch would compute it.
#pragma once
#include "pcapgen/FlowPackets.h"

#include <cstdint>
#include <string>

namespace Velt::Tool {

// PROTO is tcp, udp or a number. Raises std::invalid_argument naming the bad part.
VeltTools::Flow parseFlow(const std::string& text);
std::uint32_t flowHash(const VeltTools::Flow& flow);

} // namespace Velt::Tool
