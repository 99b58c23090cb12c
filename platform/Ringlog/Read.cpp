// The reader side of Ringlog: decodes a ring file of this or another process. Everything
// read from the file is checked before use, so a truncated, half-written or foreign file
// yields notes and lost counts rather than a crash.
#include "Ringlog/Ringlog.h"

#include <fmt/args.h>

#include <cstring>
#include <fstream>
#include <iterator>
#include <ostream>
#include <unordered_map>

namespace Ringlog {

namespace {

using namespace layout;

struct SiteInfo {
   std::string handle;
   std::string format;
   int level;
   std::vector<std::uint16_t> codes;
};

struct Image {
   std::vector<std::byte> bytes;
   FileHeader header; // copied out: the file may be misaligned or short
};

template <typename T>
T load(const std::byte* p) {
   T v;
   std::memcpy(&v, p, sizeof v);
   return v;
}

bool readHeader(const std::vector<std::byte>& bytes, FileHeader& h, std::string& error) {
   if (bytes.size() < sizeof(FileHeader)) {
      error = "file too short for a ring trace header";
      return false;
   }
   std::memcpy(static_cast<void*>(&h), bytes.data(), sizeof h);
   if (h.magic != kMagic) {
      error = "not a ring trace file (bad magic number)";
      return false;
   }
   if (h.version != kVersion) {
      error = fmt::format("unsupported ring trace version {}", h.version);
      return false;
   }
   bool sane = h.ringBytes >= kMinRingBytes && (h.ringBytes & (h.ringBytes - 1)) == 0 &&
               h.siteAreaOffset >= sizeof(FileHeader) && h.siteAreaBytes <= (1u << 30) &&
               h.ringOffset >= h.siteAreaOffset + h.siteAreaBytes && h.ringBytes < (1ull << 40);
   if (!sane) error = "ring trace header is damaged";
   return sane;
}

std::unordered_map<std::uint16_t, SiteInfo> readSites(const Image& img) {
   std::unordered_map<std::uint16_t, SiteInfo> sites;
   const FileHeader& h = img.header;
   std::uint64_t end = std::min<std::uint64_t>(h.siteAreaBytes, h.siteBytesUsed.load());
   end = std::min<std::uint64_t>(end + h.siteAreaOffset, img.bytes.size());
   std::uint64_t at = h.siteAreaOffset;
   while (at + sizeof(SiteEntry) <= end) {
      auto e = load<SiteEntry>(img.bytes.data() + at);
      if (e.bytes < sizeof e || e.bytes % 8 || at + e.bytes > end) break;
      const char* p = reinterpret_cast<const char*>(img.bytes.data() + at + sizeof e);
      const char* stop = reinterpret_cast<const char*>(img.bytes.data() + at + e.bytes);
      SiteInfo s{{}, {}, e.level, {}};
      for (unsigned i = 0; i < e.argCount && p + 2 <= stop; ++i, p += 2)
         s.codes.push_back(load<std::uint16_t>(reinterpret_cast<const std::byte*>(p)));
      const char* handleEnd = static_cast<const char*>(std::memchr(p, 0, stop - p));
      if (s.codes.size() != e.argCount || !handleEnd) break;
      const char* formatEnd =
         static_cast<const char*>(std::memchr(handleEnd + 1, 0, stop - handleEnd - 1));
      if (!formatEnd) break;
      s.handle.assign(p, handleEnd);
      s.format.assign(handleEnd + 1, formatEnd);
      sites[static_cast<std::uint16_t>(e.index)] = std::move(s);
      at += e.bytes;
   }
   return sites;
}

// Decodes one argument into the store; false when the bytes run out or the type is unknown.
bool decodeArg(std::uint16_t code, const std::byte*& p, const std::byte* end,
               fmt::dynamic_format_arg_store<fmt::format_context>& args) {
   auto fixed = [&](std::size_t n) { return static_cast<std::size_t>(end - p) >= n; };
   auto take = [&](auto v) {
      if (!fixed(sizeof v)) return false;
      std::memcpy(&v, p, sizeof v);
      p += sizeof v;
      args.push_back(v);
      return true;
   };
   switch (code) {
      case kI8: return take(std::int8_t{});
      case kI16: return take(std::int16_t{});
      case kI32: return take(std::int32_t{});
      case kI64: return take(std::int64_t{});
      case kU8: return take(std::uint8_t{});
      case kU16: return take(std::uint16_t{});
      case kU32: return take(std::uint32_t{});
      case kU64: return take(std::uint64_t{});
      case kBool: return take(bool{});
      case kF64: return take(double{});
      case kStr: {
         if (!fixed(2)) return false;
         auto n = load<std::uint16_t>(p);
         if (!fixed(2u + n)) return false;
         args.push_back(std::string(reinterpret_cast<const char*>(p + 2), n));
         p += 2 + n;
         return true;
      }
      default: {
         Decoder d = decoderFor(code);
         if (!d.decode || !fixed(d.size)) return false;
         args.push_back(d.decode(p));
         p += d.size;
         return true;
      }
   }
}

std::string decodeText(const SiteInfo& site, const std::byte* p, const std::byte* end) {
   fmt::dynamic_format_arg_store<fmt::format_context> args;
   for (std::uint16_t code : site.codes) {
      if (!decodeArg(code, p, end, args))
         return fmt::format("{} [undecodable argument of type {}]", site.format, code);
   }
   try {
      return fmt::vformat(site.format, args);
   } catch (const fmt::format_error& e) {
      return fmt::format("{} [format error: {}]", site.format, e.what());
   }
}

// Walks the window of the last ringBytes written, oldest first.
void walk(const Image& img, std::uint64_t head, std::uint64_t oldest,
          const std::unordered_map<std::uint16_t, SiteInfo>& sites, Contents& out) {
   const FileHeader& h = img.header;
   const std::uint64_t size = h.ringBytes;
   const std::byte* ring = img.bytes.data() + h.ringOffset;
   const std::uint64_t have =
      img.bytes.size() > h.ringOffset ? img.bytes.size() - h.ringOffset : 0;
   std::uint64_t expect = 0; // next sequence number expected
   bool first = true;
   for (std::uint64_t pos = (oldest + 7) & ~7ull; pos + kRecordHeaderBytes <= head;) {
      std::uint64_t off = pos & (size - 1);
      if (size - off < kRecordHeaderBytes) {
         pos += size - off;
         continue;
      }
      if (off + kRecordHeaderBytes > have) break; // the rest of the file is missing
      auto rec = load<RecordHeader>(ring + off);
      auto site = static_cast<std::uint16_t>(rec.stamp >> 16);
      auto bytes = static_cast<std::uint16_t>(rec.stamp);
      if (static_cast<std::uint32_t>(rec.stamp >> 32) != posCheck(pos)) {
         pos += 8;
         continue;
      }
      if (site == kPadSite) {
         pos += size - off;
         continue;
      }
      bool whole = bytes >= kRecordHeaderBytes && bytes % 8 == 0 && off + bytes <= size &&
                   off + bytes <= have && pos + bytes <= head && (first || rec.seq >= expect);
      if (!whole) {
         pos += 8;
         continue;
      }
      if (first) out.overwritten = rec.seq;
      else out.damaged += rec.seq - expect;
      first = false;
      expect = rec.seq + 1;
      auto it = sites.find(site);
      Line line{rec.seq, "?", 0, {}};
      if (it == sites.end()) {
         line.text = fmt::format("[record of unknown message {}]", site);
      } else {
         line.handle = it->second.handle;
         line.level = it->second.level;
         line.text = decodeText(it->second, ring + off + kRecordHeaderBytes, ring + off + bytes);
      }
      out.lines.push_back(std::move(line));
      pos += bytes;
   }
   std::uint64_t next = h.nextSeq.load();
   if (first) out.overwritten = next; // nothing readable: every record is gone
   else if (next > expect) out.unfinished = next - expect;
}

bool readFile(const std::string& path, std::vector<std::byte>& bytes, std::string& error) {
   std::ifstream in(path, std::ios::binary);
   if (!in) {
      error = "cannot open " + path;
      return false;
   }
   std::vector<char> raw((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
   bytes.resize(raw.size());
   if (!raw.empty()) std::memcpy(bytes.data(), raw.data(), raw.size()); // null when empty
   return true;
}

} // namespace

bool read(const std::string& path, Contents& out, std::string& error) {
   Image img;
   if (!readFile(path, img.bytes, error) || !readHeader(img.bytes, img.header, error))
      return false;
   out = Contents{};
   out.truncated = img.bytes.size() < img.header.ringOffset + img.header.ringBytes;
   // A live writer may have moved on while the copy was made: records older than the
   // window seen after the copy may have been overwritten during it.
   std::uint64_t head = img.header.head.load();
   std::uint64_t headAfter = head;
   std::vector<std::byte> again;
   std::string ignored;
   FileHeader later;
   if (readFile(path, again, ignored) && readHeader(again, later, ignored))
      headAfter = std::max(head, later.head.load());
   std::uint64_t size = img.header.ringBytes;
   std::uint64_t oldest = headAfter > size ? headAfter - size : 0;
   walk(img, head, oldest, readSites(img), out);
   return true;
}

bool dump(const std::string& path, std::ostream& out, std::string* error) {
   Contents c;
   std::string why;
   if (!read(path, c, why)) {
      if (error) *error = why;
      return false;
   }
   if (c.truncated) out << "-- file is truncated; records past its end are missing --\n";
   if (c.overwritten) out << fmt::format("-- {} older records lost to wrap-around --\n", c.overwritten);
   for (const Line& l : c.lines)
      out << fmt::format("{} {}/{} {}\n", l.seq, l.handle, l.level, l.text);
   if (c.damaged) out << fmt::format("-- {} records lost to damage --\n", c.damaged);
   if (c.unfinished) out << fmt::format("-- {} records unfinished at the end --\n", c.unfinished);
   return true;
}

} // namespace Ringlog
