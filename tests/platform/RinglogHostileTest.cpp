// Ring files whose bytes were crafted or cut: the reader checks everything it takes from
// the file (run these under AddressSanitizer to see that nothing is read outside it).
#include "RinglogFiles.h"

#include <gtest/gtest.h>

#include <limits>
#include <random>
#include <sstream>

namespace {

using namespace RinglogFiles;
constexpr std::uint64_t kMax64 = std::numeric_limits<std::uint64_t>::max();

class RinglogHostileTest : public ::testing::Test {
 protected:
   // Ten records "flag {} {}" of 24 bytes each: a bool, then an int.
   void SetUp() override {
      ASSERT_TRUE(Ringlog::open(path_, 64 * 1024));
      for (int i = 0; i < 10; ++i) VELT_RINGLOG("Hostile", 1, "flag {} {}", i % 2 == 1, i);
      Ringlog::close();
      bytes_ = load(path_);
   }
   std::string errorOf(const std::vector<char>& bytes) {
      std::string error;
      decode(bytes, error);
      return error;
   }
   std::string dumped(std::size_t size) {
      save(path_, bytes_, size);
      std::ostringstream out;
      std::string error;
      EXPECT_TRUE(Ringlog::dump(path_, out, &error)) << error;
      return out.str();
   }
   std::string path_ = tmpPath("RinglogHostileTest.ring");
   std::vector<char> bytes_;
};

TEST_F(RinglogHostileTest, HeaderFieldsOutOfRangeAreNamed) {
   struct Case {
      std::uint64_t Ringlog::layout::FileHeader::*field;
      std::uint64_t value;
      const char* error;
   };
   using H = Ringlog::layout::FileHeader;
   const Case cases[] = {
      // Offsets whose sums wrap around 2^64 and would pass a naive end check.
      {&H::siteAreaOffset, kMax64 - 7, "message table offset 18446744073709551608"},
      {&H::siteAreaBytes, kMax64 - 4095, "message table size 18446744073709547520"},
      {&H::ringOffset, kMax64 - 65535, "ring offset 18446744073709486080"},
      {&H::ringOffset, 4096, "ring offset 4096"}, // overlaps the message table
      {&H::ringBytes, std::uint64_t{1} << 63, "ring size 9223372036854775808"},
      {&H::ringBytes, 65 * 1024, "ring size 66560"},
   };
   for (const Case& c : cases) {
      std::vector<char> crafted = bytes_;
      header(crafted).*c.field = c.value;
      EXPECT_EQ(errorOf(crafted),
                std::string("ring trace header is damaged: ") + c.error + " is out of range");
   }
   std::vector<char> crafted = bytes_;
   header(crafted).head.store(kMax64 - 3);
   EXPECT_EQ(errorOf(crafted),
             "ring trace header is damaged: ring head 18446744073709551612 is out of range");
}

TEST_F(RinglogHostileTest, EmptyAndShortFilesAreNotRingFiles) {
   std::string error;
   Ringlog::Contents c;
   EXPECT_FALSE(Ringlog::decode({}, c, error));
   EXPECT_EQ(error, "file too short for a ring trace header");
   save(path_, bytes_, 0);
   EXPECT_FALSE(Ringlog::read(path_, c, error));
   EXPECT_EQ(error, "file too short for a ring trace header");
   const char* folder = std::getenv("VELT_TEST_TMP");
   EXPECT_FALSE(Ringlog::read(folder ? folder : "/tmp", c, error));
   EXPECT_EQ(error, "not a regular file");
}

TEST_F(RinglogHostileTest, ArgumentBytesNoTypeCanHoldAreReportedNotDecoded) {
   bytes_[kRingAt + 16] = 7; // record 0's bool
   restamp(bytes_, 0);
   bytes_[kRingAt + 24 + 16] = 1; // record 1's bool stays a bool
   std::string error;
   auto c = decode(bytes_, error);
   ASSERT_EQ(c.lines.size(), 10u) << error;
   EXPECT_EQ(c.lines[0].text, "flag {} {} [undecodable argument of type 9]");
   EXPECT_EQ(c.lines[1].text, "flag true 1");
}

TEST_F(RinglogHostileTest, MixedPayloadUnderAValidStampIsSkipped) {
   // What a writer lapped mid-record leaves: another record's words under this stamp.
   std::memcpy(&bytes_[kRingAt + 3 * 24 + 16], &bytes_[kRingAt + 4 * 24 + 16], 8);
   std::string error;
   auto c = decode(bytes_, error);
   ASSERT_EQ(c.lines.size(), 9u);
   EXPECT_EQ(c.damaged, 1u);
   EXPECT_EQ(c.lines[3].text, "flag false 4");
}

TEST_F(RinglogHostileTest, FormatsAskingForHugeOutputMakeTheirMessageUnknown) {
   std::string table(&bytes_[Ringlog::layout::kHeaderBytes], Ringlog::layout::kSiteAreaBytes);
   auto at = table.find("flag {} {}");
   ASSERT_NE(at, std::string::npos);
   std::memcpy(&bytes_[Ringlog::layout::kHeaderBytes + at], "{:>999999}", 10);
   std::string error;
   auto c = decode(bytes_, error);
   EXPECT_TRUE(c.sitesDamaged);
   ASSERT_EQ(c.lines.size(), 10u);
   EXPECT_EQ(c.lines[0].text.rfind("[record of unknown message ", 0), 0u) << c.lines[0].text;
}

TEST_F(RinglogHostileTest, TruncationIsNamedAsTheCauseOfLoss) {
   std::string cutInRecord5 = dumped(kRingAt + 5 * 24 + 7);
   EXPECT_NE(cutInRecord5.find("-- 5 records lost to truncation --"), std::string::npos);
   EXPECT_EQ(cutInRecord5.find("wrap-around"), std::string::npos) << cutInRecord5;

   std::string cutInTable = dumped(Ringlog::layout::kHeaderBytes + 40);
   EXPECT_NE(cutInTable.find("-- 10 records lost to truncation --"), std::string::npos);
   EXPECT_EQ(cutInTable.find("wrap-around"), std::string::npos) << cutInTable;
}

TEST_F(RinglogHostileTest, WrappedRingCutShortNamesWhatItCanTell) {
   ASSERT_TRUE(Ringlog::open(path_, 64 * 1024));
   for (int i = 0; i < 5000; ++i) VELT_RINGLOG("Hostile", 1, "flag {} {}", true, i);
   Ringlog::close();
   bytes_ = load(path_);
   // The window starts at ring offset 54464 (the 120,000 bytes written, less one lap).
   std::string cutBehindStart = dumped(kRingAt + 60 * 1024);
   EXPECT_NE(cutBehindStart.find("older records lost to wrap-around --"), std::string::npos);
   EXPECT_NE(cutBehindStart.find("records lost to truncation --"), std::string::npos);
   EXPECT_NE(cutBehindStart.find("4999 Hostile/1 flag true 4999"), std::string::npos);

   std::string cutBeforeStart = dumped(kRingAt + 50 * 1024);
   EXPECT_NE(cutBeforeStart.find("older records lost to wrap-around or truncation --"),
             std::string::npos);
   EXPECT_NE(cutBeforeStart.find("records lost to truncation --"), std::string::npos);
   EXPECT_EQ(cutBeforeStart.find("flag true 4999"), std::string::npos);
}

TEST_F(RinglogHostileTest, RandomDamageNeverCrashesTheReader) {
   std::mt19937 rng(11);
   std::uniform_int_distribution<std::size_t> anywhere(0, bytes_.size() - 1);
   std::uniform_int_distribution<std::size_t> early(0, kRingAt + 400);
   for (int round = 0; round < 300; ++round) {
      std::vector<char> crafted = bytes_;
      for (int i = 0; i < 8; ++i) {
         std::size_t at = i % 2 ? anywhere(rng) : early(rng);
         crafted[at] = static_cast<char>(rng());
      }
      crafted.resize(round % 3 ? crafted.size() : early(rng));
      std::string error;
      Ringlog::Contents c = decode(crafted, error);
      EXPECT_LE(c.lines.size(), 10u);
   }
}

} // namespace
