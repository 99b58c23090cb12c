#include "HeapCounter.h"

#include <atomic>
#include <cstdlib>
#include <new>

// The replacements below pair new with free by design.
#pragma GCC diagnostic ignored "-Wmismatched-new-delete"

namespace {
std::atomic<std::uint64_t> allocations{0};
}

std::uint64_t Velt::Tool::heapAllocations() { return allocations.load(std::memory_order_relaxed); }

void* operator new(std::size_t n) {
   allocations.fetch_add(1, std::memory_order_relaxed);
   if (void* p = std::malloc(n ? n : 1)) return p;
   throw std::bad_alloc();
}
void* operator new[](std::size_t n) { return operator new(n); }
void operator delete(void* p) noexcept { std::free(p); }
void operator delete[](void* p) noexcept { std::free(p); }
void operator delete(void* p, std::size_t) noexcept { std::free(p); }
void operator delete[](void* p, std::size_t) noexcept { std::free(p); }
