// A forked writer process over fresh table files: it creates them (replacing older ones
// by rename), tells the test when it is ready, then rewrites versioned records until
// killed.
#pragma once
#include "VersionedRecords.h"

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <string>

namespace ShmTest {

enum class WriterPlan {
   readyWhenCreated,    // ready before filling: a kill may land while filling
   readyWhenFilled,     // ready once every stable key is present
   stuckRecordThenWait, // fills, leaves FEC 0 and neighbour 0 half-written, then waits
};

class WriterProcess {
 public:
   // Forks the writer of the tables at `base`; `seed` picks which of the first `hotKeys`
   // stable keys it rewrites.
   WriterProcess(const std::string& base, WriterPlan plan, std::uint64_t seed,
                 std::uint32_t hotKeys = kStableKeys);
   // Kills and reaps the writer if it is still there.
   ~WriterProcess();
   WriterProcess(const WriterProcess&) = delete;
   WriterProcess& operator=(const WriterProcess&) = delete;

   // Whether the writer said it is ready within `patience`; false when it died first.
   bool awaitReady(std::chrono::milliseconds patience = std::chrono::seconds(30));
   // SIGKILL, then reap; returns the raw wait status.
   int killNow();
   pid_t pid() const { return pid_; }

 private:
   pid_t pid_ = -1;
   int readyFd_ = -1;
};

} // namespace ShmTest
