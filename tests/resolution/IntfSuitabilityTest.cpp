// The suitability helper over the oper-status checker and the Ethernet status directory.
#include "Trace/Trace.h"
#include "VeltLib/IntfSuitabilityHelper.h"

#include <gtest/gtest.h>

namespace Velt {
namespace {

using Interface::IntfOperStatus;

class CountingChecker : public IntfSuitabilityCheckerBase {
 public:
   CountingChecker(const std::string& name, bool answer)
       : IntfSuitabilityCheckerBase(name), answer(answer) {}
   bool isSuitable(Lumo::IntfId) override {
      ++calls;
      return answer;
   }
   bool answer;
   int calls = 0;
};

class IntfSuitability : public ::testing::Test {
 protected:
   IntfSuitability() {
      Trace::configIs("Velt::NHResolver/2");
      ethIntfs->intfStatusIs(kUp, IntfOperStatus::intfOperUp);
      ethIntfs->intfStatusIs(kDown, IntfOperStatus::intfOperDown);
      ethIntfs->intfStatusIs(kOdd, IntfOperStatus(7));
   }
   ~IntfSuitability() override { Trace::configIs(""); }

   const Lumo::IntfId kUp{"Ethernet1"}, kDown{"Ethernet2"}, kOdd{"Ethernet3"};
   const Lumo::IntfId kUnknown{"Ethernet4"};
   Trace::Capture capture;
   Pelin::Ptr<Interface::EthIntfStatusDir> ethIntfs = Interface::ethIntfStatusDirFactory();
   Pelin::Ptr<IntfSuitabilityHelper> helper = intfSuitabilityHelperFactory();
};

TEST_F(IntfSuitability, OperStatusVetoesOnlyKnownInterfacesThatAreNotUp) {
   EXPECT_TRUE(helper->isSuitable(kDown)) << "no checkers: everything is suitable";
   helper->intfSuitabilityCheckerIs(intfOperStatusSuitabilityCheckerFactory(ethIntfs));
   EXPECT_TRUE(helper->isSuitable(kUp));
   EXPECT_TRUE(helper->isSuitable(kUnknown));
   EXPECT_TRUE(capture.lines().empty());
   EXPECT_FALSE(helper->isSuitable(kDown));
   EXPECT_FALSE(helper->isSuitable(kOdd));
   ASSERT_EQ(capture.lines().size(), 2u);
   EXPECT_EQ(capture.lines()[0],
             "Velt::NHResolver/2 bool Velt::IntfSuitabilityHelper::isSuitable(Lumo::IntfId) "
             "IntfOperStatusSuitabilityChecker failed for Ethernet2");

   auto unbound = intfOperStatusSuitabilityCheckerFactory(nullptr);
   EXPECT_TRUE(unbound->isSuitable(kDown));
}

TEST_F(IntfSuitability, CheckersAreKeyedByNameAndTheFirstVetoEndsTheWalk) {
   auto no = Pelin::make<CountingChecker>("no", true);
   auto yes = Pelin::make<CountingChecker>("yes", true);
   helper->intfSuitabilityCheckerIs(no);
   helper->intfSuitabilityCheckerIs(yes);
   // The walk follows the map's order, which the hash seed decides.
   auto* first = static_cast<CountingChecker*>(helper->intfSuitabilityChecker().begin()->get());
   CountingChecker* second = first == no.get() ? yes.get() : no.get();
   second->answer = false;
   EXPECT_FALSE(helper->isSuitable(kUp));
   EXPECT_EQ(first->calls, 1);
   EXPECT_EQ(second->calls, 1);
   first->answer = false;
   EXPECT_FALSE(helper->isSuitable(kUp));
   EXPECT_EQ(first->calls, 2);
   EXPECT_EQ(second->calls, 1) << "the first veto ends the walk";
   yes->answer = true; // only "no" vetoes from here on

   auto replacement = Pelin::make<CountingChecker>("no", true);
   helper->intfSuitabilityCheckerIs(replacement);
   EXPECT_EQ(helper->intfSuitabilityChecker().size(), 2u);
   EXPECT_EQ(no->references(), 1u) << "the replaced checker is released";
   EXPECT_TRUE(helper->isSuitable(kUp));

   helper->intfSuitabilityCheckerDel("yes");
   EXPECT_EQ(helper->intfSuitabilityChecker("yes"), nullptr);
   EXPECT_EQ(helper->intfSuitabilityChecker().size(), 1u);
   helper->intfSuitabilityCheckerDelAll();
   EXPECT_TRUE(helper->intfSuitabilityChecker().empty());
}

TEST_F(IntfSuitability, NullCheckerFailsTheMapsKeyCheck) {
   EXPECT_DEATH(helper->intfSuitabilityCheckerIs(nullptr),
                "Assertion failed: fwkKey\\(\\) == KeyFunktor\\(\\)\\( _value \\)");
}

} // namespace
} // namespace Velt
