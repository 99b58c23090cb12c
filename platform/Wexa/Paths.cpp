#include "Wexa/Paths.h"

#include <fmt/format.h>

namespace Wexa::Paths {

namespace {

constexpr std::size_t maxComponent = 100;

bool componentByte(char c) {
   return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
          c == '_' || c == '-' || c == '.' || c == ':';
}

} // namespace

std::string componentProblem(std::string_view name) {
   if (name.empty()) return "it is empty";
   if (name == "." || name == "..")
      return fmt::format("'{}' names a folder already", name);
   if (name.size() > maxComponent) {
      return fmt::format("it is {} bytes long; at most {} allowed", name.size(),
                         maxComponent);
   }
   for (std::size_t i = 0; i < name.size(); ++i) {
      if (componentByte(name[i])) continue;
      auto byte = static_cast<unsigned char>(name[i]);
      return fmt::format(
          "byte {} ({}) at offset {} is not a letter, digit, '_', '-', '.' "
          "or ':'",
          fmt::format("0x{:02x}", byte),
          name[i] == '/' ? "'/' separates folders"
          : byte == ' '  ? "a space"
          : byte >= 0x80 ? "not ASCII"
          : byte < 0x20  ? "a control character"
                         : fmt::format("'{}'", name[i]),
          i);
   }
   return {};
}

std::string shownName(std::string_view name) {
   std::string out = "'";
   for (char c : name) {
      auto u = static_cast<unsigned char>(c);
      if (u < 0x20 || u >= 0x7f || c == '\\' || c == '\'')
         out += fmt::format("\\x{:02x}", u);
      else
         out += c;
   }
   return out + "'";
}

} // namespace Wexa::Paths
