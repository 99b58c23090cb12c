#include "Vrf/NameToIdMap.h"

namespace Vrf::VrfIdMap {

NameToIdMap::~NameToIdMap() {
   beingDestroyedIs();
   publisherDel();
}

void NameToIdMap::vrfNameToIdIs(const L3::VrfName& name, VrfId id) {
   Kor::Stored s = vrfNameToId_.set(name, id);
   if (s == Kor::Stored::added) notify(kVrfNameToId, name, Kor::Change::added);
   if (s == Kor::Stored::replaced) notify(kVrfNameToId, name, Kor::Change::changed);
}

void NameToIdMap::vrfNameToIdDel(const L3::VrfName& name) {
   bool found = false;
   vrfNameToId_.erase(name, &found);
   if (found) notify(kVrfNameToId, name, Kor::Change::removed);
}

const Kor::TypeInfo* NameToIdMap::typeData() const {
   static const Kor::TypeInfo info =
       Kor::TypeBuilder<NameToIdMap>("Vrf::VrfIdMap::NameToIdMap")
           .collection("vrfNameToId",
                       static_cast<const IdMap& (NameToIdMap::*)() const>(
                           &NameToIdMap::vrfNameToId))
           .build();
   return &info;
}

NameToIdMapWrapper::~NameToIdMapWrapper() {
   beingDestroyedIs();
   publisherDel();
}

const Kor::TypeInfo* NameToIdMapWrapper::typeData() const {
   static const Kor::TypeInfo info =
       Kor::TypeBuilder<NameToIdMapWrapper>("Vrf::VrfIdMap::NameToIdMapWrapper")
           .node("nameToIdMap", &NameToIdMapWrapper::nameToIdMap)
           .build();
   return &info;
}

} // namespace Vrf::VrfIdMap
