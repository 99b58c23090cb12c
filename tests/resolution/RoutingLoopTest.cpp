// Routing loops through FEC-id interfaces, as they appear while routes converge: every
// resolution ends, and where a FEC has a backup via the backup carries the traffic.
#include "NetworkFixture.h"

#include <gtest/gtest.h>

namespace {

using namespace VeltTest;
using Quarn::Fib::FecId;
using Quarn::FibGen::Fec;
using Quarn::FibGen::Via;
namespace T = Quarn::FibGen::FecType;

constexpr const char* kDepthText =
    "Could not pre-resolve via, pre-resolution depth {} reached";
constexpr const char* kPreResolving = "Pre-resolving via as there is a backup via";

// A recursive via: through the FEC's interface, towards a gateway it resolves.
Via toFec(FecId id) {
   return Via(Lumo::FecIdIntfId::fecIdToIntfId(id), 1, ip("10.2.0.2"));
}

class RoutingLoop : public ::testing::Test {
 protected:
   Network net;

   static FecId ring(std::uint32_t i) { return Fecs::id(40 + i); }

   // FECs ring(0..length-1), each with `primaries` vias to the next one round the ring,
   // and `backup` (when given) as the last via and backup.
   void buildRing(std::uint32_t length, std::uint32_t primaries, const Via* backup,
                  Quarn::FibGen::ForwardingStatus& table) {
      for (std::uint32_t i = 0; i < length; ++i) {
         Fec fec(ring(i));
         fec.fecTypeIs(T::forward);
         for (std::uint32_t p = 0; p < primaries; ++p)
            fec.viaAppend(toFec(ring((i + 1) % length)));
         if (backup) {
            fec.viaAppend(*backup);
            fec.backupViaIndexIs(primaries);
         }
         table.fecIs(fec);
      }
   }

   Pelin::Ptr<Velt::RoutingNexthop> resolveRing(std::uint32_t hash = 1) {
      auto nh = Network::fecNexthop(ring(0));
      net.resolve(nh, hash);
      return nh;
   }

   void expectOnBackup(const Pelin::Ptr<Velt::RoutingNexthop>& nh) {
      EXPECT_TRUE(nh->fullyResolved());
      EXPECT_FALSE(nh->drop());
      EXPECT_EQ(nh->outputIntf(), intf("Ethernet2"));
      EXPECT_EQ(nh->dstMac(), mac("02:00:00:00:02:02"));
   }
};

TEST_F(RoutingLoop, LoopsWithABackupEndOnTheBackup) {
   const Via backup = Network::via("Ethernet2", 1, "10.2.0.2");
   for (std::uint32_t length : {1u, 2u, 5u}) {
      SCOPED_TRACE(length);
      buildRing(length, 1, &backup, *net.red);
      const std::uint64_t before = net.count("Exceptional", kDepthText);
      expectOnBackup(resolveRing());
      // The limit is met once, at the deepest level; the levels above take their backups
      // without walking into the loop again.
      EXPECT_EQ(net.count("Exceptional", kDepthText), before + 1);
   }
}

TEST_F(RoutingLoop, LoopsWithoutABackupEndInADrop) {
   for (std::uint32_t length : {1u, 2u, 5u}) {
      SCOPED_TRACE(length);
      buildRing(length, 1, nullptr, *net.red);
      auto nh = resolveRing();
      EXPECT_TRUE(nh->drop());
      EXPECT_FALSE(nh->fullyResolved());
   }
   EXPECT_EQ(net.count("Drop", "Could not resolve after {} iterations"), 3u);
   EXPECT_EQ(net.count("Exceptional", kDepthText), 0u);
}

TEST_F(RoutingLoop, WideLoopsWhoseBackupFailsTooEndQuickly) {
   // 599 primaries into the loop and a backup whose neighbour is unknown: every level
   // fails, and none may try its other primaries, or the work would grow as 599^depth.
   const Via deadEnd = Network::via("Ethernet5", 1, "10.5.0.2");
   for (std::uint32_t length : {1u, 2u, 5u}) {
      SCOPED_TRACE(length);
      buildRing(length, Fec::maxVias - 1, &deadEnd, *net.red);
      const std::uint64_t before = net.count("Action", kPreResolving);
      auto nh = resolveRing(977);
      EXPECT_TRUE(nh->outputIntf().isCpu()); // the packet's own miss action: trapped
      EXPECT_TRUE(nh->kernelHandlesPacket());
      const std::uint64_t tried = net.count("Action", kPreResolving) - before;
      EXPECT_LE(tried, 2u * (net.driver->maxPreResolutionDepth() + 1u));
   }

   const Via backup = Network::via("Ethernet2", 1, "10.2.0.2");
   buildRing(2, Fec::maxVias - 1, &backup, *net.red);
   expectOnBackup(resolveRing(123456789));
}

TEST_F(RoutingLoop, LoopsAcrossVrfsEnd) {
   // red's FEC goes through a FEC-id interface of blue to blue's FEC, which comes back
   // through a FEC-id interface of red.
   const FecId inRed = ring(0), inBlue = ring(1);
   const Lumo::IntfId toBlue = Lumo::FecIdIntfId::fecIdToIntfId(inBlue);
   const Lumo::IntfId toRed = Lumo::FecIdIntfId::fecIdToIntfId(inRed);
   net.l3IntfStatus->intfStatusIs(toBlue, "blue");
   net.l3IntfStatus->intfStatusIs(toRed, "red");
   auto build = [&](bool backups) {
      Fec red(inRed), blue(inBlue);
      red.viaAppend(Via(toBlue, 1, ip("10.4.0.2")));
      blue.viaAppend(Via(toRed, 1, ip("10.2.0.2")));
      if (backups) {
         red.viaAppend(Network::via("Ethernet2", 1, "10.2.0.2"));
         blue.viaAppend(Network::via("Ethernet4", 1, "10.4.0.2"));
         red.backupViaIndexIs(1);
         blue.backupViaIndexIs(1);
      }
      net.red->fecIs(red);
      net.blue->fecIs(blue);
   };

   build(false);
   auto noBackup = Network::fecNexthop(inRed);
   net.resolve(noBackup, 1);
   EXPECT_TRUE(noBackup->drop());
   EXPECT_EQ(net.count("Drop", "Could not resolve after {} iterations across vrfs"), 1u);

   build(true);
   auto withBackup = Network::fecNexthop(inRed);
   net.resolve(withBackup, 1);
   EXPECT_TRUE(withBackup->fullyResolved());
   EXPECT_FALSE(withBackup->drop());
   EXPECT_EQ(net.count("Exceptional", kDepthText), 1u);
}

TEST_F(RoutingLoop, TheLimitIsTheDriversToSet) {
   const Via backup = Network::via("Ethernet2", 1, "10.2.0.2");
   buildRing(1, 1, &backup, *net.red);
   for (std::uint8_t depth : {std::uint8_t(1), std::uint8_t(12)}) {
      net.driver->maxPreResolutionDepthIs(depth);
      const std::uint64_t before = net.count("Action", kPreResolving);
      expectOnBackup(resolveRing());
      // One pre-resolution per level, the refused one included.
      EXPECT_EQ(net.count("Action", kPreResolving) - before, depth + 1u);
   }

   // 0: no primary of a backup FEC is ever pre-resolved, so the backup takes every
   // packet, even where the primary would have resolved.
   net.driver->maxPreResolutionDepthIs(0);
   auto nh = Network::fecNexthop(Fecs::withBackup());
   net.resolve(nh, 3); // a pick of Ethernet3, which resolves
   EXPECT_EQ(nh->outputIntf(), intf("Ethernet2"));
   EXPECT_TRUE(nh->fullyResolved());

   net.driver->maxPreResolutionDepthIs(4);
   auto normal = Network::fecNexthop(Fecs::withBackup());
   net.resolve(normal, 3);
   EXPECT_EQ(normal->outputIntf(), intf("Ethernet3"));
}

} // namespace
