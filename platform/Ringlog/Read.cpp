// The reader side of Ringlog: decodes a ring file of this or another process. The file is
// hostile: every offset and size is checked before use with arithmetic that cannot wrap,
// so a truncated, half-written, torn or crafted file yields notes and lost counts, never
// a read outside the file's bytes.
#include "Ringlog/Message.h"
#include "Ringlog/Ringlog.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <algorithm>
#include <cstring>
#include <optional>
#include <ostream>

namespace Ringlog {

namespace {

using namespace layout;

constexpr std::uint64_t kMaxSiteAreaBytes = std::uint64_t{1} << 30;
constexpr std::uint64_t kMaxOffset = std::uint64_t{1} << 40;
constexpr std::uint64_t kMaxPosition = std::uint64_t{1} << 62; // no writer gets this far
// Checking a candidate record hashes all its words; torn records are rare, so a real file
// needs about one word per word of ring, and a crafted one is cut short at this many.
constexpr std::uint64_t kHashBudgetPerWord = 16;

// The bytes [offset, offset + length) of `file` that it holds, possibly fewer or none.
std::span<const std::byte> clip(std::span<const std::byte> file, std::uint64_t offset,
                                std::uint64_t length) {
   if (offset >= file.size()) return {};
   return file.subspan(offset, std::min<std::uint64_t>(length, file.size() - offset));
}

template <typename T>
T load(std::span<const std::byte> bytes, std::size_t at) {
   T v;
   std::memcpy(&v, bytes.data() + at, sizeof v);
   return v;
}

// Copies the header out (the file may be misaligned) and checks that its layout is one a
// writer makes; what is wrong is named in `error`.
bool readHeader(std::span<const std::byte> file, FileHeader& h, std::string& error) {
   if (file.size() < sizeof(FileHeader)) {
      error = "file too short for a ring trace header";
      return false;
   }
   std::memcpy(static_cast<void*>(&h), file.data(), sizeof h);
   if (h.magic != kMagic) {
      error = "not a ring trace file (bad magic number)";
      return false;
   }
   if (h.version != kVersion) {
      error = fmt::format("unsupported ring trace version {}", h.version);
      return false;
   }
   auto damaged = [&](const char* what, std::uint64_t value) {
      error = fmt::format("ring trace header is damaged: {} {} is out of range", what, value);
      return false;
   };
   if (h.ringBytes < kMinRingBytes || h.ringBytes > kMaxRingBytes ||
       (h.ringBytes & (h.ringBytes - 1)) != 0)
      return damaged("ring size", h.ringBytes);
   if (h.siteAreaOffset < sizeof(FileHeader) || h.siteAreaOffset > kMaxOffset)
      return damaged("message table offset", h.siteAreaOffset);
   if (h.siteAreaBytes > kMaxSiteAreaBytes) return damaged("message table size", h.siteAreaBytes);
   // Both terms are bounded above, so the sum cannot wrap.
   if (h.ringOffset < h.siteAreaOffset + h.siteAreaBytes || h.ringOffset > kMaxOffset)
      return damaged("ring offset", h.ringOffset);
   if (h.head.load() > kMaxPosition) return damaged("ring head", h.head.load());
   if (h.nextSeq.load() > kMaxPosition) return damaged("next sequence number", h.nextSeq.load());
   return true;
}

// The ring as far as the file holds it.
struct RingView {
   std::span<const std::byte> bytes;
   std::uint64_t size; // as the header says: a power of two
   bool holds(std::uint64_t off, std::uint64_t n) const {
      return off <= bytes.size() && n <= bytes.size() - off;
   }
};

// The record at `pos` when its stamp's check matches its bytes, else its stamp is ignored.
struct Record {
   std::uint64_t seq;
   std::uint16_t site;
   std::uint16_t bytes;
};
std::optional<Record> recordAt(const RingView& ring, std::uint64_t pos, std::uint64_t head,
                               std::uint64_t& budget) {
   std::uint64_t off = pos & (ring.size - 1);
   auto rec = load<RecordHeader>(ring.bytes, off);
   auto site = static_cast<std::uint16_t>(rec.stamp >> 16);
   auto bytes = static_cast<std::uint16_t>(rec.stamp);
   if (site == kPadSite) {
      if (rec.stamp != padStamp(pos)) return std::nullopt;
      return Record{0, site, 0};
   }
   if (bytes < kRecordHeaderBytes || bytes % 8 || bytes > ring.size - off ||
       !ring.holds(off, bytes) || bytes > head - pos || bytes / 8 > budget)
      return std::nullopt;
   budget -= bytes / 8;
   Check check(pos, site, bytes);
   check.add(rec.seq);
   for (std::size_t at = off + kRecordHeaderBytes; at < off + bytes; at += 8)
      check.add(load<std::uint64_t>(ring.bytes, at));
   if (check.stamp(site, bytes) != rec.stamp) return std::nullopt;
   return Record{rec.seq, site, bytes};
}

// Walks the window [oldest, head) of the ring, oldest first, and counts what is missing.
class Walk {
 public:
   Walk(const RingView& ring, const reader::Messages& messages, bool wrapped, Contents& out)
       : ring_(ring), messages_(messages), out_(out), wrapped_(wrapped),
         budget_(kHashBudgetPerWord * (ring.bytes.size() / 8) + kMaxRecordBytes) {}

   void run(std::uint64_t oldest, std::uint64_t head, std::uint64_t nextSeq) {
      std::uint64_t pos = (oldest + 7) & ~std::uint64_t{7};
      while (pos < head && head - pos >= kRecordHeaderBytes) {
         std::uint64_t off = pos & (ring_.size - 1);
         std::uint64_t toLapEnd = ring_.size - off;
         if (toLapEnd < kRecordHeaderBytes) {
            pos += toLapEnd;
         } else if (!ring_.holds(off, kRecordHeaderBytes)) {
            cut_ = true; // the rest of this lap is past the end of the file
            pos += toLapEnd;
         } else if (auto rec = recordAt(ring_, pos, head, budget_); !rec) {
            pos += 8;
         } else if (rec->site == kPadSite) {
            pos += toLapEnd;
         } else if (first_ || rec->seq >= expect_) {
            take(*rec, off);
            pos += rec->bytes;
         } else {
            pos += 8;
         }
      }
      finish(head, nextSeq);
   }

 private:
   void take(const Record& rec, std::uint64_t off) {
      std::uint64_t lost = rec.seq - (first_ ? 0 : expect_);
      if (first_) (cut_ ? olderCut() : out_.overwritten) += lost;
      else (cut_ ? out_.cutOff : out_.damaged) += lost;
      first_ = false;
      cut_ = false;
      expect_ = rec.seq + 1;
      Line line{rec.seq, "?", 0, {}};
      auto it = messages_.find(rec.site);
      if (it == messages_.end()) {
         line.text = fmt::format("[record of unknown message {}]", rec.site);
      } else {
         line.handle = it->second.handle;
         line.level = it->second.level;
         auto args = ring_.bytes.subspan(off + kRecordHeaderBytes, rec.bytes - kRecordHeaderBytes);
         line.text = reader::textOf(it->second, args);
      }
      out_.lines.push_back(std::move(line));
   }

   void finish(std::uint64_t head, std::uint64_t nextSeq) {
      cut_ = cut_ || out_.truncated;
      if (first_) { // nothing readable
         if (cut_) olderCut() = nextSeq;
         else (head > ring_.size ? out_.overwritten : out_.damaged) = nextSeq;
      } else if (nextSeq > expect_) {
         (cut_ ? out_.cutOff : out_.unfinished) = nextSeq - expect_;
      }
   }

   // Records before the first readable one, when the walk skipped missing bytes to get
   // there: only a ring that never wrapped says they were all cut off.
   std::uint64_t& olderCut() {
      return wrapped_ ? out_.overwrittenOrCutOff : out_.cutOff;
   }

   const RingView& ring_;
   const reader::Messages& messages_;
   Contents& out_;
   bool wrapped_;
   std::uint64_t budget_; // words left to hash: bounds the work a crafted file can cause
   bool first_ = true;
   bool cut_ = false;         // bytes were missing since the last record taken
   std::uint64_t expect_ = 0; // next sequence number expected
};

// `headAfter` is the head as a second look at the file found it: records older than the
// window it implies may have been overwritten while the bytes were copied.
bool decodeWith(std::span<const std::byte> file, std::uint64_t headAfter, Contents& out,
                std::string& error) {
   FileHeader h;
   if (!readHeader(file, h, error)) return false;
   out = Contents{};
   std::uint64_t ringEnd = h.ringOffset + h.ringBytes; // bounded, cannot wrap
   out.truncated = file.size() < ringEnd;

   std::uint64_t tableBytes = std::min<std::uint64_t>(h.siteAreaBytes, h.siteBytesUsed.load());
   auto table = clip(file, h.siteAreaOffset, tableBytes);
   bool damaged = false;
   reader::Messages messages = reader::parseMessages(table, damaged);
   out.sitesDamaged = damaged && table.size() == tableBytes;

   RingView ring{clip(file, h.ringOffset, h.ringBytes), h.ringBytes};
   std::uint64_t head = h.head.load();
   headAfter = std::clamp(headAfter, head, kMaxPosition);
   std::uint64_t oldest = headAfter > h.ringBytes ? headAfter - h.ringBytes : 0;
   Walk walk(ring, messages, head > h.ringBytes, out);
   walk.run(oldest, head, h.nextSeq.load());
   return true;
}

bool fail(std::string& error, const std::string& what) {
   error = what + ": " + std::strerror(errno);
   return false;
}

// Reads the first `limit` bytes of a regular file, or all of it.
bool readFile(const std::string& path, std::vector<std::byte>& bytes, std::string& error,
              std::size_t limit = SIZE_MAX) {
   int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
   if (fd < 0) return fail(error, "cannot open");
   struct stat st {};
   if (::fstat(fd, &st) != 0 || !S_ISREG(st.st_mode)) {
      ::close(fd);
      error = "not a regular file";
      return false;
   }
   bytes.resize(std::min<std::size_t>(static_cast<std::size_t>(st.st_size), limit));
   std::size_t have = 0;
   while (have < bytes.size()) { // the file may shrink meanwhile
      ssize_t n = ::read(fd, bytes.data() + have, bytes.size() - have);
      if (n < 0 && errno == EINTR) continue;
      if (n < 0) {
         ::close(fd);
         return fail(error, "cannot read");
      }
      if (n == 0) break;
      have += static_cast<std::size_t>(n);
   }
   ::close(fd);
   bytes.resize(have);
   return true;
}

} // namespace

bool decode(std::span<const std::byte> file, Contents& out, std::string& error) {
   return decodeWith(file, 0, out, error);
}

bool read(const std::string& path, Contents& out, std::string& error) {
   std::vector<std::byte> bytes;
   if (!readFile(path, bytes, error)) return false;
   std::vector<std::byte> again;
   std::string ignored;
   FileHeader later;
   std::uint64_t headAfter = 0;
   if (readFile(path, again, ignored, sizeof(FileHeader)) && readHeader(again, later, ignored))
      headAfter = later.head.load();
   return decodeWith(bytes, headAfter, out, error);
}

void print(const Contents& c, std::ostream& out) {
   auto note = [&](std::uint64_t n, const char* what) {
      if (n) out << fmt::format("-- {} {} --\n", n, what);
   };
   if (c.truncated) out << "-- file is truncated; records past its end are missing --\n";
   if (c.sitesDamaged) out << "-- message table is damaged; some messages are unknown --\n";
   note(c.overwritten, "older records lost to wrap-around");
   note(c.overwrittenOrCutOff, "older records lost to wrap-around or truncation");
   for (const Line& l : c.lines)
      out << fmt::format("{} {}/{} {}\n", l.seq, l.handle, l.level, l.text);
   note(c.damaged, "records lost to damage");
   note(c.cutOff, "records lost to truncation");
   note(c.unfinished, "records unfinished at the end");
}

bool dump(const std::string& path, std::ostream& out, std::string* error) {
   Contents c;
   std::string why;
   if (!read(path, c, why)) {
      if (error) *error = why;
      return false;
   }
   print(c, out);
   return true;
}

} // namespace Ringlog
