// Checkers that may veto an output interface: each says whether traffic may be sent out of
// an interface now. IntfOperStatusSuitabilityChecker vetoes Ethernet interfaces that are
// known and not operationally up.
#pragma once
#include "Interface/EthIntfStatusDir.h"
#include "Lumo/IntfId.h"
#include "Pelin/Ptr.h"

namespace Velt {

class IntfSuitabilityCheckerBase : public Pelin::Node {
 public:
   explicit IntfSuitabilityCheckerBase(const Pelin::String& name) : name_(name) {}
   // The checker's key in the helper.
   const Pelin::String& name() const { return name_; }
   virtual bool isSuitable(Lumo::IntfId intfId) = 0;

 private:
   Pelin::String name_;
};

class IntfOperStatusSuitabilityChecker : public IntfSuitabilityCheckerBase {
 public:
   explicit IntfOperStatusSuitabilityChecker(
       const Pelin::Ptr<Interface::EthIntfStatusDir const>& ethIntfStatusDir);

   const Pelin::Ptr<Interface::EthIntfStatusDir const>& ethIntfStatusDir() const {
      return ethIntfStatusDir_;
   }
   // Only a known interface that is not up is vetoed: interfaces that are not Ethernet, or
   // not known yet, are left to the other checkers.
   bool isSuitable(Lumo::IntfId intfId) override;

 private:
   Pelin::Ptr<Interface::EthIntfStatusDir const> ethIntfStatusDir_;
};

Pelin::Ptr<IntfOperStatusSuitabilityChecker> intfOperStatusSuitabilityCheckerFactory(
    const Pelin::Ptr<Interface::EthIntfStatusDir const>& ethIntfStatusDir);
Pelin::Ptr<IntfOperStatusSuitabilityChecker> IntfOperStatusSuitabilityCheckerIs(
    const Pelin::Ptr<Interface::EthIntfStatusDir const>& ethIntfStatusDir);

} // namespace Velt
