// Helpers shared by the fuzz targets: a scratch folder for parsers that read files, byte
// overwrites of a valid file, a reader that turns input bytes into values, and the way a
// target reports a finding that is no crash.
#pragma once
#include "FuzzTargets.h"

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace Fuzz {

// A folder of this process's own, removed at exit.
const std::string& scratchDir();
void writeFile(const std::string& path, Input bytes);
std::vector<std::uint8_t> readFile(const std::string& path);

// Applies `edits` to `file`: runs of [offset: 4 bytes LE][count: 1 byte][count bytes], the
// offset taken modulo the file's size, so that every edit lands inside the file and the
// structure around it stays valid.
void overlay(std::vector<std::uint8_t>& file, Input edits);

// Takes values off the front of an input; past its end every value is 0.
class Bytes {
 public:
   explicit Bytes(Input in) : in_(in) {}
   template <typename T>
   T take() {
      T v{};
      for (std::size_t i = 0; i < sizeof(T); ++i) v = static_cast<T>(v << 8 | byte());
      return v;
   }
   std::uint8_t byte() {
      if (in_.empty()) return 0;
      const std::uint8_t b = in_.front();
      in_ = in_.subspan(1);
      return b;
   }
   // Up to `max` bytes as text.
   std::string text(std::size_t max);
   Input rest() const { return in_; }
   bool empty() const { return in_.empty(); }

 private:
   Input in_;
};

// Reports a broken promise (a round trip that does not hold) and aborts, as a crash would.
[[noreturn]] void finding(std::string_view what, std::string_view detail);

} // namespace Fuzz
