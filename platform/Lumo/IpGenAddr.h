// An IPv4 or IPv6 address, or the unset address (the default). Trivially copyable and
// compact because it sits in vias and next hops that are copied per packet.
#pragma once
#include "Lumo/AddressFamily.h"

#include <array>
#include <compare>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string_view>

namespace Lumo {

class IpGenAddr {
 public:
   constexpr IpGenAddr() = default;
   // The all-zero address of `af`: 0.0.0.0, :: or, for ipunknown_, the unset address.
   constexpr explicit IpGenAddr(AddressFamily af) : af_(af) {}
   // "10.0.0.1" or "2001:db8::1"; the empty text is the unset address.
   explicit IpGenAddr(std::string_view text);
   // `bytes` holds byteLength(af) bytes in network order.
   IpGenAddr(AddressFamily af, const std::uint8_t* bytes);

   AddressFamily af() const { return af_; }
   static constexpr std::size_t byteLength(AddressFamily af) {
      return af == AddressFamily::ipv4_ ? 4 : af == AddressFamily::ipv6_ ? 16 : 0;
   }
   std::size_t byteLength() const { return byteLength(af_); }
   const std::uint8_t* bytes() const { return bytes_.data(); }
   std::uint8_t byte(std::size_t i) const { return bytes_[i]; }

   // 0.0.0.0 (IPv4 only).
   bool isAnyAddress() const { return af_ == AddressFamily::ipv4_ && allZero(); }
   // :: (IPv6 only).
   bool isUnspecified() const { return af_ == AddressFamily::ipv6_ && allZero(); }

   friend bool operator==(const IpGenAddr&, const IpGenAddr&) = default;
   friend auto operator<=>(const IpGenAddr&, const IpGenAddr&) = default;

 private:
   friend class IpGenPrefix;
   bool allZero() const;

   // Family first so that ordering groups addresses by family.
   AddressFamily af_ = AddressFamily::ipunknown_;
   std::array<std::uint8_t, 16> bytes_{};
};

} // namespace Lumo

template <>
struct Kor::ValueText<Lumo::IpGenAddr> {
   static std::string print(const Lumo::IpGenAddr& a);
   static Lumo::IpGenAddr parse(std::string_view s) { return Lumo::IpGenAddr(s); }
};

template <>
struct fmt::formatter<Lumo::IpGenAddr> : Lumo::ValueFormatter<Lumo::IpGenAddr> {};

template <>
struct std::hash<Lumo::IpGenAddr> {
   std::size_t operator()(const Lumo::IpGenAddr& a) const noexcept;
};
