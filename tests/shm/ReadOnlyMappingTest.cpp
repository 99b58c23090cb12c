// A reader's mapping of the table files cannot be written: a store into it faults, writer
// calls on it are programming errors, and the files are owner-only.
#include "ScratchDir.h"
#include "VersionedRecords.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>
#include <vector>

namespace {

using namespace ShmTest;
using Quarn::FibGen::ForwardingStatus;

struct Mapping {
   std::uintptr_t start = 0;
   std::string perms;
};

// This process's mappings of `file`, from /proc/self/maps.
std::vector<Mapping> mappingsOf(const std::string& file) {
   std::vector<Mapping> found;
   std::ifstream maps("/proc/self/maps");
   for (std::string line; std::getline(maps, line);) {
      if (!line.ends_with(" " + file)) continue;
      std::istringstream in(line);
      Mapping m;
      std::string end;
      in >> std::hex >> m.start >> end >> m.perms;
      found.push_back(m);
   }
   return found;
}

// A store as a stray pointer would make it. The default actions are restored first, so a
// sanitizer's handler does not turn the fault into an ordinary exit.
[[noreturn]] void storeInto(std::uintptr_t address) {
   struct sigaction dfl {};
   dfl.sa_handler = SIG_DFL;
   ::sigaction(SIGSEGV, &dfl, nullptr);
   ::sigaction(SIGBUS, &dfl, nullptr);
   *reinterpret_cast<volatile std::uint64_t*>(address) = 1;
   ::_exit(0);
}

bool diedOfAccessFault(int status) {
   return WIFSIGNALED(status) &&
          (WTERMSIG(status) == SIGSEGV || WTERMSIG(status) == SIGBUS);
}

class ShmReadOnlyMapping : public testing::Test {
 protected:
   void SetUp() override {
      fwd_ = ForwardingStatus::createFiles("writer", base_, forwardingCapacity());
      fwd_->fecIs(versionedFec(fecIdOf(0), 1));
      neighbors_ = Arp::Table::Status::createFiles("writer", base_, neighborCapacity());
      neighbors_->entryIs(versionedEntry(neighborKeyOf(1), 1));
   }

   ScratchDir dir_{"readonly"};
   const std::string base_ = dir_.base("fib");
   Pelin::Ptr<ForwardingStatus> fwd_;
   Pelin::Ptr<Arp::Table::Status> neighbors_;
};

using ShmReadOnlyMappingDeathTest = ShmReadOnlyMapping;

TEST_F(ShmReadOnlyMappingDeathTest, StoreIntoAReadersMappingFaults) {
   auto fwd = ForwardingStatus::attachFiles("reader", base_);
   auto neighbors = Arp::Table::Status::attachFiles("reader", base_);
   for (const char* suffix : {".fecs", ".routes", ".arp", ".neighbor"}) {
      SCOPED_TRACE(suffix);
      // The writer's mapping of the same file is shared and writable; the reader's is
      // not.
      auto maps = mappingsOf(base_ + suffix);
      ASSERT_EQ(maps.size(), 2u);
      std::sort(maps.begin(), maps.end(),
                [](const Mapping& a, const Mapping& b) { return a.perms < b.perms; });
      EXPECT_EQ(maps[0].perms, "r--s");
      EXPECT_EQ(maps[1].perms, "rw-s");
      EXPECT_EXIT(storeInto(maps[0].start + 8), diedOfAccessFault, "");
   }
   // The reader still reads through it.
   EXPECT_EQ(wholeVersionOf(fwd->fec(fecIdOf(0))), 1u);
}

TEST_F(ShmReadOnlyMappingDeathTest, WriterCallsOnAReadersTablesAreProgrammingErrors) {
   auto fwd = ForwardingStatus::attachFiles("reader", base_);
   auto neighbors = Arp::Table::Status::attachFiles("reader", base_);
   EXPECT_DEATH(fwd->fecIs(versionedFec(fecIdOf(1), 1)), "writable\\(\\)");
   EXPECT_DEATH(fwd->fecDel(fecIdOf(0)), "writable\\(\\)");
   EXPECT_DEATH(neighbors->entryIs(versionedEntry(neighborKeyOf(3), 1)),
                "writable\\(\\)");
   EXPECT_DEATH(neighbors->entryDel(neighborKeyOf(1)), "writable\\(\\)");
}

// The pid of a process that has exited and been reaped.
pid_t deadPid() {
   const pid_t pid = ::fork();
   if (pid == 0) ::_exit(0);
   ::waitpid(pid, nullptr, 0);
   return pid;
}

TEST(ShmCreatedFiles, AreOwnerOnlyWhateverTheUmaskAndLeaveNoTemporaries) {
   ScratchDir dir("modes");
   // What writers killed inside createFiles left: the dead one's goes, a live one's stays.
   const std::string abandoned = "fib.fecs.new." + std::to_string(deadPid());
   const std::string live = "fib.routes.new." + std::to_string(::getppid());
   std::ofstream(dir.path() + "/" + abandoned) << "half made";
   std::ofstream(dir.path() + "/" + live) << "being made";
   const mode_t old = ::umask(0);
   {
      auto fwd =
          ForwardingStatus::createFiles("writer", dir.base("fib"), forwardingCapacity());
      auto neighbors =
          Arp::Table::Status::createFiles("writer", dir.base("fib"), neighborCapacity());
   }
   ::umask(old);
   std::set<std::string> names;
   for (const auto& entry : std::filesystem::directory_iterator(dir.path())) {
      names.insert(entry.path().filename());
      if (entry.path().filename() == live) continue;
      struct stat st {};
      ASSERT_EQ(::stat(entry.path().c_str(), &st), 0);
      EXPECT_EQ(st.st_mode & 07777, 0600u) << entry.path();
   }
   EXPECT_EQ(names, (std::set<std::string>{"fib.arp", "fib.fecs", "fib.neighbor",
                                           "fib.routes", live}));
}

} // namespace
