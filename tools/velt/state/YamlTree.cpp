#include "velt/state/YamlTree.h"

#include <fmt/format.h>

#include <utility>

namespace VeltState {

const YamlNode& YamlTree::gather(YamlEvents& events) {
   used_ = 0;
   gatherAt(events);
   return nodes_[0];
}

// The recursion is as deep as the node, which the events keep below their depth limit.
std::size_t YamlTree::gatherAt(YamlEvents& events) {
   const std::size_t i = used_++;
   if (used_ > maxNodes) {
      events.fail(nodes_[0].pos,
                  fmt::format("this element holds more than {} YAML nodes", maxNodes));
   }
   if (nodes_.size() < used_) nodes_.emplace_back();
   YamlEvent& e = events.take();
   YamlNode& n = nodes_[i];
   n.pos = e.pos;
   n.size = 1;
   n.count = 0;
   n.value.clear();
   EventKind end;
   switch (e.kind) {
   case EventKind::scalar:
      n.kind = e.null ? NodeKind::null : NodeKind::scalar;
      std::swap(n.value, e.value);
      return i;
   case EventKind::sequenceStart:
      n.kind = NodeKind::sequence;
      end = EventKind::sequenceEnd;
      break;
   case EventKind::mappingStart:
      n.kind = NodeKind::mapping;
      end = EventKind::mappingEnd;
      break;
   default:
      // Documents and streams hold nodes; the reader never asks for one in their place.
      n.kind = NodeKind::null;
      return i;
   }
   std::uint32_t count = 0;
   while (events.peek().kind != end) {
      gatherAt(events);
      ++count;
   }
   events.take();
   nodes_[i].count = count;
   nodes_[i].size = static_cast<std::uint32_t>(used_ - i);
   return i;
}

} // namespace VeltState
