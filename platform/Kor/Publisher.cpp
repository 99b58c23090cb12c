#include "Kor/Publisher.h"

#include <algorithm>
#include <exception>

namespace Kor {

Publisher::~Publisher() {
   for (Notifiee* n : subs_) {
      if (n) n->publisherGone();
   }
}

std::size_t Publisher::subscribers() const noexcept {
   return static_cast<std::size_t>(std::count_if(subs_.begin(), subs_.end(),
                                                 [](Notifiee* n) { return n != nullptr; }));
}

void Publisher::subscribe(Notifiee* n) { subs_.push_back(n); }

// During a walk the slot is only cleared, so that the walk's indices stay valid.
void Publisher::unsubscribe(Notifiee* n) noexcept {
   auto it = std::find(subs_.begin(), subs_.end(), n);
   if (it == subs_.end()) return;
   if (walking_) {
      *it = nullptr;
      holes_ = true;
   } else {
      subs_.erase(it);
   }
}

// Counts a walk in progress and, as the outermost walk ends however it ends, removes the
// slots that unsubscriptions during it cleared.
class Publisher::WalkScope {
 public:
   explicit WalkScope(Publisher& p) noexcept : p_(p) { ++p_.walking_; }
   ~WalkScope() {
      if (--p_.walking_ == 0 && p_.holes_) {
         std::erase(p_.subs_, nullptr);
         p_.holes_ = false;
      }
   }
   WalkScope(const WalkScope&) = delete;
   WalkScope& operator=(const WalkScope&) = delete;

 private:
   Publisher& p_;
};

// Notifiees that subscribe during the walk hear from the next change on. A throwing
// handler does not keep the change from the notifiees after it: the first exception is
// raised again once every notifiee has been called, and any later one is dropped.
template <typename Fn>
void Publisher::walk(Fn&& fn) {
   WalkScope scope(*this);
   std::exception_ptr first;
   const std::size_t count = subs_.size();
   for (std::size_t i = 0; i < count; ++i) {
      Notifiee* n = subs_[i];
      if (!n || n->silenced()) continue;
      try {
         fn(n);
      } catch (...) {
         if (!first) first = std::current_exception();
      }
   }
   if (first) std::rethrow_exception(first);
}

void Publisher::attributeChanged(AttrId attr) {
   walk([&](Notifiee* n) { n->onAttribute(attr); });
}

void Publisher::keyChanged(AttrId attr, const KeyRef& key, Change change) {
   walk([&](Notifiee* n) { n->onCollection(attr, key, change); });
}

Notifiee::~Notifiee() {
   if (publisher_) publisher_->unsubscribe(this);
}

bool Notifiee::silenced() const noexcept {
   return (owner_ && owner_->isBeingDestroyed()) ||
          (notifier_ && notifier_->isBeingDestroyed());
}

void Notifiee::notifierIs(const Pelin::Node* n) {
   if (n == notifier_) return;
   notifier_ = n;
   resubscribe();
}

void Notifiee::hasNotificationActiveIs(bool active) {
   if (active == active_) return;
   active_ = active;
   resubscribe();
}

void Notifiee::resubscribe() {
   Publisher* want = (active_ && notifier_) ? notifier_->publisher() : nullptr;
   if (want == publisher_) return;
   if (publisher_) publisher_->unsubscribe(this);
   publisher_ = want;
   if (publisher_) publisher_->subscribe(this);
}

} // namespace Kor
