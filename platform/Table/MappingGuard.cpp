#include "Table/MappingGuard.h"

#include "Pelin/Exception.h"

#include <sys/mman.h>

#include <array>
#include <atomic>
#include <csignal>
#include <cstdint>
#include <fmt/format.h>
#include <mutex>

namespace Table::MappingGuard {

namespace {

constexpr std::size_t kMaxWatched = 4096;

// What the signal handler reads: lock-free, written before `base` publishes the entry.
struct Watched {
   std::atomic<std::uintptr_t> base{0};
   std::atomic<std::size_t> bytes{0};
   std::atomic<int> prot{0};
   std::atomic<bool> lost{false};
};

std::array<Watched, kMaxWatched> watched;
// File names, for error messages only: never touched by the handler.
std::mutex namesLock;
std::array<std::string, kMaxWatched> names;
struct sigaction previous {};

void passOn(int sig, siginfo_t* info, void* context) {
   if (previous.sa_handler == SIG_DFL || previous.sa_handler == SIG_IGN) {
      // Returning re-runs the faulting access, which now meets the default action.
      ::signal(sig, SIG_DFL);
      return;
   }
   if (previous.sa_flags & SA_SIGINFO) {
      previous.sa_sigaction(sig, info, context);
   } else {
      previous.sa_handler(sig);
   }
}

void onBusError(int sig, siginfo_t* info, void* context) {
   const auto addr = reinterpret_cast<std::uintptr_t>(info->si_addr);
   for (Watched& w : watched) {
      const std::uintptr_t base = w.base.load(std::memory_order_acquire);
      const std::size_t bytes = w.bytes.load(std::memory_order_relaxed);
      if (base == 0 || addr < base || addr - base >= bytes) continue;
      // Zero pages read as a header that no longer matches, which the reader reports.
      void* p = ::mmap(reinterpret_cast<void*>(base), bytes, w.prot.load(),
                       MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED, -1, 0);
      if (p == MAP_FAILED) break;
      w.lost.store(true, std::memory_order_release);
      return;
   }
   passOn(sig, info, context);
}

void install() {
   struct sigaction action {};
   action.sa_sigaction = onBusError;
   action.sa_flags = SA_SIGINFO | SA_ONSTACK;
   sigemptyset(&action.sa_mask);
   ::sigaction(SIGBUS, &action, &previous);
}

} // namespace

int watch(void* base, std::size_t bytes, int prot, const std::string& name) {
   static std::once_flag installed;
   std::call_once(installed, install);
   std::lock_guard lock(namesLock);
   for (std::size_t i = 0; i < kMaxWatched; ++i) {
      Watched& w = watched[i];
      if (w.base.load(std::memory_order_relaxed) != 0) continue;
      names[i] = name;
      w.bytes.store(bytes, std::memory_order_relaxed);
      w.prot.store(prot, std::memory_order_relaxed);
      w.lost.store(false, std::memory_order_relaxed);
      w.base.store(reinterpret_cast<std::uintptr_t>(base), std::memory_order_release);
      return static_cast<int>(i);
   }
   throw Pelin::Exception(fmt::format(
       "table file {}: more than {} table files mapped at once", name, kMaxWatched));
}

void unwatch(int handle) {
   std::lock_guard lock(namesLock);
   watched[handle].base.store(0, std::memory_order_release);
   names[handle].clear();
}

bool lost(int handle) {
   return watched[handle].lost.load(std::memory_order_acquire);
}

std::vector<std::string> lostFiles() {
   std::vector<std::string> out;
   std::lock_guard lock(namesLock);
   for (std::size_t i = 0; i < kMaxWatched; ++i) {
      if (watched[i].base.load() != 0 && watched[i].lost.load()) out.push_back(names[i]);
   }
   return out;
}

} // namespace Table::MappingGuard
