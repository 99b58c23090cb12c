// Change publication: a Kor::Publisher tells the notifiees attached to one node that an
// attribute changed, or that an entry of a keyed collection was added, changed or removed.
#pragma once
#include "Pelin/Assert.h"
#include "Pelin/Node.h"

#include <cstdint>
#include <typeinfo>
#include <vector>

namespace Kor {

// An attribute's index in its type's declared order.
using AttrId = std::uint32_t;

enum class Change : std::uint8_t { added, changed, removed };

// The key of a collection change, read back in its own type by the handler.
class KeyRef {
 public:
   template <typename K>
   explicit KeyRef(const K& k) noexcept : p_(&k), type_(&typeid(K)) {}
   template <typename K>
   bool is() const noexcept {
      return *type_ == typeid(K);
   }
   template <typename K>
   const K& as() const noexcept {
      VELT_ASSERT(is<K>());
      return *static_cast<const K*>(p_);
   }

 private:
   const void* p_;
   const std::type_info* type_;
};

class Notifiee;

class Publisher {
 public:
   Publisher() = default;
   Publisher(const Publisher&) = delete;
   Publisher& operator=(const Publisher&) = delete;
   // Leaves every notifiee detached from its notifier.
   ~Publisher();

   // Every notifiee hears the change even when a handler throws; the first exception
   // is raised again after the last notifiee, the others are dropped.
   void attributeChanged(AttrId attr);
   void keyChanged(AttrId attr, const KeyRef& key, Change change);
   std::size_t subscribers() const noexcept;
   // Subscriber slots held, live or cleared by an unsubscription during a walk; equal to
   // subscribers() whenever no walk is under way.
   std::size_t slots() const noexcept { return subs_.size(); }

 private:
   friend class Notifiee;
   class WalkScope;
   void subscribe(Notifiee* n);
   void unsubscribe(Notifiee* n) noexcept;
   template <typename Fn>
   void walk(Fn&& fn);

   std::vector<Notifiee*> subs_;
   std::uint32_t walking_ = 0; // nesting depth of notification walks
   bool holes_ = false;        // unsubscriptions during a walk left null slots
};

// Receives the changes of one notifier node while notification is active. Handlers are
// skipped while the notifier, or the node the notifiee belongs to, is being destroyed.
class Notifiee {
 public:
   // `owner` is the node whose reactions these are (may be null).
   explicit Notifiee(const Pelin::Node* owner = nullptr) noexcept : owner_(owner) {}
   Notifiee(const Notifiee&) = delete;
   Notifiee& operator=(const Notifiee&) = delete;
   virtual ~Notifiee();

   const Pelin::Node* notifier() const noexcept { return notifier_; }
   // Attaches to `n` (null detaches); stays subscribed only while notification is active.
   void notifierIs(const Pelin::Node* n);
   bool hasNotificationActive() const noexcept { return active_; }
   void hasNotificationActiveIs(bool active);

   virtual void onAttribute(AttrId) {}
   virtual void onCollection(AttrId, const KeyRef&, Change) {}

 private:
   friend class Publisher;
   bool silenced() const noexcept;
   void resubscribe();
   void publisherGone() noexcept { publisher_ = nullptr; notifier_ = nullptr; }

   const Pelin::Node* owner_;
   const Pelin::Node* notifier_ = nullptr;
   Publisher* publisher_ = nullptr; // set while subscribed
   bool active_ = false;
};

} // namespace Kor
