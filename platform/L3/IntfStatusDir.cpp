#include "L3/IntfStatusDir.h"

namespace L3::Intf {

namespace {
enum StatusDirAttr : Kor::AttrId { kIntfStatus };
}

void StatusDir::intfStatusIs(Lumo::IntfId intfId, const L3::VrfName& vrfName) {
   Kor::Stored s = status_.set(intfId.value(), Status{vrfName});
   if (s == Kor::Stored::added) notify(kIntfStatus, intfId.value(), Kor::Change::added);
   if (s == Kor::Stored::replaced) notify(kIntfStatus, intfId.value(), Kor::Change::changed);
}

void StatusDir::intfStatusDel(Lumo::IntfId intfId) {
   bool found = false;
   status_.erase(intfId.value(), &found);
   if (found) notify(kIntfStatus, intfId.value(), Kor::Change::removed);
}

void StatusDir::intfStatusDelAll() {
   status_.drain([this](std::uint32_t id, Status&&) {
      notify(kIntfStatus, id, Kor::Change::removed);
   });
}

Pelin::Ptr<StatusDir> statusDirFactory() { return Pelin::make<StatusDir>(); }
Pelin::Ptr<StatusDir> StatusDirIs() { return statusDirFactory(); }

} // namespace L3::Intf
