// Pelin::Ptr<T>: an intrusive counted pointer to a Node (or to a const Node), and
// Pelin::make<T>(), which constructs a node in the slab allocator.
#pragma once
#include "Pallox/Slab.h"
#include "Pelin/Node.h"

#include <cstddef>
#include <type_traits>
#include <utility>

namespace Pelin {

template <typename T>
class Ptr {
 public:
   using element_type = T;

   Ptr() noexcept = default;
   Ptr(std::nullptr_t) noexcept {}
   Ptr(T* p) noexcept : p_(p) { retain(); }
   Ptr(const Ptr& o) noexcept : p_(o.p_) { retain(); }
   Ptr(Ptr&& o) noexcept : p_(o.p_) { o.p_ = nullptr; }
   template <typename U, typename = std::enable_if_t<std::is_convertible_v<U*, T*>>>
   Ptr(const Ptr<U>& o) noexcept : p_(o.get()) {
      retain();
   }
   template <typename U, typename = std::enable_if_t<std::is_convertible_v<U*, T*>>>
   Ptr(Ptr<U>&& o) noexcept : p_(o.release()) {}
   ~Ptr() { drop(); }

   Ptr& operator=(const Ptr& o) noexcept {
      Ptr(o).swap(*this);
      return *this;
   }
   Ptr& operator=(Ptr&& o) noexcept {
      Ptr(std::move(o)).swap(*this);
      return *this;
   }
   Ptr& operator=(std::nullptr_t) noexcept {
      drop();
      p_ = nullptr;
      return *this;
   }

   T* get() const noexcept { return p_; }
   T* operator->() const noexcept { return p_; }
   T& operator*() const noexcept { return *p_; }
   explicit operator bool() const noexcept { return p_ != nullptr; }

   // Gives up ownership without dropping the reference.
   T* release() noexcept {
      T* p = p_;
      p_ = nullptr;
      return p;
   }
   void swap(Ptr& o) noexcept { std::swap(p_, o.p_); }

 private:
   void retain() const noexcept {
      if (p_) p_->ref();
   }
   void drop() noexcept {
      if (p_) p_->unref();
   }
   T* p_ = nullptr;
};

template <typename T, typename U>
bool operator==(const Ptr<T>& a, const Ptr<U>& b) noexcept {
   return a.get() == b.get();
}
template <typename T>
bool operator==(const Ptr<T>& a, std::nullptr_t) noexcept {
   return a.get() == nullptr;
}

// Checked downcast on the dynamic type; null when the object is of another type.
template <typename T, typename U>
Ptr<T> ptr_cast(const Ptr<U>& p) noexcept {
   return Ptr<T>(dynamic_cast<T*>(p.get()));
}

template <typename T, typename U>
Ptr<T> static_ptr_cast(const Ptr<U>& p) noexcept {
   return Ptr<T>(static_cast<T*>(p.get()));
}

// Builds a T in the slab allocator; its last reference returns the slot there.
template <typename T, typename... Args>
Ptr<T> make(Args&&... args) {
   T* obj = Pallox::create<T>(std::forward<Args>(args)...);
   obj->dispose_ = [](Node* n) { Pallox::destroy(static_cast<T*>(n)); };
   return Ptr<T>(obj);
}

} // namespace Pelin
