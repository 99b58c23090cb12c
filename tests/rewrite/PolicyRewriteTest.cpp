#include "Kor/Hash.h"
#include "Kor/Singleton.h"
#include "VeltLib/RoutingPolicyRewriteTypes.h"

#include <gtest/gtest.h>

#include <array>

using namespace Velt;
using Key = PolicyNexthopGroupRewriteKey;
using Lumo::AddressFamily;

namespace {

const Lumo::IntfId eth1("Ethernet1");
const Key v4Key(eth1, 7, 46, AddressFamily::ipv4_);
const Key v6Key(eth1, 7, 46, AddressFamily::ipv6_);

PolicyNexthopGroupRewrite rewrite(const Key& key, std::uint32_t newNhgId) {
   return {key, newNhgId, "pol", "cls", "acl", "ace 10"};
}

// Counts the table's collection changes by kind.
struct ChangeCounter : Kor::Notifiee {
   void onCollection(Kor::AttrId attr, const Kor::KeyRef& key, Kor::Change c) override {
      EXPECT_EQ(attr, PolicyNexthopGroupRewrites::kNhgRewrite);
      EXPECT_TRUE(key.is<Key>());
      ++counts[static_cast<int>(c)];
   }
   std::array<int, 3> counts{}; // added, changed, removed
};

} // namespace

TEST(PolicyRewriteKey, VersionIsKeyedButNotPrinted) {
   EXPECT_EQ(v4Key.strDesc(), "(Ethernet1, 7, 46)");
   EXPECT_EQ(v6Key.strDesc(), v4Key.strDesc());
   EXPECT_NE(v4Key, v6Key);
   EXPECT_LT(v4Key, v6Key);
   EXPECT_LT(Key(eth1, 7, 47, AddressFamily::ipv4_),
             Key(eth1, 8, 0, AddressFamily::ipv4_));
   EXPECT_LT(Key(eth1, 9, 0, AddressFamily::ipv4_),
             Key(Lumo::IntfId("Ethernet2"), 1, 0, AddressFamily::ipv4_));
   std::uint32_t seed = Kor::hashSeed();
   EXPECT_EQ(v4Key.hash(seed), Key(v4Key).hash(seed));
   EXPECT_NE(v4Key.hash(seed), v6Key.hash(seed));
}

TEST(PolicyRewriteKey, ParsesTheCompositeText) {
   auto key =
       Kor::fromText<Key>("{srcIntfId=Ethernet1, oldNhgId=7, dscp=46, ipVer=ipv6_}");
   EXPECT_EQ(key, v6Key);
   EXPECT_EQ(Kor::fromText<Key>(Kor::toText(v4Key)), v4Key);
   auto r = rewrite(v6Key, 9);
   EXPECT_EQ(Kor::fromText<PolicyNexthopGroupRewrite>(Kor::toText(r)), r);
   EXPECT_THROW(
       Kor::fromText<Key>("{srcIntfId=Ethernet1, oldNhgId=7, dscp=300, ipVer=ipv4_}"),
       Pelin::DeserializationException);
   EXPECT_THROW(Kor::fromText<Key>("{srcIntfId=Ethernet1}"),
                Pelin::DeserializationException);
}

TEST(PolicyRewrites, PublishesOnlyChanges) {
   auto table = PolicyNexthopGroupRewritesIs("t");
   ChangeCounter counter;
   counter.notifierIs(table.get());
   counter.hasNotificationActiveIs(true);

   table->nhgRewriteIs(rewrite(v4Key, 9));
   table->nhgRewriteIs(rewrite(v4Key, 9));
   EXPECT_EQ(counter.counts, (std::array<int, 3>{1, 0, 0}));
   table->nhgRewriteIs(rewrite(v4Key, 10));
   EXPECT_EQ(counter.counts, (std::array<int, 3>{1, 1, 0}));
   EXPECT_EQ(table->nhgRewrite(v4Key).newNhgId, 10u);

   EXPECT_FALSE(table->nhgRewrite(v6Key));
   table->nhgRewriteIs(rewrite(v6Key, 11));
   EXPECT_EQ(table->nhgRewrite().size(), 2u);
   EXPECT_EQ(table->nhgRewrite(v6Key).newNhgId, 11u);

   table->nhgRewriteDel(Key(eth1, 8, 46, AddressFamily::ipv4_));
   table->nhgRewriteDel(v6Key);
   EXPECT_EQ(counter.counts, (std::array<int, 3>{2, 1, 1}));
   table->nhgRewriteIs(rewrite(v6Key, 11));
   table->nhgRewriteDelAll();
   EXPECT_EQ(counter.counts, (std::array<int, 3>{3, 1, 3}));
   EXPECT_TRUE(table->nhgRewrite().empty());
}

TEST(PolicyRewrites, SingletonAndCounterAction) {
   auto table = PolicyNexthopGroupRewrites::rewrites();
   EXPECT_EQ(table.get(), PolicyNexthopGroupRewrites::rewrites().get());
   EXPECT_EQ(table->name(), "Velt::PolicyNexthopGroupRewrites");
   table->nhgRewriteIs(rewrite(v4Key, 3));
   int entries = 0;
   Kor::forEach(*table, "nhgRewrite", [&](const Kor::CollectionEntry& e) {
      EXPECT_EQ(e.key, Kor::toText(v4Key));
      ++entries;
   });
   EXPECT_EQ(entries, 1);
   Kor::singletonDel("Velt::PolicyNexthopGroupRewrites");

   auto list = RewriteInfosIs();
   auto action = PolicyNexthopGroupCounterActionInfoIs("pol", "cls", "acl", "ace 10");
   list->finalCounterActionInfoEnq(action);
   auto found = list->findCounterActionWithName("PolicyNexthopGroupCounterActionInfo");
   EXPECT_EQ(found.get(), action.get());
   EXPECT_EQ(Kor::get(*found, "aceName"), "\"ace 10\"");
}
