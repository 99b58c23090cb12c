// The process threading switch: reference counts and the slab allocator use atomic
// read-modify-write operations only after the process has switched to multi-threaded mode.
#pragma once
#include <atomic>

namespace Pelin {

namespace detail {
extern std::atomic<bool> gMultiThreaded;
}

inline bool multiThreaded() { return detail::gMultiThreaded.load(std::memory_order_relaxed); }
void multiThreadedIs(bool on);

} // namespace Pelin
