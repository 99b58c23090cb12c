#include "Shm/SharedTables.h"

#include "Arp/ArpTable.h"
#include "Pelin/Exception.h"
#include "Quarn/ForwardingStatus.h"
#include "Quarn/TableInfo.h"
#include "Wexa/Paths.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fmt/format.h>
#include <memory>
#include <string_view>

namespace Shm {

namespace {

bool exists(const std::string& path) {
   struct stat st {};
   return ::stat(path.c_str(), &st) == 0;
}

void makeDir(const std::string& dir) {
   if (::mkdir(dir.c_str(), 0700) == 0 || errno == EEXIST) return;
   throw Pelin::Exception(
       fmt::format("table directory {}: mkdir failed: {}", dir, std::strerror(errno)));
}

// Every component of `path` follows the rule for names, so that "<dir>/<path>" cannot
// climb out of `dir` or stand for another path.
void checkComponents(const std::string& dir, const std::string& path) {
   for (std::size_t start = 0;;) {
      std::size_t slash = path.find('/', start);
      std::string_view part = std::string_view(path).substr(start, slash - start);
      if (std::string problem = Wexa::Paths::componentProblem(part); !problem.empty()) {
         throw Pelin::Exception(fmt::format("table directory {}: {} cannot name a table's "
                                            "files: component {}: {}",
                                            dir, Wexa::Paths::shownName(path),
                                            Wexa::Paths::shownName(part), problem));
      }
      if (slash == std::string::npos) return;
      start = slash + 1;
   }
}

std::string resolved(const std::string& path) {
   std::unique_ptr<char, decltype(&std::free)> real(::realpath(path.c_str(), nullptr),
                                                    &std::free);
   if (!real) {
      throw Pelin::Exception(
          fmt::format("cannot resolve {}: {}", path, std::strerror(errno)));
   }
   return real.get();
}

// `sub`, made under `dir`, resolves to a folder inside it: no link leads elsewhere.
void checkInside(const std::string& dir, const std::string& sub) {
   const std::string top = resolved(dir);
   const std::string real = resolved(sub);
   if (real.size() <= top.size() || real.compare(0, top.size(), top) != 0 ||
       (top != "/" && real[top.size()] != '/')) {
      throw Pelin::Exception(
          fmt::format("table directory {}: {} leads outside it, to {}", dir, sub, real));
   }
}

} // namespace

std::string tableDir(const std::string& sysName) {
   if (const char* dir = std::getenv("VELT_SHM_DIR"); dir && *dir) return dir;
   return "/dev/shm/" + sysName;
}

std::string fileBase(const std::string& dir, const std::string& path) {
   checkComponents(dir, path);
   return dir + "/" + path;
}

void makeDirsFor(const std::string& dir, const std::string& path) {
   if (!path.empty()) checkComponents(dir, path);
   makeDir(dir);
   for (std::size_t slash = path.find('/'); slash != std::string::npos;
        slash = path.find('/', slash + 1)) {
      const std::string sub = dir + "/" + path.substr(0, slash);
      makeDir(sub);
      checkInside(dir, sub);
   }
}

bool hasForwardingFiles(const std::string& dir, const std::string& path) {
   return exists(fileBase(dir, path) + ".fecs");
}

bool hasArpFiles(const std::string& dir, const std::string& path) {
   return exists(fileBase(dir, path) + ".arp");
}

std::string tableNameOf(const std::string& path) {
   constexpr std::string_view prefix = "forwardingGen/";
   constexpr std::string_view suffix = "/rib";
   if (path.size() > prefix.size() + suffix.size() && path.starts_with(prefix) &&
       path.ends_with(suffix)) {
      return path.substr(prefix.size(), path.size() - prefix.size() - suffix.size());
   }
   return path.substr(path.rfind('/') + 1);
}

void fileProvidersIs(Wexa::EntityManager& shm, const std::string& dir) {
   shm.providerIs(Quarn::Fib::TableInfo::forwardingStatusTypeName,
                  [dir](Wexa::EntityManager&, const std::string& path,
                        const Wexa::MountInfo&) -> Pelin::Ptr<Pelin::Node> {
                     if (!hasForwardingFiles(dir, path)) return nullptr;
                     return Quarn::FibGen::ForwardingStatus::attachFiles(tableNameOf(path),
                                                                         fileBase(dir, path));
                  });
   shm.providerIs(arpStatusTypeName,
                  [dir](Wexa::EntityManager&, const std::string& path,
                        const Wexa::MountInfo&) -> Pelin::Ptr<Pelin::Node> {
                     if (!hasArpFiles(dir, path)) return nullptr;
                     return Arp::Table::Status::attachFiles("arp", fileBase(dir, path));
                  });
}

WriterLock::WriterLock(const std::string& dir) {
   makeDir(dir);
   const std::string path = dir + "/writer.lock";
   fd_ = ::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
   if (fd_ < 0) {
      throw Pelin::Exception(fmt::format("table directory {}: cannot open {}: {}", dir, path,
                                         std::strerror(errno)));
   }
   if (::flock(fd_, LOCK_EX | LOCK_NB) != 0) {
      ::close(fd_);
      throw Pelin::Exception(
          fmt::format("table directory {}: another writer holds {}", dir, path));
   }
}

WriterLock::~WriterLock() {
   if (fd_ >= 0) ::close(fd_);
}

} // namespace Shm
