// What `velt resolve` is asked about, parsed from one argument: a destination IP
// ("10.1.2.3", "2001:db8::1"), a FEC id ("fibGenAdj:5", or a raw number "0x0300000000000005"),
// or an output interface with an optional neighbour ("Ethernet1", "Ethernet1@10.1.0.2").
#pragma once
#include "VeltLib/RoutingNexthop.h"

#include <string>

namespace Velt::Tool {

struct Target {
   enum class Kind { dstIp, fecId, interface } kind = Kind::dstIp;
   std::string text;
   Lumo::IpGenAddr ip; // the destination, or the interface's neighbour
   Quarn::Fib::FecId fecId;
   Lumo::IntfId intf;

   // A fresh next hop that starts from this target.
   Pelin::Ptr<RoutingNexthop> nexthop(const NexthopConfig& config) const;
};

// Checked as state files check the same values. Raises std::invalid_argument naming the
// text and what is wrong: the three accepted forms when it is none of them.
Target parseTarget(const std::string& text);

} // namespace Velt::Tool
