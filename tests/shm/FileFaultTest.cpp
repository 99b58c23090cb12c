// Table files changed under their mappings by someone other than the writer: cut short,
// truncated and grown again, overwritten in place, replaced by a rename. A reader never
// dies of it nor reads the damage as absent records: every read is whole or reported,
// naming the file. A writer whose file was cut short names it.
#include "ScratchDir.h"
#include "VersionedRecords.h"

#include "Pelin/Exception.h"
#include "Table/Region.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <fmt/format.h>
#include <functional>
#include <thread>

namespace {

using namespace ShmTest;
using Quarn::FibGen::ForwardingStatus;
using testing::HasSubstr;

constexpr std::uint32_t kKeys = 48;

ForwardingStatus::Capacity capacity() {
   return {.fecs = 256, .viaPoolBytes = 1 << 20, .routes = 256};
}

Lumo::IpGenAddr hostOf(std::uint32_t key) {
   const std::uint8_t bytes[4] = {10, std::uint8_t(key), 1, 1};
   return Lumo::IpGenAddr(Lumo::AddressFamily::ipv4_, bytes);
}

struct Tally {
   unsigned whole = 0;
   unsigned reported = 0;
   unsigned wrong = 0;
   std::string lastReport;

   unsigned total() const { return whole + reported + wrong; }
   // `read` returns whether what it read is what the writer wrote.
   void add(const std::function<bool()>& read) {
      try {
         ++(read() ? whole : wrong);
      } catch (const Pelin::CorruptionDetectedException& e) {
         ++reported;
         lastReport = e.what();
      }
   }
};

struct Reader {
   Pelin::Ptr<ForwardingStatus> fwd;
   Pelin::Ptr<Arp::Table::Status> arp;

   // Every record kept in the file with `suffix`.
   Tally readFile(const std::string& suffix) const {
      Tally t;
      for (std::uint32_t k = 0; k < kKeys; ++k) {
         const auto key = neighborKeyOf(k);
         const bool inArp = key.addr.af() == Lumo::AddressFamily::ipv4_;
         if (suffix == ".fecs") {
            t.add([&] { return wholeVersionOf(fwd->fec(fecIdOf(k))) == k + 1; });
         } else if (suffix == ".routes") {
            t.add([&] {
               auto m = fwd->routeLookup(hostOf(k));
               return m && m->fecId == fecIdOf(k);
            });
         } else if ((suffix == ".arp") == inArp) {
            t.add([&] { return wholeVersionOf(mapOf(*arp, key).find(key)) == k + 1; });
         }
      }
      return t;
   }
};

class ShmFileFaults : public testing::TestWithParam<std::string> {
 protected:
   void SetUp() override {
      fwd_ = ForwardingStatus::createFiles("writer", base_, capacity());
      arp_ = Arp::Table::Status::createFiles("writer", base_, neighborCapacity());
      for (std::uint32_t k = 0; k < kKeys; ++k) {
         fwd_->fecIs(versionedFec(fecIdOf(k), k + 1));
         fwd_->routeIs(Lumo::IpGenPrefix(hostOf(k), 24), fecIdOf(k));
         arp_->entryIs(versionedEntry(neighborKeyOf(k), k + 1));
      }
   }

   Reader attach() const {
      return {ForwardingStatus::attachFiles("reader", base_),
              Arp::Table::Status::attachFiles("reader", base_)};
   }
   std::string file() const { return base_ + GetParam(); }
   std::uintmax_t bytes() const { return std::filesystem::file_size(file()); }

   ScratchDir dir_{"faults"};
   const std::string base_ = dir_.base("t");
   Pelin::Ptr<ForwardingStatus> fwd_;
   Pelin::Ptr<Arp::Table::Status> arp_;
};

TEST_P(ShmFileFaults, CutShortUnderAReaderIsReportedNeverFatalNorWrong) {
   const std::uintmax_t full = bytes();
   for (std::uintmax_t size : {std::uintmax_t(0), std::uintmax_t(64),
                               std::uintmax_t(4096), full / 2, full - 4096}) {
      SCOPED_TRACE(fmt::format("{} cut to {} of {} bytes", file(), size, full));
      std::filesystem::copy_file(file(), file() + ".keep");
      const Reader reader = attach();
      ASSERT_EQ(reader.readFile(GetParam()).whole, reader.readFile(GetParam()).total());
      std::filesystem::resize_file(file(), size);
      const Tally t = reader.readFile(GetParam());
      EXPECT_EQ(t.wrong, 0u);
      if (size < 4096) {
         EXPECT_EQ(t.reported, t.total()) << "the header page is gone";
      }
      if (t.reported) {
         EXPECT_THAT(t.lastReport, HasSubstr(fmt::format(
                                       "table file {}: cut short under its readers: {} "
                                       "of its {} bytes left",
                                       file(), size, full)));
      }
      std::filesystem::rename(file() + ".keep", file());
   }
}

TEST_P(ShmFileFaults, TruncatedAndGrownAgainOrOverwrittenIsReportedNotAbsent) {
   std::filesystem::copy_file(file(), file() + ".keep");
   const Reader reader = attach();
   const std::uintmax_t full = bytes();
   std::filesystem::resize_file(file(), 0);
   std::filesystem::resize_file(file(), full);
   Tally t = reader.readFile(GetParam());
   EXPECT_EQ(t.reported, t.total()) << "zero pages must not read as an empty table";
   EXPECT_THAT(t.lastReport,
               HasSubstr("table file " + file() + ": rewritten under its readers"));

   // Another writer's file of the same shape copied over it in place.
   std::filesystem::rename(file() + ".keep", file());
   ScratchDir other("faults-other");
   ForwardingStatus::createFiles("other", other.base("t"), capacity());
   Arp::Table::Status::createFiles("other", other.base("t"), neighborCapacity());
   const Reader again = attach();
   std::filesystem::copy_file(other.base("t") + GetParam(), file(),
                              std::filesystem::copy_options::overwrite_existing);
   t = again.readFile(GetParam());
   EXPECT_EQ(t.reported, t.total());
   EXPECT_THAT(t.lastReport, HasSubstr("was truncated or overwritten in place"));
}

TEST_P(ShmFileFaults, ReplacedByARenameKeepsServingWhatWasMapped) {
   const Reader reader = attach();
   ScratchDir other("faults-renamed");
   ForwardingStatus::createFiles("other", other.base("t"), capacity());
   Arp::Table::Status::createFiles("other", other.base("t"), neighborCapacity());
   std::filesystem::rename(other.base("t") + GetParam(), file());
   const Tally t = reader.readFile(GetParam());
   EXPECT_EQ(t.whole, t.total());
   // A reader attaching now gets the new file, which is empty.
   const Tally fresh = attach().readFile(GetParam());
   EXPECT_EQ(fresh.wrong, fresh.total());
}

INSTANTIATE_TEST_SUITE_P(EveryFile, ShmFileFaults,
                         testing::Values(".fecs", ".routes", ".arp", ".neighbor"),
                         [](const auto& info) { return info.param.substr(1); });

class ShmFecFileFaults : public ShmFileFaults {};

// Cut while reader threads are inside their reads: whatever instant the pages go, the
// read in progress completes and is either whole or reported.
TEST_F(ShmFecFileFaults, CutWhileThreadsReadIsReportedNeverFatal) {
   const Reader reader = {ForwardingStatus::attachFiles("reader", base_), nullptr};
   std::atomic<bool> stop{false};
   std::atomic<unsigned> wrong{0}, reported{0}, reads{0};
   std::vector<std::thread> threads;
   for (int i = 0; i < 3; ++i) {
      threads.emplace_back([&] {
         while (!stop) {
            const Tally t = reader.readFile(".fecs");
            wrong += t.wrong;
            reported += t.reported;
            reads += t.total();
         }
      });
   }
   const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
   auto waitFor = [&](const std::atomic<unsigned>& n) {
      while (n < 2000 && std::chrono::steady_clock::now() < deadline)
         std::this_thread::yield();
   };
   waitFor(reads);
   std::filesystem::resize_file(base_ + ".fecs", 8192);
   waitFor(reported);
   stop = true;
   for (auto& t : threads)
      t.join();
   EXPECT_EQ(wrong, 0u);
   EXPECT_GE(reported, 2000u);
}

TEST_F(ShmFecFileFaults, AWriterNamesTheFileCutShortUnderIt) {
   ASSERT_TRUE(Table::Region::lostFiles().empty());
   std::filesystem::resize_file(base_ + ".fecs", 0);
   EXPECT_ANY_THROW(fwd_->fecIs(versionedFec(fecIdOf(kKeys), 1)));
   EXPECT_EQ(Table::Region::lostFiles(), std::vector<std::string>{base_ + ".fecs"});
   fwd_ = nullptr;
   EXPECT_TRUE(Table::Region::lostFiles().empty())
       << "a lost mapping is forgotten when unmapped";
}

} // namespace
