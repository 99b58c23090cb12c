#include "Quarn/Fec.h"
#include "ValueTextChecks.h"

#include <cstring>
#include <new>
#include <type_traits>

namespace {

using namespace Quarn;
using Fib::AdjType;
using Fib::FecId;
using FibGen::Fec;
using FibGen::Via;

Via viaNo(std::uint32_t i) {
   return Via(Lumo::IntfId::fromType(Lumo::GenericIntfId::ethernetTypeId, i << 8), i + 1,
              Lumo::IpGenAddr("10.0.0.1"), FecId(AdjType::fibGenAdj, i), i);
}

Fec fecWithVias(std::uint32_t n) {
   Fec fec(FecId(AdjType::fibGenAdj, 7));
   for (std::uint32_t i = 0; i < n; ++i) fec.viaAppend(viaNo(i));
   return fec;
}

TEST(FecId, AdjTypeIsTheTopByte) {
   FecId id(AdjType::fibGenAdj, 5);
   EXPECT_EQ(id.value(), (std::uint64_t(18) << 56) | 5);
   EXPECT_EQ(id.adjType(), AdjType::fibGenAdj);
   EXPECT_EQ(id.index(), 5u);
   EXPECT_EQ(FecId(std::uint64_t(28) << 56).adjType(), AdjType(28));
   expectRoundTrip<FecId>("fibGenAdj:5");
   expectRoundTrip<FecId>("20:7");
   expectRoundTrip<FecId>("0");
   expectRoundTrip<FecId>("0x1d00000000000001"); // adjacency type 29: raw
   EXPECT_EQ(Kor::fromText<FecId>("0x1200000000000005"), id);
   EXPECT_EQ(Kor::fromText<FecId>("18:5"), id);
   for (auto bad : {"29:1", "fibFooAdj:1", "fibGenAdj:", "x", "fibGenAdj:0x100000000000000"}) {
      expectRejected<FecId>(bad, "Quarn::Fib::FecId");
   }
   expectRangeError([] { FecId(AdjType(29), 1); },
                    "Quarn::Fib::FecId::adjType >= adjTypeMax() not allowed");
}

TEST(FecIdDeathTest, AdjTypeBeyondMaxIsFatal) {
   EXPECT_DEATH(FecId(std::uint64_t(29) << 56).adjType(),
                "Assertion failed: \\(value_ >> Fib::adjTypePos\\(\\)\\) < Fib::adjTypeMax\\(\\)"
                "\n  in Quarn::Fib::AdjType Quarn::Fib::FecId::adjType\\(\\) const");
}

TEST(ViaIndex, BoundedTo599) {
   EXPECT_EQ(Fib::ViaIndex(599).value(), 599u);
   expectRangeError([] { Fib::ViaIndex(599).next(); },
                    "Quarn::Fib::ViaIndex::value < Quarn::Fib::ViaIndex::min or > "
                    "Quarn::Fib::ViaIndex::max not allowed");
}

TEST(Via, ComparesEveryFieldAndRoundTrips) {
   EXPECT_TRUE(std::is_trivially_copyable_v<Via>);
   EXPECT_LE(sizeof(Via), 40u);
   Via v = viaNo(3);
   EXPECT_TRUE(Via::isEq(v, viaNo(3)));
   auto differs = [&](auto change) {
      Via w = v;
      change(w);
      return !Via::isEq(v, w);
   };
   EXPECT_TRUE(differs([](Via& w) { w.intfIdIs(Lumo::IntfId("Ethernet9")); }));
   EXPECT_TRUE(differs([](Via& w) { w.weightIs(0); }));
   EXPECT_TRUE(differs([](Via& w) { w.hopIs(Lumo::IpGenAddr()); }));
   EXPECT_TRUE(differs([](Via& w) { w.fecIdIs(FecId()); }));
   EXPECT_TRUE(differs([](Via& w) { w.tunnelIdIs(0); }));
   EXPECT_FALSE(Via::isEq(Via(), v));
   expectRoundTrip<Via>("{intfId=Ethernet3, weight=4, hop=10.0.0.1, fecId=fibGenAdj:3, tunnelId=3}");
   expectRoundTrip<Via>("{intfId=, weight=0, hop=, fecId=0, tunnelId=0}");
   expectRejected<Via>("{intfId=Ethernet3}", "Quarn::FibGen::Via");
}

TEST(Fec, BoundsNameTheLimitAndTheCount) {
   Fec fec = fecWithVias(600);
   expectRangeError([&] { fec.viaAppend(Via()); },
                    "Quarn::FibGen::Fec::viaCount 601 > 600 not allowed");
   fec.secondaryViaCountIs(128);
   expectRangeError([&] { fec.secondaryViaCountIs(129); },
                    "Quarn::FibGen::Fec::secondaryViaCount 129 > 128 not allowed");
   Fec grown(FecId(1));
   grown.viaCountIs(2);
   EXPECT_TRUE(Via::isEq(grown.via(Fib::ViaIndex(1)), Via()));
}

TEST(Fec, CopiesAndComparesUsedVias) {
   Fec full = fecWithVias(600);
   full.secondaryViaAppend(viaNo(1));
   full.backupViaIndexIs(3);
   full.loopbackOnlyIs(true);
   Fec copy(FecId(9));
   copy = full;
   EXPECT_TRUE(Fec::isEq(copy, full));
   EXPECT_TRUE(Via::isEq(copy.via(Fib::ViaIndex(599)), viaNo(599)));
   copy.viaIs(Fib::ViaIndex(599), viaNo(0));
   EXPECT_FALSE(Fec::isEq(copy, full));
   Fec shorter = full;
   shorter.viaCountIs(599);
   EXPECT_FALSE(Fec::isEq(shorter, full));
   Fec noFlag = full;
   noFlag.loopbackOnlyIs(false);
   EXPECT_FALSE(Fec::isEq(noFlag, full));
   EXPECT_TRUE(Fec::isEq(Fec(), Fec(FecId())));
   EXPECT_FALSE(Fec::isEq(Fec(), Fec(FecId(1))));
}

// The compiler may treat storage as dead across a constructor; the barrier keeps the
// poison written and the later reads real.
void barrier() { asm volatile("" ::: "memory"); }

// Construction and copy must leave unused capacity alone: poison the storage and check
// that the slot after the last used via still holds the poison.
TEST(Fec, UnusedSlotsAreNeverTouched) {
   alignas(Fec) static unsigned char raw[sizeof(Fec)];
   const Fec one = fecWithVias(1);
   std::memset(raw, 0xab, sizeof(raw));
   barrier();
   Fec* fec = new (raw) Fec(FecId(1));
   barrier();
   const auto* slot1 = reinterpret_cast<const unsigned char*>(fec->vias().data() + 1);
   EXPECT_EQ(slot1[0], 0xab);
   *fec = one;
   barrier();
   EXPECT_EQ(slot1[sizeof(Via) - 1], 0xab);
   fec->~Fec();
   std::memset(raw, 0xab, sizeof(raw));
   barrier();
   fec = new (raw) Fec(one);
   barrier();
   EXPECT_EQ(slot1[0], 0xab);
   EXPECT_TRUE(Fec::isEq(*fec, one));
   fec->~Fec();
}

TEST(Fec, TextRoundTrip) {
   Fec fec = fecWithVias(2);
   fec.secondaryViaAppend(viaNo(5));
   fec.fecTypeIs(FibGen::FecType::receive);
   auto text = Kor::toText(fec);
   expectRoundTrip<Fec>(text);
   expectRoundTrip<Fec>(Kor::toText(Fec()));
   expectRejected<Fec>("{fecId=0}", "Quarn::FibGen::Fec");
   EXPECT_EQ(Kor::toText(Fec()), "{fecId=0, fecType=0, flags=0, loopbackOnly=false, "
                                 "backupViaIndex=0, vias={}, secondaryVias={}}");
}

} // namespace
