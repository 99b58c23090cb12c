// Pelin::Node: the reference-counted base of every object with identity. Counts change
// atomically only in multi-threaded mode; the last reference gone hands the node back to
// the allocator that made it.
#pragma once
#include "Pelin/Threading.h"

#include <atomic>
#include <cstdint>
#include <string>

namespace Kor {
class Publisher;
struct TypeInfo;
} // namespace Kor

namespace Pelin {

using String = std::string;

template <typename T>
class Ptr;

class Node {
 public:
   Node() noexcept = default;
   // Copies are new objects: they start unreferenced and keep their own allocator.
   Node(const Node&) noexcept {}
   Node& operator=(const Node&) noexcept { return *this; }
   virtual ~Node() = default;

   // Called when the last counted reference is dropped; frees the node by default.
   virtual void lastUserGone();
   // The change publisher of this node; null for nodes that publish nothing.
   virtual Kor::Publisher* publisher() const { return nullptr; }
   // Attribute descriptors of the node's type for generic access; null when it has none.
   virtual const Kor::TypeInfo* typeData() const { return nullptr; }

   void ref() const noexcept {
      if (multiThreaded()) {
         refs_.fetch_add(1, std::memory_order_relaxed);
      } else {
         refs_.store(refs_.load(std::memory_order_relaxed) + 1, std::memory_order_relaxed);
      }
   }

   void unref() const noexcept {
      std::uint32_t left;
      if (multiThreaded()) {
         left = refs_.fetch_sub(1, std::memory_order_acq_rel) - 1;
      } else {
         left = refs_.load(std::memory_order_relaxed) - 1;
         refs_.store(left, std::memory_order_relaxed);
      }
      if (left == 0) const_cast<Node*>(this)->lastUserGone();
   }

   std::uint32_t references() const noexcept { return refs_.load(std::memory_order_relaxed); }
   bool isBeingDestroyed() const noexcept { return beingDestroyed_; }

 protected:
   // Marks the node so that reactions triggered during its teardown are skipped.
   void beingDestroyedIs() noexcept { beingDestroyed_ = true; }

 private:
   template <typename T, typename... Args>
   friend Ptr<T> make(Args&&... args);

   mutable std::atomic<std::uint32_t> refs_{0};
   bool beingDestroyed_ = false;
   void (*dispose_)(Node*) = nullptr; // set by make(): frees into the slab allocator
};

} // namespace Pelin
