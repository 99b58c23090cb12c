#include "Pallox/Slab.h"

#include "Pelin/Threading.h"

#include <cxxabi.h>
#include <cstdlib>
#include <map>
#include <memory>
#include <mutex>
#include <new>

namespace Pallox {

namespace {

constexpr std::size_t kAlign = 16;
constexpr std::size_t kChunkBytes = 64 * 1024;

std::size_t roundUp(std::size_t n) { return (n + kAlign - 1) & ~(kAlign - 1); }

// Serialises pool refills and free-list updates, but only in multi-threaded mode: the
// single-threaded forwarding path pays for no lock.
class MaybeLock {
 public:
   explicit MaybeLock(std::mutex& m) : m_(Pelin::multiThreaded() ? &m : nullptr) {
      if (m_) m_->lock();
   }
   ~MaybeLock() {
      if (m_) m_->unlock();
   }

 private:
   std::mutex* m_;
};

struct Registry {
   std::mutex mutex;
   std::map<std::size_t, std::unique_ptr<Pool>> pools;
   std::vector<TypeStats*> types;
};

Registry& registry() {
   static Registry* r = new Registry; // never destroyed: objects may outlive static teardown
   return *r;
}

std::string demangle(const char* mangled) {
   int status = 0;
   char* d = abi::__cxa_demangle(mangled, nullptr, nullptr, &status);
   std::string out = (status == 0 && d) ? d : mangled;
   std::free(d);
   return out;
}

} // namespace

class Pool {
 public:
   explicit Pool(std::size_t slot) : slot_(slot) {}

   void* get() {
      MaybeLock lock(mutex_);
      if (!free_) refill();
      FreeSlot* s = free_;
      free_ = s->next;
      return s;
   }

   void put(void* p) noexcept {
      MaybeLock lock(mutex_);
      auto* s = static_cast<FreeSlot*>(p);
      s->next = free_;
      free_ = s;
   }

 private:
   struct FreeSlot {
      FreeSlot* next;
   };

   void refill() {
      std::size_t count = slot_ >= kChunkBytes ? 1 : kChunkBytes / slot_;
      auto* chunk = static_cast<char*>(::operator new(count * slot_, std::align_val_t(kAlign)));
      for (std::size_t i = count; i-- > 0;) {
         auto* s = reinterpret_cast<FreeSlot*>(chunk + i * slot_);
         s->next = free_;
         free_ = s;
      }
   }

   std::size_t slot_;
   FreeSlot* free_ = nullptr;
   std::mutex mutex_;
};

TypeStats::TypeStats(const std::type_info& type, std::size_t sz)
    : name(demangle(type.name())), size(sz), pool(nullptr) {
   Registry& r = registry();
   std::lock_guard<std::mutex> lock(r.mutex);
   std::size_t slot = roundUp(sz < sizeof(void*) ? sizeof(void*) : sz);
   auto& p = r.pools[slot];
   if (!p) p = std::make_unique<Pool>(slot);
   pool = p.get();
   r.types.push_back(this);
}

void* allocate(TypeStats& stats) {
   void* p = stats.pool->get();
   if (Pelin::multiThreaded()) {
      stats.live.fetch_add(1, std::memory_order_relaxed);
      stats.total.fetch_add(1, std::memory_order_relaxed);
   } else {
      stats.live.store(stats.live.load(std::memory_order_relaxed) + 1, std::memory_order_relaxed);
      stats.total.store(stats.total.load(std::memory_order_relaxed) + 1,
                        std::memory_order_relaxed);
   }
   return p;
}

void deallocate(TypeStats& stats, void* p) noexcept {
   if (Pelin::multiThreaded()) {
      stats.live.fetch_sub(1, std::memory_order_relaxed);
   } else {
      stats.live.store(stats.live.load(std::memory_order_relaxed) - 1, std::memory_order_relaxed);
   }
   stats.pool->put(p);
}

std::vector<TypeCount> allTypeCounts() {
   Registry& r = registry();
   std::lock_guard<std::mutex> lock(r.mutex);
   std::vector<TypeCount> out;
   for (TypeStats* t : r.types) {
      out.push_back({t->name, t->size, t->live.load(), t->total.load()});
   }
   return out;
}

std::uint64_t liveCount(const std::string& name) {
   for (const auto& t : allTypeCounts()) {
      if (t.name == name) return t.live;
   }
   return 0;
}

std::uint64_t liveCountAll() {
   std::uint64_t n = 0;
   for (const auto& t : allTypeCounts()) n += t.live;
   return n;
}

} // namespace Pallox
