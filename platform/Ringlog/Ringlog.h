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

// Copies an encoded record into its slot with atomic word stores (a lapping writer may
// store into the same words) and stores the stamp, with its check, last.
inline void commit(const Slot& s, std::uint16_t site, std::uint16_t bytes,
                   const std::uint64_t* payload) {
   layout::Check check(s.pos, site, bytes);
   check.add(s.seq);
   auto* words = reinterpret_cast<std::uint64_t*>(s.at);
   std::atomic_ref<std::uint64_t>(words[0]).store(s.seq, std::memory_order_relaxed);
   std::size_t n = (bytes - layout::kRecordHeaderBytes) / 8;
   for (std::size_t i = 0; i < n; ++i) {
      check.add(payload[i]);
      std::atomic_ref<std::uint64_t>(words[2 + i]).store(payload[i], std::memory_order_relaxed);
   }
   std::atomic_ref<std::uint64_t>(words[1]).store(check.stamp(site, bytes),
                                                  std::memory_order_release);
}

template <typename... A>
void write(const Site& site, const A&... args) {
   Ring* r = gRing.load(std::memory_order_acquire);
   if (!r) return;
   constexpr std::size_t kMaxWords = ((Arg<A>::maxSize + ... + 0) + 7) / 8;
   static_assert(layout::kRecordHeaderBytes + 8 * kMaxWords <= layout::kMaxRecordBytes);
   std::size_t payload = 0;
   ((payload += Arg<A>::size(args)), ...);
   std::size_t words = (payload + 7) / 8;
   // Encoded on the stack first: the ring is only ever stored to in whole atomic words.
   std::uint64_t buf[kMaxWords ? kMaxWords : 1];
   if (words) buf[words - 1] = 0; // the padding bytes are checked too
   [[maybe_unused]] std::byte* out = reinterpret_cast<std::byte*>(buf);
   ((out = Arg<A>::encode(out, args)), ...);
   auto bytes = static_cast<std::uint16_t>(layout::kRecordHeaderBytes + 8 * words);
   commit(reserve(*r, bytes), site.index, bytes, buf);
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
