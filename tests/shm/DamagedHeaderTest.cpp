// Table files whose header was damaged are refused when a reader attaches them or mounts
// them through the shared-memory entity manager, with a message naming file and field.
#include "ScratchDir.h"
#include "VersionedRecords.h"

#include "Quarn/TableInfo.h"
#include "Shm/SharedTables.h"
#include "Wexa/Paths.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstddef>
#include <cstdio>
#include <filesystem>
#include <functional>

namespace {

using namespace ShmTest;
using Quarn::Fib::TableInfo;
using Quarn::FibGen::ForwardingStatus;
using Table::RegionHeader;

const std::string kFibPath = TableInfo::unifiedStatusPath;
const std::string kArpPath = Wexa::Paths::arpStatus;

template <typename T>
T readAt(const std::string& file, std::size_t offset) {
   T v{};
   FILE* f = std::fopen(file.c_str(), "rb");
   std::fseek(f, long(offset), SEEK_SET);
   EXPECT_EQ(std::fread(&v, sizeof v, 1, f), 1u);
   std::fclose(f);
   return v;
}

template <typename T>
void writeAt(const std::string& file, std::size_t offset, T v) {
   FILE* f = std::fopen(file.c_str(), "r+b");
   std::fseek(f, long(offset), SEEK_SET);
   std::fwrite(&v, sizeof v, 1, f);
   std::fclose(f);
}

void shrinkTo(const std::string& file, std::uintmax_t bytes) {
   std::filesystem::resize_file(file, bytes);
}

std::string messageOf(const std::function<void()>& fn) {
   try {
      fn();
   } catch (const Pelin::Exception& e) {
      return e.what();
   }
   return "accepted";
}

struct Damage {
   const char* what;
   const char* suffix; // of the damaged file
   // Damages `file`; returns what the refusal must say after "table file <file>: ".
   std::function<std::string(const std::string& file, const std::string& dir)> apply;
};

const Damage kDamages[] = {
    {"magic", ".fecs",
     [](const std::string& f, const std::string&) {
        writeAt<Table::Word>(f, offsetof(RegionHeader, magic), 0);
        return std::string("magic 0 differs");
     }},
    {"layout version", ".routes",
     [](const std::string& f, const std::string&) {
        writeAt<std::uint32_t>(f, offsetof(RegionHeader, version), 2);
        return std::string("layout version 2 differs from expected 1");
     }},
    {"slot count", ".arp",
     [](const std::string& f, const std::string&) {
        auto slots = readAt<Table::Word>(f, offsetof(RegionHeader, slotCount));
        writeAt<Table::Word>(f, offsetof(RegionHeader, slotCount), slots * 2);
        return fmt::format("slot count {} differs from expected {}", slots * 2, slots);
     }},
    {"total bytes", ".neighbor",
     [](const std::string& f, const std::string&) {
        auto total = readAt<Table::Word>(f, offsetof(RegionHeader, totalBytes));
        writeAt<Table::Word>(f, offsetof(RegionHeader, totalBytes), total + 8);
        return fmt::format("total bytes {} differs from expected {}", total + 8, total);
     }},
    {"capacity far beyond the file", ".arp",
     [](const std::string& f, const std::string&) {
        // Its slot count would be 2^64.
        writeAt<Table::Word>(f, offsetof(RegionHeader, capacity), Table::Word(7) << 60);
        return std::string("capacity 8070450532247928832 does not fit in");
     }},
    {"pool bytes far beyond the file", ".fecs",
     [](const std::string& f, const std::string&) {
        writeAt<Table::Word>(f, offsetof(RegionHeader, poolBytes), ~Table::Word(0));
        return std::string("pool bytes 18446744073709551615 does not fit in");
     }},
    {"truncated", ".fecs",
     [](const std::string& f, const std::string&) {
        auto bytes = std::filesystem::file_size(f);
        shrinkTo(f, bytes - 4096);
        return fmt::format("file size {} differs from expected {}", bytes - 4096, bytes);
     }},
    {"truncated inside the header", ".neighbor",
     [](const std::string& f, const std::string&) {
        shrinkTo(f, 100);
        return std::string("100 bytes is too short for a header");
     }},
    {"a neighbour table in place of FECs", ".fecs",
     [](const std::string& f, const std::string& dir) {
        std::filesystem::copy_file(Shm::fileBase(dir, kArpPath) + ".arp", f,
                                   std::filesystem::copy_options::overwrite_existing);
        return std::string("table kind 1 differs from expected 2");
     }},
};

bool isForwardingFile(const std::string& suffix) {
   return suffix == ".fecs" || suffix == ".routes";
}

// What attaching the files directly says.
std::string attachMessage(const std::string& dir, const std::string& suffix) {
   if (isForwardingFile(suffix)) {
      return messageOf(
          [&] { ForwardingStatus::attachFiles("t", Shm::fileBase(dir, kFibPath)); });
   }
   return messageOf(
       [&] { Arp::Table::Status::attachFiles("t", Shm::fileBase(dir, kArpPath)); });
}

// What mounting the table on a fresh shared-memory entity manager says.
std::string mountMessage(const std::string& dir, const std::string& suffix) {
   auto shm = Pelin::make<Wexa::EntityManager>("shmtest", false, true);
   Shm::fileProvidersIs(*shm, dir);
   const Wexa::MountInfo info =
       TableInfo().forwardingInfo(TableInfo::mountTypeSharedTable);
   return messageOf([&] {
      auto found = isForwardingFile(suffix)
                       ? shm->mount(kFibPath, TableInfo::forwardingStatusTypeName, info)
                       : shm->mount(kArpPath, Shm::arpStatusTypeName, info);
      if (!found) throw Pelin::Exception("mount found nothing");
   });
}

class ShmDamagedHeader : public testing::Test {
 protected:
   // Fresh, whole files for both tables, closed by their writer.
   void makeTables() {
      Shm::makeDirsFor(dir_.path(), kFibPath);
      Shm::makeDirsFor(dir_.path(), kArpPath);
      auto fwd = ForwardingStatus::createFiles("t", Shm::fileBase(dir_.path(), kFibPath),
                                               forwardingCapacity());
      fwd->fecIs(versionedFec(fecIdOf(0), 1));
      auto neighbors = Arp::Table::Status::createFiles(
          "t", Shm::fileBase(dir_.path(), kArpPath), neighborCapacity());
      neighbors->entryIs(versionedEntry(neighborKeyOf(0), 1));
   }

   ScratchDir dir_{"header"};
};

TEST_F(ShmDamagedHeader, WholeFilesAttachAndMount) {
   makeTables();
   for (const char* suffix : {".fecs", ".arp"}) {
      EXPECT_EQ(attachMessage(dir_.path(), suffix), "accepted") << suffix;
      EXPECT_EQ(mountMessage(dir_.path(), suffix), "accepted") << suffix;
   }
}

TEST_F(ShmDamagedHeader, RefusedAtAttachAndMountNamingFileAndField) {
   for (const Damage& damage : kDamages) {
      SCOPED_TRACE(damage.what);
      makeTables();
      const std::string file =
          Shm::fileBase(dir_.path(),
                        isForwardingFile(damage.suffix) ? kFibPath : kArpPath) +
          damage.suffix;
      const std::string said =
          "table file " + file + ": " + damage.apply(file, dir_.path());
      EXPECT_THAT(attachMessage(dir_.path(), damage.suffix), testing::StartsWith(said));
      EXPECT_THAT(mountMessage(dir_.path(), damage.suffix), testing::StartsWith(said));
   }
}

} // namespace
