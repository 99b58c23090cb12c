// A contiguous block of memory addressed only by offsets, holding one shared table: in the
// process heap, or in a file that one writer creates and any number of readers map
// read-only. The header at offset 0 describes the layout and is checked on attach.
#pragma once
#include "Table/Seqlock.h"

#include <cstddef>
#include <cstdint>
#include <string>

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
   std::uint32_t reserved;
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

   // Writable, private to the process.
   static Region anonymous(const Layout& layout);
   // Creates (or truncates) `path` with owner-only permissions and maps it writable.
   static Region createFile(const std::string& path, const Layout& layout);
   // Maps `path` read-only after checking its header against `expected`.
   static Region attachFile(const std::string& path, const Layout& expected);

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

 private:
   Region(std::byte* base, std::size_t bytes, bool writable, std::string name);
   static RegionHeader headerFor(const Layout& layout);
   void initialise(const Layout& layout);

   std::byte* base_ = nullptr;
   std::size_t bytes_ = 0;
   bool writable_ = false;
   std::string name_;
};

} // namespace Table
