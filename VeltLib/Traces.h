// The library's text trace handles, one per area, shared by every source file.
#pragma once
#include "Trace/Trace.h"

namespace Velt {

const Trace::Handle& nhResolverTrace(); // "Velt::NHResolver": resolution
const Trace::Handle& routingTrace();    // "Velt::Routing": the next-hop records
const Trace::Handle& vrfTrace();        // "Velt::Vrf": the VRF root state machine
const Trace::Handle& nhrPluginTrace();  // "Velt::NhrPlugin": plugin start-up

} // namespace Velt
