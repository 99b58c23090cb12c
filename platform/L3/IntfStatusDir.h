// L3::Intf::StatusDir: the status of every L3 interface, by interface id. Resolution reads
// an interface's VRF from it to tell when a via leaves the VRF being resolved in.
#pragma once
#include "Kor/Entity.h"
#include "Kor/HashMap.h"
#include "L3/VrfName.h"
#include "Lumo/IntfId.h"
#include "Pelin/Ptr.h"

#include <cstdint>

namespace L3::Intf {

struct Status {
   L3::VrfName vrfName;
   friend bool operator==(const Status&, const Status&) = default;
};

class StatusDir : public Kor::Notifier {
 public:
   // Keyed by the id's raw value, which is what the map hashes.
   using StatusMap = Kor::ValueMap<std::uint32_t, Status>;

   StatusDir() = default;

   // Null when the interface is unknown.
   const Status* intfStatus(Lumo::IntfId intfId) const { return status_.find(intfId.value()); }
   void intfStatusIs(Lumo::IntfId intfId, const L3::VrfName& vrfName);
   void intfStatusDel(Lumo::IntfId intfId);
   void intfStatusDelAll();
   const StatusMap& intfStatus() const { return status_; }

 private:
   StatusMap status_;
};

Pelin::Ptr<StatusDir> statusDirFactory();
Pelin::Ptr<StatusDir> StatusDirIs();

} // namespace L3::Intf
