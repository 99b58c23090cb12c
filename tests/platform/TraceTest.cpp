#include "Trace/Emit.h"
#include "Trace/Trace.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>

namespace {

using ::testing::ElementsAre;

struct Counted {
   int* formats;
};

} // namespace

template <>
struct fmt::formatter<Counted> : fmt::formatter<std::string_view> {
   auto format(const Counted& c, format_context& ctx) const {
      ++*c.formats;
      return fmt::formatter<std::string_view>::format("counted", ctx);
   }
};

// Counted values carry no bytes into the ring.
template <>
struct Ringlog::Codec<Counted> {
   static constexpr std::uint16_t typeCode = 0x7002;
   static constexpr std::size_t size = 0;
   static void encode(const Counted&, std::byte*) {}
   static std::string decode(const std::byte*) { return "counted"; }
};

namespace {

constexpr std::uint32_t kAll = 0x3ff;

TEST(TraceConfig, LevelsRangesAndDefaults) {
   auto c = Trace::parse(" Velt::NHResolver/3 , Velt::Vrf/0-9,Log/0,A/1-2+7,B,C/ ");
   EXPECT_TRUE(c.errors.empty());
   EXPECT_EQ(Trace::levelsFor(c, "Velt::NHResolver"), 1u << 3);
   EXPECT_EQ(Trace::levelsFor(c, "Velt::Vrf"), kAll);
   EXPECT_EQ(Trace::levelsFor(c, "Log"), 1u);
   EXPECT_EQ(Trace::levelsFor(c, "A"), 0b10000110u);
   EXPECT_EQ(Trace::levelsFor(c, "B"), kAll);
   EXPECT_EQ(Trace::levelsFor(c, "C"), 0u);
   EXPECT_EQ(Trace::levelsFor(c, "Velt::Routing"), 0u);
}

TEST(TraceConfig, WildcardsAndLastMatchWins) {
   auto c = Trace::parse("Velt::*/0-9,*Resolver/2,Velt::Vrf/");
   EXPECT_EQ(Trace::levelsFor(c, "Velt::Routing"), kAll);
   EXPECT_EQ(Trace::levelsFor(c, "Velt::NHResolver"), 1u << 2);
   EXPECT_EQ(Trace::levelsFor(c, "Velt::Vrf"), 0u);
   EXPECT_EQ(Trace::levelsFor(c, "Other"), 0u);
   EXPECT_TRUE(Trace::matches("V*t::*r", "Velt::NHResolver"));
   EXPECT_TRUE(Trace::matches("*", ""));
   EXPECT_TRUE(Trace::matches("a*b*c", "aXbYbZc"));
   EXPECT_FALSE(Trace::matches("a*b*c", "aXbYcZ"));
   EXPECT_FALSE(Trace::matches("Velt", "Velt::Vrf"));
}

TEST(TraceConfig, BadEntriesAreReportedAndIgnored) {
   auto c = Trace::parse("A/12,B/3-1,/3,C/x,D/1+,E/2,F/-");
   EXPECT_THAT(c.errors, ElementsAre("ignoring bad entry 'A/12'", "ignoring bad entry 'B/3-1'",
                                     "ignoring bad entry '/3'", "ignoring bad entry 'C/x'",
                                     "ignoring bad entry 'D/1+'", "ignoring bad entry 'F/-'"));
   ASSERT_EQ(c.rules.size(), 1u);
   EXPECT_EQ(Trace::levelsFor(c, "E"), 1u << 2);
}

TEST(TraceHandle, FollowsRereadOfTheEnvironment) {
   ::setenv("TRACE", "Test::Early/4", 1);
   Trace::reread();
   Trace::Handle early("Test::Early");
   EXPECT_TRUE(early.enabled(4));
   EXPECT_FALSE(early.enabled(3));
   EXPECT_STREQ(early.shortName(), "Early");
   ::setenv("TRACE", "Test::*/1", 1);
   Trace::reread();
   EXPECT_EQ(early.levels(), 1u << 1);
   ::unsetenv("TRACE");
   Trace::reread();
   EXPECT_FALSE(early.anyEnabled());
}

TEST(TraceHandle, FormatsOnlyWhenTheLevelIsOn) {
   Trace::Handle h("Test::Fmt");
   Trace::Capture capture;
   int formats = 0;
   h.levelsIs(1u << 2);
   VELT_TRACE(h, 3, "off {}", Counted{&formats});
   VELT_TRACE(h, 2, "on {} {}", Counted{&formats}, 7);
   VELT_TRACE_FN(h, 2, "someFunction", "fn {}", Counted{&formats});
   h.levelsIs(0);
   VELT_TRACE(h, 2, "off again {}", Counted{&formats});
   EXPECT_EQ(formats, 2);
   EXPECT_THAT(capture.lines(), ElementsAre("Test::Fmt/2 on counted 7", "Test::Fmt/2 fn counted"));
}

} // namespace
