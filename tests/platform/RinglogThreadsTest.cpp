// Several writer threads lapping a small ring while a reader decodes the file: every line
// read back is one whole record, never a mix of two. Also built under ThreadSanitizer.
#include "Pelin/Threading.h"
#include "RinglogFiles.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdio>
#include <thread>

namespace {

using namespace RinglogFiles;

// A record whose fields repeat each other, so a line mixed from two records shows.
void writeRecord(int thread, std::uint64_t n) {
   std::string filler(n % 40, static_cast<char>('a' + n % 26));
   VELT_RINGLOG("Threads", 1, "t{} n{} m{} [{}] {}", thread, n, ~n, filler, n % 40);
}

// Returns what is wrong with a line, or "" when it is one whole record.
std::string checkLine(const Ringlog::Line& line) {
   int thread = 0;
   unsigned long long n = 0, m = 0;
   if (std::sscanf(line.text.c_str(), "t%d n%llu m%llu", &thread, &n, &m) != 3 || m != ~n)
      return "fields disagree: " + line.text;
   std::string filler(n % 40, static_cast<char>('a' + n % 26));
   if (line.text != fmt::format("t{} n{} m{} [{}] {}", thread, n, m, filler, n % 40))
      return "payload mixed: " + line.text;
   return "";
}

class RinglogThreadsTest : public ::testing::Test {
 protected:
   void SetUp() override { Pelin::multiThreadedIs(true); }
   void TearDown() override {
      Ringlog::close();
      Pelin::multiThreadedIs(false);
   }
   std::string path_ = tmpPath("RinglogThreadsTest.ring");
};

TEST_F(RinglogThreadsTest, ConcurrentWritersLapTheRingAndAReaderSeesOnlyWholeRecords) {
   ASSERT_TRUE(Ringlog::open(path_, 64 * 1024));
   constexpr int kWriters = 4;
   constexpr std::uint64_t kPerWriter = 100000; // about 70 laps of the ring
   std::atomic<int> running{kWriters};
   std::vector<std::thread> writers;
   for (int t = 0; t < kWriters; ++t) {
      writers.emplace_back([t, &running] {
         for (std::uint64_t n = 0; n < kPerWriter; ++n) writeRecord(t, n);
         --running;
      });
   }
   int reads = 0;
   std::uint64_t linesSeen = 0;
   while (running.load() > 0 || reads == 0) {
      Ringlog::Contents c;
      std::string error;
      ASSERT_TRUE(Ringlog::read(path_, c, error)) << error;
      for (std::size_t i = 0; i < c.lines.size(); ++i) {
         ASSERT_EQ(checkLine(c.lines[i]), "");
         if (i) {
            ASSERT_LT(c.lines[i - 1].seq, c.lines[i].seq);
         }
      }
      linesSeen += c.lines.size();
      ++reads;
   }
   for (auto& w : writers) w.join();
   EXPECT_GT(linesSeen, 0u);

   Ringlog::Contents c;
   std::string error;
   ASSERT_TRUE(Ringlog::read(path_, c, error)) << error;
   ASSERT_FALSE(c.lines.empty());
   for (const auto& line : c.lines) ASSERT_EQ(checkLine(line), "");
   // At rest every record is either read or accounted for.
   EXPECT_EQ(c.overwritten + c.lines.size() + c.damaged + c.unfinished, kWriters * kPerWriter);
}

TEST_F(RinglogThreadsTest, WritersStartingTogetherGetDistinctSequenceNumbers) {
   ASSERT_TRUE(Ringlog::open(path_, 1 << 20)); // large enough to keep every record
   constexpr int kWriters = 3;
   constexpr std::uint64_t kPerWriter = 2000;
   std::atomic<bool> go{false};
   std::vector<std::thread> writers;
   for (int t = 0; t < kWriters; ++t) {
      writers.emplace_back([t, &go] {
         while (!go.load()) std::this_thread::yield();
         for (std::uint64_t n = 0; n < kPerWriter; ++n) writeRecord(t, n);
      });
   }
   go = true;
   for (auto& w : writers) w.join();
   Ringlog::Contents c;
   std::string error;
   ASSERT_TRUE(Ringlog::read(path_, c, error)) << error;
   ASSERT_EQ(c.lines.size(), kWriters * kPerWriter);
   std::vector<std::uint64_t> next(kWriters, 0);
   for (std::size_t i = 0; i < c.lines.size(); ++i) {
      ASSERT_EQ(c.lines[i].seq, i);
      int thread = -1;
      unsigned long long n = 0;
      ASSERT_EQ(std::sscanf(c.lines[i].text.c_str(), "t%d n%llu", &thread, &n), 2);
      ASSERT_EQ(n, next.at(thread)++) << "a thread's records keep their order";
   }
}

} // namespace
