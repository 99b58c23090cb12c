#include "tools/common/PcapReader.h"
#include "ToolTestUtil.h"
#include "tools/common/PcapWriter.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>

namespace {

using ::testing::HasSubstr;
using VeltTools::PcapError;

const std::vector<std::vector<std::uint8_t>> kPackets = {
    std::vector<std::uint8_t>(60, 0xab), {1, 2, 3}, std::vector<std::uint8_t>(1514, 7)};

void writeSample(const std::string& path) {
   VeltTools::PcapWriter writer(path);
   std::uint64_t ts = 5;
   for (const auto& p : kPackets)
      writer.write(p, ts += 1000001);
   writer.close();
}

TEST(PcapReader, ReadsBackWhatWasWritten) {
   const auto path = ToolTest::tmpPath("reader-roundtrip.pcap");
   writeSample(path);
   VeltTools::PcapReader reader(path);
   EXPECT_EQ(reader.linkType(), 1); // Ethernet
   for (const auto& expected : kPackets) {
      auto pkt = reader.next();
      ASSERT_TRUE(pkt);
      EXPECT_EQ(std::vector<std::uint8_t>(pkt->begin(), pkt->end()), expected);
   }
   EXPECT_FALSE(reader.next());
   EXPECT_FALSE(reader.next()); // stays at the end
   EXPECT_EQ(VeltTools::readPcapFile(path), kPackets);
}

TEST(PcapReader, ReportsMissingForeignAndCutFiles) {
   const auto missing = ToolTest::tmpPath("reader-does-not-exist.pcap");
   try {
      VeltTools::PcapReader r(missing);
      ADD_FAILURE() << "opened a missing file";
   } catch (const PcapError& e) {
      EXPECT_THAT(e.what(), HasSubstr(missing));
   }

   const auto text = ToolTest::tmpPath("reader-text.pcap");
   std::ofstream(text) << "this is not a capture file, just some words in it\n";
   EXPECT_THROW(VeltTools::PcapReader{text}, PcapError);

   // A file cut inside its last record reads its whole records, then fails.
   const auto cut = ToolTest::tmpPath("reader-cut.pcap");
   writeSample(cut);
   const auto bytes = ToolTest::fileBytes(cut);
   std::ofstream(cut, std::ios::binary | std::ios::trunc)
       .write(bytes.data(), std::streamsize(bytes.size() - 100));
   VeltTools::PcapReader reader(cut);
   EXPECT_TRUE(reader.next());
   EXPECT_TRUE(reader.next());
   try {
      reader.next();
      ADD_FAILURE() << "read a cut record";
   } catch (const PcapError& e) {
      EXPECT_THAT(e.what(), HasSubstr(cut));
   }
   EXPECT_THROW(VeltTools::readPcapFile(cut), PcapError);
}

TEST(PcapWriter, UnwritablePathThrowsNamingIt) {
   try {
      VeltTools::PcapWriter w("/nonexistent-dir/x.pcap");
      ADD_FAILURE() << "created a file in a missing directory";
   } catch (const PcapError& e) {
      EXPECT_THAT(e.what(), HasSubstr("/nonexistent-dir/x.pcap"));
   }
}

TEST(PcapWriterDeathTest, WriteAfterClose) {
   VeltTools::PcapWriter writer(ToolTest::tmpPath("writer-closed.pcap"));
   writer.close();
   const std::uint8_t byte = 0;
   EXPECT_DEATH(writer.write({&byte, 1}, 0), "dumper_ != nullptr");
}

} // namespace
