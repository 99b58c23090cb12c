#include "Trace/Trace.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <mutex>

std::uint32_t velt_trace_verbose_bitmap = 0;

namespace Trace {

namespace detail {
std::atomic<int> gLevelsOn{0};
}

namespace {

struct Registry {
   std::mutex mutex;
   std::vector<Handle*> handles;
   Config config;
   bool rulesOn = false; // counted in detail::gLevelsOn
   Sink sink;
};

std::vector<std::string> load(Registry& r, std::string_view text) {
   r.config = parse(text);
   const bool rulesOn = std::any_of(r.config.rules.begin(), r.config.rules.end(),
                                    [](const Rule& rule) { return rule.levels != 0; });
   if (rulesOn != r.rulesOn) {
      detail::gLevelsOn.fetch_add(rulesOn ? 1 : -1, std::memory_order_relaxed);
      r.rulesOn = rulesOn;
   }
   for (const std::string& e : r.config.errors) std::fprintf(stderr, "TRACE: %s\n", e.c_str());
   return r.config.errors;
}

Registry& registry() {
   static Registry* r = [] {
      auto* reg = new Registry; // outlives static handles of other units
      const char* env = std::getenv("TRACE");
      load(*reg, env ? env : "");
      return reg;
   }();
   return *r;
}

std::vector<std::string> apply(std::string_view text) {
   Registry& r = registry();
   std::lock_guard lock(r.mutex);
   auto errors = load(r, text);
   for (Handle* h : r.handles) h->levelsIs(levelsFor(r.config, h->name()));
   return errors;
}

} // namespace

Handle::Handle(std::string name) : name_(std::move(name)) {
   std::size_t colons = name_.rfind("::");
   shortAt_ = colons == std::string::npos ? 0 : colons + 2;
   Registry& r = registry();
   std::lock_guard lock(r.mutex);
   levelsIs(levelsFor(r.config, name_));
   r.handles.push_back(this);
}

Handle::~Handle() {
   Registry& r = registry();
   std::lock_guard lock(r.mutex);
   std::erase(r.handles, this);
   levelsIs(0);
}

void Handle::emit(int level, std::string_view text) const {
   Registry& r = registry();
   std::unique_lock lock(r.mutex);
   if (r.sink) {
      Sink sink = r.sink;
      lock.unlock();
      sink(*this, level, text);
      return;
   }
   lock.unlock();
   fmt::memory_buffer line;
   fmt::format_to(std::back_inserter(line), "{}/{} {}\n", name_, level, text);
   std::fwrite(line.data(), 1, line.size(), stderr);
}

std::vector<std::string> reread() {
   const char* env = std::getenv("TRACE");
   return apply(env ? env : "");
}

std::vector<std::string> configIs(std::string_view text) { return apply(text); }

void sinkIs(Sink sink) {
   Registry& r = registry();
   std::lock_guard lock(r.mutex);
   r.sink = std::move(sink);
}

Capture::Capture() {
   sinkIs([this](const Handle& h, int level, std::string_view text) {
      lines_.push_back(fmt::format("{}/{} {}", h.name(), level, text));
   });
}

Capture::~Capture() { sinkIs({}); }

} // namespace Trace
