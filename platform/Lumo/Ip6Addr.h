// An IPv6 address on its own, for fields that can only be IPv6 (an IPv6 header, a new
// IPv6 destination); IpGenAddr is the either-family form.
#pragma once
#include "Lumo/IpGenAddr.h"

#include <array>
#include <compare>
#include <cstdint>
#include <functional>
#include <string_view>

namespace Lumo {

class Ip6Addr {
 public:
   constexpr Ip6Addr() = default;
   // 16 bytes in network order.
   explicit Ip6Addr(const std::uint8_t* bytes16);
   // "2001:db8::1"; anything else raises Pelin::DeserializationException.
   explicit Ip6Addr(std::string_view text);

   const std::uint8_t* bytes() const { return bytes_.data(); }
   bool isUnspecified() const { return bytes_ == std::array<std::uint8_t, 16>{}; }
   IpGenAddr genAddr() const { return IpGenAddr(AddressFamily::ipv6_, bytes_.data()); }

   friend bool operator==(const Ip6Addr&, const Ip6Addr&) = default;
   friend auto operator<=>(const Ip6Addr&, const Ip6Addr&) = default;

 private:
   std::array<std::uint8_t, 16> bytes_{};
};

} // namespace Lumo

template <>
struct Kor::ValueText<Lumo::Ip6Addr> {
   static std::string print(const Lumo::Ip6Addr& a) { return Kor::toText(a.genAddr()); }
   static Lumo::Ip6Addr parse(std::string_view s) { return Lumo::Ip6Addr(s); }
};

template <>
struct fmt::formatter<Lumo::Ip6Addr> : Lumo::ValueFormatter<Lumo::Ip6Addr> {};

template <>
struct std::hash<Lumo::Ip6Addr> {
   std::size_t operator()(const Lumo::Ip6Addr& a) const noexcept {
      return std::hash<Lumo::IpGenAddr>()(a.genAddr());
   }
};
