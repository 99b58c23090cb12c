#include "Counters/VeltNamedCounters.h"
#include "Packet/PacketTrace.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using ::testing::ElementsAre;

TEST(VeltNamedCounters, CountsPerTripleWhateverTheTextAddress) {
   auto counters = Pelin::make<VeltNamedCounters>();
   std::string copy = "No route"; // same text, another address
   for (int i = 0; i < 3; ++i) counters->count("Drop", "NHResolver", "No route");
   counters->count("Drop", "NHResolver", copy.c_str());
   counters->count("Action", "NHResolver", "No route");
   counters->count("Drop", "Arp", "Miss");
   EXPECT_EQ(counters->value("Drop", "NHResolver", "No route"), 4u);
   EXPECT_EQ(counters->value("Action", "NHResolver", "No route"), 1u);
   EXPECT_EQ(counters->value("Drop", "NHResolver", "Miss"), 0u);
   std::vector<std::string> listed;
   for (const auto& e : counters->all())
      listed.push_back(fmt::format("{}/{}/{}={}", e.category, e.component, e.text, e.count));
   EXPECT_THAT(listed, ElementsAre("Action/NHResolver/No route=1", "Drop/Arp/Miss=1",
                                   "Drop/NHResolver/No route=4"));
}

TEST(PacketContext, CopiesTheBaseAndCountsOnlyWithASink) {
   PacketContextBase base(77);
   base.count("Drop", "NHResolver", "ignored without a sink");
   auto counters = Pelin::make<VeltNamedCounters>();
   base.countersIs(counters);
   base.tracePrefixIs("pfx");
   base.pktIs(Pelin::make<Lumo::Pkt>(std::vector<std::uint8_t>{1, 2, 3}));
   auto ctx = Pelin::make<PacketContext>(base);
   EXPECT_EQ(ctx->id(), 77u);
   EXPECT_EQ(ctx->tracePrefix(), "pfx");
   EXPECT_EQ(ctx->pkt()->size(), 3u);
   EXPECT_EQ(ctx->hash(), 0u);
   ctx->hashIs(0xabcd);
   EXPECT_EQ(ctx->hash(), 0xabcdu);
   ctx->count("Drop", "NHResolver", "x");
   EXPECT_EQ(counters->value("Drop", "NHResolver", "x"), 1u);
}

int evaluations = 0;
int touch() { return ++evaluations; }

TEST(PacketTrace, PrefixRaisesTheTextLevelByThree) {
   Trace::Handle h("Velt::PktTest");
   Trace::Capture capture;
   PacketContextBase plain(5);
   PacketContextBase prefixed(6);
   prefixed.tracePrefixIs("pfx");

   VELT_PKT_TRACE(h, 3, plain, "Step: {}", touch());
   EXPECT_EQ(evaluations, 0); // nothing on: arguments untouched
   h.levelsIs(1u << 3);
   VELT_PKT_TRACE(h, 3, plain, "Step: {}", touch());
   VELT_PKT_TRACE(h, 3, prefixed, "Step: {}", touch());
   h.levelsIs(1u << 6);
   VELT_PKT_TRACE(h, 3, plain, "Step: {}", touch());
   VELT_PKT_TRACE(h, 3, prefixed, "Step: {}", touch());
   VELT_PKT_TRACE(h, 6, prefixed, "No args"); // level 9 is off
   EXPECT_EQ(evaluations, 4);
   EXPECT_THAT(capture.lines(),
               ElementsAre("Velt::PktTest/3 Pkt5: Step: 1", "Velt::PktTest/6 Pkt6: Step: 4"));
}

} // namespace
