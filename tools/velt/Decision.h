// What one resolution decided, read off the next hop after the driver is done, and its
// rendering as a text block or JSON.
#pragma once
#include "Counters/VeltNamedCounters.h"
#include "Quarn/ForwardingStatus.h"
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
   std::string outputLinuxName; // the Linux interface, when the state came from Linux
   Lumo::EthAddr dstMac;
   Lumo::IpGenAddr dstIp;
   std::string route; // empty without a route
   std::string fec;   // the last FEC resolved through, empty without one
   bool kernelHandlesPacket = false;
   // For a destination: the route it matches in the VRF resolution started in, that
   // route's FEC and the FEC's type. A trap to the CPU clears the next hop's own route,
   // so this is what tells a receive from a hand-off to the kernel. Empty without a match.
   std::string lookupRoute;
   std::string lookupFec;
   std::string lookupFecType;
   std::vector<std::string> rewrites;
   std::vector<VeltNamedCounters::Entry> counts;
};

// Drop wins over everything; a trap to the CPU is not a forward.
Decision decisionOf(const RoutingNexthop& nexthop, std::string target, std::string vrf,
                    std::vector<VeltNamedCounters::Entry> counts);

// Fills the lookup fields of `d` from VRF `vrf`'s table.
void addFirstLookup(Decision& d, const Quarn::FibGen::ForwardingStatus* table,
                    const Lumo::IpGenAddr& dst);

std::string decisionText(const Decision& d);
nlohmann::json decisionJson(const Decision& d);

} // namespace Velt::Tool
