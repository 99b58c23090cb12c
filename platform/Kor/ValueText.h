// The one text syntax for every value type: Kor::toText prints a value and Kor::fromText
// parses it back, and the two round-trip. A value type opts in by specialising
// Kor::ValueText<T> with `static std::string print(const T&)` and
// `static T parse(std::string_view)`; a bad text raises Pelin::DeserializationException
// naming the type and the text.
//
// Scalars print plainly: true/false, decimal integers (parse also takes 0x hex), strings
// as they are (quoted with "..." and \-escapes when they hold a separator). A composite
// value prints as {name=value, name=value} with its fields in declared order.
#pragma once
#include "Pelin/Exception.h"

#include <cstdint>
#include <limits>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

namespace Kor {

template <typename T, typename Enable = void>
struct ValueText;

template <typename T>
std::string toText(const T& v) {
   return ValueText<T>::print(v);
}

template <typename T>
T fromText(std::string_view text) {
   return ValueText<T>::parse(text);
}

template <>
struct ValueText<bool> {
   static std::string print(bool v) { return v ? "true" : "false"; }
   static bool parse(std::string_view s);
};

std::int64_t parseSigned(std::string_view s, std::int64_t min, std::int64_t max,
                         const char* typeName);
std::uint64_t parseUnsigned(std::string_view s, std::uint64_t max, const char* typeName);

template <typename T>
struct ValueText<T, std::enable_if_t<std::is_integral_v<T> && !std::is_same_v<T, bool>>> {
   static std::string print(T v) {
      if constexpr (sizeof(T) == 1) return std::to_string(static_cast<int>(v));
      else return std::to_string(v);
   }
   static T parse(std::string_view s) {
      if constexpr (std::is_signed_v<T>) {
         return static_cast<T>(parseSigned(s, std::numeric_limits<T>::min(),
                                           std::numeric_limits<T>::max(), "integer"));
      } else {
         return static_cast<T>(parseUnsigned(s, std::numeric_limits<T>::max(), "integer"));
      }
   }
};

template <>
struct ValueText<std::string> {
   static std::string print(const std::string& v);
   static std::string parse(std::string_view s);
};

// Fields of a composite value, in the order they were written.
using Fields = std::vector<std::pair<std::string, std::string>>;

// "{a=1, b=x}" from {{"a","1"},{"b","x"}}; values must already be in value text.
std::string printComposite(const Fields& fields);
// Splits "{a=1, b=x}" into its fields; nested braces and quoted strings are kept whole.
// `typeName` names the type in the error raised for malformed text.
Fields parseComposite(std::string_view text, const char* typeName);
// The value text of field `name`; raises DeserializationException naming the field when
// it is missing.
const std::string& field(const Fields& fields, std::string_view name);

} // namespace Kor
