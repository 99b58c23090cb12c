#include "Quarn/Via.h"

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
