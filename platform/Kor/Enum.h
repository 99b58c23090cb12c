// The framework's enum operations for `enum class X : uint8_t` whose values run 0..n-1.
// A type opts in by specialising Kor::EnumNames<X> with `typeName` and the value names in
// order; it then gets instance by number and by name, parsing, Kor::ValueText and
// printing (KOR_ENUM_FORMATTER(X) at global scope for {fmt}).
#pragma once
#include "Kor/ValueText.h"
#include "Pelin/Exception.h"

#include <fmt/format.h>

#include <cstdint>
#include <ostream>
#include <string>
#include <string_view>
#include <type_traits>

namespace Kor {

// Specialise with: static constexpr std::string_view typeName; and
// static constexpr std::array<std::string_view, N> names.
template <typename E>
struct EnumNames;

template <typename E>
concept KorEnum = std::is_enum_v<E> && requires {
   EnumNames<E>::typeName;
   EnumNames<E>::names;
};

template <KorEnum E>
constexpr std::size_t enumCount() noexcept {
   return EnumNames<E>::names.size();
}

// The value's name; the number in decimal for a value without one.
template <KorEnum E>
std::string enumName(E v) {
   auto n = static_cast<std::size_t>(v);
   if (n < enumCount<E>()) return std::string(EnumNames<E>::names[n]);
   return std::to_string(n);
}

// The value numbered `n`; a number outside the enum raises Pelin::RangeException.
template <KorEnum E>
E enumInstance(std::uint64_t n) {
   if (n >= enumCount<E>()) {
      throw Pelin::RangeException(std::string(EnumNames<E>::typeName) + " has no value " +
                                  std::to_string(n));
   }
   return static_cast<E>(n);
}

// The value named `name`; an unknown name raises Pelin::DeserializationException.
template <KorEnum E>
E enumInstance(std::string_view name) {
   for (std::size_t i = 0; i < enumCount<E>(); ++i) {
      if (EnumNames<E>::names[i] == name) return static_cast<E>(i);
   }
   throw Pelin::DeserializationException(std::string(EnumNames<E>::typeName), std::string(name));
}

// Parses a character range, ignoring surrounding blanks.
template <KorEnum E>
E enumParse(const char* begin, const char* end) {
   std::string_view s(begin, static_cast<std::size_t>(end - begin));
   while (!s.empty() && (s.front() == ' ' || s.front() == '\t')) s.remove_prefix(1);
   while (!s.empty() && (s.back() == ' ' || s.back() == '\t')) s.remove_suffix(1);
   return enumInstance<E>(s);
}

template <KorEnum E>
struct ValueText<E> {
   static std::string print(E v) { return enumName(v); }
   static E parse(std::string_view s) { return enumParse<E>(s.data(), s.data() + s.size()); }
};

template <KorEnum E>
std::ostream& operator<<(std::ostream& os, E v) {
   return os << enumName(v);
}

// Base of the explicit fmt::formatter specialisations that KOR_ENUM_FORMATTER writes.
template <KorEnum E>
struct EnumFormatter : fmt::formatter<std::string_view> {
   template <typename Ctx>
   auto format(E v, Ctx& ctx) const {
      return fmt::formatter<std::string_view>::format(enumName(v), ctx);
   }
};

} // namespace Kor

#define KOR_ENUM_FORMATTER(E)                                                            \
   template <>                                                                           \
   struct fmt::formatter<E> : ::Kor::EnumFormatter<E> {}
