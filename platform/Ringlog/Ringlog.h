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
   std::uint64_t damaged = 0;     // records lost inside the window (torn or garbage)
   std::uint64_t unfinished = 0;  // records reserved but never completed at the end
   bool truncated = false;        // the file is shorter than its header says
};

// Reads a ring file; false with `error` set when it is not one.
bool read(const std::string& path, Contents& out, std::string& error);
// Prints a ring file as text lines, oldest first, with notes where records were lost.
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
Slot reserveLocked(Ring& r, std::size_t bytes);

inline Slot reserve(Ring& r, std::size_t bytes) {
   if (Pelin::multiThreaded()) return reserveLocked(r, bytes);
   layout::FileHeader& h = *r.header;
   std::uint64_t pos = h.head.load(std::memory_order_relaxed);
   std::uint64_t off = pos & r.mask;
   std::uint64_t room = r.mask + 1 - off;
   if (room < bytes) [[unlikely]] {
      if (room >= layout::kRecordHeaderBytes) {
         auto* pad = reinterpret_cast<layout::RecordHeader*>(r.ring + off);
         std::atomic_ref<std::uint64_t>(pad->stamp).store(
            layout::stampOf(pos, layout::kPadSite, 0), std::memory_order_release);
      }
      pos += room;
      off = 0;
   }
   h.head.store(pos + bytes, std::memory_order_relaxed);
   std::uint64_t seq = h.nextSeq.load(std::memory_order_relaxed);
   h.nextSeq.store(seq + 1, std::memory_order_relaxed);
   return {r.ring + off, pos, seq};
}

template <typename... A>
void write(const Site& site, const A&... args) {
   Ring* r = gRing.load(std::memory_order_acquire);
   if (!r) return;
   std::size_t bytes = layout::kRecordHeaderBytes;
   ((bytes += Arg<A>::size(args)), ...);
   bytes = (bytes + 7) & ~std::size_t{7};
   Slot s = reserve(*r, bytes);
   [[maybe_unused]] std::byte* out = s.at + layout::kRecordHeaderBytes;
   ((out = Arg<A>::encode(out, args)), ...);
   auto* rec = reinterpret_cast<layout::RecordHeader*>(s.at);
   rec->seq = s.seq;
   std::atomic_ref<std::uint64_t>(rec->stamp).store(
      layout::stampOf(s.pos, site.index, static_cast<std::uint16_t>(bytes)),
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
