// A first look at the records every resolution carries: a next hop completed by hand the
// way the steps and resolvers complete it, printed through the generic attribute access.
#include "Kor/TypeInfo.h"
#include "VeltLib/RoutingNexthop.h"

#include <fmt/format.h>

namespace {

void show(const char* title, const Velt::RoutingNexthop& nh) {
   fmt::print("{}\n", title);
   for (const auto& attr : Kor::attributes(nh)) {
      if (attr.kind == Kor::AttrKind::value) {
         fmt::print("  {:<22} {}\n", attr.name, Kor::get(nh, attr.name));
      }
   }
}

} // namespace

int main() {
   auto nh = Velt::routingNexthopFactory(Lumo::IntfId());
   nh->dstIpIs(Lumo::IpGenAddr("192.0.2.10"));
   nh->vrfIs("default");
   show("A next hop with only a destination IP:", *nh);

   nh->outputIntfIs(Lumo::IntfId("Ethernet1"));
   nh->dstMacIs(Lumo::EthAddr("02:00:00:00:00:0a"));
   show("\nAfter its route and neighbour were found:", *nh);

   nh->setCpuTrapNexthop();
   nh->kernelHandlesPacketIs(true);
   show("\nThe same next hop trapped to the CPU:", *nh);
   return nh->fullyResolved() ? 0 : 1;
}
