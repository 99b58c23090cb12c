#include "kernel/KernelState.h"

namespace VeltLinux {

const char* routeTypeName(RouteType type) {
   switch (type) {
   case RouteType::unicast: return "unicast";
   case RouteType::local: return "local";
   case RouteType::broadcast: return "broadcast";
   case RouteType::blackhole: return "blackhole";
   case RouteType::unreachable: return "unreachable";
   case RouteType::prohibit: return "prohibit";
   case RouteType::other: return "other";
   }
   return "?";
}

const KernelLink* KernelState::link(int index) const {
   for (const KernelLink& l : links) {
      if (l.index == index) return &l;
   }
   return nullptr;
}

const KernelLink* KernelState::link(const std::string& name) const {
   for (const KernelLink& l : links) {
      if (l.name == name) return &l;
   }
   return nullptr;
}

const KernelNexthop* KernelState::nexthop(std::uint32_t id) const {
   for (const KernelNexthop& n : nexthops) {
      if (n.id == id) return &n;
   }
   return nullptr;
}

} // namespace VeltLinux
