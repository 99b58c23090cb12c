// A ring-trace file: either the input itself, or (more often, as it reaches deeper) a valid
// file written here once, with records of every argument kind, whose bytes the input
// overwrites. Either way it is decoded and printed as `velt ringlog` does, from memory.
#include "FuzzInput.h"

#include "Lumo/IpGenAddr.h"
#include "Ringlog/Layout.h"
#include "Ringlog/Ringlog.h"

#include <span>
#include <sstream>
#include <string>

namespace Fuzz {

namespace {

std::vector<std::uint8_t> validRing() {
   const std::string path = scratchDir() + "/valid.ring";
   std::string error;
   if (!Ringlog::open(path, Ringlog::layout::kMinRingBytes, &error)) finding("ring", error);
   const std::string text = "a string";
   for (int i = 0; i < 3; ++i) {
      VELT_RINGLOG("Ints", 4, "{} {} {} {:x}", std::int8_t{-5}, std::int16_t{-300}, i,
                   ~std::uint64_t{0});
      VELT_RINGLOG("Misc", 0, "{} {} {}", i == 1, 2.5, 'A');
      VELT_RINGLOG("Strings", 9, "[{}] [{}]", text, "literal");
      VELT_RINGLOG("NoArgs", 3, "plain");
   }
   Ringlog::close();
   return readFile(path);
}

} // namespace

void ringlog(Input in) {
   static const std::vector<std::uint8_t> valid = validRing();
   std::vector<std::uint8_t> file;
   if (!in.empty() && in[0] == 'R') {
      file.assign(in.begin() + 1, in.end());
   } else {
      file = valid;
      overlay(file, in);
   }
   Ringlog::Contents contents;
   std::string error;
   if (Ringlog::decode(std::as_bytes(std::span(file)), contents, error)) {
      std::ostringstream text;
      Ringlog::print(contents, text);
   }
}

} // namespace Fuzz
