// Small record types for the table tests: values carry a check word derived from their
// payload, so a torn copy is recognisable.
#pragma once
#include <cstdint>
#include <cstdlib>
#include <string>

namespace TableTest {

struct Key {
   std::uint32_t a;
   std::uint32_t b;
};

struct Value {
   std::uint64_t payload[5];
   std::uint64_t check;

   static Value of(std::uint64_t seed) {
      Value v{};
      for (int i = 0; i < 5; ++i) v.payload[i] = seed * 0x9e3779b97f4a7c15ull + i;
      v.check = v.sum();
      return v;
   }
   std::uint64_t sum() const {
      std::uint64_t s = 0;
      for (auto p : payload) s = s * 31 + p;
      return s;
   }
   bool intact() const { return check == sum(); }
};

// A fresh file path under the test build's scratch directory.
inline std::string scratchPath(const std::string& name) {
   const char* dir = std::getenv("VELT_TEST_TMP");
   return std::string(dir ? dir : "/tmp") + "/" + name;
}

} // namespace TableTest
