// The numeric id of a VRF as kept by the VRF id map; keys neighbour tables.
#pragma once
#include "Lumo/ValueFormatter.h"

#include <compare>
#include <cstdint>
#include <functional>

namespace Vrf::VrfIdMap {

class VrfId {
 public:
   static constexpr std::uint32_t noneValue = 0xffffff;

   constexpr VrfId() = default; // no VRF
   constexpr explicit VrfId(std::uint32_t value) : value_(value) {}

   constexpr std::uint32_t value() const { return value_; }
   constexpr bool isValid() const { return value_ != noneValue; }

   friend constexpr bool operator==(VrfId, VrfId) = default;
   friend constexpr auto operator<=>(VrfId, VrfId) = default;

 private:
   std::uint32_t value_ = noneValue;
};

inline constexpr VrfId noVrfId{VrfId::noneValue};

} // namespace Vrf::VrfIdMap

// Prints as a decimal number; parses decimal or 0x hex.
template <>
struct Kor::ValueText<Vrf::VrfIdMap::VrfId> {
   static std::string print(Vrf::VrfIdMap::VrfId v) { return std::to_string(v.value()); }
   static Vrf::VrfIdMap::VrfId parse(std::string_view s) {
      return Vrf::VrfIdMap::VrfId(
         static_cast<std::uint32_t>(parseUnsigned(s, UINT32_MAX, "Vrf::VrfIdMap::VrfId")));
   }
};

template <>
struct fmt::formatter<Vrf::VrfIdMap::VrfId> : Lumo::ValueFormatter<Vrf::VrfIdMap::VrfId> {};

template <>
struct std::hash<Vrf::VrfIdMap::VrfId> {
   std::size_t operator()(Vrf::VrfIdMap::VrfId v) const noexcept {
      return std::hash<std::uint32_t>()(v.value());
   }
};
