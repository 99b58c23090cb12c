// A contiguous block of memory addressed only by offsets, holding one shared table: in
// the process heap, or in a file that one writer creates and any number of readers map
// read-only. The header at offset 0 describes the layout and is checked on attach; its
// instance, and the copy of it that ends the file, are checked again after every read, so
// that a file cut short or rewritten under a mapping is reported instead of read as empty
// (or killing the process).
#pragma once
#include "Table/Seqlock.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace Table {

constexpr std::size_t kSizeClasses = 16;
constexpr std::size_t kMaxLists = 4;

// What a table asks of its region; the derived offsets are computed by the region.
struct Layout {
   std::uint32_t kind = 0; // which table type owns the region
   std::uint32_t keySize = 0;
   std::uint32_t valueSize = 0;
   std::uint32_t itemSize = 0;    // entry size of variable-length lists, 0 when none
   std::uint64_t capacity = 0;    // entries the writer may hold; 0 on attach: from the file
   std::uint64_t slotWords = 0;   // words per hash slot
   std::uint64_t poolBytes = 0;   // extent pool size; ignored on attach
   std::uint32_t listMax[kMaxLists] = {}; // bound on each list's entry count
};

struct RegionHeader {
   Word magic;
   std::uint32_t version;
   std::uint32_t kind;
   std::uint32_t keySize;
   std::uint32_t valueSize;
   std::uint32_t itemSize;
   std::uint32_t listMax[kMaxLists];
   std::uint32_t instance; // random and non-zero, for the life of the file
   Word capacity;
   Word slotCount; // a power of two
   Word slotWords;
   Word slotsOffset;
   Word poolOffset;
   Word poolBytes;
   Word totalBytes;
   // Written by the writer only; readers may look (atomically).
   Word size;
   Word tombstones;
   Word poolTop;
   Word freeHeads[kSizeClasses];
   Word aux[4]; // table-specific data that readers need
};

class Region {
 public:
   static constexpr Word kMagic = 0x31424154544c4556; // "VELTTAB1"
   static constexpr std::uint32_t kVersion = 1;
   // The end of every region: a line of its own, whose first word repeats the instance.
   static constexpr Word kTailBytes = 64;

   // Writable, private to the process.
   static Region anonymous(const Layout& layout);
   // Creates (or truncates) `path` with owner-only permissions and maps it writable.
   static Region createFile(const std::string& path, const Layout& layout);
   // Maps `path` read-only after checking its header against `expected`.
   static Region attachFile(const std::string& path, const Layout& expected);
   // The files of this process's mappings that were cut short under it (see verify()).
   static std::vector<std::string> lostFiles();

   Region(Region&& other) noexcept;
   Region& operator=(Region&& other) noexcept;
   Region(const Region&) = delete;
   Region& operator=(const Region&) = delete;
   ~Region();

   RegionHeader& header() const { return *reinterpret_cast<RegionHeader*>(base_); }
   Word* words(Word offset) const { return reinterpret_cast<Word*>(base_ + offset); }
   bool writable() const { return writable_; }
   std::size_t bytes() const { return bytes_; }
   // "heap" or the file path; used in every error message about the table.
   const std::string& name() const { return name_; }

   // Readers call it after each read, before using what they copied: raises
   // Pelin::CorruptionDetectedException when the file was cut short (by as little as a
   // byte), truncated and grown again, or overwritten since it was mapped. Two loads of
   // lines that only change with the file, and a branch, while all is well.
   void verify() const {
      const Word head =
          std::atomic_ref<std::uint32_t>(header().instance).load(std::memory_order_acquire);
      const Word tail = loadWord(*words(bytes_ - kTailBytes), std::memory_order_acquire);
      if ((head ^ instance_) | (tail ^ instance_)) [[unlikely]] lost();
   }

 private:
   Region(std::byte* base, std::size_t bytes, bool writable, std::string name,
          int fd = -1);
   static RegionHeader headerFor(const Layout& layout);
   void initialise(const Layout& layout);
   void guard();
   [[noreturn]] void lost() const;

   std::byte* base_ = nullptr;
   std::size_t bytes_ = 0;
   bool writable_ = false;
   std::string name_;
   int fd_ = -1;    // kept open to tell how a lost file changed
   int guard_ = -1; // MappingGuard handle of a file's mapping
   std::uint32_t instance_ = 0;
};

} // namespace Table
