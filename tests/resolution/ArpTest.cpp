// The neighbour table, the ARP helper over it, and the ARP lookup handler.
#include "Arp/ArpTable.h"
#include "ResolutionTestUtil.h"
#include "VeltLib/ArpHelper.h"
#include "VeltLib/NexthopResolver.h"

#include <cstdlib>
#include <gtest/gtest.h>

namespace {

using namespace VeltTest;
using Arp::Table::ArpEntry;
using Arp::Table::ArpKey;
using Vrf::VrfIdMap::VrfId;

const VrfId kRed(1);
const VrfId kBlue(2);

std::string scratchPath(const std::string& name) {
   const char* dir = std::getenv("VELT_TEST_TMP");
   return std::string(dir ? dir : "/tmp") + "/" + name;
}

class ArpTableTest : public ::testing::Test {
protected:
   ArpTableTest()
       : table(Pelin::make<Arp::Table::Status>("arp",
                                               Arp::Table::Status::Capacity{64, 64})) {
      table->entryIs(ArpEntry(ArpKey(intf("Ethernet1"), kRed, ip("10.0.0.2")),
                              mac("02:00:00:00:00:02")));
      table->entryIs(ArpEntry(ArpKey(intf("Ethernet1"), kRed, ip("2001:db8::2")),
                              mac("02:00:00:00:00:06")));
   }
   Pelin::Ptr<Arp::Table::Status> table;
};

TEST_F(ArpTableTest, AbsentKeyFindsTheDefaultEntry) {
   ArpEntry e = table->arpMap().find(ArpKey(intf("Ethernet9"), kRed, ip("10.0.0.9")));
   EXPECT_EQ(e.key.intfId, Lumo::IntfId());
   EXPECT_EQ(e.key.vrfId.value(), 0xffffffu);
   EXPECT_EQ(e.key.addr, Lumo::IpGenAddr());
   EXPECT_TRUE(e.ethAddr.isZero());
   EXPECT_EQ(e.flags, 0);
   EXPECT_EQ(e.extFlags, 0);
   EXPECT_TRUE(ArpEntry::isEq(e, ArpEntry()));
}

TEST_F(ArpTableTest, FamiliesLiveInSeparateMapsAndDeleteRemoves) {
   ArpKey v4(intf("Ethernet1"), kRed, ip("10.0.0.2"));
   EXPECT_EQ(table->arpMap().find(v4).ethAddr, mac("02:00:00:00:00:02"));
   EXPECT_TRUE(ArpEntry::isEq(table->neighborMap().find(v4), ArpEntry()));
   EXPECT_EQ(table->arpEntryCount(), 1u);
   EXPECT_EQ(table->neighborEntryCount(), 1u);
   // Replacing keeps one entry; flags are stored as given.
   table->entryIs(ArpEntry(v4, mac("02:00:00:00:00:03"), 4, 5));
   ArpEntry e = table->arpMap().find(v4);
   EXPECT_EQ(e.ethAddr, mac("02:00:00:00:00:03"));
   EXPECT_EQ(e.flags, 4);
   EXPECT_EQ(e.extFlags, 5);
   EXPECT_EQ(table->arpEntryCount(), 1u);
   EXPECT_TRUE(table->entryDel(v4));
   EXPECT_FALSE(table->entryDel(v4));
   EXPECT_TRUE(ArpEntry::isEq(table->arpMap().find(v4), ArpEntry()));
   int seen = 0;
   table->neighborMap().forEach([&](const ArpEntry& n) {
      ++seen;
      EXPECT_EQ(n.key.addr, ip("2001:db8::2"));
   });
   EXPECT_EQ(seen, 1);
}

TEST_F(ArpTableTest, DamagedRecordRaisesAndIsReportedPerMap) {
   ArpKey v4(intf("Ethernet1"), kRed, ip("10.0.0.2"));
   table->arpMap().debugCorrupt(v4);
   EXPECT_THROW(table->arpMap().find(v4), Pelin::CorruptionDetectedException);
   table->arpMap().doCorruptionDetected("bad slot");
   EXPECT_EQ(table->arpMap().corruptionCount(), 1u);
   EXPECT_EQ(table->arpMap().lastCorruption(), "bad slot");
   EXPECT_EQ(table->neighborMap().corruptionCount(), 0u);
}

TEST(ArpTableFile, ReadersSeeTheWritersEntries) {
   using Map = Arp::Table::ArpEntryMap::Map;
   std::string a = scratchPath("arp-v4"), n = scratchPath("arp-v6");
   auto writer = Pelin::make<Arp::Table::Status>("w", Map::createFile(a, 16),
                                                 Map::createFile(n, 16));
   auto reader =
       Pelin::make<Arp::Table::Status>("r", Map::attachFile(a), Map::attachFile(n));
   ArpKey k(intf("Ethernet2"), kBlue, ip("2001:db8::9"));
   writer->entryIs(ArpEntry(k, mac("02:00:00:00:00:09")));
   EXPECT_EQ(reader->neighborMap().find(k).ethAddr, mac("02:00:00:00:00:09"));
}

class ArpHelperTest : public ArpTableTest {
protected:
   Pelin::Ptr<Velt::ArpHelper> helper = Velt::arpHelperFactory(table);
};

TEST_F(ArpHelperTest, EveryKeyPartMustMatch) {
   auto hit = helper->arpLookup(intf("Ethernet1"), ip("10.0.0.2"), kRed);
   ASSERT_TRUE(hit);
   EXPECT_EQ(hit->mac(), mac("02:00:00:00:00:02"));
   EXPECT_FALSE(helper->arpLookup(intf("Ethernet2"), ip("10.0.0.2"), kRed));
   EXPECT_FALSE(helper->arpLookup(intf("Ethernet1"), ip("10.0.0.2"), kBlue));
   EXPECT_FALSE(helper->arpLookup(intf("Ethernet1"), ip("10.0.0.3"), kRed));
   auto v6 = helper->arpLookup(intf("Ethernet1"), ip("2001:db8::2"), kRed);
   ASSERT_TRUE(v6);
   EXPECT_EQ(v6->mac(), mac("02:00:00:00:00:06"));
   // An address known only as IPv6 is not found as IPv4, and vice versa.
   table->entryIs(ArpEntry(ArpKey(intf("Ethernet3"), kRed, ip("2001:db8::3")),
                           mac("02:00:00:00:00:07")));
   EXPECT_FALSE(helper->arpEntry(ArpKey(intf("Ethernet3"), kRed, ip("2001:db8::3")))
                    .key.intfId.isValid());
   EXPECT_TRUE(helper->neighborEntry(ArpKey(intf("Ethernet3"), kRed, ip("2001:db8::3")))
                   .key.intfId.isValid());
}

TEST_F(ArpHelperTest, PresentEntryResolvesWhateverItsMacAndFlags) {
   table->entryIs(
       ArpEntry(ArpKey(intf("Ethernet4"), kRed, ip("10.0.4.2")), Lumo::EthAddr(), 1, 0));
   auto r = helper->arpLookup(intf("Ethernet4"), ip("10.0.4.2"), kRed);
   ASSERT_TRUE(r);
   EXPECT_TRUE(r->mac().isZero());
}

TEST_F(ArpHelperTest, CorruptionIsReportedAndReadAsAMiss) {
   ArpKey k(intf("Ethernet1"), kRed, ip("10.0.0.2"));
   table->arpMap().debugCorrupt(k);
   EXPECT_FALSE(helper->arpLookup(intf("Ethernet1"), ip("10.0.0.2"), kRed));
   EXPECT_EQ(table->arpMap().corruptionCount(), 1u);
   EXPECT_NE(table->arpMap().lastCorruption().find("corrupt"), std::string::npos);
   EXPECT_TRUE(ArpEntry::isEq(helper->arpEntry(k), ArpEntry()));
   EXPECT_EQ(table->arpMap().corruptionCount(),
             1u); // the same damage: not reported again
   // Other keys of the map still resolve.
   table->entryIs(ArpEntry(ArpKey(intf("Ethernet5"), kRed, ip("10.0.5.2")),
                           mac("02:00:00:00:00:05")));
   EXPECT_TRUE(helper->arpLookup(intf("Ethernet5"), ip("10.0.5.2"), kRed));
}

TEST(ArpHelper, WithoutTableNothingResolves) {
   auto helper = Velt::ArpHelperIs(nullptr);
   EXPECT_FALSE(helper->arpLookup(intf("Ethernet1"), ip("10.0.0.2"), kRed));
   EXPECT_TRUE(ArpEntry::isEq(helper->neighborEntry(ArpKey()), ArpEntry()));
}

TEST(ArpHelperDeathTest, UnsetAddressIsAProgrammingError) {
   auto helper = Velt::arpHelperFactory(nullptr);
   EXPECT_DEATH(helper->arpLookup(intf("Ethernet1"), Lumo::IpGenAddr(), kRed),
                "Assertion failed: nexthop.af\\(\\) == Lumo::AddressFamily::ipv6_\n.*\n.*"
                "VeltLib/ArpHelper.cpp:18");
}

// ---- the handler ----

class ArpLookupHandlerTest : public ArpHelperTest {
protected:
   void SetUp() override {
      counters = Pelin::make<VeltNamedCounters>();
      ctx = contextFor("red", 7, counters);
      root = Velt::resolverVrfRootFactory("red", kRed, nullptr);
      nh = Velt::routingNexthopFactory(intf("Ethernet1"));
      nh->dstIpIs(ip("10.0.0.2"));
   }
   void run() { handler->resolve(ctx, root, nh); }

   Pelin::Ptr<Velt::ArpLookupHandler> handler =
       Pelin::make<Velt::EthernetArpResolver>(helper);
   Pelin::Ptr<VeltNamedCounters> counters;
   Pelin::Ptr<Velt::RoutingContext> ctx;
   Pelin::Ptr<Velt::ResolverVrfRoot> root;
   Pelin::Ptr<Velt::RoutingNexthop> nh;
};

TEST_F(ArpLookupHandlerTest, IsTheDefaultInterfaceResolver) {
   EXPECT_EQ(handler->name(), "ArpLookup");
   EXPECT_EQ(handler->type(), 0);
   EXPECT_EQ(Velt::ArpLookupHandler(19, helper).type(), 19);
}

TEST_F(ArpLookupHandlerTest, NeighbourFoundSetsTheMac) {
   run();
   EXPECT_EQ(nh->dstMac(), mac("02:00:00:00:00:02"));
   EXPECT_FALSE(nh->drop());
   EXPECT_TRUE(nh->fullyResolved());
   EXPECT_EQ(totalCount(counters), 0u);
}

TEST_F(ArpLookupHandlerTest, InconsistentNexthopsAreDropped) {
   // No interface wins over everything else, and is counted.
   nh->outputIntfIs(Lumo::IntfId());
   nh->dstMacIs(mac("02:00:00:00:00:01"));
   run();
   EXPECT_TRUE(nh->drop());
   EXPECT_EQ(countOf(counters, "Exceptional", "No output interface for arp"), 1u);

   // A MAC already there: dropped, not counted.
   SetUp();
   nh->dstMacIs(mac("02:00:00:00:00:01"));
   run();
   EXPECT_TRUE(nh->drop());
   EXPECT_EQ(totalCount(counters), 0u);

   SetUp();
   nh->dstIpIs(Lumo::IpGenAddr());
   run();
   EXPECT_TRUE(nh->drop());
   EXPECT_EQ(countOf(counters, "Exceptional", "No destination ip for arp"), 1u);
}

TEST_F(ArpLookupHandlerTest, MissFollowsTheFailAction) {
   using A = Velt::ArpLookupFailAction;
   auto miss = [&](A action, const Pelin::Ptr<VeltNamedCounters>& sink) {
      ctx = contextFor("red", 7, sink);
      nh = Velt::routingNexthopFactory(intf("Ethernet1"));
      nh->dstIpIs(ip("10.0.0.77"));
      nh->arpLookupFailActionIs(action);
      run();
   };
   miss(A::trapTraceCount, counters);
   EXPECT_TRUE(nh->outputIntf().isCpu());
   EXPECT_TRUE(nh->kernelHandlesPacket());
   EXPECT_FALSE(nh->drop());
   EXPECT_EQ(totalCount(counters), 0u);

   miss(A::dropTraceCount, counters);
   EXPECT_TRUE(nh->drop());
   EXPECT_EQ(countOf(counters, "Drop",
                     "Arp did not resolve, and nexthop is set to drop when this happens"),
             1u);

   miss(A::silentlyIgnore, counters);
   EXPECT_TRUE(nh->drop());
   EXPECT_EQ(totalCount(counters), 1u);

   for (int v : {3, 200}) {
      miss(A(v), counters);
      EXPECT_FALSE(nh->drop());
      EXPECT_EQ(nh->outputIntf(), intf("Ethernet1"));
      EXPECT_FALSE(nh->kernelHandlesPacket());
      EXPECT_TRUE(nh->dstMac().isZero());
   }

   // Without a counter sink the outcome is the same.
   miss(A::dropTraceCount, nullptr);
   EXPECT_TRUE(nh->drop());
   EXPECT_EQ(totalCount(counters), 1u);
}

} // namespace
