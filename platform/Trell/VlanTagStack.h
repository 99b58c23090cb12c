// The VLAN tags of a packet, outermost first, as a small indexed stack held inline.
#pragma once
#include "Pelin/Exception.h"
#include "Trell/VlanTag.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>

namespace Trell {

class VlanTagStack {
 public:
   static constexpr std::uint32_t maxTags = 4;
   using value_type = VlanTag;

   VlanTagStack() = default;
   // The tags at the start of `bytes` (just after the MAC addresses), read while the
   // type field is a VLAN TPID, a whole tag remains and the stack has room.
   static VlanTagStack fromBytes(const std::uint8_t* bytes, std::size_t len) {
      VlanTagStack s;
      while (bytes && len >= 4 && s.size_ < maxTags && isVlanTpid(bytes)) {
         s.tags_[s.size_++] = VlanTag::fromBytes(bytes);
         bytes += 4;
         len -= 4;
      }
      return s;
   }

   std::uint32_t size() const { return size_; }
   bool empty() const { return size_ == 0; }
   const VlanTag& tag(std::uint32_t index) const {
      if (index >= size_)
         throw Pelin::RangeException("Trell::VlanTagStack::index >= size");
      return tags_[index];
   }
   // Replaces the tag at `index`, or pushes it when `index` is the size.
   void tagIs(std::uint32_t index, const VlanTag& t) {
      if (index > size_ || index >= maxTags) {
         throw Pelin::RangeException("Trell::VlanTagStack::index > size not allowed");
      }
      tags_[index] = t;
      if (index == size_) ++size_;
   }

   const VlanTag* begin() const { return tags_.data(); }
   const VlanTag* end() const { return tags_.data() + size_; }

   friend bool operator==(const VlanTagStack& a, const VlanTagStack& b) {
      return a.size_ == b.size_ && std::equal(a.begin(), a.end(), b.begin());
   }

 private:
   static bool isVlanTpid(const std::uint8_t* b) {
      auto tpid = static_cast<std::uint16_t>(b[0] << 8 | b[1]);
      return tpid == 0x8100 || tpid == 0x88a8 || tpid == 0x9100;
   }

   std::array<VlanTag, maxTags> tags_{};
   std::uint32_t size_ = 0;
};

} // namespace Trell
