#include "VeltLib/RoutingRewriteInfoTypes.h"

#include <gtest/gtest.h>

#include <vector>

using namespace Velt;

namespace {

// A record that says nothing about layer 2, so the list must fall back on layer 3.
struct L3Only : RewriteInfo {
   explicit L3Only(int bytes) : bytes(bytes) {}
   Pelin::String name() const override { return "L3Only"; }
   std::int32_t l3SizeChange() const override { return bytes; }
   int bytes;
};

struct NamedAction : CounterActionInfo {
   explicit NamedAction(Pelin::String n) : n(std::move(n)) {}
   Pelin::String name() const override { return n; }
   Pelin::String n;
};

std::vector<RewriteInfo*> records(const RewriteInfos& list) {
   std::vector<RewriteInfo*> out;
   for (const auto& r : list.rewriteInfo())
      out.push_back(r.get());
   return out;
}

} // namespace

TEST(RewriteInfos, EmptyListChangesNothing) {
   auto list = RewriteInfosIs();
   EXPECT_EQ(list->l2SizeChange(), 0);
   EXPECT_EQ(list->l3SizeChange(), 0);
   EXPECT_EQ(list->newTtl(17), 17);
   EXPECT_FALSE(list->findCounterActionWithName("x"));
   EXPECT_FALSE(list->findConstCounterActionWithName("x"));
}

TEST(RewriteInfos, LayerTwoDefaultsToLayerThree) {
   auto list = RewriteInfosIs();
   list->rewriteInfoEnq(Pelin::make<L3Only>(20));
   EXPECT_EQ(list->l2SizeChange(), 20);
   list->rewriteInfoEnq(Pelin::make<L3Only>(-6));
   EXPECT_EQ(list->l3SizeChange(), 14);
   EXPECT_EQ(list->l2SizeChange(), 14);
}

TEST(RewriteInfos, FirstOfSameNamedActionsIsFound) {
   auto list = RewriteInfosIs();
   auto other = Pelin::make<NamedAction>("other");
   auto first = Pelin::make<NamedAction>("count");
   auto second = Pelin::make<NamedAction>("count");
   for (auto& a : {other, first, second})
      list->finalCounterActionInfoEnq(a);
   EXPECT_EQ(list->findCounterActionWithName("count").get(), first.get());
   EXPECT_EQ(list->findConstCounterActionWithName("count").get(), first.get());
   EXPECT_FALSE(list->findCounterActionWithName("coun"));
}

TEST(RewriteInfos, CopyFromConcatenatesAndShares) {
   auto dst = RewriteInfosIs();
   auto a = Pelin::make<L3Only>(1), b = Pelin::make<L3Only>(2),
        c = Pelin::make<L3Only>(4);
   dst->rewriteInfoEnq(a);
   dst->rewriteInfoEnq(b);
   auto src = RewriteInfosIs();
   src->rewriteInfoEnq(c);
   auto action = Pelin::make<NamedAction>("n");
   src->finalCounterActionInfoEnq(action);

   std::uint32_t before = c->references();
   dst->copyFrom(src);
   EXPECT_EQ(records(*dst), (std::vector<RewriteInfo*>{a.get(), b.get(), c.get()}));
   EXPECT_EQ(c->references(), before + 1);
   EXPECT_EQ(dst->finalCounterActionInfoFront().get(), action.get());
   EXPECT_EQ(src->rewriteInfo().size(), 1u);
   EXPECT_EQ(dst->l3SizeChange(), 7);
}
