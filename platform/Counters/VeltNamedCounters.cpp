#include "Counters/VeltNamedCounters.h"

#include "Pelin/Assert.h"

#include <functional>

std::size_t VeltNamedCounters::PtrHash::operator()(const PtrKey& k) const noexcept {
   std::hash<const void*> h;
   return h(k.a) ^ (h(k.b) * 31) ^ (h(k.c) * 1000003);
}

void VeltNamedCounters::count(const char* category, const char* component, const char* text) {
   PtrKey k{category, component, text};
   auto it = byAddress_.find(k);
   if (it != byAddress_.end()) [[likely]] {
      ++*it->second;
      return;
   }
   ++slowSlot(k);
}

std::uint64_t& VeltNamedCounters::slowSlot(const PtrKey& k) {
   VELT_ASSERT(k.a && k.b && k.c);
   std::uint64_t& slot = counts_[Key(k.a, k.b, k.c)];
   byAddress_.emplace(k, &slot);
   return slot;
}

std::uint64_t VeltNamedCounters::value(const std::string& category,
                                       const std::string& component,
                                       const std::string& text) const {
   auto it = counts_.find(Key(category, component, text));
   return it == counts_.end() ? 0 : it->second;
}

std::vector<VeltNamedCounters::Entry> VeltNamedCounters::all() const {
   std::vector<Entry> out;
   out.reserve(counts_.size());
   for (const auto& [key, n] : counts_)
      out.push_back({std::get<0>(key), std::get<1>(key), std::get<2>(key), n});
   return out;
}
