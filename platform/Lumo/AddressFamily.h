// The address family of an IP address; ipunknown_ is the family of an unset address.
#pragma once
#include "Lumo/ValueFormatter.h"

#include <cstdint>

namespace Lumo {

enum class AddressFamily : std::uint8_t { ipunknown_ = 0, ipv4_ = 1, ipv6_ = 2 };

} // namespace Lumo

// Prints the enumerator name ("ipv4_"); parses the name or the number.
template <>
struct Kor::ValueText<Lumo::AddressFamily> {
   static std::string print(Lumo::AddressFamily af);
   static Lumo::AddressFamily parse(std::string_view s);
};

template <>
struct fmt::formatter<Lumo::AddressFamily> : Lumo::ValueFormatter<Lumo::AddressFamily> {};
