// Word-level building blocks of the shared tables: racing copies made of atomic word
// accesses (so a torn read is detected, never undefined behaviour) and the per-record
// generation protocol (odd while the writer is inside the record).
#pragma once
#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <mutex>
#include <thread>

namespace Table {

using Word = std::uint64_t;
static_assert(std::atomic_ref<Word>::is_always_lock_free);

constexpr std::size_t wordsFor(std::size_t bytes) { return (bytes + 7) / 8; }

// Loads never write, so they are safe on a read-only mapping.
inline Word loadWord(const Word& w, std::memory_order order = std::memory_order_relaxed) {
   return std::atomic_ref<Word>(const_cast<Word&>(w)).load(order);
}

inline void storeWord(Word& w, Word v, std::memory_order order = std::memory_order_relaxed) {
   std::atomic_ref<Word>(w).store(v, order);
}

// The generation protocol orders its accesses with acquire loads and release stores of
// the record words themselves, not with fences: ThreadSanitizer does not model fences,
// and on x86-64 both compile to the same plain moves.

// Copies `bytes` out of shared words into private memory. Acquire loads: a copy that saw
// any word stored after the generation went odd also sees the odd generation on the
// re-check that follows it.
inline void copyOut(const Word* src, void* dst, std::size_t bytes) {
   auto* out = static_cast<unsigned char*>(dst);
   // One counter for the whole words: records are copied word by word on every read.
   const std::size_t words = bytes / 8;
   for (std::size_t i = 0; i < words; ++i) {
      Word w = loadWord(src[i], std::memory_order_acquire);
      std::memcpy(out + i * 8, &w, 8);
   }
   if (const std::size_t tail = bytes % 8) {
      Word w = loadWord(src[words], std::memory_order_acquire);
      std::memcpy(out + words * 8, &w, tail);
   }
}

// Copies private memory into shared words; the tail word is zero-padded. Release stores:
// each keeps the odd generation stored before it ahead of it for readers.
inline void copyIn(Word* dst, const void* src, std::size_t bytes) {
   const auto* in = static_cast<const unsigned char*>(src);
   std::size_t i = 0;
   for (; bytes >= 8; ++i, bytes -= 8, in += 8) {
      Word w;
      std::memcpy(&w, in, 8);
      storeWord(dst[i], w, std::memory_order_release);
   }
   if (bytes) {
      Word w = 0;
      std::memcpy(&w, in, bytes);
      storeWord(dst[i], w, std::memory_order_release);
   }
}

// Writer: the generation is odd between beginWrite and endWrite. Every store in between
// must be a release store (copyIn, or storeWord with memory_order_release), which keeps
// this one ahead of it.
inline void beginWrite(Word& gen) { storeWord(gen, loadWord(gen) + 1); }

inline void endWrite(Word& gen) { storeWord(gen, loadWord(gen) + 1, std::memory_order_release); }

// Bounds a reader's retries in time, so a writer that died inside a record is reported
// instead of spun on, while a writer that was merely descheduled (several scheduler time
// slices on a loaded machine) is waited for.
class RetryBudget {
 public:
   static constexpr auto kPatience = std::chrono::milliseconds(50);

   bool again() {
      if (++spins_ < 64) return true;
      auto now = std::chrono::steady_clock::now();
      if (spins_ == 64) deadline_ = now + kPatience;
      std::this_thread::yield();
      return now < deadline_;
   }

 private:
   unsigned spins_ = 0;
   std::chrono::steady_clock::time_point deadline_;
};

// The generation words this process found stuck odd (a writer died inside the record),
// with the value each was stuck at: the next reader of such a record is answered at once
// instead of spending the retry budget again, until a writer moves the generation. Readers
// on several threads share it; it is only consulted when a generation is odd.
class StuckGenerations {
 public:
   // True when `gen` at `at` was found stuck before.
   bool known(const Word* at, Word gen) const {
      if (count_.load(std::memory_order_acquire) == 0) return false;
      std::lock_guard lock(mutex_);
      for (const Entry& e : entries_) {
         if (e.at == at && e.gen == gen) return true;
      }
      return false;
   }
   // Remembers `gen` at `at` as stuck; true when no reader had found it yet, so that the
   // damage is reported once.
   bool remember(const Word* at, Word gen) {
      std::lock_guard lock(mutex_);
      for (const Entry& e : entries_) {
         if (e.at == at && e.gen == gen) return false;
      }
      // The oldest goes: a dead writer leaves at most a record or two.
      entries_[next_++ % kEntries] = Entry{at, gen};
      count_.store(std::min<Word>(next_, kEntries), std::memory_order_release);
      ++waits_;
      return true;
   }
   // How often a reader spent the whole budget on a generation that then stayed odd.
   Word waits() const {
      std::lock_guard lock(mutex_);
      return waits_;
   }

 private:
   static constexpr std::size_t kEntries = 16;
   struct Entry {
      const Word* at = nullptr;
      Word gen = 0;
   };
   mutable std::mutex mutex_;
   std::atomic<Word> count_{0};
   Entry entries_[kEntries];
   Word next_ = 0;
   Word waits_ = 0;
};

// stuck: the budget ran out, first found; stuckAgain: answered as stuck at once, or found
// by another reader first.
enum class ReadOutcome { ok, stuck, stuckAgain };

// Runs `copy` until it ran entirely inside one even generation of `gen`, or the budget is
// spent. `copy` must only read shared memory, with acquire loads (copyOut, or loadWord
// with memory_order_acquire), which keep the re-check of `gen` after them, and write
// private memory.
template <typename Copy>
ReadOutcome seqRead(const Word& gen, Copy&& copy, StuckGenerations& stuck) {
   RetryBudget budget;
   do {
      Word before = loadWord(gen, std::memory_order_acquire);
      if ((before & 1) == 0) {
         copy();
         if (loadWord(gen) == before) return ReadOutcome::ok;
      } else if (stuck.known(&gen, before)) {
         return ReadOutcome::stuckAgain;
      }
   } while (budget.again());
   const Word now = loadWord(gen);
   if ((now & 1) == 0) return seqRead(gen, copy, stuck); // the writer came back just now
   return stuck.remember(&gen, now) ? ReadOutcome::stuck : ReadOutcome::stuckAgain;
}

} // namespace Table
