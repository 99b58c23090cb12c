// An Ethernet (MAC) address; all zero means not resolved.
#pragma once
#include "Lumo/ValueFormatter.h"

#include <array>
#include <compare>
#include <cstdint>
#include <functional>
#include <string_view>

namespace Lumo {

class EthAddr {
 public:
   constexpr EthAddr() = default;
   explicit EthAddr(const std::uint8_t* bytes6);
   // "02:00:00:00:00:01".
   explicit EthAddr(std::string_view text);

   const std::uint8_t* bytes() const { return bytes_.data(); }
   std::uint8_t byte(std::size_t i) const { return bytes_[i]; }
   bool isZero() const { return bytes_ == std::array<std::uint8_t, 6>{}; }

   friend bool operator==(const EthAddr&, const EthAddr&) = default;
   friend auto operator<=>(const EthAddr&, const EthAddr&) = default;

 private:
   std::array<std::uint8_t, 6> bytes_{};
};

} // namespace Lumo

template <>
struct Kor::ValueText<Lumo::EthAddr> {
   static std::string print(const Lumo::EthAddr& a);
   static Lumo::EthAddr parse(std::string_view s) { return Lumo::EthAddr(s); }
};

template <>
struct fmt::formatter<Lumo::EthAddr> : Lumo::ValueFormatter<Lumo::EthAddr> {};

template <>
struct std::hash<Lumo::EthAddr> {
   std::size_t operator()(const Lumo::EthAddr& a) const noexcept {
      std::uint64_t v = 0;
      for (int i = 0; i < 6; ++i) v = v << 8 | a.byte(i);
      return std::hash<std::uint64_t>()(v);
   }
};
