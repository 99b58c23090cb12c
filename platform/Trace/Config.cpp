// The TRACE syntax: entries separated by ',', each "pattern[/levels]".
#include "Trace/Trace.h"

namespace Trace {

namespace {

std::string_view trim(std::string_view s) {
   while (!s.empty() && (s.front() == ' ' || s.front() == '\t')) s.remove_prefix(1);
   while (!s.empty() && (s.back() == ' ' || s.back() == '\t')) s.remove_suffix(1);
   return s;
}

bool isLevel(char c) { return c >= '0' && c <= '0' + kMaxLevel; }

// "3", "0-9", "1-3+7"; empty means all levels off. False on anything else.
bool parseLevels(std::string_view text, std::uint32_t& mask) {
   mask = 0;
   while (!text.empty()) {
      std::size_t plus = text.find('+');
      std::string_view item = text.substr(0, plus);
      text = plus == std::string_view::npos ? std::string_view() : text.substr(plus + 1);
      if (plus != std::string_view::npos && text.empty()) return false;
      bool single = item.size() == 1 && isLevel(item[0]);
      bool range = item.size() == 3 && isLevel(item[0]) && item[1] == '-' &&
                   isLevel(item[2]) && item[0] <= item[2];
      if (!single && !range) return false;
      for (char c = item[0]; c <= item.back(); ++c) mask |= 1u << (c - '0');
   }
   return true;
}

} // namespace

Config parse(std::string_view text) {
   Config config;
   while (!text.empty()) {
      std::size_t comma = text.find(',');
      std::string_view entry = trim(text.substr(0, comma));
      text = comma == std::string_view::npos ? std::string_view() : text.substr(comma + 1);
      if (entry.empty()) continue;
      std::size_t slash = entry.find('/');
      std::string_view pattern = trim(entry.substr(0, slash));
      std::uint32_t levels = (1u << (kMaxLevel + 1)) - 1;
      bool ok = !pattern.empty();
      if (ok && slash != std::string_view::npos)
         ok = parseLevels(trim(entry.substr(slash + 1)), levels);
      if (ok) config.rules.push_back({std::string(pattern), levels});
      else config.errors.push_back(fmt::format("ignoring bad entry '{}'", entry));
   }
   return config;
}

bool matches(std::string_view pattern, std::string_view name) {
   // On a mismatch, let the last '*' swallow one more character and retry.
   std::size_t p = 0, n = 0, star = std::string_view::npos, mark = 0;
   while (n < name.size()) {
      if (p < pattern.size() && pattern[p] == '*') {
         star = p++;
         mark = n;
      } else if (p < pattern.size() && pattern[p] == name[n]) {
         ++p;
         ++n;
      } else if (star != std::string_view::npos) {
         p = star + 1;
         n = ++mark;
      } else {
         return false;
      }
   }
   while (p < pattern.size() && pattern[p] == '*') ++p;
   return p == pattern.size();
}

std::uint32_t levelsFor(const Config& config, std::string_view name) {
   std::uint32_t levels = 0;
   for (const Rule& r : config.rules)
      if (matches(r.pattern, name)) levels = r.levels;
   return levels;
}

} // namespace Trace
