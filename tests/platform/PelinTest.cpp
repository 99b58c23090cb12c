#include "Pelin/Assert.h"
#include "Pelin/Exception.h"
#include "Pelin/Ptr.h"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

namespace {

struct Probe : Pelin::Node {
   explicit Probe(int* gone) : gone_(gone) {}
   ~Probe() override { ++*gone_; }
   int* gone_;
};

struct Derived : Probe {
   using Probe::Probe;
};

struct Throws : Pelin::Node {
   Throws() { throw Pelin::RangeException("no"); }
};

TEST(PelinPtr, CountsReferencesAndFreesOnLastUser) {
   int gone = 0;
   {
      Pelin::Ptr<Probe> a = Pelin::make<Probe>(&gone);
      EXPECT_EQ(a->references(), 1u);
      Pelin::Ptr<Probe const> b = a; // pointer to const shares the count
      EXPECT_EQ(a->references(), 2u);
      Pelin::Ptr<Probe> c = std::move(a);
      EXPECT_FALSE(a);
      EXPECT_EQ(c->references(), 2u);
      EXPECT_EQ(Pallox::liveCountOf<Probe>(), 1u);
   }
   EXPECT_EQ(gone, 1);
   EXPECT_EQ(Pallox::liveCountOf<Probe>(), 0u);
}

TEST(PelinPtr, CheckedCastFollowsDynamicType) {
   int gone = 0;
   Pelin::Ptr<Probe> base = Pelin::make<Derived>(&gone);
   EXPECT_TRUE(Pelin::ptr_cast<Derived>(base));
   Pelin::Ptr<Pelin::Node> node = base;
   EXPECT_FALSE(Pelin::ptr_cast<Throws>(node));
   EXPECT_FALSE(Pelin::ptr_cast<Derived>(Pelin::Ptr<Probe>()));
}

TEST(PelinPtr, MultiThreadedModeKeepsCountsExact) {
   int gone = 0;
   Pelin::multiThreadedIs(true);
   {
      auto p = Pelin::make<Probe>(&gone);
      std::vector<std::thread> threads;
      for (int t = 0; t < 2; ++t) {
         threads.emplace_back([p] {
            for (int i = 0; i < 100000; ++i) Pelin::Ptr<Probe> copy = p;
         });
      }
      for (auto& t : threads) t.join();
      EXPECT_EQ(p->references(), 1u);
   }
   Pelin::multiThreadedIs(false);
   EXPECT_EQ(gone, 1);
}

TEST(Pallox, ThrowingConstructorReturnsItsSlot) {
   EXPECT_THROW(Pelin::make<Throws>(), Pelin::RangeException);
   EXPECT_EQ(Pallox::liveCountOf<Throws>(), 0u);
   EXPECT_EQ(Pallox::statsFor<Throws>().total.load(), 1u);
}

TEST(Pallox, SlotsAreReusedAndCountsListed) {
   int gone = 0;
   void* first;
   {
      auto p = Pelin::make<Probe>(&gone);
      first = p.get();
   }
   auto again = Pelin::make<Probe>(&gone);
   EXPECT_EQ(again.get(), first);
   bool listed = false;
   for (const auto& t : Pallox::allTypeCounts()) {
      if (t.name == "(anonymous namespace)::Probe") listed = t.live == 1;
   }
   EXPECT_TRUE(listed);
}

TEST(PelinAssertDeathTest, PrintsExpressionAndSignature) {
   auto fails = [](int v) { VELT_ASSERT(v != 0); };
   EXPECT_DEATH(fails(0), "Assertion failed: v != 0\n  in .*(lambda|anonymous class)");
}

} // namespace
