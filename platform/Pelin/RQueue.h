// Pelin::RQueue<T>: a FIFO of counted references kept in one power-of-two array. The first
// four slots live inside the queue, so an empty queue allocates nothing and a short
// per-packet list (rewrites, counter actions) never touches the heap.
#pragma once
#include "Pelin/Ptr.h"

#include <cstdint>
#include <iterator>
#include <utility>

namespace Pelin {

template <typename T>
class RQueue {
 public:
   static constexpr std::uint32_t kInlineSlots = 4;

   RQueue() noexcept = default;
   RQueue(const RQueue&) = delete;
   RQueue& operator=(const RQueue&) = delete;
   ~RQueue() {
      delAll();
      if (slots_ != inline_) delete[] slots_;
   }

   std::uint32_t size() const noexcept { return size_; }
   bool empty() const noexcept { return size_ == 0; }
   std::uint32_t capacity() const noexcept { return mask_ + 1; }

   void enq(Ptr<T> p) {
      if (size_ == capacity()) grow();
      slots_[(head_ + size_) & mask_] = std::move(p);
      ++size_;
   }

   // The front element, handed over with the queue's reference; null when empty.
   Ptr<T> deq() noexcept {
      if (size_ == 0) return nullptr;
      Ptr<T> p = std::move(slots_[head_]);
      head_ = (head_ + 1) & mask_;
      --size_;
      return p;
   }

   Ptr<T> front() const noexcept { return size_ ? slots_[head_] : nullptr; }
   Ptr<T> back() const noexcept { return size_ ? slots_[(head_ + size_ - 1) & mask_] : nullptr; }

   void delAll() noexcept {
      while (size_) deq();
      head_ = 0;
   }

   class const_iterator {
    public:
      using iterator_category = std::forward_iterator_tag;
      using value_type = Ptr<T>;
      using difference_type = std::ptrdiff_t;
      using pointer = const Ptr<T>*;
      using reference = const Ptr<T>&;

      const_iterator() = default;
      reference operator*() const { return q_->slots_[(q_->head_ + i_) & q_->mask_]; }
      pointer operator->() const { return &**this; }
      const_iterator& operator++() {
         ++i_;
         return *this;
      }
      const_iterator operator++(int) {
         auto old = *this;
         ++i_;
         return old;
      }
      bool operator==(const const_iterator& o) const { return i_ == o.i_; }

    private:
      friend class RQueue;
      const_iterator(const RQueue* q, std::uint32_t i) : q_(q), i_(i) {}
      const RQueue* q_ = nullptr;
      std::uint32_t i_ = 0;
   };

   const_iterator begin() const noexcept { return {this, 0}; }
   const_iterator end() const noexcept { return {this, size_}; }

 private:
   // Doubles the array and lays the elements out from slot 0 again.
   void grow() {
      std::uint32_t cap = capacity();
      auto* bigger = new Ptr<T>[cap * 2];
      for (std::uint32_t i = 0; i < size_; ++i) bigger[i] = std::move(slots_[(head_ + i) & mask_]);
      if (slots_ != inline_) delete[] slots_;
      slots_ = bigger;
      mask_ = cap * 2 - 1;
      head_ = 0;
   }

   Ptr<T> inline_[kInlineSlots];
   Ptr<T>* slots_ = inline_;
   std::uint32_t head_ = 0;
   std::uint32_t size_ = 0;
   std::uint32_t mask_ = kInlineSlots - 1;
};

} // namespace Pelin
