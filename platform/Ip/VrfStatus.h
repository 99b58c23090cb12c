// The VRF status inputs of the state database: Ip::AllVrfStatusGlobal lists every VRF that
// is configured, Ip::AllVrfStatusLocal every VRF on this system with its local state.
// Both publish additions, changes and removals of their `vrf` entries by VRF name.
#pragma once
#include "Kor/Entity.h"
#include "Kor/HashMap.h"
#include "Kor/TypeInfo.h"
#include "L3/VrfName.h"
#include "Pelin/Ptr.h"

#include <cstdint>

namespace Ip {

// The local state code of a VRF that is up.
inline constexpr std::uint8_t vrfStateActive = 1;

class VrfStatusGlobal : public Kor::Notifier {
 public:
   explicit VrfStatusGlobal(const L3::VrfName& name) : name_(name) {}
   const L3::VrfName& name() const { return name_; }
   const Kor::TypeInfo* typeData() const override;

 private:
   L3::VrfName name_;
};

class VrfStatusLocal : public Kor::Notifier {
 public:
   enum Attr : Kor::AttrId { kName, kState };

   explicit VrfStatusLocal(const L3::VrfName& name, std::uint8_t state = 0)
       : name_(name), state_(state) {}
   const L3::VrfName& name() const { return name_; }
   std::uint8_t state() const { return state_; }
   void stateIs(std::uint8_t state) { Kor::assign(*this, state_, state, kState); }
   const Kor::TypeInfo* typeData() const override;

 private:
   L3::VrfName name_;
   std::uint8_t state_;
};

// A collection of VRF statuses by name; `vrf` is attribute 0 of both status tables.
template <typename Status>
class VrfStatusTable : public Kor::Entity {
 public:
   enum Attr : Kor::AttrId { kVrf };
   using VrfMap = Kor::HashMap<L3::VrfName, Pelin::Ptr<Status>, Kor::PtrKey<&Status::name>>;

   using Kor::Entity::Entity;
   ~VrfStatusTable() override {
      beingDestroyedIs();
      publisherDel();
   }

   Pelin::Ptr<Status> vrf(const L3::VrfName& name) const {
      const auto* found = vrf_.find(name);
      return found ? *found : nullptr;
   }
   const VrfMap& vrf() const { return vrf_; }
   // Adds or replaces the entry of the status's name.
   void vrfIs(const Pelin::Ptr<Status>& status) {
      Kor::Stored s = vrf_.insert(status);
      if (s == Kor::Stored::added) notify(kVrf, status->name(), Kor::Change::added);
      if (s == Kor::Stored::replaced) notify(kVrf, status->name(), Kor::Change::changed);
   }
   void vrfDel(const L3::VrfName& name) {
      bool found = false;
      vrf_.erase(name, &found);
      if (found) notify(kVrf, name, Kor::Change::removed);
   }

 private:
   VrfMap vrf_;
};

class AllVrfStatusGlobal : public VrfStatusTable<VrfStatusGlobal> {
 public:
   using VrfStatusTable::VrfStatusTable;
   // Adds the VRF when absent; returns its entry.
   Pelin::Ptr<VrfStatusGlobal> vrfIs(const L3::VrfName& name);
   using VrfStatusTable::vrfIs;
   const Kor::TypeInfo* typeData() const override;
};

class AllVrfStatusLocal : public VrfStatusTable<VrfStatusLocal> {
 public:
   using VrfStatusTable::VrfStatusTable;
   // Adds the VRF when absent, else sets its state on the existing entry.
   Pelin::Ptr<VrfStatusLocal> vrfIs(const L3::VrfName& name, std::uint8_t state);
   using VrfStatusTable::vrfIs;
   const Kor::TypeInfo* typeData() const override;
};

} // namespace Ip
