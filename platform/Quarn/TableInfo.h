// Where the forwarding tables live in the state database and how they are mounted: one
// table per VRF under fecMountPath(), or the one unified table shared by every VRF.
#pragma once
#include "L3/VrfName.h"
#include "Lumo/AddressFamily.h"
#include "Wexa/MountStatus.h"

#include <cstdint>
#include <string>

namespace Quarn::Fib {

class TableInfo {
 public:
   // Mount type of a forwarding table: shared memory written by another process.
   static constexpr std::uint32_t mountTypeSharedTable = 3;
   static constexpr const char* unifiedStatusPath = "forwardingGen/unifiedStatus";
   static constexpr const char* forwardingStatusTypeName = "Quarn::FibGen::ForwardingStatus";

   // The mount information of a forwarding table for `mountType`: read-only.
   Wexa::MountInfo forwardingInfo(std::uint32_t mountType) const {
      return Wexa::MountInfo{mountType, "r"};
   }
   // "forwardingGen/<vrf>/<table>", with "/v4" or "/v6" before the table when the family
   // is known; address family unknown covers both.
   static std::string fecMountPath(Lumo::AddressFamily af, const L3::VrfName& vrfName,
                                   const std::string& table);
};

} // namespace Quarn::Fib
