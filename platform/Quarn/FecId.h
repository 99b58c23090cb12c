// Ids of forwarding equivalence classes (FECs). A FEC id is 64-bit; its top byte is the
// adjacency type, which selects the table (and resolver) that knows the FEC.
#pragma once
#include "Lumo/ValueFormatter.h"
#include "Pelin/Assert.h"

#include <compare>
#include <cstdint>
#include <functional>

namespace Quarn::Fib {

// Named values are those with a built-in resolver; every number below adjTypeMax() is valid.
enum class AdjType : std::uint8_t { fibV4Adj = 0, fibV6Adj = 1, fibGenAdj = 18 };

constexpr unsigned adjTypePos() { return 56; }
constexpr std::uint64_t adjTypeMax() { return 29; }

class FecId {
 public:
   static constexpr std::uint64_t indexMask = (std::uint64_t(1) << adjTypePos()) - 1;

   constexpr FecId() = default; // 0: no FEC
   constexpr explicit FecId(std::uint64_t value) : value_(value) {}
   // Raises RangeException when adjType >= adjTypeMax() or index does not fit in 56 bits.
   FecId(AdjType adjType, std::uint64_t index);

   constexpr std::uint64_t value() const { return value_; }
   constexpr std::uint64_t index() const { return value_ & indexMask; }
   constexpr bool isValid() const { return value_ != 0; }
   AdjType adjType() const {
      VELT_ASSERT((value_ >> Fib::adjTypePos()) < Fib::adjTypeMax());
      return static_cast<AdjType>(value_ >> Fib::adjTypePos());
   }

   friend constexpr bool operator==(FecId, FecId) = default;
   friend constexpr auto operator<=>(FecId, FecId) = default;

 private:
   std::uint64_t value_ = 0;
};

} // namespace Quarn::Fib

// The name of a named type ("fibGenAdj"), else its number; parses either.
template <>
struct Kor::ValueText<Quarn::Fib::AdjType> {
   static std::string print(Quarn::Fib::AdjType t);
   static Quarn::Fib::AdjType parse(std::string_view s);
};

// "<adjType>:<index>" ("fibGenAdj:5", "20:7"); 0 prints as "0" and a value whose adjacency
// type is out of range as its raw 0x number. Parses these and any raw number.
template <>
struct Kor::ValueText<Quarn::Fib::FecId> {
   static std::string print(Quarn::Fib::FecId id);
   static Quarn::Fib::FecId parse(std::string_view s);
};

template <>
struct fmt::formatter<Quarn::Fib::AdjType> : Lumo::ValueFormatter<Quarn::Fib::AdjType> {};
template <>
struct fmt::formatter<Quarn::Fib::FecId> : Lumo::ValueFormatter<Quarn::Fib::FecId> {};

template <>
struct std::hash<Quarn::Fib::FecId> {
   std::size_t operator()(Quarn::Fib::FecId id) const noexcept {
      return std::hash<std::uint64_t>()(id.value());
   }
};
