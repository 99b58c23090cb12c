#include "Kor/Entity.h"
#include "Kor/HashMap.h"
#include "Pelin/Ptr.h"

#include <gtest/gtest.h>

#include <functional>
#include <stdexcept>

#include <string>
#include <vector>

namespace {

// A small publishing entity: one value attribute and one keyed collection.
class Table : public Kor::Entity {
 public:
   enum : Kor::AttrId { kName, kLimit, kEntry };
   using Kor::Entity::Entity;
   ~Table() override {
      beingDestroyedIs();
      entryDelAll();
      publisherDel();
   }

   int limit() const { return limit_; }
   void limitIs(int v) { Kor::assign(*this, limit_, v, kLimit); }

   void entryIs(const std::string& k, int v) {
      Kor::Stored s = entries_.set(k, v);
      if (s != Kor::Stored::unchanged) {
         notify(kEntry, k, s == Kor::Stored::added ? Kor::Change::added : Kor::Change::changed);
      }
   }
   void entryDel(const std::string& k) {
      bool found;
      entries_.erase(k, &found);
      if (found) notify(kEntry, k, Kor::Change::removed);
   }
   void entryDelAll() {
      entries_.drain([this](const std::string& k, int) { notify(kEntry, k, Kor::Change::removed); });
   }

 private:
   int limit_ = 0;
   Kor::ValueMap<std::string, int> entries_;
};

struct Recorder : Kor::Notifiee {
   using Kor::Notifiee::Notifiee;
   void onAttribute(Kor::AttrId a) override { log.push_back("attr" + std::to_string(a)); }
   void onCollection(Kor::AttrId, const Kor::KeyRef& k, Kor::Change c) override {
      static const char* names[] = {"+", "~", "-"};
      log.push_back(names[static_cast<int>(c)] + k.as<std::string>());
      if (onEvent) onEvent();
   }
   std::vector<std::string> log;
   std::function<void()> onEvent;
};

using Log = std::vector<std::string>;

TEST(KorPublisher, PublishesOnlyRealChanges) {
   auto t = Pelin::make<Table>("t");
   t->limitIs(1); // nobody listens yet: no publisher is made
   EXPECT_FALSE(t->hasPublisher());
   Recorder r;
   r.notifierIs(t.get());
   r.hasNotificationActiveIs(true);
   t->limitIs(1);
   t->limitIs(2);
   t->entryIs("a", 1);
   t->entryIs("a", 1);
   t->entryIs("a", 2);
   t->entryDel("b");
   t->entryDel("a");
   EXPECT_EQ(r.log, (Log{"attr1", "+a", "~a", "-a"}));
}

TEST(KorPublisher, InactiveOrDetachedNotifieeHearsNothing) {
   auto t = Pelin::make<Table>("t");
   Recorder r;
   r.notifierIs(t.get());
   t->limitIs(5); // attached but not yet active
   r.hasNotificationActiveIs(true);
   r.hasNotificationActiveIs(false);
   t->limitIs(6);
   r.hasNotificationActiveIs(true);
   r.notifierIs(nullptr);
   t->limitIs(7);
   EXPECT_TRUE(r.log.empty());
   {
      Recorder gone(nullptr);
      gone.notifierIs(t.get());
      gone.hasNotificationActiveIs(true);
   }
   EXPECT_EQ(t->publisher()->subscribers(), 0u); // destruction detached it
}

TEST(KorPublisher, UnsubscribingDuringNotificationKeepsTheWalk) {
   auto t = Pelin::make<Table>("t");
   Recorder first, second, third;
   for (Recorder* r : {&first, &second, &third}) {
      r->notifierIs(t.get());
      r->hasNotificationActiveIs(true);
   }
   first.onEvent = [&] {
      first.hasNotificationActiveIs(false);
      second.hasNotificationActiveIs(false);
   };
   t->entryIs("x", 1);
   t->entryIs("y", 1);
   EXPECT_EQ(first.log, (Log{"+x"}));
   EXPECT_TRUE(second.log.empty());
   EXPECT_EQ(third.log, (Log{"+x", "+y"}));
   EXPECT_EQ(t->publisher()->subscribers(), 1u);
}

struct Thrower : Recorder {
   using Recorder::Recorder;
   void onAttribute(Kor::AttrId a) override {
      Recorder::onAttribute(a);
      if (onEvent) onEvent();
      throw std::runtime_error(what);
   }
   std::string what = "handler failed";
};

// Attaches `r` to `t` and activates it.
void attach(Kor::Notifiee& r, const Pelin::Ptr<Table>& t) {
   r.notifierIs(t.get());
   r.hasNotificationActiveIs(true);
}

std::string errorOfLimit(const Pelin::Ptr<Table>& t, int v) {
   try {
      t->limitIs(v);
   } catch (const std::runtime_error& e) {
      return e.what();
   }
   return "no error";
}

TEST(KorPublisher, ThrowingHandlersLetLaterNotifieesHearAndTheFirstErrorSurfaces) {
   auto t = Pelin::make<Table>("t");
   Recorder before, after;
   Thrower first, second;
   second.what = "second failed";
   for (Kor::Notifiee* n : {(Kor::Notifiee*)&before, (Kor::Notifiee*)&first,
                            (Kor::Notifiee*)&second, (Kor::Notifiee*)&after}) {
      attach(*n, t);
   }
   EXPECT_EQ(errorOfLimit(t, 1), "handler failed");
   for (Recorder* r : {&before, (Recorder*)&first, (Recorder*)&second, &after}) {
      EXPECT_EQ(r->log, (Log{"attr1"}));
   }
   // The walk ended: changes go on reaching everyone, and slots are not held.
   first.hasNotificationActiveIs(false);
   second.hasNotificationActiveIs(false);
   t->limitIs(2);
   EXPECT_EQ(after.log, (Log{"attr1", "attr1"}));
   EXPECT_EQ(t->publisher()->slots(), 2u);
}

TEST(KorPublisher, AThrowLeavesNoDeadSlotsForLaterUnsubscriptions) {
   auto t = Pelin::make<Table>("t");
   Thrower thrower;
   attach(thrower, t);
   EXPECT_EQ(errorOfLimit(t, 1), "handler failed");
   thrower.hasNotificationActiveIs(false);
   for (int i = 0; i < 1000; ++i) {
      Recorder r;
      attach(r, t);
   }
   Recorder live;
   attach(live, t);
   EXPECT_EQ(t->publisher()->subscribers(), 1u);
   EXPECT_EQ(t->publisher()->slots(), 1u);
}

TEST(KorPublisher, UnsubscribingInsideAThrowingWalkIsCleanedUp) {
   auto t = Pelin::make<Table>("t");
   Recorder other;
   Thrower thrower;
   Recorder last;
   attach(other, t);
   attach(thrower, t);
   attach(last, t);
   // The handler detaches itself and a notifiee already called, then throws.
   thrower.onEvent = [&] {
      thrower.hasNotificationActiveIs(false);
      other.hasNotificationActiveIs(false);
   };
   EXPECT_EQ(errorOfLimit(t, 1), "handler failed");
   EXPECT_EQ(last.log, (Log{"attr1"}));
   EXPECT_EQ(t->publisher()->slots(), 1u);

   // A throw from a nested walk leaves both publishers consistent.
   auto inner = Pelin::make<Table>("inner");
   Thrower innerThrower;
   attach(innerThrower, inner);
   struct Relay : Kor::Notifiee {
      Pelin::Ptr<Table> to;
      void onAttribute(Kor::AttrId) override { to->limitIs(to->limit() + 1); }
   } forward;
   forward.to = inner;
   attach(forward, t);
   EXPECT_EQ(errorOfLimit(t, 2), "handler failed");
   EXPECT_EQ(innerThrower.log, (Log{"attr1"}));
   innerThrower.hasNotificationActiveIs(false);
   EXPECT_EQ(inner->publisher()->slots(), 0u);
   EXPECT_EQ(last.log, (Log{"attr1", "attr1"}));
   EXPECT_EQ(t->publisher()->slots(), 2u);
}

TEST(KorPublisher, ReactionsStopWhileNotifierIsDestroyed) {
   auto t = Pelin::make<Table>("t");
   t->entryIs("a", 1);
   Recorder r;
   r.notifierIs(t.get());
   r.hasNotificationActiveIs(true);
   t = nullptr; // the destructor publishes removals, but the notifier is being destroyed
   EXPECT_TRUE(r.log.empty());
   EXPECT_EQ(r.notifier(), nullptr);
}

struct SelfDestroying : Kor::Reactor {
   void onAttribute(Kor::AttrId) override { ++calls; }
   void retire() { beingDestroyedIs(); }
   int calls = 0;
};

TEST(KorPublisher, ReactorBeingDestroyedSkipsReactions) {
   auto t = Pelin::make<Table>("t");
   auto r = Pelin::make<SelfDestroying>();
   r->notifierIs(t.get());
   r->hasNotificationActiveIs(true);
   t->limitIs(1);
   r->retire();
   t->limitIs(2);
   EXPECT_EQ(r->calls, 1);
}

} // namespace
