// The VRF name-to-id map of the state database. Vrf::VrfIdMap::NameToIdMap publishes its
// `vrfNameToId` entries by name; the wrapper publishes when the map it holds is replaced.
#pragma once
#include "Kor/Entity.h"
#include "Kor/HashMap.h"
#include "Kor/TypeInfo.h"
#include "L3/VrfName.h"
#include "Pelin/Ptr.h"
#include "Vrf/VrfId.h"

namespace Vrf::VrfIdMap {

class NameToIdMap : public Kor::Notifier {
 public:
   enum Attr : Kor::AttrId { kVrfNameToId };
   using IdMap = Kor::ValueMap<L3::VrfName, VrfId>;

   ~NameToIdMap() override;

   // noVrfId when the name is absent.
   VrfId vrfNameToId(const L3::VrfName& name) const {
      const VrfId* found = vrfNameToId_.find(name);
      return found ? *found : noVrfId;
   }
   const IdMap& vrfNameToId() const { return vrfNameToId_; }
   void vrfNameToIdIs(const L3::VrfName& name, VrfId id);
   void vrfNameToIdDel(const L3::VrfName& name);
   const Kor::TypeInfo* typeData() const override;

 private:
   IdMap vrfNameToId_;
};

class NameToIdMapWrapper : public Kor::Entity {
 public:
   enum Attr : Kor::AttrId { kNameToIdMap };

   using Kor::Entity::Entity;
   ~NameToIdMapWrapper() override;

   const Pelin::Ptr<NameToIdMap const>& nameToIdMap() const { return nameToIdMap_; }
   void nameToIdMapIs(const Pelin::Ptr<NameToIdMap const>& map) {
      Kor::assign(*this, nameToIdMap_, map, kNameToIdMap);
   }
   const Kor::TypeInfo* typeData() const override;

 private:
   Pelin::Ptr<NameToIdMap const> nameToIdMap_;
};

} // namespace Vrf::VrfIdMap
