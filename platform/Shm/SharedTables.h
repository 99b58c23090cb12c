// Where a system's shared-memory tables live as files, and the providers through which the
// shared-memory entity manager attaches them read-only when they are mounted. One writer
// process creates the files; every agent of the system maps them.
#pragma once
#include "Wexa/EntityManager.h"

#include <string>

namespace Shm {

// The entity type name of the neighbour table.
inline constexpr const char* arpStatusTypeName = "Arp::Table::Status";

// The directory of system `sysName`'s table files: $VELT_SHM_DIR when set, else
// /dev/shm/<sysName>.
std::string tableDir(const std::string& sysName);

// The common prefix of the files holding the entity at state-database `path`:
// "<dir>/<path>", to which each table adds its own suffixes. A component of `path` that
// breaks the rule for names (Wexa/Paths.h) raises Pelin::Exception naming it.
std::string fileBase(const std::string& dir, const std::string& path);

// Makes the owner-only directories the files of `path` go in (with an empty `path`, only
// `dir` itself). Raises Pelin::Exception naming the directory that could not be made, a
// component of `path` that breaks the rule for names, or a directory that resolves to
// somewhere outside `dir`.
void makeDirsFor(const std::string& dir, const std::string& path);

// Whether the files of the table at `path` exist under `dir`.
bool hasForwardingFiles(const std::string& dir, const std::string& path);
bool hasArpFiles(const std::string& dir, const std::string& path);

// Teaches `shm` to attach, on mount, the forwarding tables and the neighbour table found
// under `dir`. A mount finds null when the files are absent and raises Pelin::Exception
// when their header is not ours.
void fileProvidersIs(Wexa::EntityManager& shm, const std::string& dir);

// The name a forwarding table mounted at `path` goes by: the VRF of a per-VRF path, else
// the path's last component.
std::string tableNameOf(const std::string& path);

// Holds the writer's lock on `dir` for the object's life, so that a second writer fails
// at start instead of interleaving its changes. Readers never take it.
class WriterLock {
 public:
   // Raises Pelin::Exception when another process holds the lock.
   explicit WriterLock(const std::string& dir);
   ~WriterLock();
   WriterLock(const WriterLock&) = delete;
   WriterLock& operator=(const WriterLock&) = delete;

 private:
   int fd_ = -1;
};

} // namespace Shm
