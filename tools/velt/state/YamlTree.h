// One small node of a YAML document gathered whole from its events (a VRF, a FEC with its
// vias, a route), so that the reader can look its keys up in any order. The big parts of
// a state are never gathered: they are read event by event.
#pragma once
#include "velt/state/YamlEvents.h"

#include <cstdint>
#include <string>
#include <vector>

namespace VeltState {

enum class NodeKind : std::uint8_t { null, scalar, sequence, mapping };

// Nodes lie in pre-order in one array: a node's children follow it, each child's subtree
// before the next child.
struct YamlNode {
   NodeKind kind = NodeKind::null;
   Position pos;
   std::string value;       // a scalar's text
   std::uint32_t size = 1;  // nodes in the subtree, this one included
   std::uint32_t count = 0; // children; a mapping's are key, value, key, value...

   bool isNull() const { return kind == NodeKind::null; }

   // Calls f(child) for each child in order.
   template <class F>
   void each(F&& f) const {
      const YamlNode* c = this + 1;
      for (std::uint32_t i = 0; i < count; ++i, c += c->size)
         f(*c);
   }
   // Calls f(key, value) for each entry of a mapping.
   template <class F>
   void eachEntry(F&& f) const {
      const YamlNode* c = this + 1;
      for (std::uint32_t i = 0; i + 1 < count; i += 2) {
         const YamlNode* v = c + c->size;
         f(*c, *v);
         c = v + v->size;
      }
   }
};

// Gathers nodes, reusing its storage from one node to the next.
class YamlTree {
 public:
   // The most nodes one element may hold; a FEC with 600 vias holds some 5,500.
   static constexpr std::size_t maxNodes = 100'000;

   // The next node of `events`, whole; valid until the next call.
   const YamlNode& gather(YamlEvents& events);

 private:
   std::size_t gatherAt(YamlEvents& events);

   std::vector<YamlNode> nodes_;
   std::size_t used_ = 0;
};

} // namespace VeltState
