// Helpers for tests that make ring files and then damage or craft their bytes.
#pragma once
#include "Ringlog/Ringlog.h"

#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <span>
#include <string>
#include <unistd.h>
#include <vector>

namespace RinglogFiles {

// Per process: ctest runs the tests of one binary side by side.
inline std::string tmpPath(const std::string& name) {
   const char* dir = std::getenv("VELT_TEST_TMP");
   return std::string(dir ? dir : "/tmp") + "/" + std::to_string(::getpid()) + "-" + name;
}

inline std::vector<char> load(const std::string& path) {
   std::ifstream in(path, std::ios::binary);
   return {std::istreambuf_iterator<char>(in), {}};
}

inline void save(const std::string& path, const std::vector<char>& bytes, std::size_t size) {
   std::ofstream(path, std::ios::binary | std::ios::trunc).write(bytes.data(), size);
}

inline constexpr std::size_t kRingAt =
   Ringlog::layout::kHeaderBytes + Ringlog::layout::kSiteAreaBytes;

inline Ringlog::layout::FileHeader& header(std::vector<char>& bytes) {
   return *reinterpret_cast<Ringlog::layout::FileHeader*>(bytes.data());
}

// Makes the record at ring offset `off` (never wrapped, so its position is `off`) valid
// again after its bytes were changed: what a crafted file can always do.
inline void restamp(std::vector<char>& bytes, std::size_t off) {
   auto* words = reinterpret_cast<std::uint64_t*>(bytes.data() + kRingAt + off);
   auto site = static_cast<std::uint16_t>(words[1] >> 16);
   auto size = static_cast<std::uint16_t>(words[1]);
   Ringlog::layout::Check check(off, site, size);
   for (std::size_t i = 0; i < size / 8u; ++i)
      if (i != 1) check.add(words[i]);
   words[1] = check.stamp(site, size);
}

inline Ringlog::Contents decode(const std::vector<char>& bytes, std::string& error) {
   Ringlog::Contents c;
   if (!Ringlog::decode(std::as_bytes(std::span(bytes)), c, error)) c.lines.clear();
   return c;
}

} // namespace RinglogFiles
