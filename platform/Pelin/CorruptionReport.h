// How a shared table reports damage found by its readers: a count and the last message,
// for operators. Readers on several threads may report at once.
#pragma once
#include "Pelin/Exception.h"

#include <atomic>
#include <cstdint>
#include <mutex>
#include <string>

namespace Pelin {

class CorruptionReport {
 public:
   CorruptionReport() = default;
   // Tables move while being set up, before readers share them.
   CorruptionReport(CorruptionReport&& o) noexcept : count_(o.count()), last_(o.last()) {}
   CorruptionReport& operator=(CorruptionReport&&) = delete;

   void report(const std::string& message) {
      std::lock_guard lock(mutex_);
      count_.fetch_add(1, std::memory_order_relaxed);
      last_ = message;
   }
   // What a read raised; a repeat was counted when first raised.
   void report(const CorruptionDetectedException& e) {
      if (!e.repeat()) report(std::string(e.what()));
   }
   std::uint64_t count() const { return count_.load(std::memory_order_relaxed); }
   std::string last() const {
      std::lock_guard lock(mutex_);
      return last_;
   }

 private:
   mutable std::mutex mutex_;
   std::atomic<std::uint64_t> count_{0};
   std::string last_;
};

} // namespace Pelin
