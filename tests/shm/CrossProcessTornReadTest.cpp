// A reader process maps the tables a writer process keeps rewriting: every record it
// copies must be wholly one version, across FECs with pooled vias and both neighbour
// maps.
#include "RecordReader.h"
#include "ScratchDir.h"
#include "WriterProcess.h"

#include <gtest/gtest.h>

#include <chrono>

namespace {

using namespace ShmTest;

constexpr std::uint64_t kReads = 1'000'000;
// Versions the reader must see pass by: proof that the writer ran alongside it for a
// while, which a loaded machine does not always grant.
constexpr std::uint64_t kChanges = 20'000;
// The writer keeps to a few keys that the reader reads most, so that the two meet inside
// records often.
constexpr std::uint32_t kHotKeys = 4;
// A bound for a loaded machine, not a speed requirement: 1M reads take under a second in
// an optimised build and about ten in the Debug build under AddressSanitizer.
constexpr auto kPatience = std::chrono::seconds(60);

TEST(ShmCrossProcess, ReaderSeesOnlyWholeRecordsWhileWriterRewrites) {
   ScratchDir dir("tornread");
   const std::string base = dir.base("fib");
   WriterProcess writer(base, WriterPlan::readyWhenFilled, 1, kHotKeys);
   ASSERT_TRUE(writer.awaitReady());
   auto fwd = Quarn::FibGen::ForwardingStatus::attachFiles("reader", base);
   auto neighbors = Arp::Table::Status::attachFiles("reader", base);
   RecordReader reader(*fwd, *neighbors);

   const auto until = std::chrono::steady_clock::now() + kPatience;
   const ReadTally& t = reader.tally();
   while ((t.reads < kReads || t.versionChanges < kChanges) &&
          std::chrono::steady_clock::now() < until) {
      for (int i = 0; i < 256; ++i) {
         for (std::uint32_t k = 0; k < kHotKeys; ++k) {
            reader.readFec(k);
            reader.readNeighbor(k);
         }
      }
      reader.readAll(); // the churn keys, erased and re-inserted
   }
   writer.killNow();

   EXPECT_GE(t.reads, kReads);
   EXPECT_GE(t.versionChanges, kChanges) << "the writer hardly ran";
   EXPECT_EQ(t.torn, 0u);
   EXPECT_EQ(t.absentStable, 0u);
   // A writer descheduled inside a record for longer than the retry budget is reported,
   // which a loaded machine may cause; it is not a torn read.
   RecordProperty("reads", std::to_string(t.reads));
   RecordProperty("versionChanges", std::to_string(t.versionChanges));
   RecordProperty("corruptionReports", std::to_string(t.corrupt));
   EXPECT_LE(t.corrupt, t.reads / 1000) << t.lastCorruption;
}

} // namespace
