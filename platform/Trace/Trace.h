// Text trace handles: a named handle with levels 0..9 chosen by the TRACE environment
// variable (syntax in platform/Trace/README.md). A line is formatted only when its level is
// on for the handle; lines go to stderr unless a sink is installed.
#pragma once
#include <fmt/format.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

// Bit 0: dump the next hop after every resolution step.
extern "C" std::uint32_t velt_trace_verbose_bitmap;

namespace Trace {

constexpr int kMaxLevel = 9;

namespace detail {
// How many handles have some level on, plus one while a rule of the TRACE setting turns
// some level on (for the handles made later). While it is 0 nothing can be written to a
// text handle, and the trace macros skip even naming their handle.
extern std::atomic<int> gLevelsOn;
} // namespace detail

// True while some handle has some level on, or the TRACE setting could give it one.
inline bool anyLevelOn() { return detail::gLevelsOn.load(std::memory_order_relaxed) != 0; }

class Handle {
 public:
   // Takes its levels from the current TRACE setting and follows later re-reads.
   explicit Handle(std::string name);
   ~Handle();
   Handle(const Handle&) = delete;
   Handle& operator=(const Handle&) = delete;

   const std::string& name() const { return name_; }
   // The name after the last "::", used to label the handle's binary trace lines.
   const char* shortName() const { return name_.c_str() + shortAt_; }

   bool enabled(int level) const {
      return (levels_.load(std::memory_order_relaxed) >> level) & 1u;
   }
   bool anyEnabled() const { return levels_.load(std::memory_order_relaxed) != 0; }
   std::uint32_t levels() const { return levels_.load(std::memory_order_relaxed); }
   // Overrides the levels (bit n = level n) until the next re-read of TRACE.
   void levelsIs(std::uint32_t mask) {
      const std::uint32_t old = levels_.exchange(mask, std::memory_order_relaxed);
      if ((old == 0) != (mask == 0)) {
         detail::gLevelsOn.fetch_add(mask ? 1 : -1, std::memory_order_relaxed);
      }
   }

   // Formats and emits unconditionally; callers check enabled() first.
   template <typename... A>
   void write(int level, fmt::format_string<A...> format, A&&... args) const {
      fmt::memory_buffer buf;
      fmt::format_to(std::back_inserter(buf), format, std::forward<A>(args)...);
      emit(level, std::string_view(buf.data(), buf.size()));
   }
   void emit(int level, std::string_view text) const;

 private:
   std::string name_;
   std::size_t shortAt_;
   std::atomic<std::uint32_t> levels_{0};
};

// One parsed TRACE entry: handles matching `pattern` get `levels`.
struct Rule {
   std::string pattern;
   std::uint32_t levels;
};
struct Config {
   std::vector<Rule> rules;
   std::vector<std::string> errors; // one text per entry that was ignored
};
Config parse(std::string_view text);
// The levels `config` gives a handle named `name` (the last matching rule wins).
std::uint32_t levelsFor(const Config& config, std::string_view name);
bool matches(std::string_view pattern, std::string_view name);

// Re-reads TRACE and applies it to every handle; bad entries are reported on stderr and
// returned.
std::vector<std::string> reread();
// Applies `text` as if it were the value of TRACE (does not change the environment).
std::vector<std::string> configIs(std::string_view text);

// Where lines go; an empty sink restores stderr.
using Sink = std::function<void(const Handle&, int level, std::string_view text)>;
void sinkIs(Sink sink);

// Collects lines for a test while it lives, each as "<handle>/<level> <text>".
class Capture {
 public:
   Capture();
   ~Capture();
   const std::vector<std::string>& lines() const { return lines_; }
   void clear() { lines_.clear(); }

 private:
   std::vector<std::string> lines_;
};

} // namespace Trace
