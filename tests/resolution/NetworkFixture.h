// A small network wired with the real pipeline steps and resolvers, for end-to-end tests,
// tools and benchmarks. Two VRFs:
//
//   red (id 1)   Ethernet1 10.1.0.0/24   neighbour 10.1.0.2  02:00:00:00:01:02
//                Ethernet2 10.2.0.0/24   neighbour 10.2.0.2  02:00:00:00:02:02
//                Ethernet3 10.3.0.0/24   neighbour 10.3.0.2  02:00:00:00:03:02
//                Ethernet5 10.5.0.0/24   no neighbour known
//   blue (id 2)  Ethernet4 10.4.0.0/24   neighbour 10.4.0.2  02:00:00:00:04:02
//
// FECs of red (fibGenAdj ids, see Fecs below) and its routes: 10.1.0.0/24 connected,
// 10.2.0.0/24 via gateway, 10.100.0.0/16 weighted. Nothing matches 192.0.2.0/24.
#pragma once
#include "Arp/ArpTable.h"
#include "Interface/EthIntfStatusDir.h"
#include "L3/IntfStatusDir.h"
#include "Lumo/FecIdIntfId.h"
#include "Quarn/ForwardingStatus.h"
#include "ResolutionTestUtil.h"
#include "VeltLib/ArpHelper.h"
#include "VeltLib/IntfSuitabilityCheckerTypes.h"
#include "VeltLib/IntfSuitabilityHelper.h"
#include "VeltLib/NexthopResolver.h"

#include <cstdint>

namespace VeltTest {

struct Fecs {
   using FecId = Quarn::Fib::FecId;
   static FecId id(std::uint64_t index) {
      return FecId(Quarn::Fib::AdjType::fibGenAdj, index);
   }
   // Red.
   static FecId connected() { return id(1); } // Ethernet1, no gateway
   static FecId gateway() { return id(2); }   // Ethernet2 via 10.2.0.2
   static FecId receive() { return id(3); }   // to this switch
   static FecId drop() { return id(4); }      // FEC type drop
   static FecId weighted() { return id(5); }  // Ethernet1 weight 1, Ethernet2 weight 3
   static FecId withBackup() {
      return id(6);
   } // Ethernet5 (unknown), Ethernet3; backup Ethernet2
   static FecId twoLevel() { return id(7); } // through the FEC-id interface of weighted()
   static FecId toBlue() { return id(8); }   // Ethernet4 of blue via 10.4.0.2
   static FecId downPrimary() {
      return id(9);
   } // Ethernet1, Ethernet6 (down); backup Ethernet2
   static FecId noNeighbour() { return id(10); } // Ethernet5 via 10.5.0.2
   static FecId unknownType() { return id(11); } // FEC type 3: no resolver
   static FecId fourWay() { return id(12); }     // Ethernet1..3 + Ethernet1, weights 1..4
   static FecId fourWayBackup() {
      return id(13);
   }                                      // fourWay() plus a backup via Ethernet3
   static FecId wide() { return id(14); } // 600 vias over Ethernet1..3
   static FecId absent() { return id(99); }
};

class Network {
public:
   using Via = Quarn::FibGen::Via;
   using Fec = Quarn::FibGen::Fec;

   static constexpr Vrf::VrfIdMap::VrfId redId{1};
   static constexpr Vrf::VrfIdMap::VrfId blueId{2};

   Network() {
      using Quarn::FibGen::ForwardingStatus;
      ForwardingStatus::Capacity cap;
      cap.fecs = 64;
      cap.viaPoolBytes = 1 << 20;
      cap.routes = 64;
      red = Pelin::make<ForwardingStatus>("red", cap);
      blue = Pelin::make<ForwardingStatus>("blue", cap);

      l3IntfStatus = L3::Intf::statusDirFactory();
      ethIntfStatus = Interface::ethIntfStatusDirFactory();
      arpTable =
          Pelin::make<Arp::Table::Status>("arp", Arp::Table::Status::Capacity{256, 256});
      for (const char* name :
           {"Ethernet1", "Ethernet2", "Ethernet3", "Ethernet5", "Ethernet6"}) {
         l3IntfStatus->intfStatusIs(intf(name), "red");
         ethIntfStatus->intfStatusIs(intf(name), Interface::IntfOperStatus::intfOperUp);
      }
      l3IntfStatus->intfStatusIs(intf("Ethernet4"), "blue");
      ethIntfStatus->intfStatusIs(intf("Ethernet4"),
                                  Interface::IntfOperStatus::intfOperUp);
      ethIntfStatus->intfStatusIs(intf("Ethernet6"),
                                  Interface::IntfOperStatus::intfOperDown);
      neighbour("Ethernet1", redId, "10.1.0.2", "02:00:00:00:01:02");
      neighbour("Ethernet2", redId, "10.2.0.2", "02:00:00:00:02:02");
      neighbour("Ethernet3", redId, "10.3.0.2", "02:00:00:00:03:02");
      neighbour("Ethernet4", blueId, "10.4.0.2", "02:00:00:00:04:02");
      neighbour("Ethernet6", redId, "10.6.0.2", "02:00:00:00:06:02");
      neighbour("Ethernet1", redId, "2001:db8:1::2", "02:00:00:00:01:06");

      buildFecs();
      wire();
   }

   // ---- running packets ----

   // A next hop that starts from a FEC id.
   static Pelin::Ptr<Velt::RoutingNexthop> fecNexthop(Quarn::Fib::FecId fecId,
                                                      const char* dstIp = "") {
      auto nh = Velt::routingNexthopFactory(Lumo::IntfId());
      nh->fecIdIs(fecId);
      nh->dstIpIs(ip(dstIp));
      return nh;
   }
   // A next hop that starts from an interface and a neighbour address.
   static Pelin::Ptr<Velt::RoutingNexthop> intfNexthop(const char* intfName,
                                                       const char* dstIp) {
      auto nh = Velt::routingNexthopFactory(intf(intfName));
      nh->dstIpIs(ip(dstIp));
      return nh;
   }

   Pelin::Ptr<Velt::RoutingContext> context(std::uint32_t hash, const char* vrf = "red") {
      return contextFor(vrf, hash, counters, ++packetId);
   }
   void resolve(const Pelin::Ptr<Velt::RoutingNexthop>& nh, std::uint32_t hash = 1,
                const char* vrf = "red") {
      driver->resolve(context(hash, vrf), nh);
   }
   std::uint64_t count(const char* category, const char* text) const {
      return countOf(counters, category, text);
   }

   // ---- building ----

   void neighbour(const char* intfName, Vrf::VrfIdMap::VrfId vrf, const char* addr,
                  const char* ethAddr) {
      arpTable->entryIs(Arp::Table::ArpEntry(
          Arp::Table::ArpKey(intf(intfName), vrf, ip(addr)), mac(ethAddr)));
   }
   static Fec fec(Quarn::Fib::FecId id, std::uint8_t type,
                  std::initializer_list<Via> vias, std::uint32_t backupIndex = 0) {
      Fec f(id);
      f.fecTypeIs(type);
      for (const Via& v : vias)
         f.viaAppend(v);
      f.backupViaIndexIs(backupIndex);
      return f;
   }
   static Via via(const char* intfName, std::uint32_t weight, const char* hop = "") {
      return Via(intf(intfName), weight, ip(hop));
   }

   Pelin::Ptr<Quarn::FibGen::ForwardingStatus> red;
   Pelin::Ptr<Quarn::FibGen::ForwardingStatus> blue;
   Pelin::Ptr<L3::Intf::StatusDir> l3IntfStatus;
   Pelin::Ptr<Interface::EthIntfStatusDir> ethIntfStatus;
   Pelin::Ptr<Arp::Table::Status> arpTable;
   Pelin::Ptr<Velt::ArpHelper> arpHelper;
   Pelin::Ptr<Velt::IntfSuitabilityHelper> suitability;
   Pelin::Ptr<Velt::NexthopResolvers> resolvers;
   Pelin::Ptr<Velt::ResolverVrfRoots> vrfRoots;
   Pelin::Ptr<Velt::GenericPipelineSteps> steps;
   Pelin::Ptr<Velt::GenericPipelineSteps> fallbackSteps;
   Pelin::Ptr<Velt::RoutingNexthopResolver> driver;
   Pelin::Ptr<VeltNamedCounters> counters = Pelin::make<VeltNamedCounters>();
   std::uint64_t packetId = 0;

private:
   void buildFecs() {
      namespace T = Quarn::FibGen::FecType;
      red->fecIs(fec(Fecs::connected(), T::forward, {via("Ethernet1", 1)}));
      red->fecIs(fec(Fecs::gateway(), T::forward, {via("Ethernet2", 1, "10.2.0.2")}));
      red->fecIs(fec(Fecs::receive(), T::receive, {}));
      red->fecIs(fec(Fecs::drop(), T::drop, {}));
      red->fecIs(fec(Fecs::weighted(), T::forward,
                     {via("Ethernet1", 1, "10.1.0.2"), via("Ethernet2", 3, "10.2.0.2")}));
      red->fecIs(fec(Fecs::withBackup(), T::forward,
                     {via("Ethernet5", 1, "10.5.0.2"), via("Ethernet3", 1, "10.3.0.2"),
                      via("Ethernet2", 1, "10.2.0.2")},
                     2));
      red->fecIs(fec(Fecs::twoLevel(), T::forward,
                     {Via(Lumo::FecIdIntfId::fecIdToIntfId(Fecs::weighted()), 1,
                          Lumo::IpGenAddr())}));
      red->fecIs(fec(Fecs::toBlue(), T::forward, {via("Ethernet4", 1, "10.4.0.2")}));
      red->fecIs(fec(Fecs::downPrimary(), T::forward,
                     {via("Ethernet1", 1, "10.1.0.2"), via("Ethernet6", 1, "10.6.0.2"),
                      via("Ethernet2", 1, "10.2.0.2")},
                     2));
      red->fecIs(fec(Fecs::noNeighbour(), T::forward, {via("Ethernet5", 1, "10.5.0.2")}));
      red->fecIs(fec(Fecs::unknownType(), 3, {via("Ethernet1", 1, "10.1.0.2")}));
      red->fecIs(fec(Fecs::fourWay(), T::forward,
                     {via("Ethernet1", 1, "10.1.0.2"), via("Ethernet2", 2, "10.2.0.2"),
                      via("Ethernet3", 3, "10.3.0.2"), via("Ethernet1", 4, "10.1.0.2")}));
      red->fecIs(fec(Fecs::fourWayBackup(), T::forward,
                     {via("Ethernet1", 1, "10.1.0.2"), via("Ethernet2", 2, "10.2.0.2"),
                      via("Ethernet3", 3, "10.3.0.2"), via("Ethernet1", 4, "10.1.0.2"),
                      via("Ethernet3", 1, "10.3.0.2")},
                     4));
      Fec wide(Fecs::wide());
      const char* names[] = {"Ethernet1", "Ethernet2", "Ethernet3"};
      const char* hops[] = {"10.1.0.2", "10.2.0.2", "10.3.0.2"};
      for (std::uint32_t i = 0; i < Fec::maxVias; ++i) {
         wide.viaAppend(via(names[i % 3], 1 + i % 7, hops[i % 3]));
      }
      red->fecIs(wide);
      red->routeIs(Lumo::IpGenPrefix(ip("10.1.0.0"), 24), Fecs::connected());
      red->routeIs(Lumo::IpGenPrefix(ip("10.2.0.0"), 24), Fecs::gateway());
      red->routeIs(Lumo::IpGenPrefix(ip("10.100.0.0"), 16), Fecs::weighted());
   }

   void wire() {
      arpHelper = Velt::arpHelperFactory(arpTable);
      suitability = Velt::intfSuitabilityHelperFactory();
      suitability->intfSuitabilityCheckerIs(
          Velt::intfOperStatusSuitabilityCheckerFactory(ethIntfStatus));
      resolvers = Velt::nexthopResolversFactory();
      vrfRoots = Velt::resolverVrfRootsFactory();
      vrfRoots->vrfRootIs("red", redId, red);
      vrfRoots->vrfRootIs("blue", blueId, blue);
      steps = Pelin::make<Velt::GenericPipelineSteps>(Velt::nhrPipelineName);
      fallbackSteps =
          Pelin::make<Velt::GenericPipelineSteps>(Velt::noIpRouteFallbackPipelineName);
      driver = Velt::routingNexthopResolverFactory(steps, resolvers, vrfRoots);

      steps->stepIs(Velt::nhrInterfaceTypeStepFactory(resolvers));
      steps->stepIs(Velt::nhrCopyViaNexthopStepFactory(l3IntfStatus));
      steps->stepIs(Velt::nhrFecTypeStepFactory(resolvers));
      steps->stepIs(Velt::nhrFecIdTypeStepFactory(resolvers));
      steps->stepIs(Velt::nhrDstIpTypeStepFactory(resolvers));
      steps->stepIs(Velt::noIpRouteFallbackStepFactory(
          Pelin::make<Velt::GenericPipeline>(fallbackSteps)));

      resolvers->interfaceResolverIs(Pelin::make<Velt::EthernetArpResolver>(arpHelper));
      resolvers->interfaceResolverIs(Velt::fecIdIntfIdHandlerFactory());
      resolvers->fecTypeResolverIs(
          Velt::forwardFecTypeResolverFactory(driver.get(), suitability));
      resolvers->fecTypeResolverIs(Velt::dropFecTypeResolverFactory());
      resolvers->fecTypeResolverIs(Velt::receiveFecTypeResolverFactory());
      resolvers->fecTypeResolverIs(Velt::kernelFecTypeResolverFactory());
      resolvers->fecIdResolverIs(Velt::fibV4AdjFecIdResolverFactory());
      resolvers->fecIdResolverIs(Velt::fibGenAdjFecIdResolverFactory());
   }
};

} // namespace VeltTest
