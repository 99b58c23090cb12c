// The writer side of the cross-process tests, run in a forked child.
#include "WriterProcess.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <memory>
#include <random>
#include <stdexcept>
#include <vector>

namespace ShmTest {

namespace {

using Quarn::FibGen::ForwardingStatus;

void signalReady(int fd) {
   char byte = 1;
   if (::write(fd, &byte, 1) != 1) ::_exit(3);
   ::close(fd);
}

void fill(ForwardingStatus& fwd, Arp::Table::Status& neighbors, std::uint32_t version) {
   for (std::uint32_t k = 0; k < kAllKeys; ++k) {
      fwd.fecIs(versionedFec(fecIdOf(k), version));
      neighbors.entryIs(versionedEntry(neighborKeyOf(k), version));
   }
}

// Erases a churn key when present, re-inserts it when absent.
void toggle(ForwardingStatus& fwd, Arp::Table::Status& neighbors, std::uint32_t key,
            std::uint32_t version) {
   if (!fwd.fecDel(fecIdOf(key))) fwd.fecIs(versionedFec(fecIdOf(key), version));
   Arp::Table::ArpKey nk = neighborKeyOf(key);
   if (!neighbors.entryDel(nk)) neighbors.entryIs(versionedEntry(nk, version));
}

// Versions 2 to 65 over and over, made once: the writer spends its time inside records,
// where readers may meet it, rather than making them.
[[noreturn]] void rewriteForever(ForwardingStatus& fwd, Arp::Table::Status& neighbors,
                                 std::uint64_t seed, std::uint32_t hotKeys) {
   std::vector<std::unique_ptr<Quarn::FibGen::Fec>> fecs;
   for (std::uint32_t v = 2; v < 66; ++v) {
      fecs.push_back(std::make_unique<Quarn::FibGen::Fec>(versionedFec(fecIdOf(0), v)));
   }
   std::mt19937_64 rng(seed);
   for (std::uint32_t round = 0;; ++round) {
      std::uint32_t key = rng() % hotKeys;
      Quarn::FibGen::Fec& fec = *fecs[round % fecs.size()];
      const std::uint32_t version = fec.backupViaIndex();
      fec.fecIdIs(fecIdOf(key));
      fwd.fecIs(fec);
      neighbors.entryIs(versionedEntry(neighborKeyOf(key), version));
      if (round % 4 == 0)
         toggle(fwd, neighbors, kStableKeys + rng() % kChurnKeys, version);
   }
}

[[noreturn]] void runWriter(const std::string& base, WriterPlan plan, std::uint64_t seed,
                            std::uint32_t hotKeys, int readyFd) {
   auto fwd = ForwardingStatus::createFiles("shmtest", base, forwardingCapacity());
   auto neighbors = Arp::Table::Status::createFiles("shmtest", base, neighborCapacity());
   if (plan == WriterPlan::readyWhenCreated) signalReady(readyFd);
   fill(*fwd, *neighbors, 1);
   if (plan == WriterPlan::stuckRecordThenWait) {
      fwd->debugCorruptFec(fecIdOf(0));
      neighbors->arpMap().debugCorrupt(neighborKeyOf(0)); // key 0 is IPv4
      signalReady(readyFd);
      for (;;)
         ::pause();
   }
   if (plan == WriterPlan::readyWhenFilled) signalReady(readyFd);
   rewriteForever(*fwd, *neighbors, seed, hotKeys);
}

} // namespace

WriterProcess::WriterProcess(const std::string& base, WriterPlan plan, std::uint64_t seed,
                             std::uint32_t hotKeys) {
   int fds[2];
   if (::pipe2(fds, O_CLOEXEC) != 0) throw std::runtime_error("pipe failed");
   pid_ = ::fork();
   if (pid_ < 0) throw std::runtime_error("fork failed");
   if (pid_ == 0) {
      // Never outlive the test, whatever happens to it.
      ::prctl(PR_SET_PDEATHSIG, SIGKILL);
      ::close(fds[0]);
      try {
         runWriter(base, plan, seed, hotKeys, fds[1]);
      } catch (...) {
         ::_exit(2);
      }
   }
   ::close(fds[1]);
   readyFd_ = fds[0];
}

WriterProcess::~WriterProcess() {
   if (pid_ > 0) killNow();
   if (readyFd_ >= 0) ::close(readyFd_);
}

bool WriterProcess::awaitReady(std::chrono::milliseconds patience) {
   pollfd p{readyFd_, POLLIN, 0};
   int n;
   do {
      n = ::poll(&p, 1, static_cast<int>(patience.count()));
   } while (n < 0 && errno == EINTR);
   char byte = 0;
   return n == 1 && ::read(readyFd_, &byte, 1) == 1;
}

int WriterProcess::killNow() {
   ::kill(pid_, SIGKILL);
   int status = 0;
   while (::waitpid(pid_, &status, 0) < 0 && errno == EINTR) {
   }
   pid_ = -1;
   return status;
}

} // namespace ShmTest
