// Finds a table's routes by prefix while the table is read, to report a prefix written
// twice: an open-addressing set of indices into the routes, 8 bytes a slot, so that a
// million routes cost megabytes and no allocation each. Each slot keeps part of its
// prefix's hash beside the index, so that most probes never read the route.
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
   struct Slot {
      std::uint32_t index = UINT32_MAX; // UINT32_MAX: empty
      std::uint32_t tag = 0;
   };
   void grow();
   std::size_t slotOf(const Lumo::IpGenPrefix& prefix, std::uint64_t hash) const;

   const std::vector<RouteEntry>& routes_;
   std::vector<Slot> slots_;
   std::size_t used_ = 0;
};

} // namespace VeltState
