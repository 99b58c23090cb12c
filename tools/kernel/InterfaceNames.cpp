#include "kernel/InterfaceNames.h"

#include <fmt/format.h>

namespace VeltLinux {

Lumo::IntfId toolInterfaceOf(const KernelLink& link) {
   if (link.loopback) return Lumo::IntfId("Loopback0");
   if (link.index <= 0 || link.index > 0xffff) {
      throw ImportError(fmt::format("interface {} has ifindex {}, beyond Ethernet65535: the "
                                    "name rule cannot map it",
                                    link.name, link.index));
   }
   return Lumo::IntfId(fmt::format("Ethernet{}", link.index));
}

} // namespace VeltLinux
