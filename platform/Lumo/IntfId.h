// The id of an interface, made from its name and printed back to it. The value packs the
// interface's generic type id (top byte) and a number within that type (low 24 bits), so
// ids order by type, then by number. The empty name is the invalid id, value 0. An id no
// name can spell (a type without names, Vlan0) prints as its raw 0x number, which parses back.
#pragma once
#include "Lumo/ValueFormatter.h"

#include <compare>
#include <cstdint>
#include <functional>
#include <string_view>

namespace Lumo {

class IntfId {
 public:
   static constexpr unsigned typeShift = 24;
   static constexpr std::uint32_t numberMask = (1u << typeShift) - 1;

   constexpr IntfId() = default;
   // "Cpu", "Ethernet3", "Ethernet3/1", "Vlan100", "Port-Channel5", "Loopback0",
   // "Tunnel2" or a FEC-id interface name (see FecIdIntfId); "" is the invalid id.
   explicit IntfId(std::string_view name);
   static constexpr IntfId fromValue(std::uint32_t value) { return IntfId(value, 0); }
   static constexpr IntfId fromType(std::uint8_t typeId, std::uint32_t number) {
      return IntfId(std::uint32_t(typeId) << typeShift | (number & numberMask), 0);
   }

   constexpr std::uint32_t value() const { return value_; }
   constexpr std::uint32_t number() const { return value_ & numberMask; }
   constexpr bool isValid() const { return value_ != 0; }
   bool isCpu() const;

   friend constexpr bool operator==(IntfId, IntfId) = default;
   friend constexpr auto operator<=>(IntfId, IntfId) = default;

 private:
   constexpr IntfId(std::uint32_t value, int) : value_(value) {}
   std::uint32_t value_ = 0;
};

// The CPU interface, made once per process from the name "Cpu".
const IntfId& cpuIntfId();

// The interface-type classification that keys interface resolvers.
struct GenericIntfId {
   static constexpr std::uint8_t invalidTypeId = 0;
   static constexpr std::uint8_t cpuTypeId = 1;
   static constexpr std::uint8_t ethernetTypeId = 2;
   static constexpr std::uint8_t vlanTypeId = 3;
   static constexpr std::uint8_t portChannelTypeId = 4;
   static constexpr std::uint8_t loopbackTypeId = 5;
   static constexpr std::uint8_t tunnelTypeId = 6;
   static constexpr std::uint8_t fecIdTypeId = 19;

   // 0 only for the invalid id.
   static constexpr std::uint8_t typeId(IntfId id) {
      return static_cast<std::uint8_t>(id.value() >> IntfId::typeShift);
   }
};

struct LoopbackIntfId {
   static constexpr bool isLoopbackIntfId(IntfId id) {
      return GenericIntfId::typeId(id) == GenericIntfId::loopbackTypeId;
   }
};

inline bool IntfId::isCpu() const { return *this == cpuIntfId(); }

} // namespace Lumo

template <>
struct Kor::ValueText<Lumo::IntfId> {
   static std::string print(Lumo::IntfId id);
   static Lumo::IntfId parse(std::string_view s) { return Lumo::IntfId(s); }
};

template <>
struct fmt::formatter<Lumo::IntfId> : Lumo::ValueFormatter<Lumo::IntfId> {};

template <>
struct std::hash<Lumo::IntfId> {
   std::size_t operator()(Lumo::IntfId id) const noexcept {
      return std::hash<std::uint32_t>()(id.value());
   }
};
