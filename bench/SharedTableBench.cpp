// Reader cost of the shared-memory tables at 1,000,000 entries: a FEC copy (what
// resolution does per packet) and a neighbour find, from files mapped read-only, idle and
// while a writer process changes 100,000 FECs and 100,000 neighbour entries a second,
// against the same in-process tables. Reports ns per find as the median and 99th
// percentile of 16-find batches, and the writer's achieved changes per second on each
// table.
#include "Arp/ArpTable.h"
#include "Quarn/ForwardingStatus.h"
#include "VeltLib/ResolverVrfRoot.h"

#include <benchmark/benchmark.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <random>
#include <vector>

namespace {

using Arp::Table::ArpKey;
using Arp::Table::Status;
using Quarn::Fib::FecId;
using Quarn::FibGen::Fec;
using Quarn::FibGen::ForwardingStatus;
using Quarn::FibGen::Via;

constexpr std::uint32_t kEntries = 1'000'000;
constexpr std::uint32_t kBatch = 16;
constexpr double kChangesPerSecond = 100'000; // on each table

// ---- the tables ----

FecId fecIdOf(std::uint32_t i) {
   return FecId(Quarn::Fib::AdjType::fibGenAdj, i + 1);
}

ArpKey neighborKeyOf(std::uint32_t i) {
   const std::uint8_t ip[4] = {10, std::uint8_t(i >> 16), std::uint8_t(i >> 8),
                               std::uint8_t(i)};
   return {Lumo::IntfId::fromValue(0x02000000u + i % 64 + 1), Vrf::VrfIdMap::VrfId(1),
           Lumo::IpGenAddr(Lumo::AddressFamily::ipv4_, ip)};
}

// Two ECMP vias, the common case; they fit in the record.
Fec fecOf(std::uint32_t i, std::uint32_t version) {
   Fec fec(fecIdOf(i));
   for (std::uint32_t v = 0; v < 2; ++v) {
      const std::uint8_t hop[4] = {10, 1, std::uint8_t(v), std::uint8_t(i)};
      fec.viaAppend(Via(Lumo::IntfId::fromValue(0x02000000u + v + 1), version,
                        Lumo::IpGenAddr(Lumo::AddressFamily::ipv4_, hop)));
   }
   return fec;
}

Arp::Table::ArpEntry entryOf(std::uint32_t i, std::uint32_t version) {
   const std::uint8_t mac[6] = {2,
                                0,
                                std::uint8_t(version),
                                std::uint8_t(i >> 16),
                                std::uint8_t(i >> 8),
                                std::uint8_t(i)};
   return {neighborKeyOf(i), Lumo::EthAddr(mac)};
}

ForwardingStatus::Capacity fecCapacity() {
   return {.fecs = kEntries, .viaPoolBytes = 1 << 20, .routes = 16};
}
Status::Capacity neighborCapacity() {
   return {.arpEntries = kEntries, .neighborEntries = 16};
}

void fill(ForwardingStatus& fwd, Status& neighbors) {
   auto fec = std::make_unique<Fec>();
   for (std::uint32_t i = 0; i < kEntries; ++i) {
      *fec = fecOf(i, 1);
      fwd.fecIs(*fec);
      neighbors.entryIs(entryOf(i, 1));
   }
}

// A private directory under /dev/shm, removed at exit.
struct ShmDir {
   std::string path;
   ShmDir() {
      char name[] = "/dev/shm/velt-bench-XXXXXX";
      if (!::mkdtemp(name)) std::abort();
      path = name;
   }
   ~ShmDir() { std::filesystem::remove_all(path); }
};

// The writer's tables in files, a reader's read-only attachment of them, and the same
// content in process memory.
struct Tables {
   ShmDir dir;
   Pelin::Ptr<ForwardingStatus> writerFwd;
   Pelin::Ptr<Status> writerNeighbors;
   Pelin::Ptr<ForwardingStatus> sharedFwd;
   Pelin::Ptr<Status> sharedNeighbors;
   Pelin::Ptr<ForwardingStatus> anonFwd;
   Pelin::Ptr<Status> anonNeighbors;

   Tables() {
      const std::string base = dir.path + "/fib";
      writerFwd = ForwardingStatus::createFiles("bench", base, fecCapacity());
      writerNeighbors = Status::createFiles("bench", base, neighborCapacity());
      fill(*writerFwd, *writerNeighbors);
      sharedFwd = ForwardingStatus::attachFiles("bench", base);
      sharedNeighbors = Status::attachFiles("bench", base);
      anonFwd = Pelin::make<ForwardingStatus>("bench", fecCapacity());
      anonNeighbors = Pelin::make<Status>("bench", neighborCapacity());
      fill(*anonFwd, *anonNeighbors);
   }
};

Tables& tables() {
   static Tables t;
   return t;
}

// ---- the writer process ----

// A forked child writing through the parent's writable mapping of the files, paced to
// kChangesPerSecond on each table; it counts its changes in memory the parent sees.
class Writer {
 public:
   Writer() {
      void* p = ::mmap(nullptr, sizeof(std::atomic<std::uint64_t>),
                       PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
      if (p == MAP_FAILED) std::abort();
      changes_ = new (p) std::atomic<std::uint64_t>(0);
      pid_ = ::fork();
      if (pid_ == 0) {
         ::prctl(PR_SET_PDEATHSIG, SIGKILL);
         run();
      }
   }
   ~Writer() {
      ::kill(pid_, SIGKILL);
      ::waitpid(pid_, nullptr, 0);
      ::munmap(changes_, sizeof *changes_);
   }
   std::uint64_t changes() const { return changes_->load(); }

 private:
   [[noreturn]] void run() {
      Tables& t = tables();
      std::mt19937 rng(7);
      auto fec = std::make_unique<Fec>();
      const auto start = std::chrono::steady_clock::now();
      for (std::uint32_t version = 2;; ++version) {
         double elapsed =
             std::chrono::duration<double>(std::chrono::steady_clock::now() - start)
                 .count();
         auto due = static_cast<std::uint64_t>(elapsed * kChangesPerSecond);
         std::uint64_t done = changes_->load(std::memory_order_relaxed);
         if (done >= due) {
            const timespec pause{0, 100'000};
            ::nanosleep(&pause, nullptr);
            continue;
         }
         std::uint32_t i = rng() % kEntries;
         *fec = fecOf(i, version);
         t.writerFwd->fecIs(*fec);
         t.writerNeighbors->entryIs(entryOf(rng() % kEntries, version));
         changes_->store(done + 1, std::memory_order_relaxed);
      }
   }

   pid_t pid_ = -1;
   std::atomic<std::uint64_t>* changes_ = nullptr;
};

// ---- measurement ----

std::vector<std::uint32_t> randomKeys() {
   std::mt19937 rng(1);
   std::vector<std::uint32_t> keys(1 << 16);
   for (auto& k : keys)
      k = rng() % kEntries;
   return keys;
}

// Times batches of kBatch finds; reports per-find median and 99th percentile.
template <typename Find>
void measure(benchmark::State& state, Find&& find, bool busy) {
   tables();
   std::unique_ptr<Writer> writer;
   if (busy) writer = std::make_unique<Writer>();
   const auto keys = randomKeys();
   std::vector<double> perFind;
   perFind.reserve(1 << 20);
   std::size_t next = 0;
   const std::uint64_t changesBefore = writer ? writer->changes() : 0;
   const auto start = std::chrono::steady_clock::now();
   for (auto _ : state) {
      auto t0 = std::chrono::steady_clock::now();
      for (std::uint32_t b = 0; b < kBatch; ++b)
         find(keys[next++ & 0xffff]);
      auto t1 = std::chrono::steady_clock::now();
      perFind.push_back(std::chrono::duration<double, std::nano>(t1 - t0).count() /
                        kBatch);
   }
   const double seconds =
       std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
   std::sort(perFind.begin(), perFind.end());
   state.counters["p50_ns"] = perFind[perFind.size() / 2];
   state.counters["p99_ns"] = perFind[perFind.size() * 99 / 100];
   if (writer)
      state.counters["writer_changes_per_s"] =
          double(writer->changes() - changesBefore) / seconds;
   state.SetItemsProcessed(std::int64_t(state.iterations()) * kBatch);
}

enum Source { anonymous, sharedIdle, sharedBusy };

void BM_GenFecInto(benchmark::State& state, Source source) {
   const auto& fwd = source == anonymous ? tables().anonFwd : tables().sharedFwd;
   auto root = Velt::resolverVrfRootFactory("default", Vrf::VrfIdMap::VrfId(1), fwd);
   auto out = std::make_unique<Fec>();
   measure(
       state,
       [&](std::uint32_t i) {
          root->genFecInto(fecIdOf(i), *out);
          benchmark::DoNotOptimize(out->viaCount());
       },
       source == sharedBusy);
   if (fwd->corruptionCount()) state.SkipWithError("corruption reported");
}

void BM_NeighborFind(benchmark::State& state, Source source) {
   const auto& neighbors =
       source == anonymous ? tables().anonNeighbors : tables().sharedNeighbors;
   const Arp::Table::ArpEntryMap& map = neighbors->arpMap();
   measure(
       state,
       [&](std::uint32_t i) {
          auto entry = map.find(neighborKeyOf(i));
          benchmark::DoNotOptimize(entry);
       },
       source == sharedBusy);
}

BENCHMARK_CAPTURE(BM_GenFecInto, anonymous, anonymous)->MinTime(2.0);
BENCHMARK_CAPTURE(BM_GenFecInto, sharedIdle, sharedIdle)->MinTime(2.0);
BENCHMARK_CAPTURE(BM_GenFecInto, sharedBusy, sharedBusy)->MinTime(2.0);
BENCHMARK_CAPTURE(BM_NeighborFind, anonymous, anonymous)->MinTime(2.0);
BENCHMARK_CAPTURE(BM_NeighborFind, sharedIdle, sharedIdle)->MinTime(2.0);
BENCHMARK_CAPTURE(BM_NeighborFind, sharedBusy, sharedBusy)->MinTime(2.0);

} // namespace
