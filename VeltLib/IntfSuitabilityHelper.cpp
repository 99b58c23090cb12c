#include "VeltLib/IntfSuitabilityHelper.h"

#include "Ringlog/ValueCodecs.h"
#include "Trace/Emit.h"
#include "VeltLib/Traces.h"

namespace Velt {

namespace {
enum HelperAttr : Kor::AttrId { kIntfSuitabilityChecker };

// Where a null checker would be filed: no checker carries this name, so the map's key
// check stops the process instead of a null being asked about interfaces later.
const Pelin::String& nullCheckerKey() {
   static const Pelin::String key = "<null checker>";
   return key;
}
} // namespace

IntfSuitabilityHelper::~IntfSuitabilityHelper() {
   beingDestroyedIs();
   publisherDel();
   checkers_.clear();
}

void IntfSuitabilityHelper::intfSuitabilityCheckerIs(
    const Pelin::Ptr<IntfSuitabilityCheckerBase>& checker) {
   const Pelin::String& name = checker ? checker->name() : nullCheckerKey();
   Kor::Stored s = checkers_.set(name, checker);
   if (s == Kor::Stored::added) notify(kIntfSuitabilityChecker, name, Kor::Change::added);
   if (s == Kor::Stored::replaced) notify(kIntfSuitabilityChecker, name, Kor::Change::changed);
}

void IntfSuitabilityHelper::intfSuitabilityCheckerDel(const Pelin::String& name) {
   bool found = false;
   checkers_.erase(name, &found);
   if (found) notify(kIntfSuitabilityChecker, name, Kor::Change::removed);
}

void IntfSuitabilityHelper::intfSuitabilityCheckerDelAll() {
   checkers_.drain([this](const Pelin::String& name, Pelin::Ptr<IntfSuitabilityCheckerBase>&&) {
      notify(kIntfSuitabilityChecker, name, Kor::Change::removed);
   });
}

Pelin::Ptr<IntfSuitabilityCheckerBase>
IntfSuitabilityHelper::intfSuitabilityChecker(const Pelin::String& name) const {
   return checkers_.value(name);
}

bool IntfSuitabilityHelper::isSuitable(Lumo::IntfId intfId) {
   for (const Pelin::Ptr<IntfSuitabilityCheckerBase>& checker : checkers_) {
      if (checker->isSuitable(intfId)) continue;
      VELT_TRACE(nhResolverTrace(), 2, "{} {} failed for {}",
                 "bool Velt::IntfSuitabilityHelper::isSuitable(Lumo::IntfId)", checker->name(),
                 intfId);
      return false;
   }
   return true;
}

Pelin::Ptr<IntfSuitabilityHelper> intfSuitabilityHelperFactory() {
   return Pelin::make<IntfSuitabilityHelper>();
}
Pelin::Ptr<IntfSuitabilityHelper> IntfSuitabilityHelperIs() {
   return intfSuitabilityHelperFactory();
}

} // namespace Velt
