// Interface::EthIntfStatusDir: the operational status of every Ethernet interface, by
// interface id.
#pragma once
#include "Kor/Entity.h"
#include "Kor/HashMap.h"
#include "Lumo/IntfId.h"
#include "Pelin/Ptr.h"

#include <cstdint>

namespace Interface {

enum class IntfOperStatus : std::uint8_t {
   intfOperUnknown = 0,
   intfOperUp = 1,
   intfOperDown = 2,
   intfOperNotPresent = 3,
};

struct EthIntfStatus {
   IntfOperStatus operStatus = IntfOperStatus::intfOperUnknown;
   friend bool operator==(const EthIntfStatus&, const EthIntfStatus&) = default;
};

class EthIntfStatusDir : public Kor::Notifier {
 public:
   // Keyed by the id's raw value, which is what the map hashes.
   using StatusMap = Kor::ValueMap<std::uint32_t, EthIntfStatus>;

   EthIntfStatusDir() = default;

   // Null when the interface is unknown.
   const EthIntfStatus* intfStatus(Lumo::IntfId intfId) const {
      return status_.find(intfId.value());
   }
   void intfStatusIs(Lumo::IntfId intfId, IntfOperStatus operStatus);
   void intfStatusDel(Lumo::IntfId intfId);
   void intfStatusDelAll();
   const StatusMap& intfStatus() const { return status_; }

 private:
   StatusMap status_;
};

Pelin::Ptr<EthIntfStatusDir> ethIntfStatusDirFactory();
Pelin::Ptr<EthIntfStatusDir> EthIntfStatusDirIs();

} // namespace Interface
