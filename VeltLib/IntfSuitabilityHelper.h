// IntfSuitabilityHelper: whether an output interface may carry traffic now. It holds named
// checkers and says yes only when every one of them does.
#pragma once
#include "Kor/Entity.h"
#include "Kor/HashMap.h"
#include "Lumo/IntfId.h"
#include "Pelin/Ptr.h"
#include "VeltLib/IntfSuitabilityCheckerTypes.h"

namespace Velt {

class IntfSuitabilityHelper : public Kor::Notifier {
 public:
   using CheckerMap = Kor::HashMap<Pelin::String, Pelin::Ptr<IntfSuitabilityCheckerBase>,
                                   Kor::PtrKey<&IntfSuitabilityCheckerBase::name>>;

   IntfSuitabilityHelper() = default;
   ~IntfSuitabilityHelper() override;

   // Files the checker under its name, replacing a checker of the same name.
   void intfSuitabilityCheckerIs(const Pelin::Ptr<IntfSuitabilityCheckerBase>& checker);
   void intfSuitabilityCheckerDel(const Pelin::String& name);
   void intfSuitabilityCheckerDelAll();
   Pelin::Ptr<IntfSuitabilityCheckerBase> intfSuitabilityChecker(const Pelin::String& name) const;
   const CheckerMap& intfSuitabilityChecker() const { return checkers_; }

   // Asks the checkers in map order and stops at the first veto, which is traced.
   bool isSuitable(Lumo::IntfId intfId);

 private:
   CheckerMap checkers_;
};

Pelin::Ptr<IntfSuitabilityHelper> intfSuitabilityHelperFactory();
Pelin::Ptr<IntfSuitabilityHelper> IntfSuitabilityHelperIs();

} // namespace Velt
