// Ringlog: the fast binary trace. Each call site sets up its message identity once; the hot
// path copies only the site index and the raw argument bytes into a memory-mapped ring file
// that overwrites its oldest records when full. Text is made later by Ringlog::dump, in
// this process or another one (the velt-ringlog tool). With no file open a call costs one
// relaxed load and a branch.
#pragma once
#include "Pelin/Threading.h"
#include "Ringlog/Codec.h"
#include "Ringlog/Layout.h"

#include <array>
#include <atomic>
#include <bit>
#include <cstring>
#include <cstdint>
#include <iosfwd>
#include <span>
#include <string>
#include <vector>

namespace Ringlog {

// Creates (or truncates) the ring file at `path` with a ring of at least `bytes` bytes
// (rounded up to a power of two) and starts recording; closes a file already open.
// Returns false and fills `error` when the file cannot be made.
bool open(const std::string& path, std::size_t bytes, std::string* error = nullptr);
// Stops recording and unmaps the file. No thread may be writing a record meanwhile.
void close();

// One call site's message identity, made on its first use.
struct Site {
   // `registerCodecs` makes the decoders of the site's codec types known to this process.
   Site(std::string handle, int level, const char* format, const std::uint16_t* codes,
        std::uint16_t argCount, void (*registerCodecs)());
   Site(const Site&) = delete;
   std::string handle;
   std::string format;
   int level;
   const std::uint16_t* codes;
   std::uint16_t argCount;
   std::uint16_t index;
};

// One decoded record.
struct Line {
   std::uint64_t seq;
   std::string handle;
   int level;
   std::string text;
};

// What a ring file held.
struct Contents {
   std::vector<Line> lines;       // oldest first
   std::uint64_t overwritten = 0; // records lost to wrap-around before the oldest line
   std::uint64_t cutOff = 0;      // records lost because the file ends early
   std::uint64_t overwrittenOrCutOff = 0; // older records lost to either; the file cannot tell
   std::uint64_t damaged = 0;     // records lost inside the window (torn or garbage)
   std::uint64_t unfinished = 0;  // records reserved but never completed at the end
   bool truncated = false;        // the file is shorter than its header says
   bool sitesDamaged = false;     // some message descriptions were unreadable
};

// Reads a ring file; false with `error` set when it is not one.
bool read(const std::string& path, Contents& out, std::string& error);
// Decodes the bytes of a ring file held in memory; every byte may be hostile.
bool decode(std::span<const std::byte> file, Contents& out, std::string& error);
// Prints decoded contents as text lines, oldest first, with notes where records were lost.
void print(const Contents& contents, std::ostream& out);
// Reads and prints a ring file.
bool dump(const std::string& path, std::ostream& out, std::string* error = nullptr);

namespace detail {

struct Ring {
   std::byte* ring;
   std::uint64_t mask;
   layout::FileHeader* header;
   std::atomic_flag busy; // reservation lock, used only in multi-threaded mode
};
extern std::atomic<Ring*> gRing;

struct Slot {
   std::byte* at;
   std::uint64_t pos;
   std::uint64_t seq;
};

// Claims `bytes` at the ring's head, padding out the lap when they do not fit before its
// end. The caller makes it exclusive: one thread, or the ring's lock.
inline Slot claim(Ring& r, std::size_t bytes) {
   layout::FileHeader& h = *r.header;
   std::uint64_t pos = h.head.load(std::memory_order_relaxed);
   std::uint64_t off = pos & r.mask;
   std::uint64_t room = r.mask + 1 - off;
   if (room < bytes) [[unlikely]] {
      if (room >= layout::kRecordHeaderBytes) {
         auto* pad = reinterpret_cast<layout::RecordHeader*>(r.ring + off);
         std::atomic_ref<std::uint64_t>(pad->stamp).store(layout::padStamp(pos),
                                                          std::memory_order_release);
      }
      pos += room;
      off = 0;
   }
   h.head.store(pos + bytes, std::memory_order_relaxed);
   std::uint64_t seq = h.nextSeq.load(std::memory_order_relaxed);
   h.nextSeq.store(seq + 1, std::memory_order_relaxed);
   return {r.ring + off, pos, seq};
}
Slot reserveLocked(Ring& r, std::size_t bytes);

inline Slot reserve(Ring& r, std::size_t bytes) {
   if (Pelin::multiThreaded()) return reserveLocked(r, bytes);
   return claim(r, bytes);
}

// Streams a record's payload into its slot in whole words: atomic stores, because a
// lapping writer may store into the same words, each word also fed to the record's check.
// Built in registers, so nothing is stored and loaded back on the way.
class WordSink {
 public:
   WordSink(std::uint64_t* out, layout::Check check) : out_(out), check_(check) {}
   const layout::Check& check() const { return check_; }
   // The low `bytes` (1 to 8) bytes of `v`; its higher bytes are zero.
   [[gnu::always_inline]] void put(std::uint64_t v, unsigned bytes) {
      acc_ |= v << (8 * fill_);
      unsigned room = 8 - fill_;
      if (bytes < room) {
         fill_ += bytes;
         return;
      }
      emit(acc_);
      acc_ = room == 8 ? 0 : v >> (8 * room);
      fill_ = bytes - room;
   }
   [[gnu::always_inline]] void putBytes(const std::byte* p, std::size_t n) {
      for (; n >= 8; p += 8, n -= 8) put(load<std::uint64_t>(p), 8);
      if (n >= 4) { // two overlapping loads cover 4 to 7 bytes
         put(load<std::uint32_t>(p) | std::uint64_t{load<std::uint32_t>(p + n - 4)} << 8 * (n - 4),
             static_cast<unsigned>(n));
      } else if (n) {
         put(std::uint64_t(p[0]) | std::uint64_t(p[n / 2]) << 8 * (n / 2) |
                std::uint64_t(p[n - 1]) << 8 * (n - 1),
             static_cast<unsigned>(n));
      }
   }
   void finish() {
      if (fill_) emit(acc_);
   }

 private:
   template <typename T>
   static T load(const std::byte* p) {
      T v;
      std::memcpy(&v, p, sizeof v);
      return v;
   }
   [[gnu::always_inline]] void emit(std::uint64_t w) {
      check_.add(w);
      std::atomic_ref<std::uint64_t>(*out_++).store(w, std::memory_order_relaxed);
   }
   std::uint64_t* out_;
   layout::Check check_;
   std::uint64_t acc_ = 0;
   unsigned fill_ = 0;
};
static_assert(std::endian::native == std::endian::little, "records are little-endian");

template <typename... A>
void write(const Site& site, const A&... args) {
   Ring* r = gRing.load(std::memory_order_acquire);
   if (!r) return;
   static_assert(layout::kRecordHeaderBytes + (Arg<A>::maxSize + ... + 7) <=
                 layout::kMaxRecordBytes);
   std::size_t payload = 0;
   ((payload += Arg<A>::size(args)), ...);
   auto bytes = static_cast<std::uint16_t>(layout::kRecordHeaderBytes + (payload + 7) / 8 * 8);
   Slot s = reserve(*r, bytes);
   layout::Check check(s.pos, site.index, bytes);
   check.add(s.seq);
   auto* words = reinterpret_cast<std::uint64_t*>(s.at);
   std::atomic_ref<std::uint64_t>(words[0]).store(s.seq, std::memory_order_relaxed);
   WordSink sink(words + 2, check);
   (Arg<A>::put(sink, args), ...);
   sink.finish();
   // The stamp last: a reader that sees it (acquire) sees the words before it.
   std::atomic_ref<std::uint64_t>(words[1]).store(sink.check().stamp(site.index, bytes),
                                                  std::memory_order_release);
}

template <typename... A>
inline constexpr std::array<std::uint16_t, sizeof...(A) + 1> codesOf{Arg<A>::code()..., 0};

template <typename T>
void registerIfCodec() {
   if constexpr (Arg<T>::codec) registerCodec<T>();
}
template <typename... A>
void registerCodecs() {
   (registerIfCodec<A>(), ...);
}

// One function-local site per call site: Tag is a lambda type unique to the call site.
template <typename Tag, typename... A>
void log(Tag, const char* handle, int level, const char* format, const A&... args) {
   static const Site site(handle, level, format, codesOf<std::decay_t<const A&>...>.data(),
                          sizeof...(A), &registerCodecs<std::decay_t<const A&>...>);
   write(site, static_cast<const std::decay_t<const A&>&>(args)...);
}

} // namespace detail

inline bool isOpen() { return detail::gRing.load(std::memory_order_relaxed) != nullptr; }

} // namespace Ringlog

// One binary trace line: VELT_RINGLOG("NHResolver", 3, "Step: {}", name).
#define VELT_RINGLOG(handle, level, format, ...)                                         \
   do {                                                                                  \
      if (::Ringlog::isOpen()) [[unlikely]]                                              \
         ::Ringlog::detail::log([] {}, handle, level, format __VA_OPT__(, ) __VA_ARGS__); \
   } while (0)
