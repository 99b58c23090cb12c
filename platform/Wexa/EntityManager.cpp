#include "Wexa/EntityManager.h"

#include "Pelin/Exception.h"
#include "Wexa/Paths.h"

#include <fmt/format.h>

#include <utility>

namespace Wexa {

namespace {

// Why `path` is no state-database path: empty when it is one. Each component follows the
// rule for names, so that a path mirrored as files stays under its directory.
std::string pathProblem(std::string_view path) {
   if (path.empty()) return "it is empty";
   for (std::size_t start = 0;;) {
      std::size_t slash = path.find('/', start);
      std::string_view part = path.substr(start, slash - start);
      if (std::string problem = Paths::componentProblem(part); !problem.empty()) {
         return fmt::format("component {}: {}", Paths::shownName(part), problem);
      }
      if (slash == std::string_view::npos) return {};
      start = slash + 1;
   }
}

void checkPath(const std::string& path) {
   if (std::string problem = pathProblem(path); !problem.empty()) {
      throw Pelin::Exception(fmt::format("state database path {} is malformed: {}",
                                         Paths::shownName(path), problem));
   }
}

} // namespace

EntityManager::EntityManager(std::string sysName, bool writer, bool sharedMemory,
                             Pelin::Ptr<EventLoop> loop)
    : sysName_(std::move(sysName)), writer_(writer), sharedMemory_(sharedMemory),
      loop_(std::move(loop)) {}

Pelin::Ptr<Pelin::Node> EntityManager::entity(std::string_view path) const {
   auto it = entities_.find(path);
   return it == entities_.end() ? nullptr : it->second;
}

void EntityManager::entityIs(const std::string& path, const Pelin::Ptr<Pelin::Node>& node) {
   checkPath(path);
   if (!node) throw Pelin::NullArgumentException("node");
   entities_[path] = node;
}

Pelin::Ptr<Pelin::Node> EntityManager::entityDel(std::string_view path) {
   auto it = entities_.find(path);
   if (it == entities_.end()) return nullptr;
   Pelin::Ptr<Pelin::Node> old = std::move(it->second);
   entities_.erase(it);
   return old;
}

std::vector<std::string> EntityManager::paths(std::string_view under) const {
   std::vector<std::string> out;
   for (auto it = entities_.lower_bound(under); it != entities_.end(); ++it) {
      const std::string& p = it->first;
      if (p.compare(0, under.size(), under) != 0) break;
      bool below = under.empty() || p.size() == under.size() || p[under.size()] == '/';
      if (below) out.push_back(p);
   }
   return out;
}

Pelin::Ptr<Pelin::Node> EntityManager::mount(const std::string& path,
                                             const std::string& typeName,
                                             const MountInfo& info) {
   checkPath(path);
   auto [at, added] = mountAt_.try_emplace(path, mounts_.size());
   if (added) {
      mounts_.push_back(MountEntry{path, typeName, info});
   } else {
      mounts_[at->second] = MountEntry{path, typeName, info};
   }
   if (Pelin::Ptr<Pelin::Node> found = entity(path)) return found;
   auto provider = providers_.find(typeName);
   if (provider == providers_.end()) return nullptr;
   Pelin::Ptr<Pelin::Node> made = provider->second(*this, path, info);
   if (made) entities_[path] = made;
   return made;
}

void EntityManager::providerIs(const std::string& typeName, Provider provider) {
   providers_[typeName] = std::move(provider);
}

Pelin::Ptr<MountGroup> EntityManager::mountGroup(const Pelin::Ptr<Mounter>& client) {
   return Pelin::make<MountGroup>(Pelin::Ptr<EntityManager>(this), client);
}

MountGroup::MountGroup(const Pelin::Ptr<EntityManager>& entityManager,
                       const Pelin::Ptr<Mounter>& client)
    : entityManager_(entityManager), client_(client) {
   if (!entityManager_) throw Pelin::NullArgumentException("entityManager");
   if (!client_) throw Pelin::NullArgumentException("client");
}

void MountGroup::doMount(const std::string& path, const std::string& typeName,
                         const MountInfo& info) {
   pending_.push_back(MountEntry{path, typeName, info});
}

void MountGroup::doMountProfile(const std::string& profileName) {
   const MountProfile* profile = entityManager_->mountFileInfo().profile(profileName);
   if (!profile) {
      unknownProfiles_.push_back(profileName);
      return;
   }
   pending_.insert(pending_.end(), profile->mounts.begin(), profile->mounts.end());
}

void MountGroup::doClose(bool keepOpen, const std::string&) {
   closed_ = !keepOpen;
   client_->doMountGroupClosed();
   // The group keeps itself alive until its completion has run.
   Pelin::Ptr<MountGroup> self(this);
   entityManager_->loop()->post([self] { self->complete(); });
}

void MountGroup::complete() {
   MountStatus status =
       unknownProfiles_.empty() ? MountStatus::mountSuccess_ : MountStatus::mountFailure_;
   std::vector<MountEntry> mounts = std::move(pending_);
   pending_.clear();
   unknownProfiles_.clear();
   for (const MountEntry& m : mounts) {
      try {
         entityManager_->mount(m.path, m.typeName, m.info);
      } catch (const std::exception&) {
         status = MountStatus::mountFailure_;
      }
   }
   client_->doWexaMountsComplete(status, entityManager_);
}

namespace {

std::map<std::pair<std::string, bool>, Pelin::Ptr<EntityManager>>& shmManagers() {
   static std::map<std::pair<std::string, bool>, Pelin::Ptr<EntityManager>> managers;
   return managers;
}

} // namespace

Pelin::Ptr<EntityManager> sharedMemoryEntityManager(const std::string& sysName, bool writer) {
   Pelin::Ptr<EntityManager>& slot = shmManagers()[{sysName, writer}];
   if (!slot) slot = Pelin::make<EntityManager>(sysName, writer, true);
   return slot;
}

void sharedMemoryEntityManagerDelAll() { shmManagers().clear(); }

} // namespace Wexa
