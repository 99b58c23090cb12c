// VeltNamedCounters: event counts keyed by (category, component, text). The hot path passes
// string literals and is keyed by their addresses, so it allocates only the first time a
// triple is seen; equal texts at different addresses share one count.
#pragma once
#include "Pelin/Node.h"

#include <cstdint>
#include <map>
#include <string>
#include <tuple>
#include <unordered_map>
#include <vector>

class VeltNamedCounters : public Pelin::Node {
 public:
   struct Entry {
      std::string category;
      std::string component;
      std::string text;
      std::uint64_t count;
   };

   void count(const char* category, const char* component, const char* text);
   std::uint64_t value(const std::string& category, const std::string& component,
                       const std::string& text) const;
   // Every count, sorted by category, component and text.
   std::vector<Entry> all() const;

 private:
   using Key = std::tuple<std::string, std::string, std::string>;
   struct PtrKey {
      const char* a;
      const char* b;
      const char* c;
      bool operator==(const PtrKey&) const = default;
   };
   struct PtrHash {
      std::size_t operator()(const PtrKey& k) const noexcept;
   };
   std::uint64_t& slowSlot(const PtrKey& k);

   std::map<Key, std::uint64_t> counts_; // node-based: slot addresses are stable
   std::unordered_map<PtrKey, std::uint64_t*, PtrHash> byAddress_;
};
