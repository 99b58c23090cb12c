// A writer process killed with SIGKILL at random moments leaves tables whose records are
// whole or reported as corrupt: never a crash, a torn record or an endless retry, for a
// reader attached before the kill and for one attaching after it.
#include "RecordReader.h"
#include "ScratchDir.h"
#include "WriterProcess.h"

#include "VeltLib/ResolverVrfRoot.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <chrono>
#include <iostream>
#include <random>
#include <set>

namespace {

using namespace ShmTest;
using Quarn::FibGen::ForwardingStatus;

constexpr int kRounds = 40;
// Far above the 50 ms retry budget: only an unbounded retry gets here.
constexpr auto kBoundedRead = std::chrono::seconds(10);

Pelin::Ptr<Velt::ResolverVrfRoot> rootOver(const Pelin::Ptr<ForwardingStatus>& fwd) {
   return Velt::resolverVrfRootFactory("default", Vrf::VrfIdMap::VrfId(1), fwd);
}

// The FEC keys whose read is reported corrupt now that the writer is gone.
std::set<std::uint32_t> corruptFecKeys(const ForwardingStatus& fwd) {
   std::set<std::uint32_t> keys;
   Quarn::FibGen::Fec scratch;
   for (std::uint32_t k = 0; k < kAllKeys; ++k) {
      try {
         fwd.fecInto(fecIdOf(k), scratch);
      } catch (const Pelin::CorruptionDetectedException&) {
         keys.insert(k);
      }
   }
   return keys;
}

// genFec never raises on a damaged record: it counts it and resolves to the empty FEC.
// Each step has a mapping of its own: a mapping answers a record it found stuck before at
// once, as a repeat, without a second report.
void expectGenFecReportsCorruptFecs(const std::string& base) {
   const std::set<std::uint32_t> corrupt =
       corruptFecKeys(*ForwardingStatus::attachFiles("probe", base));
   auto fwd = ForwardingStatus::attachFiles("resolver", base);
   auto root = rootOver(fwd);
   const std::uint64_t before = fwd->corruptionCount();
   for (std::uint32_t k = 0; k < kAllKeys; ++k) {
      Quarn::FibGen::Fec fec = root->genFec(fecIdOf(k));
      if (corrupt.count(k)) {
         EXPECT_TRUE(fec.isEmpty()) << "key " << k;
      } else if (!fec.isEmpty()) { // else absent
         EXPECT_TRUE(wholeVersionOf(fec).has_value()) << "key " << k;
      }
   }
   EXPECT_EQ(fwd->corruptionCount() - before, corrupt.size());
}

void expectNoDamageBeyondReports(const ReadTally& t, const char* reader) {
   EXPECT_EQ(t.torn, 0u) << reader;
   EXPECT_LT(t.slowest, kBoundedRead) << reader;
}

TEST(ShmWriterKill, RecordsStayWholeOrReportedCorruptWhateverTheMoment) {
   ScratchDir dir("writerkill");
   const std::string base = dir.base("fib");
   const auto seed = static_cast<std::uint64_t>(::getpid());
   std::mt19937_64 rng(seed);
   int roundsWithReports = 0;
   for (int round = 0; round < kRounds; ++round) {
      SCOPED_TRACE(testing::Message() << "round " << round << ", seed " << seed);
      WriterProcess writer(base, WriterPlan::readyWhenCreated, rng());
      ASSERT_TRUE(writer.awaitReady());
      auto earlyFwd = ForwardingStatus::attachFiles("early", base);
      auto earlyNeighbors = Arp::Table::Status::attachFiles("early", base);
      RecordReader early(*earlyFwd, *earlyNeighbors);
      // Read while the writer fills and rewrites, up to a kill at a random moment.
      const auto killAt =
          std::chrono::steady_clock::now() + std::chrono::microseconds(rng() % 8000);
      for (std::uint32_t k = 0; std::chrono::steady_clock::now() < killAt;
           k = (k + 1) % kAllKeys) {
         early.readFec(k);
         early.readNeighbor(k);
      }
      int status = writer.killNow();
      ASSERT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL) << status;

      early.readAll();
      auto lateFwd = ForwardingStatus::attachFiles("late", base);
      auto lateNeighbors = Arp::Table::Status::attachFiles("late", base);
      RecordReader late(*lateFwd, *lateNeighbors);
      late.readAll();
      expectNoDamageBeyondReports(early.tally(), "reader attached before the kill");
      expectNoDamageBeyondReports(late.tally(), "reader attached after the kill");
      expectGenFecReportsCorruptFecs(base);
      if (late.tally().corrupt > 0) ++roundsWithReports;
   }
   RecordProperty("roundsWithCorruptionReports", roundsWithReports);
   std::cout << roundsWithReports << " of " << kRounds
             << " killed writers left a record reported corrupt\n";
}

// A writer killed inside a FEC leaves it half-written for good: resolution counts the
// corruption on the table, names the file, and goes on with the empty FEC.
TEST(ShmWriterKill, FecLeftHalfWrittenResolvesToTheEmptyFecAndIsCounted) {
   ScratchDir dir("halfwritten");
   const std::string base = dir.base("fib");
   WriterProcess writer(base, WriterPlan::stuckRecordThenWait, 1);
   ASSERT_TRUE(writer.awaitReady());
   writer.killNow();

   auto fwd = ForwardingStatus::attachFiles("default", base);
   auto root = rootOver(fwd);
   EXPECT_TRUE(root->genFec(fecIdOf(0)).isEmpty());
   EXPECT_EQ(fwd->corruptionCount(), 1u);
   EXPECT_THAT(fwd->lastCorruption(), testing::AllOf(testing::HasSubstr(base + ".fecs"),
                                                     testing::HasSubstr("stays odd")));
   EXPECT_EQ(wholeVersionOf(root->genFec(fecIdOf(1))), 1u);
   Quarn::FibGen::Fec out;
   root->genFecInto(fecIdOf(0), out);
   EXPECT_TRUE(out.isEmpty());
   EXPECT_EQ(fwd->corruptionCount(), 1u); // reported once, then answered at once

   auto neighbors = Arp::Table::Status::attachFiles("default", base);
   EXPECT_THROW(neighbors->arpMap().find(neighborKeyOf(0)),
                Pelin::CorruptionDetectedException);
   EXPECT_EQ(wholeVersionOf(neighbors->arpMap().find(neighborKeyOf(2))), 1u);
}

} // namespace
