// Null arguments to the rewrite builders and to the list and queue operations stop at the
// call, with the null-argument error or an assertion naming the argument, instead of
// crashing in a later query.
#include "Pelin/Exception.h"
#include "VeltLib/RoutingNexthop.h"
#include "VeltLib/RoutingRewriteInfoTypes.h"

#include <gtest/gtest.h>

using namespace Velt;

namespace {

Pelin::Ptr<const Lumo::Ip6Hdr> ip6Hdr() {
   return Pelin::make<Lumo::Ip6Hdr>(Lumo::Ip6Addr("2001:db8::1"), Lumo::Ip6Addr("::2"),
                                    47);
}

// The attribute a null-argument error names; "none" when nothing was raised.
template <typename F>
std::string nullArgumentOf(F build) {
   try {
      build();
   } catch (const Pelin::NullArgumentException& e) {
      return e.attribute();
   }
   return "none";
}

TEST(RewriteNullArguments, HeaderBuildersRaiseTheNullArgumentError) {
   const Pelin::Ptr<const Lumo::GreHdr> noGre;
   EXPECT_EQ(
       nullArgumentOf([&] { GreDecapRewriteInfo::createInfo(nullptr, ip6Hdr(), noGre); }),
       "greHdr");
   EXPECT_EQ(nullArgumentOf([&] { GreHdrEncapRewriteInfoIs(noGre); }), "greHdr");
   // The same builder with its header still works.
   auto gre = GreDecapRewriteInfo::createInfo(nullptr, ip6Hdr(),
                                              Pelin::make<Lumo::GreHdr>(0x0800));
   EXPECT_EQ(gre->l3SizeChange(), -44);
}

TEST(RewriteNullArgumentsDeathTest, ListAndQueueOperationsAssertOnNull) {
   auto list = RewriteInfosIs();
   EXPECT_DEATH(list->rewriteInfoEnq(nullptr), "Assertion failed: rewriteInfo\n");
   EXPECT_DEATH(list->finalCounterActionInfoEnq(nullptr),
                "Assertion failed: counterAction\n");
   EXPECT_DEATH(list->copyFrom(nullptr), "Assertion failed: other\n");
   EXPECT_DEATH(list->copyFrom(list), "Assertion failed: other.get\\(\\) != this\n");

   auto nexthops = RoutingNexthopsIs();
   EXPECT_DEATH(nexthops->nexthopEnq(nullptr), "Assertion failed: nexthop\n");
   auto nexthop = RoutingNexthopIs(Lumo::IntfId());
   EXPECT_DEATH(nexthop->copyOifAndDstMac(nullptr), "Assertion failed: nexthop\n");

   // Nothing was enqueued: the queries still answer for an empty list.
   EXPECT_EQ(list->l3SizeChange(), 0);
   EXPECT_EQ(list->l2SizeChange(), 0);
   EXPECT_TRUE(nexthops->empty());
}

} // namespace
