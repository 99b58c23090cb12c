#include "Quarn/FecId.h"

#include <fmt/format.h>

namespace Quarn::Fib {

namespace {

struct AdjTypeName {
   AdjType type;
   std::string_view name;
};
constexpr AdjTypeName adjTypeNames[] = {{AdjType::fibV4Adj, "fibV4Adj"},
                                        {AdjType::fibV6Adj, "fibV6Adj"},
                                        {AdjType::fibGenAdj, "fibGenAdj"}};

} // namespace

FecId::FecId(AdjType adjType, std::uint64_t index) {
   if (static_cast<std::uint64_t>(adjType) >= adjTypeMax()) {
      throw Pelin::RangeException("Quarn::Fib::FecId::adjType >= adjTypeMax() not allowed");
   }
   if (index > indexMask) {
      throw Pelin::RangeException("Quarn::Fib::FecId::index > 2^56-1 not allowed");
   }
   value_ = static_cast<std::uint64_t>(adjType) << adjTypePos() | index;
}

} // namespace Quarn::Fib

using Quarn::Fib::AdjType;
using Quarn::Fib::FecId;

std::string Kor::ValueText<AdjType>::print(AdjType t) {
   for (const auto& n : Quarn::Fib::adjTypeNames) {
      if (n.type == t) return std::string(n.name);
   }
   return std::to_string(static_cast<unsigned>(t));
}

AdjType Kor::ValueText<AdjType>::parse(std::string_view s) {
   for (const auto& n : Quarn::Fib::adjTypeNames) {
      if (n.name == s) return n.type;
   }
   return static_cast<AdjType>(
      parseUnsigned(s, Quarn::Fib::adjTypeMax() - 1, "Quarn::Fib::AdjType"));
}

std::string Kor::ValueText<FecId>::print(FecId id) {
   if (!id.isValid()) return "0";
   if ((id.value() >> Quarn::Fib::adjTypePos()) >= Quarn::Fib::adjTypeMax()) {
      return fmt::format("{:#x}", id.value());
   }
   return toText(id.adjType()) + ":" + std::to_string(id.index());
}

FecId Kor::ValueText<FecId>::parse(std::string_view s) {
   auto colon = s.find(':');
   try {
      if (colon == std::string_view::npos) {
         return FecId(parseUnsigned(s, UINT64_MAX, "Quarn::Fib::FecId"));
      }
      return FecId(fromText<AdjType>(s.substr(0, colon)),
                   parseUnsigned(s.substr(colon + 1), FecId::indexMask, "Quarn::Fib::FecId"));
   } catch (const Pelin::DeserializationException&) {
      throw Pelin::DeserializationException("Quarn::Fib::FecId", std::string(s));
   }
}
