#include "VeltLib/ResolverVrfRootSm.h"

#include "Pelin/Assert.h"
#include "Quarn/TableInfo.h"
#include "Trace/Emit.h"
#include "VeltLib/Traces.h"

namespace Velt {

namespace {

const L3::VrfName& defaultVrfName() {
   static const L3::VrfName name("default");
   return name;
}

} // namespace

// ---- reactors ----

void ResolverVrfRootSm::KorVrfNameStatus::onAttribute(Kor::AttrId attr) {
   if (isBeingDestroyed() || sm_->isBeingDestroyed()) return;
   if (attr != Vrf::VrfIdMap::NameToIdMapWrapper::kNameToIdMap) return;
   sm_->kor_VrfNameStatus_NameToIdMapInIs(sm_->vrfNameStatus()->nameToIdMap());
}

void ResolverVrfRootSm::KorKor_VrfNameStatus_NameToIdMapIn::onCollection(
    Kor::AttrId attr, const Kor::KeyRef& key, Kor::Change) {
   if (isBeingDestroyed() || sm_->isBeingDestroyed()) return;
   if (attr != Vrf::VrfIdMap::NameToIdMap::kVrfNameToId) return;
   sm_->maybeCreateResolverVrfRoot(key.as<L3::VrfName>());
}

void ResolverVrfRootSm::VrfStatusLocalSm::statusIs(
    const Pelin::Ptr<Ip::VrfStatusLocal const>& status) {
   if (status == status_) return;
   status_ = status;
   notifierIs(status_.get());
   if (status_) onAttribute(Ip::VrfStatusLocal::kState);
}

void ResolverVrfRootSm::VrfStatusLocalSm::onAttribute(Kor::AttrId attr) {
   if (isBeingDestroyed() || resolverVrfRootSm_->isBeingDestroyed()) return;
   if (attr != Ip::VrfStatusLocal::kState || !status_) return;
   resolverVrfRootSm_->maybeCreateResolverVrfRoot(status_->name());
}

void ResolverVrfRootSm::StatusNotifiee::onCollection(Kor::AttrId attr, const Kor::KeyRef& key,
                                                     Kor::Change) {
   if (sm_->isBeingDestroyed() || attr != Ip::AllVrfStatusGlobal::kVrf) return;
   const L3::VrfName& name = key.as<L3::VrfName>();
   if (local_) {
      sm_->onLocalVrf(name);
   } else {
      sm_->maybeCreateResolverVrfRoot(name);
   }
}

// ---- the machine ----

ResolverVrfRootSm::ResolverVrfRootSm(
    const Pelin::Ptr<ResolverVrfRoots>& vrfRoots,
    const Pelin::Ptr<Ip::AllVrfStatusGlobal const>& allVrfStatusGlobal,
    const Pelin::Ptr<Ip::AllVrfStatusLocal const>& allVrfStatusLocal,
    const Pelin::Ptr<Vrf::VrfIdMap::NameToIdMapWrapper const>& vrfNameStatus,
    bool isUnifiedFecMode, const Pelin::Ptr<Wexa::EntityManager>& entityManager)
    : vrfRoots_(vrfRoots), allVrfStatusGlobal_(allVrfStatusGlobal),
      allVrfStatusLocal_(allVrfStatusLocal), vrfNameStatus_(vrfNameStatus),
      isUnifiedFecMode_(isUnifiedFecMode), entityManager_(entityManager) {
   VELT_ASSERT(vrfNameStatus);
   VELT_ASSERT(vrfRoots);
   try {
      korVrfNameStatus_ = Pelin::make<KorVrfNameStatus>(this);
      korVrfNameStatus_->notifierIs(vrfNameStatus_.get());
      korVrfNameStatus_->hasNotificationActiveIs(true);
      korNameToIdMapIn_ = Pelin::make<KorKor_VrfNameStatus_NameToIdMapIn>(this);
      korNameToIdMapIn_->hasNotificationActiveIs(true);

      active_ = true;
      globalNotifiee_.notifierIs(allVrfStatusGlobal_.get());
      globalNotifiee_.hasNotificationActiveIs(true);
      localNotifiee_.notifierIs(allVrfStatusLocal_.get());
      localNotifiee_.hasNotificationActiveIs(true);

      maybeCreateResolverVrfRoot();
      if (allVrfStatusLocal_) {
         for (const auto& status : allVrfStatusLocal_->vrf()) vrfStatusLocalSmIs(status);
      }
      kor_VrfNameStatus_NameToIdMapInIs(vrfNameStatus_->nameToIdMap());
   } catch (...) {
      unsubscribeAll();
      throw;
   }
}

ResolverVrfRootSm::~ResolverVrfRootSm() {
   beingDestroyedIs();
   hasNotificationActiveIs(false);
   unsubscribeAll();
   publisherDel();
}

void ResolverVrfRootSm::unsubscribeAll() noexcept {
   globalNotifiee_.notifierIs(nullptr);
   localNotifiee_.notifierIs(nullptr);
   if (korVrfNameStatus_) korVrfNameStatus_->notifierIs(nullptr);
   if (korNameToIdMapIn_) korNameToIdMapIn_->notifierIs(nullptr);
   vrfStatusLocalSm_.drain([](const L3::VrfName&, Pelin::Ptr<VrfStatusLocalSm>&& sm) {
      sm->notifierIs(nullptr);
   });
   korVrfNameStatus_ = nullptr;
   korNameToIdMapIn_ = nullptr;
}

Vrf::VrfIdMap::VrfId ResolverVrfRootSm::vrfIdOf(const L3::VrfName& vrfName) const {
   if (vrfName == defaultVrfName()) return Vrf::VrfIdMap::VrfId(0);
   VELT_ASSERT(vrfNameStatus_);
   const auto& map = vrfNameStatus_->nameToIdMap();
   return map ? map->vrfNameToId(vrfName) : Vrf::VrfIdMap::noVrfId;
}

Pelin::Ptr<Quarn::FibGen::ForwardingStatus const>
ResolverVrfRootSm::mountTable(const L3::VrfName& vrfName) {
   using Quarn::Fib::TableInfo;
   if (!entityManager_) return nullptr;
   const Wexa::MountInfo info = TableInfo().forwardingInfo(TableInfo::mountTypeSharedTable);
   Pelin::Ptr<Wexa::EntityManager> shm =
       Wexa::sharedMemoryEntityManager(entityManager_->sysName(), entityManager_->writer());
   const std::string path =
       isUnifiedFecMode_
           ? std::string(TableInfo::unifiedStatusPath)
           : TableInfo::fecMountPath(Lumo::AddressFamily::ipunknown_, vrfName, "rib");
   return Pelin::ptr_cast<Quarn::FibGen::ForwardingStatus const>(
       shm->mount(path, TableInfo::forwardingStatusTypeName, info));
}

void ResolverVrfRootSm::maybeCreateResolverVrfRoot() {
   maybeCreateResolverVrfRoot(defaultVrfName());
   if (!allVrfStatusGlobal_) return;
   for (const auto& status : allVrfStatusGlobal_->vrf()) {
      maybeCreateResolverVrfRoot(status->name());
   }
}

void ResolverVrfRootSm::maybeCreateResolverVrfRoot(const L3::VrfName& vrfName) {
   const bool isDefault = vrfName == defaultVrfName();
   const bool global = allVrfStatusGlobal_ && allVrfStatusGlobal_->vrf(vrfName);
   Pelin::Ptr<Ip::VrfStatusLocal> local =
       allVrfStatusLocal_ ? allVrfStatusLocal_->vrf(vrfName) : nullptr;
   const bool localUp = local && local->state() == Ip::vrfStateActive;
   const Vrf::VrfIdMap::VrfId vrfId = vrfIdOf(vrfName);

   if (isDefault || (global && localUp && vrfId.isValid())) {
      VELT_TRACE_FN(vrfTrace(), 1, "maybeCreateResolverVrfRoot", "Creating vrf {}", vrfName);
      vrfRoots_->vrfRootIs(vrfName, vrfId, mountTable(vrfName));
      vrfRoots_->aleVrfIdToVrfIs(vrfId.value(), vrfName);
      return;
   }
   VELT_TRACE_FN(vrfTrace(), 1, "maybeCreateResolverVrfRoot",
                 "Deleting vrf {}. global {} local {}({}) id {}", vrfName, global,
                 local != nullptr, localUp, vrfId.value());
   vrfRoots_->vrfRootDel(vrfName);
   vrfRoots_->aleVrfIdToVrfDel(vrfId.value());
}

void ResolverVrfRootSm::onLocalVrf(const L3::VrfName& vrfName) {
   maybeCreateResolverVrfRoot(vrfName);
   if (Pelin::Ptr<Ip::VrfStatusLocal> status = allVrfStatusLocal_->vrf(vrfName)) {
      vrfStatusLocalSmIs(status);
   } else {
      vrfStatusLocalSmDel(vrfName);
   }
}

void ResolverVrfRootSm::vrfStatusLocalSmIs(const Pelin::Ptr<Ip::VrfStatusLocal const>& status) {
   if (!status) throw Pelin::NullArgumentException("status");
   const Pelin::Ptr<VrfStatusLocalSm>* found = vrfStatusLocalSm_.find(status->name());
   Pelin::Ptr<VrfStatusLocalSm> sm = found ? *found : nullptr;
   if (!sm) {
      sm = Pelin::make<VrfStatusLocalSm>(this, status->name());
      sm->hasNotificationActiveIs(active_);
      vrfStatusLocalSm_.insert(sm);
   }
   sm->statusIs(status);
}

void ResolverVrfRootSm::vrfStatusLocalSmDel(const L3::VrfName& vrfName) {
   bool found = false;
   Pelin::Ptr<VrfStatusLocalSm> sm = vrfStatusLocalSm_.erase(vrfName, &found);
   if (found) sm->notifierIs(nullptr);
}

void ResolverVrfRootSm::vrfStatusLocalSmDelAll() {
   vrfStatusLocalSm_.drain([](const L3::VrfName&, Pelin::Ptr<VrfStatusLocalSm>&& sm) {
      sm->notifierIs(nullptr);
   });
}

void ResolverVrfRootSm::kor_VrfNameStatus_NameToIdMapInIs(
    const Pelin::Ptr<Vrf::VrfIdMap::NameToIdMap const>& nameToIdMap) {
   if (!korNameToIdMapIn_) return;
   korNameToIdMapIn_->notifierIs(nameToIdMap.get());
}

void ResolverVrfRootSm::kor_VrfNameStatus_NameToIdMapInDel() {
   if (korNameToIdMapIn_) korNameToIdMapIn_->notifierIs(nullptr);
}

void ResolverVrfRootSm::hasNotificationActiveIs(bool active) {
   if (active == active_) return;
   active_ = active;
   globalNotifiee_.hasNotificationActiveIs(active);
   localNotifiee_.hasNotificationActiveIs(active);
   if (korVrfNameStatus_) korVrfNameStatus_->hasNotificationActiveIs(active);
   if (korNameToIdMapIn_) korNameToIdMapIn_->hasNotificationActiveIs(active);
   for (const auto& sm : vrfStatusLocalSm_) sm->hasNotificationActiveIs(active);
}

const Kor::TypeInfo* ResolverVrfRootSm::typeData() const {
   using S = ResolverVrfRootSm;
   static const Kor::TypeInfo info =
       Kor::TypeBuilder<S>("Velt::ResolverVrfRootSm")
           .node("vrfRoots", &S::vrfRoots)
           .node("allVrfStatusGlobal", &S::allVrfStatusGlobal)
           .node("allVrfStatusLocal", &S::allVrfStatusLocal)
           .node("vrfNameStatus", &S::vrfNameStatus)
           .value("isUnifiedFecMode", &S::isUnifiedFecMode)
           .node("entityManager", &S::entityManager)
           .collection("vrfStatusLocalSm",
                       static_cast<const LocalSmMap& (S::*)() const>(&S::vrfStatusLocalSm))
           .build();
   return &info;
}

Pelin::Ptr<ResolverVrfRootSm> resolverVrfRootSmFactory(
    const Pelin::Ptr<ResolverVrfRoots>& vrfRoots,
    const Pelin::Ptr<Ip::AllVrfStatusGlobal const>& allVrfStatusGlobal,
    const Pelin::Ptr<Ip::AllVrfStatusLocal const>& allVrfStatusLocal,
    const Pelin::Ptr<Vrf::VrfIdMap::NameToIdMapWrapper const>& vrfNameStatus,
    bool isUnifiedFecMode, const Pelin::Ptr<Wexa::EntityManager>& entityManager) {
   Pelin::Ptr<ResolverVrfRootSm> sm =
       Pelin::make<ResolverVrfRootSm>(vrfRoots, allVrfStatusGlobal, allVrfStatusLocal,
                                      vrfNameStatus, isUnifiedFecMode, entityManager);
   sm->hasNotificationActiveIs(true);
   return sm;
}

} // namespace Velt
