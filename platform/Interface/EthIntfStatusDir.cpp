#include "Interface/EthIntfStatusDir.h"

namespace Interface {

namespace {
enum EthIntfStatusDirAttr : Kor::AttrId { kIntfStatus };
}

void EthIntfStatusDir::intfStatusIs(Lumo::IntfId intfId, IntfOperStatus operStatus) {
   Kor::Stored s = status_.set(intfId.value(), EthIntfStatus{operStatus});
   if (s == Kor::Stored::added) notify(kIntfStatus, intfId.value(), Kor::Change::added);
   if (s == Kor::Stored::replaced) notify(kIntfStatus, intfId.value(), Kor::Change::changed);
}

void EthIntfStatusDir::intfStatusDel(Lumo::IntfId intfId) {
   bool found = false;
   status_.erase(intfId.value(), &found);
   if (found) notify(kIntfStatus, intfId.value(), Kor::Change::removed);
}

void EthIntfStatusDir::intfStatusDelAll() {
   status_.drain([this](std::uint32_t id, EthIntfStatus&&) {
      notify(kIntfStatus, id, Kor::Change::removed);
   });
}

Pelin::Ptr<EthIntfStatusDir> ethIntfStatusDirFactory() {
   return Pelin::make<EthIntfStatusDir>();
}
Pelin::Ptr<EthIntfStatusDir> EthIntfStatusDirIs() { return ethIntfStatusDirFactory(); }

} // namespace Interface
