// Policy redirections of next-hop groups: the process-wide table that sends traffic of
// one interface, group, DSCP and IP version to another group, and the counter action
// naming the policy element to count when a redirection is applied.
#pragma once
#include "Kor/Entity.h"
#include "Kor/HashMap.h"
#include "Kor/TypeInfo.h"
#include "Lumo/AddressFamily.h"
#include "Lumo/IntfId.h"
#include "Pelin/Ptr.h"
#include "VeltLib/RoutingRewriteInfoTypes.h"

#include <compare>
#include <cstdint>
#include <string_view>

namespace Velt {

struct PolicyNexthopGroupRewriteKey {
   PolicyNexthopGroupRewriteKey() = default;
   PolicyNexthopGroupRewriteKey(Lumo::IntfId srcIntfId, std::uint32_t oldNhgId,
                                std::uint8_t dscp, Lumo::AddressFamily ipVer)
       : srcIntfId(srcIntfId), oldNhgId(oldNhgId), dscp(dscp), ipVer(ipVer) {}
   // "{srcIntfId=Ethernet1, oldNhgId=7, dscp=46, ipVer=ipv4_}".
   explicit PolicyNexthopGroupRewriteKey(std::string_view text);

   // "(<interface>, <oldNhgId>, <dscp>)": the IP version is left out.
   Pelin::String strDesc() const;
   std::uint32_t hash(std::uint32_t seed) const;

   friend bool operator==(const PolicyNexthopGroupRewriteKey&,
                          const PolicyNexthopGroupRewriteKey&) = default;
   friend auto operator<=>(const PolicyNexthopGroupRewriteKey&,
                           const PolicyNexthopGroupRewriteKey&) = default;

   Lumo::IntfId srcIntfId;
   std::uint32_t oldNhgId = 0;
   std::uint8_t dscp = 0;
   Lumo::AddressFamily ipVer = Lumo::AddressFamily::ipunknown_;
};

// One redirection and the policy element that caused it.
struct PolicyNexthopGroupRewrite {
   PolicyNexthopGroupRewrite() = default;
   PolicyNexthopGroupRewrite(const PolicyNexthopGroupRewriteKey& key,
                             std::uint32_t newNhgId, const Pelin::String& policyName,
                             const Pelin::String& className, const Pelin::String& aclName,
                             const Pelin::String& aceName)
       : key(key), newNhgId(newNhgId), policyName(policyName), className(className),
         aclName(aclName), aceName(aceName) {}
   // The composite text form, the key nested: "{key={...}, newNhgId=9, policyName=p,
   // ...}".
   explicit PolicyNexthopGroupRewrite(std::string_view text);

   friend bool operator==(const PolicyNexthopGroupRewrite&,
                          const PolicyNexthopGroupRewrite&) = default;
   // False for the default rewrite, which stands for "none".
   explicit operator bool() const { return *this != PolicyNexthopGroupRewrite(); }

   PolicyNexthopGroupRewriteKey key;
   std::uint32_t newNhgId = 0;
   Pelin::String policyName;
   Pelin::String className;
   Pelin::String aclName;
   Pelin::String aceName;
};

struct PolicyNexthopGroupRewriteKeyOf {
   const PolicyNexthopGroupRewriteKey&
   operator()(const PolicyNexthopGroupRewrite& r) const {
      return r.key;
   }
};

// The table of redirections; one per process, found with rewrites().
class PolicyNexthopGroupRewrites : public Kor::Entity {
 public:
   using Map = Kor::HashMap<PolicyNexthopGroupRewriteKey, PolicyNexthopGroupRewrite,
                            PolicyNexthopGroupRewriteKeyOf>;
   enum Attr : Kor::AttrId { kName, kNhgRewrite };

   explicit PolicyNexthopGroupRewrites(const Pelin::String& name);
   ~PolicyNexthopGroupRewrites() override;
   static Pelin::Ptr<PolicyNexthopGroupRewrites> rewrites();

   const Map& nhgRewrite() const { return nhgRewrite_; }
   // The stored rewrite, or the default (false) one when the key is absent.
   PolicyNexthopGroupRewrite nhgRewrite(const PolicyNexthopGroupRewriteKey& key) const {
      return nhgRewrite_.value(key);
   }
   // Each publishes only a real change.
   void nhgRewriteIs(const PolicyNexthopGroupRewrite& rewrite);
   void nhgRewriteDel(const PolicyNexthopGroupRewriteKey& key);
   void nhgRewriteDelAll();

   const Kor::TypeInfo* typeData() const override;

 private:
   Map nhgRewrite_;
};

class PolicyNexthopGroupCounterActionInfo : public CounterActionInfo {
 public:
   PolicyNexthopGroupCounterActionInfo(const Pelin::String& policyName,
                                       const Pelin::String& className,
                                       const Pelin::String& aclName,
                                       const Pelin::String& aceName)
       : policyName_(policyName), className_(className), aclName_(aclName),
         aceName_(aceName) {}
   Pelin::String name() const override { return "PolicyNexthopGroupCounterActionInfo"; }

   const Pelin::String& policyName() const { return policyName_; }
   const Pelin::String& className() const { return className_; }
   const Pelin::String& aclName() const { return aclName_; }
   const Pelin::String& aceName() const { return aceName_; }
   const Kor::TypeInfo* typeData() const override;

 private:
   Pelin::String policyName_;
   Pelin::String className_;
   Pelin::String aclName_;
   Pelin::String aceName_;
};

Pelin::Ptr<PolicyNexthopGroupRewrites>
policyNexthopGroupRewritesFactory(const Pelin::String& name);
Pelin::Ptr<PolicyNexthopGroupRewrites>
PolicyNexthopGroupRewritesIs(const Pelin::String& name);

Pelin::Ptr<PolicyNexthopGroupCounterActionInfo>
policyNexthopGroupCounterActionInfoFactory(const Pelin::String& policyName,
                                           const Pelin::String& className,
                                           const Pelin::String& aclName,
                                           const Pelin::String& aceName);
Pelin::Ptr<PolicyNexthopGroupCounterActionInfo> PolicyNexthopGroupCounterActionInfoIs(
    const Pelin::String& policyName, const Pelin::String& className,
    const Pelin::String& aclName, const Pelin::String& aceName);

} // namespace Velt

template <>
struct Kor::ValueText<Velt::PolicyNexthopGroupRewriteKey> {
   static std::string print(const Velt::PolicyNexthopGroupRewriteKey& k);
   static Velt::PolicyNexthopGroupRewriteKey parse(std::string_view s) {
      return Velt::PolicyNexthopGroupRewriteKey(s);
   }
};

template <>
struct Kor::ValueText<Velt::PolicyNexthopGroupRewrite> {
   static std::string print(const Velt::PolicyNexthopGroupRewrite& r);
   static Velt::PolicyNexthopGroupRewrite parse(std::string_view s) {
      return Velt::PolicyNexthopGroupRewrite(s);
   }
};

template <>
struct fmt::formatter<Velt::PolicyNexthopGroupRewriteKey>
    : Lumo::ValueFormatter<Velt::PolicyNexthopGroupRewriteKey> {};
