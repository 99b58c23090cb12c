// velt-ringlog: prints a Ringlog file as text, oldest line first. Value types of the
// library are decoded because this tool links the library that registers their codecs.
#include "Ringlog/Ringlog.h"

#include <cstdio>
#include <cstring>
#include <iostream>

namespace {

constexpr const char* kUsage =
   "usage: velt-ringlog <ring-file>\n"
   "Prints the binary trace lines of a ring file, oldest first, as\n"
   "  <seq> <handle>/<level> <text>\n"
   "with notes for records lost to wrap-around, truncation, damage or an unfinished\n"
   "write. A damaged or crafted file is read record by record; what is unreadable is\n"
   "counted, never printed.\n"
   "Exit status: 0 printed, 1 the file is not a readable ring file, 2 bad usage.\n";

} // namespace

int main(int argc, char** argv) {
   if (argc == 2 && (!std::strcmp(argv[1], "--help") || !std::strcmp(argv[1], "-h"))) {
      std::fputs(kUsage, stdout);
      return 0;
   }
   if (argc != 2 || argv[1][0] == '-') {
      std::fputs(kUsage, stderr);
      return 2;
   }
   std::string error;
   if (!Ringlog::dump(argv[1], std::cout, &error)) {
      std::fprintf(stderr, "velt-ringlog: %s: %s\n", argv[1], error.c_str());
      return 1;
   }
   return 0;
}
