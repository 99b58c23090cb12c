// A tmpfs of a few pages mounted for one test, to fill up on purpose; tests skip with the
// reason when this process may not mount one.
#pragma once
#include <sys/mount.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <string>

namespace ShmTest {

class SmallFileSystem {
 public:
   SmallFileSystem(const std::string& at, std::size_t bytes) : path_(at) {
      std::filesystem::create_directories(at);
      const std::string options = "size=" + std::to_string(bytes) + ",mode=0700";
      if (::mount("tmpfs", at.c_str(), "tmpfs", 0, options.c_str()) == 0) {
         mounted_ = true;
      } else {
         reason_ = std::string("cannot mount a tmpfs here: ") + std::strerror(errno);
      }
   }
   ~SmallFileSystem() {
      if (mounted_) ::umount2(path_.c_str(), MNT_DETACH);
      std::error_code ignored;
      std::filesystem::remove_all(path_, ignored);
   }
   SmallFileSystem(const SmallFileSystem&) = delete;
   SmallFileSystem& operator=(const SmallFileSystem&) = delete;

   bool mounted() const { return mounted_; }
   const std::string& whyNot() const { return reason_; }
   const std::string& path() const { return path_; }

 private:
   std::string path_;
   bool mounted_ = false;
   std::string reason_;
};

} // namespace ShmTest
