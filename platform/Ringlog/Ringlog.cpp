#include "Ringlog/Ringlog.h"

#include "Pelin/Assert.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <map>
#include <mutex>

namespace Ringlog {

namespace detail {
std::atomic<Ring*> gRing{nullptr};
}

namespace {

using namespace layout;

struct Registry {
   std::mutex mutex;
   std::vector<const Site*> sites;
   detail::Ring* ring = nullptr; // the open ring, written under `mutex`
   std::size_t fileBytes = 0;
   std::map<std::uint16_t, std::pair<std::string, Decoder>> decoders;
};

Registry& registry() {
   static Registry* r = new Registry; // outlives every static site
   return *r;
}

// Appends a site entry to the file's site table; silently skipped when the table is full.
void publishSite(detail::Ring& ring, const Site& site) {
   FileHeader& h = *ring.header;
   std::size_t strBytes = site.handle.size() + 1 + site.format.size() + 1;
   std::size_t bytes = sizeof(SiteEntry) + 2 * site.argCount + strBytes;
   bytes = (bytes + 7) & ~std::size_t{7};
   std::uint32_t used = h.siteBytesUsed.load(std::memory_order_relaxed);
   if (used + bytes > h.siteAreaBytes) return;
   std::byte* at = reinterpret_cast<std::byte*>(&h) + h.siteAreaOffset + used;
   SiteEntry e{static_cast<std::uint32_t>(bytes), site.index,
               static_cast<std::uint16_t>(site.level), site.argCount, 0};
   std::memcpy(at, &e, sizeof e);
   std::byte* p = at + sizeof e;
   std::memcpy(p, site.codes, 2 * site.argCount);
   p += 2 * site.argCount;
   std::memcpy(p, site.handle.c_str(), site.handle.size() + 1);
   p += site.handle.size() + 1;
   std::memcpy(p, site.format.c_str(), site.format.size() + 1);
   h.siteCount.store(h.siteCount.load(std::memory_order_relaxed) + 1,
                     std::memory_order_relaxed);
   h.siteBytesUsed.store(used + static_cast<std::uint32_t>(bytes), std::memory_order_release);
}

std::uint64_t ringSize(std::size_t bytes) {
   std::uint64_t size = kMinRingBytes;
   while (size < bytes) size <<= 1;
   return size;
}

bool fail(std::string* error, const std::string& what) {
   if (error) *error = what + ": " + std::strerror(errno);
   return false;
}

} // namespace

Site::Site(std::string h, int l, const char* f, const std::uint16_t* c, std::uint16_t n,
           void (*registerCodecs)())
    : handle(std::move(h)), format(f), level(l), codes(c), argCount(n) {
   registerCodecs();
   Registry& r = registry();
   std::lock_guard lock(r.mutex);
   VELT_ASSERT(r.sites.size() < kPadSite);
   index = static_cast<std::uint16_t>(r.sites.size());
   r.sites.push_back(this);
   if (r.ring) publishSite(*r.ring, *this);
}

bool open(const std::string& path, std::size_t bytes, std::string* error) {
   close();
   std::uint64_t size = ringSize(bytes);
   std::size_t total = kHeaderBytes + kSiteAreaBytes + size;
   int fd = ::open(path.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
   if (fd < 0) return fail(error, "cannot create " + path);
   if (::ftruncate(fd, static_cast<off_t>(total)) != 0) {
      ::close(fd);
      return fail(error, "cannot size " + path);
   }
   void* map = ::mmap(nullptr, total, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
   ::close(fd);
   if (map == MAP_FAILED) return fail(error, "cannot map " + path);

   auto* h = new (map) FileHeader{};
   h->version = kVersion;
   h->headerBytes = kHeaderBytes;
   h->siteAreaOffset = kHeaderBytes;
   h->siteAreaBytes = kSiteAreaBytes;
   h->ringOffset = kHeaderBytes + kSiteAreaBytes;
   h->ringBytes = size;
   auto* ring = new detail::Ring{static_cast<std::byte*>(map) + h->ringOffset, size - 1, h, {}};

   Registry& r = registry();
   std::lock_guard lock(r.mutex);
   for (const Site* s : r.sites) publishSite(*ring, *s);
   std::atomic_ref<std::uint64_t>(h->magic).store(kMagic, std::memory_order_release);
   r.ring = ring;
   r.fileBytes = total;
   detail::gRing.store(ring, std::memory_order_release);
   return true;
}

void close() {
   Registry& r = registry();
   std::lock_guard lock(r.mutex);
   detail::Ring* ring = r.ring;
   if (!ring) return;
   detail::gRing.store(nullptr, std::memory_order_release);
   r.ring = nullptr;
   ::munmap(ring->header, r.fileBytes);
   delete ring;
}

detail::Slot detail::reserveLocked(Ring& r, std::size_t bytes) {
   while (r.busy.test_and_set(std::memory_order_acquire)) {
   }
   Slot s = claim(r, bytes);
   r.busy.clear(std::memory_order_release);
   return s;
}

bool registerDecoder(std::uint16_t code, std::size_t size, const char* typeName,
                     DecodeFn decode) {
   Registry& r = registry();
   std::lock_guard lock(r.mutex);
   auto [it, added] = r.decoders.try_emplace(code, typeName, Decoder{size, decode});
   VELT_ASSERT(added || it->second.first == typeName);
   return true;
}

Decoder decoderFor(std::uint16_t code) {
   Registry& r = registry();
   std::lock_guard lock(r.mutex);
   auto it = r.decoders.find(code);
   return it == r.decoders.end() ? Decoder{} : it->second.second;
}

} // namespace Ringlog
