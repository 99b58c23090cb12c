#include "velt/state/StateValues.h"

#include "L3/VrfName.h"
#include "Lumo/FecIdIntfId.h"
#include "Quarn/Fec.h"

#include <fmt/format.h>

namespace VeltState {

namespace {

using Quarn::Fib::FecId;

std::string fecTypeNames() {
   std::string out;
   for (const auto& n : Quarn::FibGen::FecType::names()) {
      out += n.name;
      out += ", ";
   }
   return out + "or a number up to 255";
}

} // namespace

const char* kindOf(NodeKind k) {
   switch (k) {
   case NodeKind::scalar:
      return "a scalar";
   case NodeKind::sequence:
      return "a sequence";
   case NodeKind::mapping:
      return "a mapping";
   default:
      return "nothing";
   }
}

const std::string& ValueReader::scalar(const YamlNode& n, std::string_view what) const {
   if (n.kind != NodeKind::scalar) {
      fail(n, fmt::format("expected a scalar for {}, found {}", what, kindOf(n.kind)));
   }
   return n.value;
}

const YamlNode& ValueReader::sequence(const YamlNode& n, std::string_view what) const {
   if (!n.isNull() && n.kind != NodeKind::sequence) {
      fail(n, fmt::format("expected a sequence for {}, found {}", what, kindOf(n.kind)));
   }
   return n;
}

bool ValueReader::boolean(const YamlNode& n, std::string_view what) const {
   const std::string& s = scalar(n, what);
   if (s == "true") return true;
   if (s == "false") return false;
   fail(n, fmt::format("bad {} '{}': expected true or false", what, s));
}

std::uint64_t ValueReader::number(const YamlNode& n, std::string_view what,
                                  std::uint64_t max) const {
   const std::string& s = scalar(n, what);
   try {
      return Kor::parseUnsigned(s, max, "number");
   } catch (const Pelin::DeserializationException&) {
      fail(n, fmt::format("bad {} '{}': expected a number from 0 to {}", what, s, max));
   }
}

Lumo::IntfId ValueReader::intfName(const YamlNode& n, std::string_view what) const {
   const std::string& s = scalar(n, what);
   try {
      Lumo::IntfId id(s);
      if (id.isValid()) return id;
   } catch (const Pelin::DeserializationException&) {
   }
   fail(n, fmt::format("bad {} '{}': expected an interface name such as Ethernet1, "
                       "Vlan10, Port-Channel4, Loopback0, Tunnel1, Cpu or FecId18/5",
                       what, s));
}

Lumo::IntfId ValueReader::l3IntfName(const YamlNode& n, std::string_view what) const {
   Lumo::IntfId id = intfName(n, what);
   if (Lumo::FecIdIntfId::isFecIdIntfId(id)) {
      fail(n, fmt::format("{} stands for a FEC, it cannot be an L3 interface", n.value));
   }
   return id;
}

Lumo::IpGenAddr ValueReader::address(const YamlNode& n, std::string_view what) const {
   const std::string& s = scalar(n, what);
   try {
      Lumo::IpGenAddr a(s);
      if (a.af() != Lumo::AddressFamily::ipunknown_) return a;
   } catch (const Pelin::DeserializationException&) {
   }
   fail(n, fmt::format("bad {} '{}': expected an IPv4 or IPv6 address", what, s));
}

Lumo::IpGenPrefix ValueReader::prefix(const YamlNode& n) const {
   const std::string& s = scalar(n, "prefix");
   try {
      Lumo::IpGenPrefix p(s);
      if (p.af() != Lumo::AddressFamily::ipunknown_) return p;
   } catch (const Pelin::DeserializationException&) {
   }
   // Tell host bits set apart from text that is no prefix at all.
   auto slash = s.find('/');
   if (slash != std::string::npos) {
      try {
         Lumo::IpGenAddr a(std::string_view(s).substr(0, slash));
         auto length = Kor::parseUnsigned(std::string_view(s).substr(slash + 1),
                                          a.byteLength() * 8, "length");
         if (a.af() != Lumo::AddressFamily::ipunknown_) {
            Lumo::IpGenPrefix masked(a, static_cast<std::uint8_t>(length));
            fail(n, fmt::format("bad prefix '{}': host bits set (the network is {})", s,
                                Kor::toText(masked)));
         }
      } catch (const Pelin::Exception&) {
      }
   }
   fail(n, fmt::format("bad prefix '{}': expected an address and a length, such as "
                       "10.0.0.0/8 or 2001:db8::/32",
                       s));
}

Lumo::EthAddr ValueReader::mac(const YamlNode& n) const {
   const std::string& s = scalar(n, "mac");
   try {
      return Lumo::EthAddr(s);
   } catch (const Pelin::DeserializationException&) {
      fail(n, fmt::format("bad mac '{}': expected six hex bytes such as "
                          "02:00:00:00:00:01",
                          s));
   }
}

FecId ValueReader::fecId(const YamlNode& n, std::string_view what) const {
   const std::string& s = scalar(n, what);
   FecId id;
   try {
      id = Kor::fromText<FecId>(s);
   } catch (const Pelin::Exception&) {
      fail(n, fmt::format("bad {} '{}': expected <adjacency type>:<index> such as "
                          "fibGenAdj:5, or a number",
                          what, s));
   }
   if (!id.isValid()) fail(n, fmt::format("bad {} '{}': 0 stands for no FEC", what, s));
   std::uint64_t adjType = id.value() >> Quarn::Fib::adjTypePos();
   if (adjType >= Quarn::Fib::adjTypeMax()) {
      fail(n, fmt::format("bad {} '{}': adjacency type {} is above {}", what, s, adjType,
                          Quarn::Fib::adjTypeMax() - 1));
   }
   return id;
}

std::uint8_t ValueReader::fecType(const YamlNode& n) const {
   const std::string& s = scalar(n, "FEC type");
   if (auto t = Quarn::FibGen::FecType::fromName(s)) return *t;
   try {
      return static_cast<std::uint8_t>(Kor::parseUnsigned(s, 255, "FEC type"));
   } catch (const Pelin::DeserializationException&) {
      fail(n, fmt::format("bad FEC type '{}': expected {}", s, fecTypeNames()));
   }
}

std::string ValueReader::vrfName(const YamlNode& n) const {
   const std::string& s = scalar(n, "a VRF name");
   if (s.empty()) fail(n, "a VRF name cannot be empty");
   if (s.size() > L3::VrfName::maxLength()) {
      fail(n, fmt::format("VRF name '{}' is {} bytes long; at most {} allowed", s,
                          s.size(), L3::VrfName::maxLength()));
   }
   return s;
}

} // namespace VeltState
