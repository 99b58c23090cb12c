// Helpers for the tool tests: scratch file paths and running a built tool.
#pragma once
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>
#include <sys/wait.h>
#include <vector>

namespace ToolTest {

// A path in the test scratch directory; the name should be unique to the test.
inline std::string tmpPath(const std::string& name) {
   const char* dir = std::getenv("VELT_TEST_TMP");
   return std::string(dir ? dir : "/tmp") + "/" + name;
}

inline std::vector<char> fileBytes(const std::string& path) {
   std::ifstream in(path, std::ios::binary);
   return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

struct Run {
   int status = -1;    // exit status, or -1 when the program did not exit normally
   std::string output; // stdout and stderr together
};

// Runs `program args` through the shell; args are passed as written.
inline Run run(const std::string& program, const std::string& args) {
   Run r;
   FILE* f = popen((program + " " + args + " 2>&1").c_str(), "r");
   if (!f) return r;
   char buf[512];
   while (std::size_t n = std::fread(buf, 1, sizeof(buf), f))
      r.output.append(buf, n);
   const int status = pclose(f);
   if (WIFEXITED(status)) r.status = WEXITSTATUS(status);
   return r;
}

} // namespace ToolTest
