#include "Shm/TableSet.h"

#include "Pelin/Exception.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fmt/format.h>
#include <vector>

namespace Shm {

namespace {

constexpr std::string_view kSetPrefix = "set-";

// N of a "set-N" name, or 0 for any other name.
unsigned long setNumber(std::string_view name) {
   if (!name.starts_with(kSetPrefix) || name.size() == kSetPrefix.size() ||
       name.size() > kSetPrefix.size() + 18) {
      return 0;
   }
   unsigned long n = 0;
   for (char c : name.substr(kSetPrefix.size())) {
      if (c < '0' || c > '9') return 0;
      n = n * 10 + static_cast<unsigned long>(c - '0');
   }
   return n;
}

std::optional<std::string> linkTarget(const std::string& dir) {
   char target[256];
   const std::string link = dir + "/" + currentLinkName;
   const ssize_t n = ::readlink(link.c_str(), target, sizeof target);
   if (n < 0) {
      if (errno == ENOENT) return std::nullopt;
      throw Pelin::Exception(fmt::format("table directory {}: cannot read {}: {}", dir,
                                         link, std::strerror(errno)));
   }
   std::string name(target, static_cast<std::size_t>(n));
   if (static_cast<std::size_t>(n) == sizeof target || setNumber(name) == 0) {
      throw Pelin::Exception(fmt::format(
          "table directory {}: {} names {}, not a set of tables", dir, link, name));
   }
   return name;
}

// Every "set-N" in `dir` but those named in `keep`.
void removeSetsBut(const std::string& dir, const std::vector<std::string>& keep) {
   std::error_code ec;
   for (const auto& entry : std::filesystem::directory_iterator(dir, ec)) {
      const std::string name = entry.path().filename().string();
      if (setNumber(name) == 0 ||
          std::find(keep.begin(), keep.end(), name) != keep.end()) {
         continue;
      }
      std::filesystem::remove_all(entry.path(), ec);
   }
}

} // namespace

std::optional<std::string> publishedSet(const std::string& dir) {
   auto name = linkTarget(dir);
   if (!name) return std::nullopt;
   return dir + "/" + *name;
}

TableSet::TableSet(const std::string& dir) : dir_(dir) {
   const auto current = linkTarget(dir);
   removeSetsBut(dir, {current.value_or("")});
   unsigned long next = current ? setNumber(*current) + 1 : 1;
   name_ = fmt::format("{}{}", kSetPrefix, next);
   path_ = dir + "/" + name_;
   if (::mkdir(path_.c_str(), 0700) != 0) {
      throw Pelin::Exception(fmt::format("table directory {}: mkdir failed: {}", path_,
                                         std::strerror(errno)));
   }
}

TableSet::~TableSet() {
   if (published_) return;
   std::error_code ignored;
   std::filesystem::remove_all(path_, ignored);
}

void TableSet::publish() {
   const auto replaced = linkTarget(dir_);
   const std::string link = dir_ + "/" + currentLinkName;
   const std::string temp = fmt::format("{}.new.{}", link, ::getpid());
   ::unlink(temp.c_str());
   if (::symlink(name_.c_str(), temp.c_str()) != 0 ||
       ::rename(temp.c_str(), link.c_str()) != 0) {
      const int err = errno;
      ::unlink(temp.c_str());
      throw Pelin::Exception(fmt::format("table directory {}: cannot publish {}: {}",
                                         dir_, name_, std::strerror(err)));
   }
   published_ = true;
   removeSetsBut(dir_, {name_, replaced.value_or("")});
}

} // namespace Shm
