// Heap allocations made by this process so far (velt replaces the global operator new to
// count them, so that `velt bench` can report allocations per resolution).
#pragma once
#include <cstdint>

namespace Velt::Tool {
std::uint64_t heapAllocations();
}
