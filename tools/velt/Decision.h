// What one resolution decided, read off the next hop after the driver is done, and its
// rendering as a text block or JSON.
#pragma once
#include "Counters/VeltNamedCounters.h"
#include "VeltLib/RoutingNexthop.h"

#include <nlohmann/json.hpp>

#include <string>
#include <vector>

namespace Velt::Tool {

enum class DecisionKind { forwarded, received, trapped, dropped };
const char* kindName(DecisionKind kind);

struct Decision {
   std::string target;
   std::string vrf; // where resolution started
   DecisionKind kind = DecisionKind::dropped;
   std::string endVrf;
   Lumo::IntfId outputIntf;
   Lumo::EthAddr dstMac;
   Lumo::IpGenAddr dstIp;
   std::string route; // empty without a route
   std::string fec;   // the last FEC resolved through, empty without one
   bool kernelHandlesPacket = false;
   std::vector<std::string> rewrites;
   std::vector<VeltNamedCounters::Entry> counts;
};

// Drop wins over everything; a trap to the CPU is not a forward.
Decision decisionOf(const RoutingNexthop& nexthop, std::string target, std::string vrf,
                    std::vector<VeltNamedCounters::Entry> counts);

std::string decisionText(const Decision& d);
nlohmann::json decisionJson(const Decision& d);

} // namespace Velt::Tool
