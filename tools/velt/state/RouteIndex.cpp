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

std::size_t RouteIndex::slotOf(const Lumo::IpGenPrefix& prefix) const {
   const std::size_t mask = slots_.size() - 1;
   std::size_t s = hashOf(prefix) & mask;
   while (slots_[s] != empty && routes_[slots_[s]].prefix != prefix)
      s = (s + 1) & mask;
   return s;
}

const RouteEntry* RouteIndex::findOrAdd(const Lumo::IpGenPrefix& prefix,
                                        std::uint32_t index) {
   if ((used_ + 1) * 2 > slots_.size()) grow();
   std::size_t s = slotOf(prefix);
   if (slots_[s] != empty) return &routes_[slots_[s]];
   slots_[s] = index;
   ++used_;
   return nullptr;
}

// Kept at most half full, so that probes stay short.
void RouteIndex::grow() {
   std::vector<std::uint32_t> old(slots_.empty() ? 1024 : slots_.size() * 2, empty);
   old.swap(slots_);
   for (std::uint32_t i : old) {
      if (i != empty) slots_[slotOf(routes_[i].prefix)] = i;
   }
}

} // namespace VeltState
