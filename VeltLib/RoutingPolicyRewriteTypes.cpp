#include "VeltLib/RoutingPolicyRewriteTypes.h"

#include "Kor/Hash.h"
#include "Kor/Singleton.h"

#include <fmt/format.h>

namespace Velt {

namespace {

// Reads one field, naming it in the error when its text does not parse.
template <typename T>
T fieldValue(const Kor::Fields& fields, const char* name) {
   const std::string& text = Kor::field(fields, name);
   try {
      return Kor::fromText<T>(text);
   } catch (const Pelin::Exception&) {
      throw Pelin::DeserializationException(name, text);
   }
}

} // namespace

PolicyNexthopGroupRewriteKey::PolicyNexthopGroupRewriteKey(std::string_view text) {
   Kor::Fields f = Kor::parseComposite(text, "Velt::PolicyNexthopGroupRewriteKey");
   srcIntfId = fieldValue<Lumo::IntfId>(f, "srcIntfId");
   oldNhgId = fieldValue<std::uint32_t>(f, "oldNhgId");
   dscp = fieldValue<std::uint8_t>(f, "dscp");
   ipVer = fieldValue<Lumo::AddressFamily>(f, "ipVer");
}

Pelin::String PolicyNexthopGroupRewriteKey::strDesc() const {
   return fmt::format("({}, {}, {})", srcIntfId, oldNhgId, dscp);
}

std::uint32_t PolicyNexthopGroupRewriteKey::hash(std::uint32_t seed) const {
   std::uint32_t h = Kor::hash(srcIntfId.value(), seed);
   h = Kor::hash(oldNhgId, h);
   h = Kor::hash(dscp, h);
   return Kor::hash(ipVer, h);
}

PolicyNexthopGroupRewrite::PolicyNexthopGroupRewrite(std::string_view text) {
   Kor::Fields f = Kor::parseComposite(text, "Velt::PolicyNexthopGroupRewrite");
   key = fieldValue<PolicyNexthopGroupRewriteKey>(f, "key");
   newNhgId = fieldValue<std::uint32_t>(f, "newNhgId");
   policyName = fieldValue<std::string>(f, "policyName");
   className = fieldValue<std::string>(f, "className");
   aclName = fieldValue<std::string>(f, "aclName");
   aceName = fieldValue<std::string>(f, "aceName");
}

PolicyNexthopGroupRewrites::PolicyNexthopGroupRewrites(const Pelin::String& name)
    : Kor::Entity(name) {}

PolicyNexthopGroupRewrites::~PolicyNexthopGroupRewrites() {
   beingDestroyedIs();
   nhgRewriteDelAll();
   publisherDel();
}

Pelin::Ptr<PolicyNexthopGroupRewrites> PolicyNexthopGroupRewrites::rewrites() {
   return Kor::singleton<PolicyNexthopGroupRewrites>("Velt::PolicyNexthopGroupRewrites");
}

void PolicyNexthopGroupRewrites::nhgRewriteIs(const PolicyNexthopGroupRewrite& rewrite) {
   switch (nhgRewrite_.insert(rewrite)) {
   case Kor::Stored::unchanged:
      return;
   case Kor::Stored::added:
      notify(kNhgRewrite, rewrite.key, Kor::Change::added);
      return;
   case Kor::Stored::replaced:
      notify(kNhgRewrite, rewrite.key, Kor::Change::changed);
      return;
   }
}

void PolicyNexthopGroupRewrites::nhgRewriteDel(const PolicyNexthopGroupRewriteKey& key) {
   bool found = false;
   nhgRewrite_.erase(key, &found);
   if (found) notify(kNhgRewrite, key, Kor::Change::removed);
}

void PolicyNexthopGroupRewrites::nhgRewriteDelAll() {
   nhgRewrite_.drain([this](const PolicyNexthopGroupRewriteKey& key, auto&&) {
      notify(kNhgRewrite, key, Kor::Change::removed);
   });
}

const Kor::TypeInfo* PolicyNexthopGroupRewrites::typeData() const {
   using T = PolicyNexthopGroupRewrites;
   static const Kor::TypeInfo info =
       Kor::TypeBuilder<T>("Velt::PolicyNexthopGroupRewrites")
           .value("name", static_cast<const std::string& (T::*)() const>(&T::name))
           .collection("nhgRewrite",
                       static_cast<const Map& (T::*)() const>(&T::nhgRewrite))
           .action("nhgRewriteDelAll", &T::nhgRewriteDelAll)
           .build();
   return &info;
}

const Kor::TypeInfo* PolicyNexthopGroupCounterActionInfo::typeData() const {
   using T = PolicyNexthopGroupCounterActionInfo;
   static const Kor::TypeInfo info =
       Kor::TypeBuilder<T>("Velt::PolicyNexthopGroupCounterActionInfo")
           .value("name", &T::name)
           .value("policyName", &T::policyName)
           .value("className", &T::className)
           .value("aclName", &T::aclName)
           .value("aceName", &T::aceName)
           .build();
   return &info;
}

Pelin::Ptr<PolicyNexthopGroupRewrites>
policyNexthopGroupRewritesFactory(const Pelin::String& name) {
   return Pelin::make<PolicyNexthopGroupRewrites>(name);
}

Pelin::Ptr<PolicyNexthopGroupRewrites>
PolicyNexthopGroupRewritesIs(const Pelin::String& name) {
   return policyNexthopGroupRewritesFactory(name);
}

Pelin::Ptr<PolicyNexthopGroupCounterActionInfo>
policyNexthopGroupCounterActionInfoFactory(const Pelin::String& policyName,
                                           const Pelin::String& className,
                                           const Pelin::String& aclName,
                                           const Pelin::String& aceName) {
   return Pelin::make<PolicyNexthopGroupCounterActionInfo>(policyName, className, aclName,
                                                           aceName);
}

Pelin::Ptr<PolicyNexthopGroupCounterActionInfo> PolicyNexthopGroupCounterActionInfoIs(
    const Pelin::String& policyName, const Pelin::String& className,
    const Pelin::String& aclName, const Pelin::String& aceName) {
   return policyNexthopGroupCounterActionInfoFactory(policyName, className, aclName,
                                                     aceName);
}

} // namespace Velt

std::string Kor::ValueText<Velt::PolicyNexthopGroupRewriteKey>::print(
    const Velt::PolicyNexthopGroupRewriteKey& k) {
   return Kor::printComposite({{"srcIntfId", Kor::toText(k.srcIntfId)},
                               {"oldNhgId", Kor::toText(k.oldNhgId)},
                               {"dscp", Kor::toText(k.dscp)},
                               {"ipVer", Kor::toText(k.ipVer)}});
}

std::string Kor::ValueText<Velt::PolicyNexthopGroupRewrite>::print(
    const Velt::PolicyNexthopGroupRewrite& r) {
   return Kor::printComposite({{"key", Kor::toText(r.key)},
                               {"newNhgId", Kor::toText(r.newNhgId)},
                               {"policyName", Kor::toText(r.policyName)},
                               {"className", Kor::toText(r.className)},
                               {"aclName", Kor::toText(r.aclName)},
                               {"aceName", Kor::toText(r.aceName)}});
}
