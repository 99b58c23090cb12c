// A process started afresh for each start-up test: no resolver root, no plugin run yet,
// plugins found in the test plugin folder, and the VRF inputs an agent passes to init.
#pragma once
#include "Ip/VrfStatus.h"
#include "Kor/Publisher.h"
#include "Kor/Singleton.h"
#include "Kor/TypeInfo.h"
#include "Plugin/Loader.h"
#include "VeltLib/NexthopResolverRoot.h"
#include "Vrf/NameToIdMap.h"
#include "Wexa/EntityManager.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

namespace VeltTest {

inline std::string pluginDir() {
   return VELT_TEST_PLUGIN_DIR;
}

// Trace lines that name a function, with its signature spelled one way whichever compiler
// wrote it ("Ptr<T> &" and "Ptr<T>&" alike).
inline std::vector<std::string> signaturesAsOne(std::vector<std::string> lines) {
   for (std::string& l : lines) {
      for (std::size_t at = l.find(" &"); at != std::string::npos; at = l.find(" &", at))
         l.erase(at, 1);
   }
   return lines;
}

// The names of the attributes a node publishes changes of, in order.
class AttrLog : public Kor::Notifiee {
 public:
   explicit AttrLog(const Pelin::Node& node) : type_(node.typeData()) {
      notifierIs(&node);
      hasNotificationActiveIs(true);
   }
   void onAttribute(Kor::AttrId attr) override {
      names.push_back(type_->attr(attr)->name);
   }
   std::vector<std::string> names;

 private:
   const Kor::TypeInfo* type_;
};

class StartupTest : public ::testing::Test {
 protected:
   void SetUp() override {
      Kor::singletonDel(Velt::NexthopResolverRoot::singletonName);
      Plugin::Impl::loadedDelAll();
      Wexa::sharedMemoryEntityManagerDelAll();
      setenv(Plugin::pluginPathVariable, pluginDir().c_str(), 1);
      unsetenv(Velt::NexthopResolverRoot::pluginsVariable);
      // Set, so that loading leaves the levels a test chose alone.
      setenv("TRACE", "", 1);
      wrapper->nameToIdMapIs(ids);
   }
   void TearDown() override {
      Kor::singletonDel(Velt::NexthopResolverRoot::singletonName);
      Wexa::sharedMemoryEntityManagerDelAll();
      em->loop()->runUntilIdle();
   }

   static void pluginsAre(const char* list) {
      setenv(Velt::NexthopResolverRoot::pluginsVariable, list, 1);
   }
   void init(const Pelin::Ptr<Velt::NexthopResolverRoot>& root,
             const Pelin::Ptr<Wexa::EntityManager>& entityManager) {
      root->init(global, local, wrapper, false, entityManager);
   }
   void up(const char* vrf, std::uint32_t id) {
      global->vrfIs(L3::VrfName(vrf));
      local->vrfIs(L3::VrfName(vrf), Ip::vrfStateActive);
      ids->vrfNameToIdIs(vrf, Vrf::VrfIdMap::VrfId(id));
   }

   Pelin::Ptr<Ip::AllVrfStatusGlobal> global =
       Pelin::make<Ip::AllVrfStatusGlobal>("global");
   Pelin::Ptr<Ip::AllVrfStatusLocal> local = Pelin::make<Ip::AllVrfStatusLocal>("local");
   Pelin::Ptr<Vrf::VrfIdMap::NameToIdMap> ids = Pelin::make<Vrf::VrfIdMap::NameToIdMap>();
   Pelin::Ptr<Vrf::VrfIdMap::NameToIdMapWrapper> wrapper =
       Pelin::make<Vrf::VrfIdMap::NameToIdMapWrapper>("ids");
   Pelin::Ptr<Wexa::EntityManager> em = Pelin::make<Wexa::EntityManager>("sys", false);
};

} // namespace VeltTest
