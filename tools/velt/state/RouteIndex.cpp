#include "velt/state/RouteIndex.h"

#include <cstring>

namespace VeltState {

namespace {

std::uint64_t hashOf(const Lumo::IpGenPrefix& p) {
   std::uint64_t half[2];
   std::memcpy(half, p.addr().bytes(), sizeof(half));
   std::uint64_t h = (half[0] * 0x9e3779b97f4a7c15ULL) ^ (half[1] + p.length());
   h ^= h >> 29;
   h *= 0xbf58476d1ce4e5b9ULL;
   return h ^ (h >> 32) ^ static_cast<std::uint64_t>(p.af());
}

} // namespace

std::size_t RouteIndex::slotOf(const Lumo::IpGenPrefix& prefix,
                               std::uint64_t hash) const {
   const std::size_t mask = slots_.size() - 1;
   const auto tag = static_cast<std::uint32_t>(hash >> 32);
   std::size_t s = hash & mask;
   for (;; s = (s + 1) & mask) {
      const Slot& slot = slots_[s];
      if (slot.index == UINT32_MAX) return s;
      if (slot.tag == tag && routes_[slot.index].prefix == prefix) return s;
   }
}

const RouteEntry* RouteIndex::findOrAdd(const Lumo::IpGenPrefix& prefix,
                                        std::uint32_t index) {
   if ((used_ + 1) * 2 > slots_.size()) grow();
   const std::uint64_t hash = hashOf(prefix);
   Slot& slot = slots_[slotOf(prefix, hash)];
   if (slot.index != UINT32_MAX) return &routes_[slot.index];
   slot = {index, static_cast<std::uint32_t>(hash >> 32)};
   ++used_;
   return nullptr;
}

// Kept at most half full, so that probes stay short.
void RouteIndex::grow() {
   std::vector<Slot> old(slots_.empty() ? 1024 : slots_.size() * 2);
   old.swap(slots_);
   for (const Slot& s : old) {
      if (s.index != UINT32_MAX)
         slots_[slotOf(routes_[s.index].prefix, hashOf(routes_[s.index].prefix))] = s;
   }
}

} // namespace VeltState
