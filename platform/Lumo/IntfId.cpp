#include "Lumo/IntfId.h"
#include "Lumo/FecIdIntfId.h"

#include <fmt/format.h>

#include <optional>

namespace Lumo {

namespace {

// How the names of one interface type map to its 24-bit number: "<prefix><major>" or
// "<prefix><major>/<minor>", number = major << minorBits | minor.
struct IntfKind {
   std::string_view prefix;
   std::uint8_t typeId;
   std::uint32_t majorMin, majorMax;
   unsigned minorBits;       // 0: no minor part
   std::uint32_t minorMin;   // a minor part present must be at least this
   bool minorRequired;
};

constexpr IntfKind intfKinds[] = {
   {"Ethernet", GenericIntfId::ethernetTypeId, 0, 0xffff, 8, 1, false},
   {"Vlan", GenericIntfId::vlanTypeId, 1, 4094, 0, 0, false},
   {"Port-Channel", GenericIntfId::portChannelTypeId, 0, IntfId::numberMask, 0, 0, false},
   {"Loopback", GenericIntfId::loopbackTypeId, 0, IntfId::numberMask, 0, 0, false},
   {"Tunnel", GenericIntfId::tunnelTypeId, 0, IntfId::numberMask, 0, 0, false},
   {"FecId", GenericIntfId::fecIdTypeId, 0, Quarn::Fib::adjTypeMax() - 1,
    FecIdIntfId::indexBits, 0, true},
};

constexpr std::string_view cpuName = "Cpu";

// Plain decimal without sign or leading zeros, so that names print back as given.
std::optional<std::uint32_t> decimal(std::string_view s, std::uint32_t min, std::uint32_t max) {
   if (s.empty() || s.size() > 10 || (s.size() > 1 && s[0] == '0')) return std::nullopt;
   std::uint64_t v = 0;
   for (char c : s) {
      if (c < '0' || c > '9') return std::nullopt;
      v = v * 10 + static_cast<std::uint64_t>(c - '0');
   }
   if (v < min || v > max) return std::nullopt;
   return static_cast<std::uint32_t>(v);
}

std::optional<IntfId> parseKind(const IntfKind& k, std::string_view rest) {
   auto slash = rest.find('/');
   bool hasMinor = slash != std::string_view::npos;
   if (hasMinor ? k.minorBits == 0 : k.minorRequired) return std::nullopt;
   auto major = decimal(rest.substr(0, slash), k.majorMin, k.majorMax);
   std::optional<std::uint32_t> minor = 0;
   if (hasMinor) minor = decimal(rest.substr(slash + 1), k.minorMin, (1u << k.minorBits) - 1);
   if (!major || !minor) return std::nullopt;
   return IntfId::fromType(k.typeId, *major << k.minorBits | *minor);
}

} // namespace

IntfId::IntfId(std::string_view name) {
   if (name.empty()) return;
   if (name == cpuName) {
      value_ = IntfId::fromType(GenericIntfId::cpuTypeId, 0).value();
      return;
   }
   if (name.starts_with("0x")) { // the raw form printed for a type without names
      value_ = static_cast<std::uint32_t>(Kor::parseUnsigned(name, UINT32_MAX, "Lumo::IntfId"));
      return;
   }
   for (const auto& k : intfKinds) {
      if (name.starts_with(k.prefix)) {
         if (auto id = parseKind(k, name.substr(k.prefix.size()))) {
            value_ = id->value();
            return;
         }
         break;
      }
   }
   throw Pelin::DeserializationException("Lumo::IntfId", std::string(name));
}

const IntfId& cpuIntfId() {
   static const IntfId cpu(cpuName);
   return cpu;
}

} // namespace Lumo

std::string Kor::ValueText<Lumo::IntfId>::print(Lumo::IntfId id) {
   using Lumo::GenericIntfId;
   auto typeId = GenericIntfId::typeId(id);
   if (!id.isValid()) return "";
   if (typeId == GenericIntfId::cpuTypeId && id.number() == 0) return std::string(Lumo::cpuName);
   for (const auto& k : Lumo::intfKinds) {
      if (k.typeId != typeId) continue;
      std::uint32_t major = id.number() >> k.minorBits;
      std::uint32_t minor = id.number() & ((1u << k.minorBits) - 1);
      // A number the names cannot spell (Vlan0, an adjacency type past the last) prints raw.
      if (major < k.majorMin || major > k.majorMax) break;
      if (k.minorRequired || minor != 0) {
         if (minor < k.minorMin) break;
         return fmt::format("{}{}/{}", k.prefix, major, minor);
      }
      return fmt::format("{}{}", k.prefix, major);
   }
   return fmt::format("{:#x}", id.value());
}
