// Pallox: the slab allocator every library object comes from. Objects of one rounded size
// share a pool of fixed-size slots; each type keeps live and total allocation counts that
// tests and tools read to prove that a scenario leaves nothing behind.
#pragma once
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string>
#include <typeinfo>
#include <vector>

namespace Pallox {

class Pool;

// Allocation counts of one type. Registered once, on the type's first allocation.
struct TypeStats {
   TypeStats(const std::type_info& type, std::size_t size);
   std::string name;       // demangled type name
   std::size_t size;       // bytes per object
   Pool* pool;             // the pool serving this size
   std::atomic<std::uint64_t> live{0};
   std::atomic<std::uint64_t> total{0};
};

template <typename T>
TypeStats& statsFor() {
   static TypeStats stats(typeid(T), sizeof(T));
   return stats;
}

void* allocate(TypeStats& stats);
void deallocate(TypeStats& stats, void* p) noexcept;

// Construct a T in a slab slot; the slot is returned if the constructor throws.
template <typename T, typename... Args>
T* create(Args&&... args) {
   TypeStats& stats = statsFor<T>();
   void* mem = allocate(stats);
   try {
      return new (mem) T(std::forward<Args>(args)...);
   } catch (...) {
      deallocate(stats, mem);
      throw;
   }
}

template <typename T>
void destroy(T* obj) noexcept {
   obj->~T();
   deallocate(statsFor<T>(), obj);
}

struct TypeCount {
   std::string name;
   std::size_t size;
   std::uint64_t live;
   std::uint64_t total;
};

// Every type allocated so far, in order of first allocation.
std::vector<TypeCount> allTypeCounts();
// Live objects of the type whose demangled name is `name` (0 when never allocated).
std::uint64_t liveCount(const std::string& name);
// Live objects of all types together.
std::uint64_t liveCountAll();

template <typename T>
std::uint64_t liveCountOf() {
   return statsFor<T>().live.load(std::memory_order_relaxed);
}

} // namespace Pallox
