// Pelin::RingQueue<T>: a FIFO of counted references kept in a chain of fixed arrays of
// slots taken from the slab. It grows a chunk at a time without moving elements, so an
// iterator stays valid while elements are added at the back.
#pragma once
#include "Pallox/Slab.h"
#include "Pelin/Assert.h"
#include "Pelin/Ptr.h"

#include <cstdint>
#include <iterator>
#include <utility>

namespace Pelin {

template <typename T>
class RingQueue {
 public:
   static constexpr std::uint32_t kChunkSlots = 8;

 private:
   struct Chunk {
      Ptr<T> slot[kChunkSlots];
      Chunk* next = nullptr;
   };

 public:

   RingQueue() noexcept = default;
   RingQueue(const RingQueue&) = delete;
   RingQueue& operator=(const RingQueue&) = delete;
   ~RingQueue() { delAll(); }

   std::uint32_t size() const noexcept { return count_; }
   bool empty() const noexcept { return count_ == 0; }

   // Takes a reference to `p` at the back.
   void enq(Ptr<T> p) {
      if (!tail_ || tailEnd_ == kChunkSlots) {
         Chunk* c = Pallox::create<Chunk>();
         if (tail_) tail_->next = c;
         else head_ = c;
         tail_ = c;
         tailEnd_ = 0;
      }
      tail_->slot[tailEnd_++] = std::move(p);
      ++count_;
   }

   // Hands back the front element with the queue's reference; null when empty.
   Ptr<T> deq() noexcept {
      if (count_ == 0) return nullptr;
      VELT_ASSERT(tail_ != nullptr);
      Ptr<T> p = std::move(head_->slot[headBegin_++]);
      --count_;
      if (count_ == 0 || headBegin_ == kChunkSlots) popChunk();
      return p;
   }

   Ptr<T> front() const noexcept { return count_ ? head_->slot[headBegin_] : nullptr; }
   Ptr<T> back() const noexcept { return count_ ? tail_->slot[tailEnd_ - 1] : nullptr; }

   void delAll() noexcept {
      while (count_) deq();
   }

   class const_iterator {
    public:
      using iterator_category = std::forward_iterator_tag;
      using value_type = Ptr<T>;
      using difference_type = std::ptrdiff_t;
      using pointer = const Ptr<T>*;
      using reference = const Ptr<T>&;

      const_iterator() = default;
      reference operator*() const { return chunk_->slot[i_]; }
      pointer operator->() const { return &chunk_->slot[i_]; }
      const_iterator& operator++() {
         --left_;
         if (++i_ == kChunkSlots) {
            chunk_ = chunk_->next;
            i_ = 0;
         }
         return *this;
      }
      const_iterator operator++(int) {
         auto old = *this;
         ++*this;
         return old;
      }
      bool operator==(const const_iterator& o) const { return left_ == o.left_; }
      // False once the walk has passed the last element.
      explicit operator bool() const { return left_ != 0; }

    private:
      friend class RingQueue;
      const_iterator(const Chunk* c, std::uint32_t i, std::uint32_t left)
          : chunk_(c), i_(i), left_(left) {}
      const Chunk* chunk_ = nullptr;
      std::uint32_t i_ = 0;
      std::uint32_t left_ = 0;
   };

   const_iterator begin() const noexcept { return {head_, headBegin_, count_}; }
   const_iterator end() const noexcept { return {}; }

 private:
   friend struct RingQueueTestAccess;

   // Frees the exhausted front chunk; an emptied queue keeps no chunk at all.
   void popChunk() noexcept {
      Chunk* old = head_;
      head_ = old->next;
      headBegin_ = 0;
      if (!head_ || count_ == 0) {
         if (head_) Pallox::destroy(head_);
         head_ = tail_ = nullptr;
         tailEnd_ = 0;
      }
      Pallox::destroy(old);
   }

   Chunk* head_ = nullptr;
   Chunk* tail_ = nullptr;
   std::uint32_t headBegin_ = 0; // first live slot in head_
   std::uint32_t tailEnd_ = 0;   // first free slot in tail_
   std::uint32_t count_ = 0;
};

} // namespace Pelin
