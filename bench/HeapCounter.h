// Counts heap allocations in a benchmark binary, so a benchmark can report allocations
// per operation. Include from exactly one source file of the binary.
#pragma once
#include <atomic>
#include <cstdlib>
#include <new>

// The replacements pair malloc with free; the compiler cannot see that through inlining.
#pragma GCC diagnostic ignored "-Wmismatched-new-delete"

inline std::atomic<unsigned long> gHeapAllocations{0};

void* operator new(std::size_t n) {
   gHeapAllocations.fetch_add(1, std::memory_order_relaxed);
   if (void* p = std::malloc(n ? n : 1)) return p;
   throw std::bad_alloc();
}
void* operator new[](std::size_t n) { return operator new(n); }
void operator delete(void* p) noexcept { std::free(p); }
void operator delete[](void* p) noexcept { std::free(p); }
void operator delete(void* p, std::size_t) noexcept { std::free(p); }
void operator delete[](void* p, std::size_t) noexcept { std::free(p); }
