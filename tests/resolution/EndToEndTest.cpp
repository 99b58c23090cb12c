// Whole resolutions through the real steps and resolvers over the network of
// NetworkFixture.h: what the caller finally reads from its next hop.
#include "NetworkFixture.h"

#include <gtest/gtest.h>
#include <map>

namespace {

using namespace VeltTest;

class EndToEnd : public ::testing::Test {
protected:
   Network net;

   void expectSentTo(const Pelin::Ptr<Velt::RoutingNexthop>& nh, const char* intfName,
                     const char* ethAddr) {
      EXPECT_EQ(nh->outputIntf(), intf(intfName));
      EXPECT_EQ(nh->dstMac(), mac(ethAddr));
      EXPECT_TRUE(nh->fullyResolved());
      EXPECT_FALSE(nh->drop());
      EXPECT_FALSE(nh->toMe());
   }
};

TEST_F(EndToEnd, EthernetNeighboursResolveToInterfaceAndMac) {
   auto direct = Network::intfNexthop("Ethernet3", "10.3.0.2");
   net.resolve(direct);
   expectSentTo(direct, "Ethernet3", "02:00:00:00:03:02");
   EXPECT_EQ(direct->vrf(), "red");

   auto connected = Network::fecNexthop(Fecs::connected(), "10.1.0.2");
   net.resolve(connected);
   expectSentTo(connected, "Ethernet1", "02:00:00:00:01:02");

   auto v6 = Network::fecNexthop(Fecs::connected(), "2001:db8:1::2");
   net.resolve(v6);
   expectSentTo(v6, "Ethernet1", "02:00:00:00:01:06");

   auto gateway = Network::fecNexthop(Fecs::gateway(), "10.2.77.77");
   net.resolve(gateway);
   expectSentTo(gateway, "Ethernet2", "02:00:00:00:02:02");

   // Through the FEC-id interface of the weighted FEC: pick 0 of 4 is Ethernet1.
   auto twoLevel = Network::fecNexthop(Fecs::twoLevel(), "10.100.0.1");
   net.resolve(twoLevel, 4);
   expectSentTo(twoLevel, "Ethernet1", "02:00:00:00:01:02");
}

TEST_F(EndToEnd, TrapsAndLocalDelivery) {
   auto unknownNeighbour = Network::fecNexthop(Fecs::noNeighbour());
   net.resolve(unknownNeighbour);
   EXPECT_TRUE(unknownNeighbour->outputIntf().isCpu());
   EXPECT_TRUE(unknownNeighbour->kernelHandlesPacket());
   EXPECT_FALSE(unknownNeighbour->drop());

   auto toMe = Network::fecNexthop(Fecs::receive(), "10.1.0.1");
   net.resolve(toMe);
   EXPECT_TRUE(toMe->toMe());
   EXPECT_TRUE(toMe->outputIntf().isCpu());
   EXPECT_FALSE(toMe->drop());

   // No route and no fallback taking it: the CPU interface. The fallback step lets the
   // pass end untaken, which the driver also reports as an exceptional drop.
   auto noRoute = Velt::routingNexthopFactory(Lumo::IntfId());
   noRoute->dstIpIs(ip("192.0.2.1"));
   net.resolve(noRoute);
   EXPECT_TRUE(noRoute->outputIntf().isCpu());
   EXPECT_EQ(net.count("Action", "No route, trying fallbacks for {}"), 1u);
   EXPECT_TRUE(noRoute->drop());
   EXPECT_EQ(net.count("Exceptional", "Could not resolve, nexthop is empty"), 1u);
}

TEST_F(EndToEnd, DropsAreCountedByCause) {
   auto dropFec = Network::fecNexthop(Fecs::drop());
   net.resolve(dropFec);
   EXPECT_TRUE(dropFec->drop());

   auto unknownType = Network::fecNexthop(Fecs::unknownType());
   net.resolve(unknownType);
   EXPECT_TRUE(unknownType->drop());
   EXPECT_EQ(net.count("Drop", "No resolver for fecType"), 1u);

   auto unknownAdj = Network::fecNexthop(Quarn::Fib::FecId(Quarn::Fib::AdjType(20), 1));
   net.resolve(unknownAdj);
   EXPECT_TRUE(unknownAdj->drop());
   EXPECT_EQ(net.count("Drop", "No resolver for fecId type"), 1u);

   auto absent = Network::fecNexthop(Fecs::absent());
   net.resolve(absent);
   EXPECT_TRUE(absent->drop());

   auto connectedNoIp = Network::fecNexthop(Fecs::connected());
   net.resolve(connectedNoIp);
   EXPECT_TRUE(connectedNoIp->drop());
   EXPECT_EQ(net.count("Drop", "No destination ip for connected route with fec {}"), 1u);

   auto missDrop = Network::fecNexthop(Fecs::noNeighbour());
   missDrop->arpLookupFailActionIs(Velt::ArpLookupFailAction::dropTraceCount);
   net.resolve(missDrop);
   EXPECT_TRUE(missDrop->drop());
   EXPECT_FALSE(missDrop->kernelHandlesPacket());
   EXPECT_EQ(
       net.count("Drop",
                 "Arp did not resolve, and nexthop is set to drop when this happens"),
       1u);

   auto noVrf = Network::fecNexthop(Fecs::gateway());
   net.resolve(noVrf, 1, "green");
   EXPECT_TRUE(noVrf->drop());
   EXPECT_EQ(net.count("Drop", "Could not find resolver vrf root for vrf {}"), 1u);
}

TEST_F(EndToEnd, ViaOnAnotherVrfsInterfaceContinuesThere) {
   auto nh = Network::fecNexthop(Fecs::toBlue());
   net.resolve(nh);
   expectSentTo(nh, "Ethernet4", "02:00:00:00:04:02");
   EXPECT_EQ(nh->vrf(), "blue");
   // The neighbour is keyed by blue's id: the same address in red is unknown.
   auto inRed = Network::intfNexthop("Ethernet4", "10.4.0.2");
   net.resolve(inRed, 1, "blue");
   EXPECT_TRUE(inRed->fullyResolved());
   net.arpTable->entryDel(
       Arp::Table::ArpKey(intf("Ethernet4"), Network::blueId, ip("10.4.0.2")));
   net.neighbour("Ethernet4", Network::redId, "10.4.0.2", "02:00:00:00:04:99");
   auto missed = Network::fecNexthop(Fecs::toBlue());
   net.resolve(missed);
   EXPECT_TRUE(missed->outputIntf().isCpu());
}

TEST_F(EndToEnd, FailingPrimariesFallToTheBackup) {
   // Hash 2: pick 0 of 2 is Ethernet5, whose neighbour is unknown; Ethernet3 takes over.
   auto nh = Network::fecNexthop(Fecs::withBackup());
   net.resolve(nh, 2);
   expectSentTo(nh, "Ethernet3", "02:00:00:00:03:02");
   EXPECT_EQ(net.count("Action", "Pre-resolving via as there is a backup via"), 2u);
   EXPECT_EQ(
       net.count("Drop",
                 "Arp did not resolve, and nexthop is set to drop when this happens"),
       0u);

   net.arpTable->entryDel(
       Arp::Table::ArpKey(intf("Ethernet3"), Network::redId, ip("10.3.0.2")));
   auto backup = Network::fecNexthop(Fecs::withBackup());
   net.resolve(backup, 2);
   expectSentTo(backup, "Ethernet2", "02:00:00:00:02:02");
   EXPECT_EQ(net.count("Action", "Pre-resolving via as there is a backup via"), 4u);
}

TEST_F(EndToEnd, UnsuitablePrimaryIsPassedOver) {
   // Hash 3: pick 1 of 2 is Ethernet6, resolvable but operationally down.
   auto nh = Network::fecNexthop(Fecs::downPrimary());
   net.resolve(nh, 3);
   expectSentTo(nh, "Ethernet1", "02:00:00:00:01:02");
   net.ethIntfStatus->intfStatusIs(intf("Ethernet6"),
                                   Interface::IntfOperStatus::intfOperUp);
   auto up = Network::fecNexthop(Fecs::downPrimary());
   net.resolve(up, 3);
   expectSentTo(up, "Ethernet6", "02:00:00:00:06:02");
}

TEST_F(EndToEnd, WeightsSplitFlows) {
   const char* expected[] = {"Ethernet1", "Ethernet2", "Ethernet2", "Ethernet2"};
   for (std::uint32_t h = 4; h < 8; ++h) {
      auto nh = Network::fecNexthop(Fecs::weighted());
      net.resolve(nh, h);
      EXPECT_EQ(nh->outputIntf(), intf(expected[h % 4])) << h;
      EXPECT_TRUE(nh->fullyResolved());
   }
   std::map<Lumo::IntfId, int> hits;
   for (std::uint32_t i = 1; i <= 2000; ++i) {
      auto nh = Network::fecNexthop(Fecs::weighted());
      net.resolve(nh, i * 2654435761u);
      ++hits[nh->outputIntf()];
   }
   EXPECT_NEAR(hits[intf("Ethernet1")], 500, 70);
   EXPECT_NEAR(hits[intf("Ethernet2")], 1500, 70);
}

TEST_F(EndToEnd, WideFecsResolve) {
   for (std::uint32_t h : {1u, 977u, 123456789u}) {
      auto nh = Network::fecNexthop(Fecs::wide());
      net.resolve(nh, h);
      EXPECT_TRUE(nh->fullyResolved()) << h;
   }
}

} // namespace
