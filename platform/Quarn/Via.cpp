#include "Quarn/Via.h"

#include "Lumo/FecIdIntfId.h"

#include <cstring>

namespace Quarn::FibGen {

namespace {

constexpr unsigned kFecIdIntfAdjShift = Lumo::FecIdIntfId::indexBits;

// Non-zero when the via is damaged; the sum of every test, so that a list is checked
// without a branch per via.
std::uint64_t damage(const Via& v) {
   const std::uint64_t fecId = v.fecId().value();
   const std::uint32_t intf = v.intfId().value();
   const std::uint32_t type = intf >> Lumo::IntfId::typeShift;
   const std::uint32_t number = intf & Lumo::IntfId::numberMask;
   const auto af = static_cast<std::uint8_t>(v.hop().af());
   std::uint64_t w[2];
   std::memcpy(w, v.hop().bytes(), sizeof w);
   // Bytes past the family's width: all 16 of no family, 4 to 15 of IPv4 (in memory
   // order, so the test does not depend on byte order).
   std::uint64_t keep0 = 0;
   std::memset(&keep0, 0xff, 4);
   const std::uint64_t past = af == 0 ? (w[0] | w[1]) : af == 1 ? ((w[0] & ~keep0) | w[1]) : 0;
   return std::uint64_t((fecId >> Fib::adjTypePos()) >= Fib::adjTypeMax()) |
          std::uint64_t(type == 0 && number != 0) |
          std::uint64_t(type == Lumo::GenericIntfId::fecIdTypeId &&
                        (number >> kFecIdIntfAdjShift) >= Fib::adjTypeMax()) |
          std::uint64_t(af > 2) | past;
}

} // namespace

const char* Via::problem() const {
   if ((fecId_.value() >> Fib::adjTypePos()) >= Fib::adjTypeMax()) {
      return "FEC id of an adjacency type out of range";
   }
   const std::uint8_t type = Lumo::GenericIntfId::typeId(intfId_);
   if (type == 0 && intfId_.isValid()) return "interface id of no type";
   if (type == Lumo::GenericIntfId::fecIdTypeId &&
       (intfId_.number() >> kFecIdIntfAdjShift) >= Fib::adjTypeMax()) {
      return "FEC-id interface of an adjacency type out of range";
   }
   if (static_cast<std::uint8_t>(hop_.af()) > 2) return "hop address of no known family";
   return damage(*this) ? "hop address with bytes past its family's width" : nullptr;
}

bool viasDamaged(std::span<const Via> vias) {
   std::uint64_t any = 0;
   for (const Via& v : vias) any |= damage(v);
   return any != 0;
}

const char* viasProblem(std::span<const Via> vias, std::size_t& at) {
   for (at = 0; at < vias.size(); ++at) {
      if (const char* p = vias[at].problem()) return p;
   }
   return nullptr;
}

} // namespace Quarn::FibGen

using Quarn::FibGen::Via;

std::string Kor::ValueText<Via>::print(const Via& v) {
   return printComposite({{"intfId", toText(v.intfId())},
                          {"weight", toText(v.weight())},
                          {"hop", toText(v.hop())},
                          {"fecId", toText(v.fecId())},
                          {"tunnelId", toText(v.tunnelId())}});
}

Via Kor::ValueText<Via>::parse(std::string_view s) {
   try {
      auto f = parseComposite(s, "Quarn::FibGen::Via");
      return Via(fromText<Lumo::IntfId>(field(f, "intfId")),
                 fromText<std::uint32_t>(field(f, "weight")),
                 fromText<Lumo::IpGenAddr>(field(f, "hop")),
                 fromText<Quarn::Fib::FecId>(field(f, "fecId")),
                 fromText<std::uint32_t>(field(f, "tunnelId")));
   } catch (const Pelin::DeserializationException& e) {
      throw Pelin::DeserializationException("Quarn::FibGen::Via", std::string(s));
   }
}

std::size_t std::hash<Via>::operator()(const Via& v) const noexcept {
   std::size_t h = std::hash<Lumo::IntfId>()(v.intfId());
   h = h * 31 + v.weight();
   h = h * 31 + std::hash<Lumo::IpGenAddr>()(v.hop());
   h = h * 31 + std::hash<Quarn::Fib::FecId>()(v.fecId());
   return h * 31 + v.tunnelId();
}
