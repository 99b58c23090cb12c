// A private directory per test process for table files, removed with everything in it
// when the test ends, passed or failed.
#pragma once
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <string>

namespace ShmTest {

class ScratchDir {
 public:
   // Under $VELT_TEST_TMP (or /tmp); the pid keeps concurrent test processes apart.
   explicit ScratchDir(const std::string& name) {
      const char* root = std::getenv("VELT_TEST_TMP");
      path_ = std::string(root && *root ? root : "/tmp") + "/shm-" + name + "-" +
              std::to_string(::getpid());
      std::filesystem::remove_all(path_);
      std::filesystem::create_directories(path_);
      ::chmod(path_.c_str(), 0700);
   }
   ~ScratchDir() {
      std::error_code ignored;
      std::filesystem::remove_all(path_, ignored);
   }
   ScratchDir(const ScratchDir&) = delete;
   ScratchDir& operator=(const ScratchDir&) = delete;

   const std::string& path() const { return path_; }
   // The common prefix of one table's files, "<dir>/<name>".
   std::string base(const std::string& name) const { return path_ + "/" + name; }

 private:
   std::string path_;
};

} // namespace ShmTest
