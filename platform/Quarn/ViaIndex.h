// The index of a via within a FEC's via list, bounded by the list's capacity.
#pragma once
#include "Pelin/Exception.h"

#include <compare>
#include <cstdint>

namespace Quarn::Fib {

class ViaIndex {
 public:
   static constexpr std::uint32_t min = 0;
   static constexpr std::uint32_t max = 599;

   constexpr ViaIndex() = default;
   constexpr explicit ViaIndex(std::uint32_t value) : value_(value) {
      if (value > max) {
         throw Pelin::RangeException("Quarn::Fib::ViaIndex::value < Quarn::Fib::ViaIndex::min "
                                     "or > Quarn::Fib::ViaIndex::max not allowed");
      }
   }

   constexpr std::uint32_t value() const { return value_; }
   // Raises RangeException when stepping past max.
   ViaIndex next() const { return ViaIndex(value_ + 1); }

   friend constexpr bool operator==(ViaIndex, ViaIndex) = default;
   friend constexpr auto operator<=>(ViaIndex, ViaIndex) = default;

 private:
   std::uint32_t value_ = min;
};

} // namespace Quarn::Fib
