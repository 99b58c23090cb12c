// The VRF root state machine driven through its real inputs.
#include "Kor/Publisher.h"
#include "Pelin/Exception.h"
#include "Quarn/TableInfo.h"
#include "VeltLib/ResolverVrfRootSm.h"

#include <gtest/gtest.h>

namespace {

using Vrf::VrfIdMap::VrfId;

class VrfRootSmTest : public ::testing::Test {
 protected:
   void SetUp() override {
      Wexa::sharedMemoryEntityManagerDelAll();
      wrapper->nameToIdMapIs(ids);
   }
   void TearDown() override { Wexa::sharedMemoryEntityManagerDelAll(); }

   Pelin::Ptr<Velt::ResolverVrfRootSm> start(bool unified = false) {
      return Velt::resolverVrfRootSmFactory(roots, global, local, wrapper, unified, em);
   }
   // Places a forwarding table where the machine mounts the VRF's table.
   Pelin::Ptr<Quarn::FibGen::ForwardingStatus> table(const std::string& path) {
      auto t = Pelin::make<Quarn::FibGen::ForwardingStatus>(path);
      Wexa::sharedMemoryEntityManager("sys", false)->entityIs(path, t);
      return t;
   }
   static std::string vrfPath(const char* vrf) {
      return Quarn::Fib::TableInfo::fecMountPath(Lumo::AddressFamily::ipunknown_, vrf, "rib");
   }
   void up(const char* vrf, std::uint32_t id) {
      global->vrfIs(L3::VrfName(vrf));
      local->vrfIs(L3::VrfName(vrf), Ip::vrfStateActive);
      ids->vrfNameToIdIs(vrf, VrfId(id));
   }
   bool hasRoot(const char* vrf) const { return roots->vrfRoot(vrf) != nullptr; }

   Pelin::Ptr<Velt::ResolverVrfRoots> roots = Velt::resolverVrfRootsFactory();
   Pelin::Ptr<Ip::AllVrfStatusGlobal> global = Pelin::make<Ip::AllVrfStatusGlobal>("global");
   Pelin::Ptr<Ip::AllVrfStatusLocal> local = Pelin::make<Ip::AllVrfStatusLocal>("local");
   Pelin::Ptr<Vrf::VrfIdMap::NameToIdMap> ids = Pelin::make<Vrf::VrfIdMap::NameToIdMap>();
   Pelin::Ptr<Vrf::VrfIdMap::NameToIdMapWrapper> wrapper =
       Pelin::make<Vrf::VrfIdMap::NameToIdMapWrapper>("ids");
   Pelin::Ptr<Wexa::EntityManager> em = Pelin::make<Wexa::EntityManager>("sys", false);
};

TEST_F(VrfRootSmTest, DefaultVrfHasRootWithIdZeroWithoutAnyInput) {
   auto sm = start();
   ASSERT_TRUE(hasRoot("default"));
   EXPECT_EQ(roots->vrfRoot("default")->vrfId(), VrfId(0));
   EXPECT_EQ(roots->aleVrfIdToVrf(0), "default");
   // Nothing about "default" in the inputs can take its root away.
   global->vrfIs(L3::VrfName("default"));
   global->vrfDel("default");
   EXPECT_TRUE(hasRoot("default"));
}

TEST_F(VrfRootSmTest, RootNeedsGlobalLocalUpAndIdInAnyOrder) {
   auto sm = start();
   const char* orders[][3] = {{"g", "l", "i"}, {"i", "l", "g"}, {"l", "i", "g"}};
   std::uint32_t id = 10;
   for (auto& order : orders) {
      std::string name = "vrf" + std::to_string(id);
      for (int step = 0; step < 3; ++step) {
         EXPECT_FALSE(hasRoot(name.c_str())) << name << " before step " << step;
         std::string what = order[step];
         if (what == "g") global->vrfIs(L3::VrfName(name));
         if (what == "l") local->vrfIs(L3::VrfName(name), Ip::vrfStateActive);
         if (what == "i") ids->vrfNameToIdIs(name, VrfId(id));
      }
      ASSERT_TRUE(hasRoot(name.c_str())) << name;
      EXPECT_EQ(roots->vrfRoot(name)->vrfId(), VrfId(id));
      EXPECT_EQ(roots->aleVrfIdToVrf(id), name);
      ++id;
   }
}

TEST_F(VrfRootSmTest, VrfGoesDownWithLocalStateGlobalEntryOrId) {
   auto sm = start();
   up("red", 1);
   ASSERT_TRUE(hasRoot("red"));
   local->vrf("red")->stateIs(2);
   EXPECT_FALSE(hasRoot("red"));
   EXPECT_EQ(roots->aleVrfIdToVrf(1), "");
   local->vrf("red")->stateIs(Ip::vrfStateActive);
   EXPECT_TRUE(hasRoot("red"));
   global->vrfDel("red");
   EXPECT_FALSE(hasRoot("red"));
   global->vrfIs(L3::VrfName("red"));
   EXPECT_TRUE(hasRoot("red"));
   ids->vrfNameToIdDel("red");
   EXPECT_FALSE(hasRoot("red"));
   ids->vrfNameToIdIs("red", VrfId(1));
   local->vrfDel("red");
   EXPECT_FALSE(hasRoot("red"));
   EXPECT_EQ(sm->vrfStatusLocalSm().find("red"), nullptr);
}

TEST_F(VrfRootSmTest, VrfsUpBeforeStartGetRootsAtConstruction) {
   up("red", 1);
   up("blue", 2);
   local->vrfIs(L3::VrfName("green"), 0);
   auto sm = start();
   EXPECT_TRUE(hasRoot("red"));
   EXPECT_TRUE(hasRoot("blue"));
   EXPECT_FALSE(hasRoot("green"));
   EXPECT_EQ(sm->vrfStatusLocalSm().size(), 3u);
}

TEST_F(VrfRootSmTest, ReplacedInputObjectsAreFollowed) {
   auto sm = start();
   up("red", 1);
   // A new inner map without red: its root goes only when the map reports red.
   auto other = Pelin::make<Vrf::VrfIdMap::NameToIdMap>();
   wrapper->nameToIdMapIs(other);
   other->vrfNameToIdIs("blue", VrfId(2));
   global->vrfIs(L3::VrfName("blue"));
   local->vrfIs(L3::VrfName("blue"), Ip::vrfStateActive);
   EXPECT_TRUE(hasRoot("blue"));
   ids->vrfNameToIdIs("blue", VrfId(7)); // the old map is no longer watched
   EXPECT_EQ(roots->vrfRoot("blue")->vrfId(), VrfId(2));
   // A new local status object for blue, down: re-attaching decides at once.
   local->vrfIs(Pelin::make<Ip::VrfStatusLocal>(L3::VrfName("blue"), 0));
   EXPECT_FALSE(hasRoot("blue"));
}

TEST_F(VrfRootSmTest, TablesMountPerVrfOrUnified) {
   auto redTable = table(vrfPath("red"));
   {
      auto sm = start();
      up("red", 1);
      up("blue", 2);
      EXPECT_EQ(roots->vrfRoot("red")->fwdStatus(), redTable);
      EXPECT_EQ(roots->vrfRoot("blue")->fwdStatus(), nullptr); // nothing there: null table
   }
   roots->vrfRootDelAll();
   auto unified = table(Quarn::Fib::TableInfo::unifiedStatusPath);
   auto sm = start(true);
   EXPECT_EQ(roots->vrfRoot("red")->fwdStatus(), unified);
   EXPECT_EQ(roots->vrfRoot("blue")->fwdStatus(), unified);
   EXPECT_EQ(roots->vrfRoot("default")->fwdStatus(), unified);
}

TEST_F(VrfRootSmTest, IdChangingUnderAnExistingRootIsAReinstantiationError) {
   auto sm = start();
   up("red", 1);
   try {
      ids->vrfNameToIdIs("red", VrfId(5));
      FAIL() << "no error";
   } catch (const Pelin::ReinstantiationException& e) {
      EXPECT_NE(std::string(e.what()).find("vrfId"), std::string::npos) << e.what();
   }
}

TEST_F(VrfRootSmTest, OverLongNameIsARangeError) {
   auto sm = start();
   try {
      sm->maybeCreateResolverVrfRoot(std::string(101, 'x'));
      FAIL() << "no error";
   } catch (const Pelin::RangeException& e) {
      EXPECT_STREQ(e.what(), "Kor::String::bytes > maxLength() not allowed");
   }
}

TEST_F(VrfRootSmTest, FailedConstructionLeavesNoSubscription) {
   up("red", 1);
   roots->vrfRootIs("red", VrfId(9), nullptr); // conflicts with the id the inputs give
   EXPECT_THROW(start(), Pelin::ReinstantiationException);
   EXPECT_EQ(global->publisher()->subscribers(), 0u);
   EXPECT_EQ(local->publisher()->subscribers(), 0u);
   EXPECT_EQ(wrapper->publisher()->subscribers(), 0u);
   EXPECT_EQ(local->vrf("red")->publisher()->subscribers(), 0u);
}

TEST_F(VrfRootSmTest, SilencedOrDestroyedMachineNoLongerReacts) {
   auto sm = start();
   sm->hasNotificationActiveIs(false);
   up("red", 1);
   EXPECT_FALSE(hasRoot("red"));
   sm->hasNotificationActiveIs(true);
   // Events missed while silent are not replayed; the next one re-decides.
   global->vrfDel("red");
   global->vrfIs(L3::VrfName("red"));
   EXPECT_TRUE(hasRoot("red"));
   sm = nullptr;
   global->vrfDel("red");
   EXPECT_TRUE(hasRoot("red")); // roots stay with the table
   EXPECT_EQ(global->publisher()->subscribers(), 0u);
   EXPECT_EQ(ids->publisher()->subscribers(), 0u);
}

TEST_F(VrfRootSmTest, LongChurnLeavesNothingBehind) {
   auto sm = start();
   auto shm = Wexa::sharedMemoryEntityManager("sys", false);
   const char* vrfs[] = {"red", "blue", "green"};
   for (int cycle = 0; cycle < 500; ++cycle) {
      std::uint32_t id = 1;
      for (const char* vrf : vrfs)
         up(vrf, id++);
      for (const char* vrf : vrfs)
         local->vrf(vrf)->stateIs(0);
      for (const char* vrf : vrfs)
         local->vrf(vrf)->stateIs(Ip::vrfStateActive);
      for (const char* vrf : vrfs) {
         ids->vrfNameToIdDel(vrf);
         local->vrfDel(vrf);
         global->vrfDel(vrf);
      }
   }
   EXPECT_EQ(shm->mounts().size(), 4u)
       << "one mount per VRF table, however often mounted";
   EXPECT_EQ(roots->vrfRoot().size(), 1u);
   // A VRF that lost its id first is deleted under the sentinel id, so the id it had
   // stays mapped: bounded by the ids ever used, not by the events.
   EXPECT_LE(roots->aleVrfIdToVrf().size(), 4u);
   EXPECT_EQ(sm->vrfStatusLocalSm().size(), 0u);
   for (const Pelin::Node* n :
        {(const Pelin::Node*)global.get(), (const Pelin::Node*)local.get(),
         (const Pelin::Node*)ids.get()}) {
      EXPECT_EQ(n->publisher()->slots(), 1u) << "the machine's one subscription";
   }
}

TEST_F(VrfRootSmTest, ReinstantiationFromANotificationLeavesThePublisherWhole) {
   auto sm = start();
   up("red", 1);
   struct Counter : Kor::Notifiee {
      void onCollection(Kor::AttrId, const Kor::KeyRef&, Kor::Change) override {
         ++heard;
      }
      int heard = 0;
   } after; // subscribed after the machine
   after.notifierIs(ids.get());
   after.hasNotificationActiveIs(true);
   for (std::uint32_t id = 5; id < 1005; ++id) {
      EXPECT_THROW(ids->vrfNameToIdIs("red", VrfId(id)), Pelin::ReinstantiationException);
   }
   EXPECT_EQ(after.heard, 1000) << "the change still reaches later subscribers";
   after.hasNotificationActiveIs(false);
   EXPECT_EQ(ids->publisher()->slots(), 1u);
   EXPECT_EQ(roots->vrfRoot("red")->vrfId(), VrfId(1)) << "the root is not replaced";
}

TEST(VrfRootSmDeathTest, NullNameStatusIsAProgrammingError) {
   auto roots = Velt::resolverVrfRootsFactory();
   EXPECT_DEATH(Velt::resolverVrfRootSmFactory(roots, nullptr, nullptr, nullptr, false, nullptr),
                "vrfNameStatus");
}

} // namespace
