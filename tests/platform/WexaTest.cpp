// The state database: paths, mounts, providers, profiles and mount groups on the loop.
#include "Pelin/Exception.h"
#include "Wexa/EntityManager.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>

namespace {

class Thing : public Pelin::Node {};
class Other : public Pelin::Node {};

struct Client : Wexa::Mounter {
   Client() : Wexa::Mounter("client") {}
   void doMountsComplete(Wexa::MountStatus s, const Pelin::Ptr<Wexa::EntityManager>&) override {
      statuses.push_back(s);
   }
   std::vector<Wexa::MountStatus> statuses;
};

std::string tmpDir() {
   const char* base = std::getenv("VELT_TEST_TMP");
   auto dir = std::filesystem::path(base ? base : "/tmp") / "wexa-profiles";
   std::filesystem::remove_all(dir);
   std::filesystem::create_directories(dir);
   return dir.string();
}

TEST(WexaTest, EntitiesByPathAndMountsOfThem) {
   auto em = Pelin::make<Wexa::EntityManager>("sys", false);
   auto thing = Pelin::make<Thing>();
   em->entityIs("a/b/thing", thing);
   em->entityIs("a/bc", Pelin::make<Other>());
   EXPECT_EQ(em->entity<Thing>("a/b/thing"), thing);
   EXPECT_EQ(em->entity<Thing>("a/bc"), nullptr); // another type
   EXPECT_EQ(em->paths("a/b"), std::vector<std::string>{"a/b/thing"});
   EXPECT_EQ(em->paths().size(), 2u);
   EXPECT_THROW(em->entityIs("/abs", thing), Pelin::Exception);
   EXPECT_THROW(em->entityIs("a//b", thing), Pelin::Exception);

   EXPECT_EQ(em->mount("a/b/thing", "Thing", {}), thing);
   EXPECT_EQ(em->mount("none/here", "Thing", {}), nullptr);
   int made = 0;
   em->providerIs("Thing", [&](Wexa::EntityManager&, const std::string&, const Wexa::MountInfo&) {
      ++made;
      return Pelin::Ptr<Pelin::Node>(Pelin::make<Thing>());
   });
   auto provided = em->mount("none/here", "Thing", {});
   EXPECT_NE(provided, nullptr);
   EXPECT_EQ(em->mount("none/here", "Thing", {}), provided); // made once, then found
   EXPECT_EQ(made, 1);
   EXPECT_EQ(em->mounts().size(), 2u);
}

TEST(WexaTest, MountingAPathAgainKeepsOneRecordOfIt) {
   auto em = Pelin::make<Wexa::EntityManager>("sys", false);
   for (int i = 0; i < 1000; ++i) {
      em->mount("a/x", "Thing", {});
      em->mount("b", "Thing", {});
   }
   em->mount("a/x", "Other", {3, "w"}); // the latest mount of a path is what it records
   EXPECT_EQ(em->mounts(), (std::vector<Wexa::MountEntry>{{"a/x", "Other", {3, "w"}},
                                                          {"b", "Thing", {}}}));
}

TEST(WexaTest, SharedMemoryManagerIsOnePerSystemAndFlag) {
   Wexa::sharedMemoryEntityManagerDelAll();
   auto a = Wexa::sharedMemoryEntityManager("sys", false);
   EXPECT_EQ(Wexa::sharedMemoryEntityManager("sys", false), a);
   EXPECT_NE(Wexa::sharedMemoryEntityManager("sys", true), a);
   EXPECT_NE(Wexa::sharedMemoryEntityManager("other", false), a);
   EXPECT_TRUE(a->isSharedMemory());
   Wexa::sharedMemoryEntityManagerDelAll();
}

TEST(WexaTest, ProfilesLoadFromFilesWithClearErrors) {
   std::string dir = tmpDir();
   std::ofstream(dir + "/Good.profile") << "# the paths\nx/y Thing 3 r\n\nz Other\n";
   std::ofstream(dir + "/ignored.txt") << "garbage";
   Wexa::MountFileInfo info;
   EXPECT_EQ(info.loadProfileDir(dir), 1u);
   ASSERT_TRUE(info.profileLoaded("Good"));
   const auto& mounts = info.profile("Good")->mounts;
   ASSERT_EQ(mounts.size(), 2u);
   EXPECT_EQ(mounts[0], (Wexa::MountEntry{"x/y", "Thing", {3, "r"}}));
   EXPECT_EQ(mounts[1].typeName, "Other");
   EXPECT_EQ(info.loadProfileDir(dir + "/missing"), 0u);

   for (const char* bad : {"onlypath\n", "p T notanumber\n", "p T 3 rw\n", "p T 3 r extra\n"}) {
      std::ofstream(dir + "/Bad.profile") << "# line one\n" << bad;
      try {
         info.loadProfileFile(dir + "/Bad.profile");
         ADD_FAILURE() << "accepted " << bad;
      } catch (const Pelin::Exception& e) {
         EXPECT_NE(std::string(e.what()).find("Bad.profile:2:"), std::string::npos) << e.what();
      }
   }
   EXPECT_FALSE(info.profileLoaded("Bad"));
   EXPECT_THROW(info.loadProfileFile(dir + "/nofile.profile"), Pelin::Exception);
}

TEST(WexaTest, MountGroupCompletesOnALaterTurnOfTheLoop) {
   auto loop = Pelin::make<Wexa::EventLoop>();
   auto em = Pelin::make<Wexa::EntityManager>("sys", false, false, loop);
   em->entityIs("x/y", Pelin::make<Thing>());
   em->mountFileInfo().profileIs({"P", {{"x/y", "Thing", {}}, {"q", "Other", {}}}});
   auto client = Pelin::make<Client>();

   auto group = em->mountGroup(client);
   group->doMountProfile("P");
   group->doClose(false, "");
   EXPECT_TRUE(client->statuses.empty()); // never from inside the call
   EXPECT_EQ(loop->runUntilIdle(), 1u);
   EXPECT_EQ(client->statuses, std::vector{Wexa::MountStatus::mountSuccess_});
   EXPECT_EQ(em->mounts().size(), 2u);

   auto failing = em->mountGroup(client);
   failing->doMountProfile("NoSuchProfile");
   failing->doClose(false, "");
   failing = nullptr; // the pending completion keeps the group alive
   loop->runUntilIdle();
   EXPECT_EQ(client->statuses.back(), Wexa::MountStatus::mountFailure_);
}

} // namespace
