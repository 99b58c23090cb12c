// The steps of importState, each in its own source file.
#pragma once
#include "kernel/ImportState.h"

#include <map>
#include <string>

namespace VeltLinux {

// Which VRF each table and each interface is in; what is not listed is VRF default's.
struct VrfLayout {
   std::vector<VeltState::VrfEntry> vrfs; // without default
   std::map<std::uint32_t, std::string> tableVrf;
   std::map<int, std::string> linkVrf;

   std::string vrfOfLink(int index) const;
   // Null for a table that no VRF stands for.
   const std::string* vrfOfTable(std::uint32_t table) const;
};

VrfLayout layoutVrfs(const KernelState& kernel, const ImportOptions& options);

// One table per VRF that has routes, named after the VRF.
std::vector<VeltState::TableEntry> importTables(const KernelState& kernel,
                                                const VrfLayout& layout);

} // namespace VeltLinux
