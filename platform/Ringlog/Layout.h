// The ring trace file layout, shared by the writer and the reader: a header, the table of
// message sites (so another process can decode) and the ring of binary records.
#pragma once
#include <atomic>
#include <bit>
#include <cstddef>
#include <cstdint>

namespace Ringlog::layout {

constexpr std::uint64_t kMagic = 0x31474c52544c4556ull; // "VELTRLG1"
constexpr std::uint32_t kVersion = 2; // 2: records carry a check of their contents
constexpr std::uint64_t kHeaderBytes = 4096;
constexpr std::uint64_t kSiteAreaBytes = 256 * 1024;
constexpr std::uint64_t kMinRingBytes = 64 * 1024;
constexpr std::uint64_t kMaxRingBytes = std::uint64_t{1} << 40;
constexpr std::uint16_t kPadSite = 0xffff; // rest of the lap is unused

struct FileHeader {
   std::uint64_t magic;
   std::uint32_t version;
   std::uint32_t headerBytes;
   std::uint64_t siteAreaOffset;
   std::uint64_t siteAreaBytes;
   std::uint64_t ringOffset;
   std::uint64_t ringBytes; // a power of two
   std::atomic<std::uint32_t> siteBytesUsed; // published after the entry is written
   std::atomic<std::uint32_t> siteCount;
   alignas(64) std::atomic<std::uint64_t> head; // logical byte position of the next record
   std::atomic<std::uint64_t> nextSeq;          // sequence number of the next record
};
static_assert(sizeof(FileHeader) <= kHeaderBytes);
static_assert(std::atomic<std::uint64_t>::is_always_lock_free);

// One site entry: this header, argCount 16-bit type codes, then handle and format
// strings, each NUL-terminated; the entry is padded to 8 bytes.
struct SiteEntry {
   std::uint32_t bytes;
   std::uint32_t index;
   std::uint16_t level;
   std::uint16_t argCount;
   std::uint32_t reserved;
};

// Every record starts 8-aligned with this header and never crosses the end of the ring.
// The stamp is stored last. Writers may lap each other, so a record's bytes can mix two
// writes; the stamp's check, a hash of the record's position, seq and every payload word,
// is what makes a record valid: a torn or stale one fails it and is skipped.
struct RecordHeader {
   std::uint64_t seq;
   std::uint64_t stamp; // check << 32 | site << 16 | bytes
};
constexpr std::size_t kRecordHeaderBytes = sizeof(RecordHeader);
constexpr std::size_t kMaxRecordBytes = 0xfff8;

// The check of one record, fed with its words in order. Linear per word (one rotate and
// xor, cheap on the hot path) and mixed once at the end.
class Check {
 public:
   Check(std::uint64_t pos, std::uint16_t site, std::uint16_t bytes)
       : h_(pos ^ (std::uint64_t{site} << 16 | bytes) << 40) {}
   void add(std::uint64_t word) { h_ = std::rotl(h_, 25) ^ word; }
   std::uint64_t stamp(std::uint16_t site, std::uint16_t bytes) const {
      std::uint64_t check = (h_ * 0x9e3779b97f4a7c15ull) >> 32;
      return check << 32 | std::uint64_t{site} << 16 | bytes;
   }

 private:
   std::uint64_t h_;
};

// The stamp of the padding that fills the rest of a lap; it covers no words.
inline std::uint64_t padStamp(std::uint64_t pos) {
   return Check(pos, kPadSite, 0).stamp(kPadSite, 0);
}

} // namespace Ringlog::layout
