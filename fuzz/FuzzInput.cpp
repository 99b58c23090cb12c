#include "FuzzInput.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>

namespace Fuzz {

namespace {

struct Scratch {
   Scratch() {
      const char* tmp = std::getenv("TMPDIR");
      std::string pattern = std::string(tmp ? tmp : "/tmp") + "/velt-fuzz-XXXXXX";
      if (!mkdtemp(pattern.data())) {
         std::perror("velt fuzz: mkdtemp");
         std::abort();
      }
      path = pattern;
   }
   ~Scratch() {
      std::error_code ignored;
      std::filesystem::remove_all(path, ignored);
   }
   std::string path;
};

} // namespace

const std::string& scratchDir() {
   static Scratch scratch;
   return scratch.path;
}

void writeFile(const std::string& path, Input bytes) {
   std::ofstream out(path, std::ios::binary | std::ios::trunc);
   out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
   if (!out) finding("cannot write scratch file", path);
}

std::vector<std::uint8_t> readFile(const std::string& path) {
   std::ifstream in(path, std::ios::binary);
   return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

void overlay(std::vector<std::uint8_t>& file, Input edits) {
   if (file.empty()) return;
   Bytes b(edits);
   while (!b.empty()) {
      const std::uint32_t offset = b.take<std::uint32_t>();
      std::size_t at = offset % file.size();
      for (std::uint8_t n = b.byte(); n > 0 && !b.empty() && at < file.size(); --n, ++at) {
         file[at] = b.byte();
      }
   }
}

std::string Bytes::text(std::size_t max) {
   const std::size_t n = std::min(max, in_.size());
   std::string s(reinterpret_cast<const char*>(in_.data()), n);
   in_ = in_.subspan(n);
   return s;
}

void finding(std::string_view what, std::string_view detail) {
   std::fprintf(stderr, "velt fuzz finding: %.*s: %.*s\n", int(what.size()), what.data(),
                int(detail.size()), detail.data());
   std::abort();
}

std::span<const Target> targets() {
   static const Target all[] = {
       {"netlink", netlink},         {"stateFile", stateFile}, {"layoutFile", layoutFile},
       {"pcap", pcap},               {"ringlog", ringlog},     {"valueText", valueText},
       {"trace", trace},             {"sharedTable", sharedTable},
   };
   return all;
}

} // namespace Fuzz
