#include "Kor/HashMap.h"
#include "Pelin/Ptr.h"

#include <gtest/gtest.h>

#include <set>
#include <string>

namespace {

struct Resolver : Pelin::Node {
   explicit Resolver(std::uint8_t type) : type_(type) {}
   std::uint8_t type() const { return type_; }
   std::uint8_t type_;
};

using Registry = Kor::HashMap<std::uint8_t, Pelin::Ptr<Resolver>, Kor::PtrKey<&Resolver::type>>;

TEST(KorHashMap, LastRegistrationWinsAndReleasesTheFirst) {
   Registry m;
   auto first = Pelin::make<Resolver>(7);
   EXPECT_EQ(m.insert(first), Kor::Stored::added);
   EXPECT_EQ(m.insert(first), Kor::Stored::unchanged);
   EXPECT_EQ(m.insert(Pelin::make<Resolver>(7)), Kor::Stored::replaced);
   EXPECT_EQ(m.size(), 1u);
   EXPECT_NE(m.value(7), first);
   EXPECT_EQ(first->references(), 1u);
   EXPECT_EQ(m.value(8), nullptr);
   EXPECT_EQ(m.find(8), nullptr);
}

TEST(KorHashMap, EraseReturnsTheOldValue) {
   Registry m;
   auto r = Pelin::make<Resolver>(3);
   m.insert(r);
   bool found = true;
   EXPECT_EQ(m.erase(4, &found), nullptr);
   EXPECT_FALSE(found);
   EXPECT_EQ(m.erase(3, &found), r);
   EXPECT_TRUE(found);
   EXPECT_TRUE(m.empty());
   EXPECT_EQ(r->references(), 1u);
}

// Many keys force growth and long probe chains; erasing half must keep the rest findable.
TEST(KorHashMap, SurvivesGrowthAndInterleavedErase) {
   Kor::ValueMap<std::uint32_t, std::string> m;
   for (std::uint32_t k = 0; k < 500; ++k) m.set(k * 16, std::to_string(k));
   for (std::uint32_t k = 0; k < 500; k += 2) m.erase(k * 16);
   EXPECT_EQ(m.size(), 250u);
   for (std::uint32_t k = 0; k < 500; ++k) {
      const std::string* v = m.find(k * 16);
      if (k % 2) {
         ASSERT_TRUE(v) << k;
         EXPECT_EQ(*v, std::to_string(k));
      } else {
         EXPECT_FALSE(v) << k;
      }
   }
   std::set<std::uint32_t> seen;
   for (const auto& [k, v] : m) seen.insert(k);
   EXPECT_EQ(seen.size(), 250u);
   m.clear();
   EXPECT_TRUE(m.empty());
   EXPECT_EQ(m.begin(), m.end());
}

TEST(KorHashMap, StringKeysHashUnderTheProcessSeed) {
   Kor::ValueMap<std::string, int> m;
   m.set("default", 0);
   m.set("red", 5);
   EXPECT_EQ(m.value("red"), 5);
   EXPECT_EQ(m.value("blue"), 0);
   EXPECT_EQ(Kor::hash(std::string("red"), Kor::hashSeed()), Kor::hash("red", Kor::hashSeed()));
   EXPECT_NE(Kor::hash("red", 1), Kor::hash("red", 2));
}

TEST(KorHashMapDeathTest, ValueCarryingAnotherKeyAsserts) {
   Registry m;
   auto r = Pelin::make<Resolver>(2);
   EXPECT_DEATH(m.set(9, r), "Assertion failed: fwkKey\\(\\) == KeyFunktor\\(\\)\\( _value \\)");
}

} // namespace
