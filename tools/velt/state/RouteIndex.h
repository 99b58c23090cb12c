// Finds a table's routes by prefix while the table is read, to report a prefix written
// twice: an open-addressing set of indices into the routes, 4 bytes a slot, so that a
// million routes cost megabytes and no allocation each.
#pragma once
#include "velt/state/State.h"

#include <cstdint>
#include <vector>

namespace VeltState {

class RouteIndex {
 public:
   explicit RouteIndex(const std::vector<RouteEntry>& routes) : routes_(routes) {}

   // The index of the route with `prefix` added so far, or none: then `index`, the
   // route's place in `routes`, is added for it.
   const RouteEntry* findOrAdd(const Lumo::IpGenPrefix& prefix, std::uint32_t index);

 private:
   static constexpr std::uint32_t empty = UINT32_MAX;
   void grow();
   std::size_t slotOf(const Lumo::IpGenPrefix& prefix) const;

   const std::vector<RouteEntry>& routes_;
   std::vector<std::uint32_t> slots_;
   std::size_t used_ = 0;
};

} // namespace VeltState
