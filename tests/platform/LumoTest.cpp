#include "L3/VrfName.h"
#include "Lumo/EthAddr.h"
#include "Lumo/FecIdIntfId.h"
#include "Lumo/IpGenPrefix.h"
#include "Trell/VlanTag.h"
#include "ValueTextChecks.h"
#include "Vrf/VrfId.h"

#include <type_traits>
#include <unordered_set>

namespace {

using namespace Lumo;

TEST(BoundedString, HoldsUpToMaxLengthBytes) {
   std::string longest(100, 'v');
   L3::VrfName name(longest);
   EXPECT_EQ(name, longest);
   EXPECT_EQ(L3::VrfName::maxLength(), 100u);
   expectRangeError([] { L3::VrfName(std::string(101, 'v')); },
                    "Kor::String::bytes > maxLength() not allowed");
   L3::VrfName copy = name;
   copy = "red";
   EXPECT_EQ(copy.view(), "red");
   EXPECT_LT(copy, name);
   EXPECT_TRUE(L3::VrfName().empty());
   expectRoundTrip<L3::VrfName>("blue");
   EXPECT_EQ(Kor::toText(L3::VrfName("a b")), "\"a b\"");
   EXPECT_EQ(std::hash<L3::VrfName>()("red"), std::hash<std::string_view>()("red"));
}

TEST(VrfId, DefaultIsNone) {
   EXPECT_EQ(Vrf::VrfIdMap::VrfId(), Vrf::VrfIdMap::noVrfId);
   EXPECT_EQ(Vrf::VrfIdMap::noVrfId.value(), 0xffffffu);
   EXPECT_TRUE(Vrf::VrfIdMap::VrfId(0).isValid());
   expectRoundTrip<Vrf::VrfIdMap::VrfId>("7");
   expectRejected<Vrf::VrfIdMap::VrfId>("x", "Vrf::VrfIdMap::VrfId");
}

TEST(IpGenAddr, ParsesPrintsAndClassifies) {
   expectRoundTrip<IpGenAddr>("10.0.0.1");
   expectRoundTrip<IpGenAddr>("2001:db8::1");
   expectRoundTrip<IpGenAddr>("");
   expectRoundTrip<AddressFamily>("ipv6_");
   for (auto bad : {"10.0.0", "10.0.0.256", "2001:db8:::1", "x", " 10.0.0.1"}) {
      expectRejected<IpGenAddr>(bad, "Lumo::IpGenAddr");
   }
   EXPECT_EQ(IpGenAddr(AddressFamily(0)), IpGenAddr());
   EXPECT_TRUE(IpGenAddr(AddressFamily::ipv4_).isAnyAddress());
   EXPECT_TRUE(IpGenAddr("::").isUnspecified());
   EXPECT_FALSE(IpGenAddr("::").isAnyAddress());
   EXPECT_FALSE(IpGenAddr().isAnyAddress());
   EXPECT_NE(IpGenAddr("0.0.0.0"), IpGenAddr());
   IpGenAddr a("10.1.2.3");
   EXPECT_EQ(a.af(), AddressFamily::ipv4_);
   EXPECT_EQ(a.byteLength(), 4u);
   EXPECT_EQ(a.byte(3), 3);
   EXPECT_EQ(IpGenAddr(AddressFamily::ipv4_, a.bytes()), a);
   EXPECT_LT(IpGenAddr("10.0.0.1"), IpGenAddr("10.0.0.2"));
   EXPECT_LT(IpGenAddr("10.0.0.1"), IpGenAddr("::1")); // grouped by family
   EXPECT_TRUE(std::is_trivially_copyable_v<IpGenAddr>);
   EXPECT_LE(sizeof(IpGenAddr), 20u);
}

TEST(IpGenPrefix, ContainsAndRejectsHostBits) {
   expectRoundTrip<IpGenPrefix>("10.0.0.0/8");
   expectRoundTrip<IpGenPrefix>("2001:db8::/32");
   expectRoundTrip<IpGenPrefix>("10.1.2.3/32");
   expectRoundTrip<IpGenPrefix>("");
   for (auto bad : {"10.0.0.1/8", "10.0.0.0/33", "10.0.0.0", "/8", "10.0.0.0/x"}) {
      expectRejected<IpGenPrefix>(bad, "Lumo::IpGenPrefix");
   }
   IpGenPrefix p("10.128.0.0/9");
   EXPECT_TRUE(p.contains(IpGenAddr("10.200.1.1")));
   EXPECT_FALSE(p.contains(IpGenAddr("10.127.1.1")));
   EXPECT_FALSE(p.contains(IpGenAddr("::")));
   EXPECT_TRUE(IpGenPrefix("0.0.0.0/0").contains(IpGenAddr("1.2.3.4")));
   EXPECT_FALSE(IpGenPrefix().contains(IpGenAddr()));
   EXPECT_EQ(IpGenPrefix(IpGenAddr("10.1.2.3"), 16), IpGenPrefix("10.1.0.0/16"));
}

// Lengths come from tables and netlink: any byte. The check comes before the address is
// masked, which would read and write past the 16 address bytes (caught under ASan).
TEST(IpGenPrefix, LengthBeyondTheFamilyIsARangeErrorBeforeAnyByteIsTouched) {
   for (auto [addr, length] : {std::pair{"10.0.0.0", 33},
                               {"10.0.0.0", 255},
                               {"2001:db8::", 129},
                               {"2001:db8::", 255},
                               {"", 1}}) {
      EXPECT_THROW(IpGenPrefix(IpGenAddr(addr), std::uint8_t(length)),
                   Pelin::RangeException)
          << addr << "/" << length;
   }
   EXPECT_EQ(IpGenPrefix(IpGenAddr("2001:db8::1"), 128).length(), 128);
}

TEST(EthAddr, ParsesAndTestsZero) {
   expectRoundTrip<EthAddr>("02:00:00:00:00:01");
   expectRoundTrip<EthAddr>("aa:bb:cc:dd:ee:ff");
   for (auto bad : {"02:00:00:00:00", "02:00:00:00:00:0g", "02-00-00-00-00-01", "0x:00:00:00:00:01"}) {
      expectRejected<EthAddr>(bad, "Lumo::EthAddr");
   }
   EXPECT_TRUE(EthAddr().isZero());
   EXPECT_FALSE(EthAddr("00:00:00:00:00:01").isZero());
   EXPECT_EQ(EthAddr("AA:BB:CC:DD:EE:FF"), EthAddr("aa:bb:cc:dd:ee:ff"));
}

TEST(IntfId, NamesRoundTripWithTypeIds) {
   struct Case {
      const char* name;
      std::uint8_t typeId;
   };
   for (auto c : {Case{"Cpu", GenericIntfId::cpuTypeId}, Case{"Ethernet3", 2},
                  Case{"Ethernet3/1", 2}, Case{"Ethernet65535/255", 2}, Case{"Vlan4094", 3},
                  Case{"Port-Channel5", 4}, Case{"Loopback0", 5}, Case{"Tunnel16777215", 6},
                  Case{"FecId18/5", 19}, Case{"0x7000001", 7}}) {
      expectRoundTrip<IntfId>(c.name);
      EXPECT_EQ(GenericIntfId::typeId(IntfId(c.name)), c.typeId) << c.name;
   }
   expectRoundTrip<IntfId>("");
   EXPECT_EQ(GenericIntfId::typeId(IntfId("")), 0);
   for (auto bad : {"Ethernet", "Ethernet03", "Ethernet3/0", "Ethernet3/256", "Vlan0",
                    "Vlan4095", "Vlan1/1", "Cpu0", "FecId18", "FecId29/1", "eth1", "Ethernet-1"}) {
      expectRejected<IntfId>(bad, "Lumo::IntfId");
   }
   EXPECT_FALSE(IntfId().isValid());
   EXPECT_TRUE(IntfId("Cpu").isCpu());
   EXPECT_EQ(&cpuIntfId(), &cpuIntfId());
   EXPECT_FALSE(IntfId("Ethernet1").isCpu());
   EXPECT_TRUE(LoopbackIntfId::isLoopbackIntfId(IntfId("Loopback1")));
   EXPECT_FALSE(LoopbackIntfId::isLoopbackIntfId(IntfId("Ethernet1")));
   EXPECT_LT(IntfId("Ethernet2"), IntfId("Ethernet10"));
   EXPECT_LT(IntfId("Ethernet1/2"), IntfId("Ethernet2"));
   std::unordered_set<IntfId> set{IntfId("Ethernet1"), IntfId("Ethernet1")};
   EXPECT_EQ(set.size(), 1u);
}

// Ids whose type has names but whose number the names cannot spell print as the raw
// number, which reads back to the same id.
TEST(IntfId, NumbersTheNamesCannotSpellPrintRaw) {
   for (std::uint32_t value : {0x3000000u, 0x3500000u, 0x3000fffu, 0x1000005u, 0x13e80000u,
                               0x13ffffffu, 0x1000000u | 0xffffffu}) {
      SCOPED_TRACE(value);
      const IntfId id = IntfId::fromValue(value);
      EXPECT_EQ(Kor::toText(id), fmt::format("{:#x}", value));
      EXPECT_EQ(Kor::fromText<IntfId>(Kor::toText(id)), id);
   }
   EXPECT_EQ(Kor::toText(IntfId::fromValue(0x3500000)), "0x3500000"); // was Vlan5242880
   EXPECT_EQ(Kor::toText(IntfId::fromType(GenericIntfId::fecIdTypeId, 28u << 19)), "FecId28/0");
   EXPECT_EQ(Kor::toText(IntfId::fromType(GenericIntfId::ethernetTypeId, 0)), "Ethernet0");
}

TEST(FecIdIntfId, RoundTripsWithinBounds) {
   using Quarn::Fib::AdjType;
   using Quarn::Fib::FecId;
   for (auto fecId : {FecId(AdjType::fibGenAdj, 5), FecId(AdjType(28), FecIdIntfId::maxIndex),
                      FecId(AdjType::fibV4Adj, 1)}) {
      IntfId intf = FecIdIntfId::fecIdToIntfId(fecId);
      EXPECT_EQ(GenericIntfId::typeId(intf), 19);
      EXPECT_EQ(FecIdIntfId::intfIdToFecId(intf), fecId);
      EXPECT_EQ(IntfId(Kor::toText(intf)), intf);
   }
   EXPECT_EQ(Kor::toText(FecIdIntfId::fecIdToIntfId(FecId(AdjType::fibGenAdj, 5))), "FecId18/5");
   expectRangeError(
      [] { FecIdIntfId::fecIdToIntfId(FecId(AdjType::fibGenAdj, FecIdIntfId::maxIndex + 1)); },
      "Lumo::FecIdIntfId: FEC index > Lumo::FecIdIntfId::maxIndex not allowed");
}

TEST(FecIdIntfIdDeathTest, NonFecIdInterfaceIsAProgrammingError) {
   EXPECT_DEATH(FecIdIntfId::intfIdToFecId(IntfId("Ethernet1")),
                "Assertion failed: isFecIdIntfId\\(id\\)");
}

TEST(VlanTag, TextAndPacketBytes) {
   expectRoundTrip<Trell::VlanTag>("0x8100:0:0:100");
   expectRoundTrip<Trell::VlanTag>("0x88a8:7:1:4095");
   for (auto bad : {"0x8100:8:0:100", "0x8100:0:2:100", "0x8100:0:0:4096", "0x8100:0:0",
                    "0x8100:0:0:1:1"}) {
      expectRejected<Trell::VlanTag>(bad, "Trell::VlanTag");
   }
   const std::uint8_t wire[4] = {0x81, 0x00, 0xb0, 0x64}; // PCP 5, DEI 1, VID 100
   auto tag = Trell::VlanTag::fromBytes(wire);
   EXPECT_EQ(tag, Trell::VlanTag(0x8100, 5, true, 100));
   std::uint8_t out[4];
   tag.toBytes(out);
   EXPECT_EQ(std::memcmp(out, wire, 4), 0);
   expectRangeError([] { Trell::VlanTag(0x8100, 0, false, 4096); },
                    "Trell::VlanTag::vid > 4095 not allowed");
}

} // namespace
