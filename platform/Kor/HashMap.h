// Kor::HashMap: an open-addressing hash map whose key is stored inside the value
// (KeyFunktor()(value) yields it), as for a registry of resolvers keyed by their own
// attribute. Kor::ValueMap is the plain key -> value form. Lookups allocate nothing.
#pragma once
#include "Kor/Hash.h"
#include "Pelin/Assert.h"
#include "Pelin/Ptr.h"

#include <concepts>
#include <cstdint>
#include <iterator>
#include <memory>
#include <type_traits>
#include <utility>

namespace Kor {

// Key of a Pelin::Ptr value read by one of the pointee's getters; null yields Key{}.
template <auto Getter>
struct PtrKey {
   template <typename T>
   auto operator()(const Pelin::Ptr<T>& p) const {
      using Key = std::decay_t<decltype((p.get()->*Getter)())>;
      return p ? Key((p.get()->*Getter)()) : Key{};
   }
};

// What a store did, so that callers publish only real changes.
enum class Stored : std::uint8_t { unchanged, added, replaced };

template <typename Key, typename Value, typename KeyFunktor>
class HashMap {
 public:
   using key_type = Key;
   using value_type = Value;

 private:
   // One slot: the key it was filed under beside the value that must carry that key.
   struct Entry {
      const Key& fwkKey() const noexcept { return key_; }
      void keyIs(const Key& k) {
         key_ = k;
         used = true;
      }
      void valueIs(const Value& _value) {
         VELT_ASSERT(fwkKey() == KeyFunktor()( _value ));
         this->_value = _value;
      }
      void reset() {
         key_ = Key{};
         _value = Value{};
         used = false;
      }
      Key key_{};
      Value _value{};
      bool used = false;
   };

 public:
   HashMap() noexcept = default;
   HashMap(const HashMap&) = delete;
   HashMap& operator=(const HashMap&) = delete;

   static Key keyOf(const Value& v) { return KeyFunktor()(v); }

   std::uint32_t size() const noexcept { return size_; }
   bool empty() const noexcept { return size_ == 0; }

   // The stored value for `k`, or null when absent.
   const Value* find(const Key& k) const noexcept {
      if (!size_) return nullptr;
      const Entry* e = &slots_[slotOf(k)];
      return e->used ? &e->_value : nullptr;
   }
   // The stored value for `k`, or a default value when absent.
   Value value(const Key& k) const {
      const Value* v = find(k);
      return v ? *v : Value{};
   }

   // Stores `v` under `k`, replacing the entry for `k`; the value must carry key `k`.
   Stored set(const Key& k, const Value& v) {
      if ((size_ + 1) * 4 > capacity() * 3) grow();
      Entry& e = slots_[slotOf(k)];
      if (e.used) {
         if constexpr (std::equality_comparable<Value>) {
            if (e._value == v) return Stored::unchanged;
         }
         e.valueIs(v);
         return Stored::replaced;
      }
      e.keyIs(k);
      e.valueIs(v);
      ++size_;
      return Stored::added;
   }
   Stored insert(const Value& v) { return set(keyOf(v), v); }

   // Removes the entry for `k` and returns its value (a default value when absent).
   Value erase(const Key& k, bool* found = nullptr) {
      if (found) *found = false;
      if (!size_) return Value{};
      std::uint32_t i = slotOf(k);
      if (!slots_[i].used) return Value{};
      if (found) *found = true;
      Value old = std::move(slots_[i]._value);
      removeAt(i);
      return old;
   }

   // Removes entries one at a time, calling fn(key, oldValue) after each removal, so that
   // fn may publish or touch the map.
   template <typename Fn>
   void drain(Fn&& fn) {
      while (size_) {
         std::uint32_t i = 0;
         while (!slots_[i].used) ++i;
         Key k = slots_[i].fwkKey();
         Value old = std::move(slots_[i]._value);
         removeAt(i);
         fn(k, std::move(old));
      }
   }

   void clear() noexcept {
      drain([](const Key&, Value&&) {});
   }

   class const_iterator {
    public:
      using iterator_category = std::forward_iterator_tag;
      using value_type = Value;
      using difference_type = std::ptrdiff_t;
      using pointer = const Value*;
      using reference = const Value&;

      const_iterator() = default;
      reference operator*() const { return e_->_value; }
      pointer operator->() const { return &e_->_value; }
      const Key& key() const { return e_->fwkKey(); }
      const_iterator& operator++() {
         ++e_;
         skip();
         return *this;
      }
      const_iterator operator++(int) {
         auto old = *this;
         ++*this;
         return old;
      }
      bool operator==(const const_iterator& o) const { return e_ == o.e_; }

    private:
      friend class HashMap;
      const_iterator(const Entry* e, const Entry* end)
          : e_(e), end_(end) {
         skip();
      }
      void skip() {
         while (e_ != end_ && !e_->used) ++e_;
      }
      const Entry* e_ = nullptr;
      const Entry* end_ = nullptr;
   };

   const_iterator begin() const noexcept { return {slots_.get(), slots_.get() + capacity()}; }
   const_iterator end() const noexcept {
      return {slots_.get() + capacity(), slots_.get() + capacity()};
   }

 private:
   std::uint32_t capacity() const noexcept { return mask_ ? mask_ + 1 : 0; }
   static std::uint32_t hashOf(const Key& k) noexcept { return Kor::hash(k, hashSeed()); }

   // The slot holding `k`, or the free slot where it belongs. Needs a non-empty table.
   std::uint32_t slotOf(const Key& k) const noexcept {
      std::uint32_t i = hashOf(k) & mask_;
      while (slots_[i].used && !(slots_[i].fwkKey() == k)) i = (i + 1) & mask_;
      return i;
   }

   // Backward-shift deletion keeps every probe chain unbroken without tombstones.
   void removeAt(std::uint32_t hole) {
      slots_[hole].reset();
      --size_;
      for (std::uint32_t j = (hole + 1) & mask_; slots_[j].used; j = (j + 1) & mask_) {
         std::uint32_t home = hashOf(slots_[j].fwkKey()) & mask_;
         if (((j - home) & mask_) >= ((j - hole) & mask_)) {
            slots_[hole] = std::move(slots_[j]);
            slots_[j].reset();
            hole = j;
         }
      }
   }

   void grow() {
      std::uint32_t cap = capacity() ? capacity() * 2 : 8;
      std::unique_ptr<Entry[]> old = std::move(slots_);
      std::uint32_t oldCap = capacity();
      slots_ = std::make_unique<Entry[]>(cap);
      mask_ = cap - 1;
      for (std::uint32_t i = 0; i < oldCap; ++i) {
         if (old[i].used) slots_[slotOf(old[i].fwkKey())] = std::move(old[i]);
      }
   }

   std::unique_ptr<Entry[]> slots_;
   std::uint32_t mask_ = 0;
   std::uint32_t size_ = 0;
};

// Plain key -> value map: the key is kept beside the value.
template <typename K, typename V>
struct PairKey {
   const K& operator()(const std::pair<K, V>& p) const noexcept { return p.first; }
};

template <typename K, typename V>
class ValueMap {
 public:
   using Map = HashMap<K, std::pair<K, V>, PairKey<K, V>>;

   std::uint32_t size() const noexcept { return map_.size(); }
   bool empty() const noexcept { return map_.empty(); }
   const V* find(const K& k) const noexcept {
      auto* p = map_.find(k);
      return p ? &p->second : nullptr;
   }
   V value(const K& k) const {
      const V* v = find(k);
      return v ? *v : V{};
   }
   Stored set(const K& k, const V& v) { return map_.set(k, {k, v}); }
   V erase(const K& k, bool* found = nullptr) { return map_.erase(k, found).second; }
   template <typename Fn>
   void drain(Fn&& fn) {
      map_.drain([&](const K& k, std::pair<K, V>&& p) { fn(k, std::move(p.second)); });
   }
   void clear() noexcept { map_.clear(); }

   // Iterates (key, value) pairs.
   auto begin() const noexcept { return map_.begin(); }
   auto end() const noexcept { return map_.end(); }

 private:
   Map map_;
};

} // namespace Kor
