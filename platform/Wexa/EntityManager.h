// Wexa::EntityManager: the process's handle on the state database, a tree of entities by
// slash-separated path. Writers place entities; agents mount the paths they read, alone or
// in groups whose completion reaches a Wexa::Mounter on the event loop. Each system has one
// shared-memory entity manager besides the agent's own, for the tables other processes write.
#pragma once
#include "Kor/Entity.h"
#include "Pelin/Ptr.h"
#include "Wexa/EventLoop.h"
#include "Wexa/MountProfile.h"
#include "Wexa/MountStatus.h"

#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace Wexa {

class EntityManager;
class MountGroup;

// A client of mount groups: told once when all mounts of its group are complete.
class Mounter : public Kor::Entity {
 public:
   explicit Mounter(std::string name) : Kor::Entity(std::move(name)) {}

   // Called as a group closes, before its mounts run; nothing to do by default.
   virtual void doMountGroupClosed() {}
   // The state database's completion entry: reports the status, then completes.
   virtual void doWexaMountsComplete(MountStatus status,
                                     const Pelin::Ptr<EntityManager>& entityManager) {
      handleMountStatus(status);
      doMountsComplete(status, entityManager);
   }
   virtual void doMountsComplete(MountStatus, const Pelin::Ptr<EntityManager>&) {}
   virtual void handleMountStatus(MountStatus) {}
};

class EntityManager : public Pelin::Node {
 public:
   // Makes or attaches the entity of a type at a path that holds none yet.
   using Provider = std::function<Pelin::Ptr<Pelin::Node>(
       EntityManager&, const std::string& path, const MountInfo&)>;

   EntityManager(std::string sysName, bool writer, bool sharedMemory = false,
                 Pelin::Ptr<EventLoop> loop = eventLoop());

   const std::string& sysName() const noexcept { return sysName_; }
   bool writer() const noexcept { return writer_; }
   bool isSharedMemory() const noexcept { return sharedMemory_; }
   const Pelin::Ptr<EventLoop>& loop() const noexcept { return loop_; }

   // The entity at `path`, or null.
   Pelin::Ptr<Pelin::Node> entity(std::string_view path) const;
   template <typename T>
   Pelin::Ptr<T> entity(std::string_view path) const {
      return Pelin::ptr_cast<T>(entity(path));
   }
   // Places `node` at `path`, replacing what was there. A malformed path raises
   // Pelin::Exception naming it.
   void entityIs(const std::string& path, const Pelin::Ptr<Pelin::Node>& node);
   Pelin::Ptr<Pelin::Node> entityDel(std::string_view path);
   // Paths of every entity at or below `under`, sorted.
   std::vector<std::string> paths(std::string_view under = {}) const;

   // Mounts `path` as `typeName`: returns the entity there (possibly of another type),
   // else what the type's provider makes, else null. The mounts are recorded one per
   // path: mounting a path again updates its record, so repeated mounts cost nothing.
   Pelin::Ptr<Pelin::Node> mount(const std::string& path, const std::string& typeName,
                                 const MountInfo& info);
   const std::vector<MountEntry>& mounts() const noexcept { return mounts_; }
   void providerIs(const std::string& typeName, Provider provider);

   MountFileInfo& mountFileInfo() noexcept { return mountFileInfo_; }
   const MountFileInfo& mountFileInfo() const noexcept { return mountFileInfo_; }

   // A group whose completion is reported to `client`.
   Pelin::Ptr<MountGroup> mountGroup(const Pelin::Ptr<Mounter>& client);

 private:
   std::string sysName_;
   bool writer_;
   bool sharedMemory_;
   Pelin::Ptr<EventLoop> loop_;
   std::map<std::string, Pelin::Ptr<Pelin::Node>, std::less<>> entities_;
   std::map<std::string, Provider, std::less<>> providers_;
   std::vector<MountEntry> mounts_;
   std::map<std::string, std::size_t, std::less<>> mountAt_; // path -> index in mounts_
   MountFileInfo mountFileInfo_;
};

// A set of mounts done together; closing it runs them on a later turn of the event loop
// and then reports to the client. An unknown profile or a failing mount fails the group.
class MountGroup : public Pelin::Node {
 public:
   MountGroup(const Pelin::Ptr<EntityManager>& entityManager, const Pelin::Ptr<Mounter>& client);

   void doMount(const std::string& path, const std::string& typeName, const MountInfo& info);
   void doMountProfile(const std::string& profileName);
   // `keepOpen` leaves the group usable for more mounts after this completion; `tag` is
   // for the caller's own bookkeeping.
   void doClose(bool keepOpen, const std::string& tag);
   bool closed() const noexcept { return closed_; }

 private:
   void complete();

   Pelin::Ptr<EntityManager> entityManager_;
   Pelin::Ptr<Mounter> client_;
   std::vector<MountEntry> pending_;
   std::vector<std::string> unknownProfiles_;
   bool closed_ = false;
};

// The shared-memory entity manager of system `sysName` in this process (one per system name
// and writer flag), made on first use.
Pelin::Ptr<EntityManager> sharedMemoryEntityManager(const std::string& sysName, bool writer);
// Forgets them all (tests start afresh).
void sharedMemoryEntityManagerDelAll();

} // namespace Wexa
