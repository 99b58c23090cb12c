#include "Ip/VrfStatus.h"

namespace Ip {

const Kor::TypeInfo* VrfStatusGlobal::typeData() const {
   static const Kor::TypeInfo info = Kor::TypeBuilder<VrfStatusGlobal>("Ip::VrfStatusGlobal")
                                         .value("name", &VrfStatusGlobal::name)
                                         .build();
   return &info;
}

const Kor::TypeInfo* VrfStatusLocal::typeData() const {
   static const Kor::TypeInfo info = Kor::TypeBuilder<VrfStatusLocal>("Ip::VrfStatusLocal")
                                         .value("name", &VrfStatusLocal::name)
                                         .value("state", &VrfStatusLocal::state)
                                         .build();
   return &info;
}

Pelin::Ptr<VrfStatusGlobal> AllVrfStatusGlobal::vrfIs(const L3::VrfName& name) {
   if (Pelin::Ptr<VrfStatusGlobal> found = vrf(name)) return found;
   Pelin::Ptr<VrfStatusGlobal> status = Pelin::make<VrfStatusGlobal>(name);
   vrfIs(status);
   return status;
}

const Kor::TypeInfo* AllVrfStatusGlobal::typeData() const {
   using T = AllVrfStatusGlobal;
   static const Kor::TypeInfo info =
       Kor::TypeBuilder<T>("Ip::AllVrfStatusGlobal")
           .collection("vrf", static_cast<const VrfMap& (T::*)() const>(&T::vrf))
           .build();
   return &info;
}

Pelin::Ptr<VrfStatusLocal> AllVrfStatusLocal::vrfIs(const L3::VrfName& name,
                                                     std::uint8_t state) {
   if (Pelin::Ptr<VrfStatusLocal> found = vrf(name)) {
      found->stateIs(state);
      return found;
   }
   Pelin::Ptr<VrfStatusLocal> status = Pelin::make<VrfStatusLocal>(name, state);
   vrfIs(status);
   return status;
}

const Kor::TypeInfo* AllVrfStatusLocal::typeData() const {
   using T = AllVrfStatusLocal;
   static const Kor::TypeInfo info =
       Kor::TypeBuilder<T>("Ip::AllVrfStatusLocal")
           .collection("vrf", static_cast<const VrfMap& (T::*)() const>(&T::vrf))
           .build();
   return &info;
}

} // namespace Ip
