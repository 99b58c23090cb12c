// ResolverVrfRootSm keeps the VRF roots in step with the switch's VRF state: a VRF has a
// root while it is configured, up on this system and has an id ("default" always has one).
// It re-decides a VRF on every change of the global status, the local status or the id map.
#pragma once
#include "Ip/VrfStatus.h"
#include "Kor/Entity.h"
#include "Kor/HashMap.h"
#include "Kor/TypeInfo.h"
#include "L3/VrfName.h"
#include "Pelin/Ptr.h"
#include "VeltLib/ResolverVrfRoot.h"
#include "Vrf/NameToIdMap.h"
#include "Wexa/EntityManager.h"

namespace Velt {

class ResolverVrfRootSm : public Kor::Notifier {
 public:
   // Watches the wrapper for the inner name-to-id map being replaced.
   class KorVrfNameStatus : public Kor::Reactor {
    public:
      explicit KorVrfNameStatus(ResolverVrfRootSm* sm) : sm_(sm) {}
      void onAttribute(Kor::AttrId attr) override;

    private:
      ResolverVrfRootSm* sm_;
   };

   // Watches the inner name-to-id map for ids of VRFs.
   class KorKor_VrfNameStatus_NameToIdMapIn : public Kor::Reactor {
    public:
      explicit KorKor_VrfNameStatus_NameToIdMapIn(ResolverVrfRootSm* sm) : sm_(sm) {}
      void onCollection(Kor::AttrId attr, const Kor::KeyRef& key, Kor::Change) override;

    private:
      ResolverVrfRootSm* sm_;
   };

   // Watches the local state of one VRF.
   class VrfStatusLocalSm : public Kor::Reactor {
    public:
      VrfStatusLocalSm(ResolverVrfRootSm* sm, const L3::VrfName& vrfName)
          : resolverVrfRootSm_(sm), vrfName_(vrfName) {}
      ResolverVrfRootSm* resolverVrfRootSm() const { return resolverVrfRootSm_; }
      const L3::VrfName& vrfName() const { return vrfName_; }
      const Pelin::Ptr<Ip::VrfStatusLocal const>& status() const { return status_; }
      // Attaching to another non-null status decides its VRF again at once.
      void statusIs(const Pelin::Ptr<Ip::VrfStatusLocal const>& status);
      void onAttribute(Kor::AttrId attr) override;

    private:
      ResolverVrfRootSm* resolverVrfRootSm_;
      L3::VrfName vrfName_;
      Pelin::Ptr<Ip::VrfStatusLocal const> status_;
   };

   using LocalSmMap = Kor::HashMap<L3::VrfName, Pelin::Ptr<VrfStatusLocalSm>,
                                   Kor::PtrKey<&VrfStatusLocalSm::vrfName>>;

   // Subscribes, creates the roots of every VRF up now, then follows changes. If a step
   // raises, the subscriptions already made are undone before the exception leaves.
   ResolverVrfRootSm(const Pelin::Ptr<ResolverVrfRoots>& vrfRoots,
                     const Pelin::Ptr<Ip::AllVrfStatusGlobal const>& allVrfStatusGlobal,
                     const Pelin::Ptr<Ip::AllVrfStatusLocal const>& allVrfStatusLocal,
                     const Pelin::Ptr<Vrf::VrfIdMap::NameToIdMapWrapper const>& vrfNameStatus,
                     bool isUnifiedFecMode, const Pelin::Ptr<Wexa::EntityManager>& entityManager);
   ~ResolverVrfRootSm() override;

   const Pelin::Ptr<ResolverVrfRoots>& vrfRoots() const { return vrfRoots_; }
   const Pelin::Ptr<Ip::AllVrfStatusGlobal const>& allVrfStatusGlobal() const {
      return allVrfStatusGlobal_;
   }
   const Pelin::Ptr<Ip::AllVrfStatusLocal const>& allVrfStatusLocal() const {
      return allVrfStatusLocal_;
   }
   const Pelin::Ptr<Vrf::VrfIdMap::NameToIdMapWrapper const>& vrfNameStatus() const {
      return vrfNameStatus_;
   }
   bool isUnifiedFecMode() const { return isUnifiedFecMode_; }
   const Pelin::Ptr<Wexa::EntityManager>& entityManager() const { return entityManager_; }
   const LocalSmMap& vrfStatusLocalSm() const { return vrfStatusLocalSm_; }

   // Re-decides "default", then every configured VRF.
   void maybeCreateResolverVrfRoot();
   void maybeCreateResolverVrfRoot(const L3::VrfName& vrfName);

   void vrfStatusLocalSmIs(const Pelin::Ptr<Ip::VrfStatusLocal const>& status);
   void vrfStatusLocalSmDel(const L3::VrfName& vrfName);
   void vrfStatusLocalSmDelAll();

   void kor_VrfNameStatus_NameToIdMapInIs(
       const Pelin::Ptr<Vrf::VrfIdMap::NameToIdMap const>& nameToIdMap);
   void kor_VrfNameStatus_NameToIdMapInDel();

   bool hasNotificationActive() const { return active_; }
   void hasNotificationActiveIs(bool active);

   const Kor::TypeInfo* typeData() const override;

 private:
   // Forwards one status table's `vrf` changes to the machine.
   class StatusNotifiee : public Kor::Notifiee {
    public:
      StatusNotifiee(ResolverVrfRootSm* sm, bool local) : Kor::Notifiee(sm), sm_(sm), local_(local) {}
      void onCollection(Kor::AttrId attr, const Kor::KeyRef& key, Kor::Change) override;

    private:
      ResolverVrfRootSm* sm_;
      bool local_;
   };

   Vrf::VrfIdMap::VrfId vrfIdOf(const L3::VrfName& vrfName) const;
   Pelin::Ptr<Quarn::FibGen::ForwardingStatus const> mountTable(const L3::VrfName& vrfName);
   void onLocalVrf(const L3::VrfName& vrfName);
   void unsubscribeAll() noexcept;

   Pelin::Ptr<ResolverVrfRoots> vrfRoots_;
   Pelin::Ptr<Ip::AllVrfStatusGlobal const> allVrfStatusGlobal_;
   Pelin::Ptr<Ip::AllVrfStatusLocal const> allVrfStatusLocal_;
   Pelin::Ptr<Vrf::VrfIdMap::NameToIdMapWrapper const> vrfNameStatus_;
   bool isUnifiedFecMode_ = false;
   Pelin::Ptr<Wexa::EntityManager> entityManager_;
   LocalSmMap vrfStatusLocalSm_;

   Pelin::Ptr<KorVrfNameStatus> korVrfNameStatus_;
   Pelin::Ptr<KorKor_VrfNameStatus_NameToIdMapIn> korNameToIdMapIn_;
   StatusNotifiee globalNotifiee_{this, false};
   StatusNotifiee localNotifiee_{this, true};
   bool active_ = false;
};

Pelin::Ptr<ResolverVrfRootSm> resolverVrfRootSmFactory(
    const Pelin::Ptr<ResolverVrfRoots>& vrfRoots,
    const Pelin::Ptr<Ip::AllVrfStatusGlobal const>& allVrfStatusGlobal,
    const Pelin::Ptr<Ip::AllVrfStatusLocal const>& allVrfStatusLocal,
    const Pelin::Ptr<Vrf::VrfIdMap::NameToIdMapWrapper const>& vrfNameStatus,
    bool isUnifiedFecMode, const Pelin::Ptr<Wexa::EntityManager>& entityManager);

} // namespace Velt
