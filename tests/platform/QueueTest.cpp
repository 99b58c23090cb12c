#include "Pelin/RQueue.h"
#include "Pelin/RingQueue.h"

#include <gtest/gtest.h>

#include <vector>

namespace Pelin {
// Breaks the chain under a non-zero count, as memory corruption would.
struct RingQueueTestAccess {
   template <typename T>
   static void loseChain(RingQueue<T>& q) {
      q.head_ = q.tail_ = nullptr;
   }
};
} // namespace Pelin

namespace {

struct Item : Pelin::Node {
   explicit Item(int v) : v(v) {}
   int v;
};

template <typename Q>
std::vector<int> contents(const Q& q) {
   std::vector<int> out;
   for (const auto& p : q) out.push_back(p->v);
   return out;
}

template <typename Q>
class QueueTest : public ::testing::Test {};
using Queues = ::testing::Types<Pelin::RQueue<Item>, Pelin::RingQueue<Item>>;
TYPED_TEST_SUITE(QueueTest, Queues);

TYPED_TEST(QueueTest, EmptyQueueAnswersNull) {
   TypeParam q;
   EXPECT_TRUE(q.empty());
   EXPECT_FALSE(q.deq());
   EXPECT_FALSE(q.front());
   EXPECT_FALSE(q.back());
   EXPECT_EQ(q.begin(), q.end());
}

// Interleaved enq/deq moves the window across slot and chunk boundaries and through growth.
TYPED_TEST(QueueTest, KeepsFifoOrderAcrossWrapAndGrowth) {
   TypeParam q;
   std::vector<int> expected;
   int next = 0;
   for (int round = 0; round < 12; ++round) {
      for (int i = 0; i < 3; ++i) {
         q.enq(Pelin::make<Item>(next));
         expected.push_back(next++);
      }
      ASSERT_EQ(q.deq()->v, expected.front());
      expected.erase(expected.begin());
      ASSERT_EQ(contents(q), expected);
      ASSERT_EQ(q.front()->v, expected.front());
      ASSERT_EQ(q.back()->v, expected.back());
   }
   EXPECT_EQ(q.size(), expected.size());
   while (!expected.empty()) {
      EXPECT_EQ(q.deq()->v, expected.front());
      expected.erase(expected.begin());
   }
   EXPECT_FALSE(q.deq());
}

TYPED_TEST(QueueTest, HoldsOneReferenceAndReleasesIt) {
   auto a = Pelin::make<Item>(1);
   {
      TypeParam q;
      q.enq(a);
      EXPECT_EQ(a->references(), 2u);
      Pelin::Ptr<Item> out = q.deq();
      EXPECT_EQ(a->references(), 2u); // handed over, not copied
      out = nullptr;
      EXPECT_EQ(a->references(), 1u);
      for (int i = 0; i < 20; ++i) q.enq(a);
      q.delAll();
      EXPECT_EQ(a->references(), 1u);
      EXPECT_TRUE(q.empty());
      for (int i = 0; i < 5; ++i) q.enq(Pelin::make<Item>(i));
   }
   EXPECT_EQ(Pallox::liveCountOf<Item>(), 1u); // destruction released the rest
}

TEST(RQueue, StartsWithFourSlotsAndDoubles) {
   Pelin::RQueue<Item> q;
   EXPECT_EQ(q.capacity(), 4u);
   for (int i = 0; i < 4; ++i) q.enq(Pelin::make<Item>(i));
   EXPECT_EQ(q.capacity(), 4u);
   q.enq(Pelin::make<Item>(4));
   EXPECT_EQ(q.capacity(), 8u);
   EXPECT_EQ(contents(q), (std::vector<int>{0, 1, 2, 3, 4}));
}

TEST(RingQueueDeathTest, LostChainUnderCountAsserts) {
   Pelin::RingQueue<Item> q;
   q.enq(Pelin::make<Item>(1));
   auto* leaked = &q;
   EXPECT_DEATH(
       {
          Pelin::RingQueueTestAccess::loseChain(*leaked);
          leaked->deq();
       },
       "Assertion failed: tail_ != nullptr");
}

} // namespace
