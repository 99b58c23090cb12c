// An IP prefix (address and length), as matched by a route. The default, all zero, is the
// empty prefix of no family, which contains nothing.
#pragma once
#include "Lumo/IpGenAddr.h"

namespace Lumo {

class IpGenPrefix {
 public:
   constexpr IpGenPrefix() = default;
   // Host bits of `addr` beyond `length` are cleared; a length beyond the family's width
   // raises RangeException.
   IpGenPrefix(const IpGenAddr& addr, std::uint8_t length);
   // "10.0.0.0/8"; text with host bits set is rejected so that text round-trips exactly.
   explicit IpGenPrefix(std::string_view text);

   const IpGenAddr& addr() const { return addr_; }
   std::uint8_t length() const { return length_; }
   AddressFamily af() const { return addr_.af(); }
   bool contains(const IpGenAddr& a) const;

   friend bool operator==(const IpGenPrefix&, const IpGenPrefix&) = default;
   friend auto operator<=>(const IpGenPrefix&, const IpGenPrefix&) = default;

 private:
   IpGenAddr addr_;
   std::uint8_t length_ = 0;
};

} // namespace Lumo

template <>
struct Kor::ValueText<Lumo::IpGenPrefix> {
   static std::string print(const Lumo::IpGenPrefix& p);
   static Lumo::IpGenPrefix parse(std::string_view s) { return Lumo::IpGenPrefix(s); }
};

template <>
struct fmt::formatter<Lumo::IpGenPrefix> : Lumo::ValueFormatter<Lumo::IpGenPrefix> {};

template <>
struct std::hash<Lumo::IpGenPrefix> {
   std::size_t operator()(const Lumo::IpGenPrefix& p) const noexcept {
      return std::hash<Lumo::IpGenAddr>()(p.addr()) * 131 + p.length();
   }
};
