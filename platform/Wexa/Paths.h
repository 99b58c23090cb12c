// Where the switch's state lives in the state database. Writers place their entities here;
// the resolver's agents and plugins mount and read them.
#pragma once

namespace Wexa::Paths {

// In the agent's entity manager.
inline constexpr const char* vrfStatusGlobal = "ip/vrf/status/global";
inline constexpr const char* vrfStatusLocal = "ip/vrf/status/local";
inline constexpr const char* vrfNameToIdMap = "vrf/vrfIdMap/nameToIdMap";
inline constexpr const char* l3IntfStatus = "l3/intf/status";
inline constexpr const char* ethIntfStatus = "interface/status/eth/intf";
// In the shared-memory entity manager, beside the forwarding tables.
inline constexpr const char* arpStatus = "arp/table/status";

} // namespace Wexa::Paths
