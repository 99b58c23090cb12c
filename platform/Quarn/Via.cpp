#include "Quarn/Via.h"

#include "Lumo/FecIdIntfId.h"

#include <bit>
#include <cstring>

namespace Quarn::FibGen {

namespace {

constexpr unsigned kFecIdIntfAdjShift = Lumo::FecIdIntfId::indexBits;

// Non-zero when the via is damaged: every test of problem() on the via's five words, with
// no branch, so that whole lists are checked at a few instructions per via. Words: FEC
// id; interface id and weight; tunnel id, hop family and hop bytes 0-2; hop bytes 3-10;
// hop bytes 11-15 and padding (not looked at).
static_assert(sizeof(Via) == 40 && std::endian::native == std::endian::little);
[[gnu::always_inline]] inline std::uint64_t damage(const unsigned char* via) {
   std::uint64_t w[5];
   std::memcpy(w, via, sizeof w);
   const auto intf = static_cast<std::uint32_t>(w[1]);
   const std::uint32_t type = intf >> Lumo::IntfId::typeShift;
   const std::uint64_t af = (w[2] >> 32) & 0xff;
   const std::uint64_t high = w[3] >> 8 | (w[4] & 0xffffffffffull); // hop bytes 4-15
   const std::uint64_t all = high | w[2] >> 40 | (w[3] & 0xff);     // hop bytes 0-15
   const std::uint64_t past =
       (all & -std::uint64_t(af == 0)) | (high & -std::uint64_t(af == 1));
   return past | std::uint64_t(w[0] >= Fib::adjTypeMax() << Fib::adjTypePos()) |
          std::uint64_t(af > 2) | (std::uint64_t(type == 0) & std::uint64_t(intf != 0)) |
          (std::uint64_t(type == Lumo::GenericIntfId::fecIdTypeId) &
           std::uint64_t((intf & Lumo::IntfId::numberMask) >=
                         (Fib::adjTypeMax() << kFecIdIntfAdjShift)));
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
   return damage(reinterpret_cast<const unsigned char*>(this))
              ? "hop address with bytes past its family's width"
              : nullptr;
}

bool viasDamaged(std::span<const Via> vias) {
   const auto* p = reinterpret_cast<const unsigned char*>(vias.data());
   std::uint64_t any = 0;
   for (std::size_t i = 0; i < vias.size(); ++i)
      any |= damage(p + i * sizeof(Via));
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
