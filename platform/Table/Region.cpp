#include "Table/Region.h"

#include "Pelin/Exception.h"
#include "Table/MappingGuard.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>

#include <bit>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fmt/format.h>
#include <utility>

namespace Table {

namespace {

[[noreturn]] void systemError(const std::string& name, const char* what) {
   throw Pelin::Exception(fmt::format("table file {}: {} failed: {}", name, what,
                                      std::strerror(errno)));
}

// Closes a descriptor on every path out of a function that does not keep it.
struct Fd {
   int fd;
   ~Fd() {
      if (fd >= 0) ::close(fd);
   }
   int release() { return std::exchange(fd, -1); }
};

std::uint32_t newInstance() {
   std::uint32_t v = 0;
   if (::getrandom(&v, sizeof v, GRND_NONBLOCK) != sizeof v) {
      v = static_cast<std::uint32_t>(::getpid()) * 2654435761u ^
          static_cast<std::uint32_t>(
              std::chrono::steady_clock::now().time_since_epoch().count());
   }
   return v ? v : 1;
}

// Takes the file's whole size from its file system now, so that a full one is an error
// here rather than a SIGBUS at the first write to a page that cannot be had. Where the
// file system cannot reserve, posix_fallocate writes the blocks instead.
void reserve(int fd, const std::string& name, std::size_t bytes) {
   if (int err = ::posix_fallocate(fd, 0, static_cast<off_t>(bytes))) {
      const std::filesystem::path file(name);
      throw Pelin::Exception(
          fmt::format("table file {}: cannot reserve its {} bytes in {}: {}", name, bytes,
                      file.parent_path().string(), std::strerror(err)));
   }
}

void* mapOrThrow(const std::string& name, std::size_t bytes, int prot, int flags, int fd) {
   void* p = ::mmap(nullptr, bytes, prot, flags, fd, 0);
   if (p == MAP_FAILED) systemError(name, "mmap");
   return p;
}

void expectEqual(const std::string& name, const char* field, Word found, Word expected) {
   if (found != expected) {
      throw Pelin::Exception(fmt::format("table file {}: {} {} differs from expected {}", name,
                                         field, found, expected));
   }
}

// Size fields are bounded by the file before offsets are derived from them: a damaged
// capacity or pool size would otherwise overflow that arithmetic (std::bit_ceil beyond
// 2^63 is undefined) and be refused, if at all, under the name of a derived field.
void expectFits(const std::string& name, const char* field, Word found, Word most,
                std::size_t fileBytes) {
   if (found <= most) return;
   throw Pelin::Exception(fmt::format("table file {}: {} {} does not fit in its {} bytes",
                                      name, field, found, fileBytes));
}

} // namespace

RegionHeader Region::headerFor(const Layout& layout) {
   RegionHeader h{};
   h.magic = kMagic;
   h.version = kVersion;
   h.kind = layout.kind;
   h.keySize = layout.keySize;
   h.valueSize = layout.valueSize;
   h.itemSize = layout.itemSize;
   std::memcpy(h.listMax, layout.listMax, sizeof h.listMax);
   h.capacity = layout.capacity;
   // At most 80% load keeps probe chains short.
   h.slotCount = std::bit_ceil(std::max<Word>(8, layout.capacity + layout.capacity / 4 + 1));
   h.slotWords = layout.slotWords;
   h.slotsOffset = wordsFor(sizeof(RegionHeader)) * 8;
   h.poolOffset = h.slotsOffset + h.slotCount * h.slotWords * 8;
   h.poolBytes = wordsFor(layout.poolBytes) * 8;
   h.totalBytes = h.poolOffset + h.poolBytes + kTailBytes;
   return h;
}

Region::Region(std::byte* base, std::size_t bytes, bool writable, std::string name,
               int fd)
    : base_(base), bytes_(bytes), writable_(writable), name_(std::move(name)), fd_(fd) {}

Region::Region(Region&& other) noexcept
    : base_(std::exchange(other.base_, nullptr)), bytes_(std::exchange(other.bytes_, 0)),
      writable_(other.writable_), name_(std::move(other.name_)),
      fd_(std::exchange(other.fd_, -1)), guard_(std::exchange(other.guard_, -1)),
      instance_(other.instance_) {}

Region& Region::operator=(Region&& other) noexcept {
   if (this != &other) {
      this->~Region();
      new (this) Region(std::move(other));
   }
   return *this;
}

Region::~Region() {
   if (guard_ >= 0) MappingGuard::unwatch(guard_);
   if (base_) ::munmap(base_, bytes_);
   if (fd_ >= 0) ::close(fd_);
}

void Region::guard() {
   guard_ = MappingGuard::watch(base_, bytes_,
                                writable_ ? PROT_READ | PROT_WRITE : PROT_READ, name_);
}

std::vector<std::string> Region::lostFiles() {
   return MappingGuard::lostFiles();
}

void Region::lost() const {
   struct stat st {};
   const bool stated = fd_ >= 0 && ::fstat(fd_, &st) == 0;
   const auto onFile = stated ? static_cast<std::size_t>(st.st_size) : bytes_;
   if (onFile < bytes_) {
      throw Pelin::CorruptionDetectedException(fmt::format(
          "table file {}: cut short under its readers: {} of its {} bytes left", name_,
          onFile, bytes_));
   }
   if (guard_ >= 0 && MappingGuard::lost(guard_)) {
      throw Pelin::CorruptionDetectedException(
          fmt::format("table file {}: a page of it could not be mapped: the file was cut "
                      "short, or its "
                      "file system is full",
                      name_));
   }
   const auto now = std::atomic_ref<std::uint32_t>(header().instance).load();
   const Word tail = loadWord(*words(bytes_ - kTailBytes));
   throw Pelin::CorruptionDetectedException(
       fmt::format("table file {}: rewritten under its readers: instance {:08x} became "
                   "{:08x}, {:08x} at its end (the file was truncated or overwritten in "
                   "place)",
                   name_, instance_, now, tail));
}

// The magic goes in last so that a reader attaching early refuses a half-made file.
void Region::initialise(const Layout& layout) {
   RegionHeader h = headerFor(layout);
   h.instance = instance_ = newInstance();
   storeWord(*words(h.totalBytes - kTailBytes), instance_);
   Word magic = std::exchange(h.magic, 0);
   std::memcpy(base_, &h, sizeof h);
   storeWord(header().magic, magic, std::memory_order_release);
}

Region Region::anonymous(const Layout& layout) {
   std::size_t bytes = headerFor(layout).totalBytes;
   void* p = mapOrThrow("heap", bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1);
   // Lookups land on random slots: huge pages spare most of their TLB misses.
   ::madvise(p, bytes, MADV_HUGEPAGE);
   Region region(static_cast<std::byte*>(p), bytes, true, "heap");
   region.initialise(layout);
   return region;
}

namespace {

// Removes what writers killed inside createFile left of `path`: "<path>.new.<pid>" files
// whose process is gone. A live writer's file is left alone.
void removeAbandonedTemporaries(const std::string& path) {
   const std::filesystem::path target(path);
   const std::string prefix = target.filename().string() + ".new.";
   std::error_code ec;
   for (const auto& entry : std::filesystem::directory_iterator(
            target.has_parent_path() ? target.parent_path() : ".", ec)) {
      const std::string name = entry.path().filename().string();
      if (!name.starts_with(prefix)) continue;
      char* end = nullptr;
      const long pid = std::strtol(name.c_str() + prefix.size(), &end, 10);
      if (pid <= 0 || *end != '\0') continue;
      if (::kill(static_cast<pid_t>(pid), 0) != 0 && errno == ESRCH) {
         ::unlink(entry.path().c_str());
      }
   }
}

} // namespace

// The file is made under a temporary name and renamed into place once its header is
// whole: a reader attaching meanwhile finds the previous file or the new one, and a reader
// still mapping a replaced file keeps its pages (truncating in place would fault them).
Region Region::createFile(const std::string& path, const Layout& layout) {
   std::size_t bytes = headerFor(layout).totalBytes;
   removeAbandonedTemporaries(path);
   const std::string temp = fmt::format("{}.new.{}", path, ::getpid());
   ::unlink(temp.c_str());
   Fd fd{::open(temp.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0600)};
   if (fd.fd < 0) systemError(temp, "open");
   // The process umask could only narrow 0600; fchmod keeps it exact either way.
   if (::fchmod(fd.fd, 0600) != 0) systemError(temp, "fchmod");
   try {
      reserve(fd.fd, path, bytes);
   } catch (...) {
      ::unlink(temp.c_str());
      throw;
   }
   void* p = mapOrThrow(temp, bytes, PROT_READ | PROT_WRITE, MAP_SHARED, fd.fd);
   Region region(static_cast<std::byte*>(p), bytes, true, path, fd.release());
   region.guard();
   region.initialise(layout);
   if (::rename(temp.c_str(), path.c_str()) != 0) {
      ::unlink(temp.c_str());
      systemError(path, "rename");
   }
   return region;
}

Region Region::attachFile(const std::string& path, const Layout& expected) {
   Fd fd{::open(path.c_str(), O_RDONLY | O_CLOEXEC)};
   if (fd.fd < 0) systemError(path, "open");
   struct stat st {};
   if (::fstat(fd.fd, &st) != 0) systemError(path, "fstat");
   auto bytes = static_cast<std::size_t>(st.st_size);
   if (bytes < sizeof(RegionHeader)) {
      throw Pelin::Exception(fmt::format("table file {}: {} bytes is too short for a header",
                                         path, bytes));
   }
   void* p = mapOrThrow(path, bytes, PROT_READ, MAP_SHARED, fd.fd);
   Region region(static_cast<std::byte*>(p), bytes, false, path, fd.release());
   region.guard();
   const RegionHeader& h = region.header();
   expectEqual(path, "magic", loadWord(h.magic, std::memory_order_acquire), kMagic);
   expectEqual(path, "layout version", h.version, kVersion);
   expectEqual(path, "table kind", h.kind, expected.kind);
   expectEqual(path, "key size", h.keySize, expected.keySize);
   expectEqual(path, "value size", h.valueSize, expected.valueSize);
   expectEqual(path, "item size", h.itemSize, expected.itemSize);
   expectEqual(path, "slot words", h.slotWords, expected.slotWords);
   for (std::size_t i = 0; i < kMaxLists; ++i) {
      expectEqual(path, "list bound", h.listMax[i], expected.listMax[i]);
   }
   // Every slot holds at most one entry, and the pool is inside the file.
   expectFits(path, "capacity", h.capacity, bytes / (h.slotWords * 8), bytes);
   expectFits(path, "pool bytes", h.poolBytes, bytes, bytes);
   // Every derived field must follow from capacity and pool size, or the file was damaged.
   Layout stored = expected;
   stored.capacity = h.capacity;
   stored.poolBytes = h.poolBytes;
   RegionHeader want = headerFor(stored);
   expectEqual(path, "slot count", h.slotCount, want.slotCount);
   expectEqual(path, "slots offset", h.slotsOffset, want.slotsOffset);
   expectEqual(path, "pool offset", h.poolOffset, want.poolOffset);
   expectEqual(path, "total bytes", h.totalBytes, want.totalBytes);
   expectEqual(path, "file size", bytes, want.totalBytes);
   region.instance_ = std::atomic_ref<std::uint32_t>(region.header().instance).load();
   if (region.instance_ == 0) {
      throw Pelin::Exception(
          fmt::format("table file {}: instance 0 was never set by a writer", path));
   }
   expectEqual(path, "instance at the end", loadWord(*region.words(bytes - kTailBytes)),
               region.instance_);
   return region;
}

} // namespace Table
