#include "VeltLib/RoutingRewriteInfoTypes.h"

namespace Velt {

Pelin::Ptr<CounterActionInfo> RewriteInfos::findCounterActionWithName(const Pelin::String& name) {
   for (const auto& action : finalCounterActionInfo_) {
      if (action->name() == name) return action;
   }
   return nullptr;
}

Pelin::Ptr<CounterActionInfo const>
RewriteInfos::findConstCounterActionWithName(const Pelin::String& name) const {
   for (const auto& action : finalCounterActionInfo_) {
      if (action->name() == name) return action;
   }
   return nullptr;
}

std::int32_t RewriteInfos::l2SizeChange() const {
   std::int32_t sum = 0;
   for (const auto& r : rewriteInfo_) sum += r->l2SizeChange();
   return sum;
}

std::int32_t RewriteInfos::l3SizeChange() const {
   std::int32_t sum = 0;
   for (const auto& r : rewriteInfo_) sum += r->l3SizeChange();
   return sum;
}

int RewriteInfos::newTtl(int inputTtl) const {
   int ttl = inputTtl;
   for (const auto& r : rewriteInfo_) ttl = r->newTtl(ttl);
   return ttl;
}

void RewriteInfos::copyFrom(const Pelin::Ptr<RewriteInfos>& other) {
   for (const auto& r : other->rewriteInfo_) rewriteInfo_.enq(r);
   for (const auto& c : other->finalCounterActionInfo_) finalCounterActionInfo_.enq(c);
}

Pelin::Ptr<RewriteInfos> RewriteInfosIs() { return Pelin::make<RewriteInfos>(); }
Pelin::Ptr<RewriteInfos> rewriteInfosFactory() { return Pelin::make<RewriteInfos>(); }

} // namespace Velt

namespace Velt {

const Kor::TypeInfo* RewriteInfos::typeData() const {
   static const Kor::TypeInfo info =
       Kor::TypeBuilder<RewriteInfos>("Velt::RewriteInfos")
           .collection("rewriteInfo", &RewriteInfos::rewriteInfo)
           .collection("finalCounterActionInfo", &RewriteInfos::finalCounterActionInfo)
           .value("l2SizeChange", &RewriteInfos::l2SizeChange)
           .value("l3SizeChange", &RewriteInfos::l3SizeChange)
           .build();
   return &info;
}

} // namespace Velt
