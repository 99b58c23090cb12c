// Nodes that publish their changes. Kor::Notifier creates its publisher on the first
// subscription, so an object nobody watches pays one null pointer; Kor::Entity adds a
// name (entities and singletons); Kor::Reactor is a notifiee that is itself a node.
// Kor::assign makes every `xIs(v)` mutator one line.
#pragma once
#include "Kor/Publisher.h"
#include "Pelin/Node.h"

#include <memory>
#include <string>
#include <utility>

namespace Kor {

class Notifier : public Pelin::Node {
 public:
   Notifier() = default;
   Notifier(const Notifier&) : Pelin::Node() {}
   Notifier& operator=(const Notifier&) { return *this; }

   Publisher* publisher() const override {
      if (!publisher_) publisher_ = std::make_unique<Publisher>();
      return publisher_.get();
   }
   bool hasPublisher() const noexcept { return publisher_ != nullptr; }

   // Publication costs a null test when nobody ever subscribed.
   void notify(AttrId attr) const {
      if (publisher_) publisher_->attributeChanged(attr);
   }
   template <typename K>
   void notify(AttrId attr, const K& key, Change change) const {
      if (publisher_) publisher_->keyChanged(attr, KeyRef(key), change);
   }

 protected:
   // Detaches every notifiee; a destructor calls it after its last publication.
   void publisherDel() noexcept { publisher_.reset(); }

 private:
   mutable std::unique_ptr<Publisher> publisher_;
};

class Entity : public Notifier {
 public:
   explicit Entity(std::string name) : name_(std::move(name)) {}
   const std::string& name() const noexcept { return name_; }

 private:
   std::string name_;
};

// A notifiee with identity: its reactions stop once it is being destroyed.
class Reactor : public Pelin::Node, public Notifiee {
 public:
   Reactor() noexcept : Notifiee(this) {}
   ~Reactor() override { beingDestroyedIs(); }
};

// Stores `v` into `field` of `self` and publishes `attr`, only when the value differs.
// Returns whether it changed.
template <typename T, typename V>
bool assign(const Notifier& self, T& field, V&& v, AttrId attr) {
   if (field == v) return false;
   field = std::forward<V>(v);
   self.notify(attr);
   return true;
}

} // namespace Kor
