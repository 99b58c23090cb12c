#include "VeltLib/IntfSuitabilityCheckerTypes.h"

namespace Velt {

IntfOperStatusSuitabilityChecker::IntfOperStatusSuitabilityChecker(
    const Pelin::Ptr<Interface::EthIntfStatusDir const>& ethIntfStatusDir)
    : IntfSuitabilityCheckerBase("IntfOperStatusSuitabilityChecker"),
      ethIntfStatusDir_(ethIntfStatusDir) {}

bool IntfOperStatusSuitabilityChecker::isSuitable(Lumo::IntfId intfId) {
   if (!ethIntfStatusDir_) return true;
   const Interface::EthIntfStatus* status = ethIntfStatusDir_->intfStatus(intfId);
   return !status || status->operStatus == Interface::IntfOperStatus::intfOperUp;
}

Pelin::Ptr<IntfOperStatusSuitabilityChecker> intfOperStatusSuitabilityCheckerFactory(
    const Pelin::Ptr<Interface::EthIntfStatusDir const>& ethIntfStatusDir) {
   return Pelin::make<IntfOperStatusSuitabilityChecker>(ethIntfStatusDir);
}
Pelin::Ptr<IntfOperStatusSuitabilityChecker> IntfOperStatusSuitabilityCheckerIs(
    const Pelin::Ptr<Interface::EthIntfStatusDir const>& ethIntfStatusDir) {
   return intfOperStatusSuitabilityCheckerFactory(ethIntfStatusDir);
}

} // namespace Velt
