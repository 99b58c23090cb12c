// Shared base of the fmt formatters of value types: prints the value's Kor::toText form,
// so that traces and the text syntax never disagree.
#pragma once
#include "Kor/ValueText.h"

#include <fmt/format.h>

#include <string_view>

namespace Lumo {

template <typename T>
struct ValueFormatter : fmt::formatter<std::string_view> {
   auto format(const T& v, fmt::format_context& ctx) const {
      return fmt::formatter<std::string_view>::format(Kor::toText(v), ctx);
   }
};

} // namespace Lumo
