// Where the switch's state lives in the state database. Writers place their entities here;
// the resolver's agents and plugins mount and read them.
#pragma once
#include <string>
#include <string_view>

namespace Wexa::Paths {

// In the agent's entity manager.
inline constexpr const char* vrfStatusGlobal = "ip/vrf/status/global";
inline constexpr const char* vrfStatusLocal = "ip/vrf/status/local";
inline constexpr const char* vrfNameToIdMap = "vrf/vrfIdMap/nameToIdMap";
inline constexpr const char* l3IntfStatus = "l3/intf/status";
inline constexpr const char* ethIntfStatus = "interface/status/eth/intf";
// In the shared-memory entity manager, beside the forwarding tables.
inline constexpr const char* arpStatus = "arp/table/status";

// The one rule for names that become paths (VRF and table names): why `name` cannot be
// one component of a state-database path, and so one file or folder name under a table
// directory; empty when it can. A component is 1 to 100 bytes of letters, digits, '_',
// '-', '.' and ':', and neither "." nor "..".
std::string componentProblem(std::string_view name);

// `name` quoted for a message, bytes other than printable ASCII as \xNN.
std::string shownName(std::string_view name);

} // namespace Wexa::Paths
