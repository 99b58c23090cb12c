#include "Shm/SharedTables.h"

#include "Arp/ArpTable.h"
#include "Pelin/Exception.h"
#include "Quarn/ForwardingStatus.h"
#include "Quarn/TableInfo.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fmt/format.h>

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

} // namespace

std::string tableDir(const std::string& sysName) {
   if (const char* dir = std::getenv("VELT_SHM_DIR"); dir && *dir) return dir;
   return "/dev/shm/" + sysName;
}

std::string fileBase(const std::string& dir, const std::string& path) {
   return dir + "/" + path;
}

void makeDirsFor(const std::string& dir, const std::string& path) {
   makeDir(dir);
   for (std::size_t slash = path.find('/'); slash != std::string::npos;
        slash = path.find('/', slash + 1)) {
      makeDir(dir + "/" + path.substr(0, slash));
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
