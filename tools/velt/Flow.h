// A flow named on the command line, "SRC,DST,PROTO,SPORT,DPORT", and its hash as the packet
// hasher computes it for a packet of that flow.
#pragma once
#include "Lumo/IpGenAddr.h"

#include <cstdint>
#include <string>

namespace Velt::Tool {

struct Flow {
   Lumo::IpGenAddr src;
   Lumo::IpGenAddr dst;
   std::uint8_t protocol = 17;
   std::uint16_t srcPort = 0;
   std::uint16_t dstPort = 0;
};

// PROTO is tcp, udp or a number. Raises std::invalid_argument naming the bad part.
Flow parseFlow(const std::string& text);
std::uint32_t flowHash(const Flow& flow);

} // namespace Velt::Tool
