// An 802.1Q VLAN tag as carried in a packet: TPID, priority (PCP), drop eligibility (DEI)
// and VLAN id, read from and written to the tag's four bytes.
#pragma once
#include "Lumo/ValueFormatter.h"

#include <compare>
#include <cstdint>
#include <functional>

namespace Trell {

class VlanTag {
 public:
   static constexpr std::uint16_t defaultTpid = 0x8100;
   static constexpr std::uint8_t maxPcp = 7;
   static constexpr std::uint16_t maxVid = 4095;

   constexpr VlanTag() = default;
   // Raises RangeException when pcp > 7 or vid > 4095.
   VlanTag(std::uint16_t tpid, std::uint8_t pcp, bool dei, std::uint16_t vid);
   // The four tag bytes in network order.
   static VlanTag fromBytes(const std::uint8_t* bytes4);
   void toBytes(std::uint8_t* bytes4) const;

   std::uint16_t tpid() const { return tpid_; }
   std::uint8_t pcp() const { return pcp_; }
   bool dei() const { return dei_; }
   std::uint16_t vid() const { return vid_; }

   friend bool operator==(const VlanTag&, const VlanTag&) = default;
   friend auto operator<=>(const VlanTag&, const VlanTag&) = default;

 private:
   std::uint16_t tpid_ = defaultTpid;
   std::uint16_t vid_ = 0;
   std::uint8_t pcp_ = 0;
   bool dei_ = false;
};

} // namespace Trell

// "<tpid hex>:<pcp>:<dei 0|1>:<vid>", e.g. "0x8100:0:0:100".
template <>
struct Kor::ValueText<Trell::VlanTag> {
   static std::string print(const Trell::VlanTag& t);
   static Trell::VlanTag parse(std::string_view s);
};

template <>
struct fmt::formatter<Trell::VlanTag> : Lumo::ValueFormatter<Trell::VlanTag> {};

template <>
struct std::hash<Trell::VlanTag> {
   std::size_t operator()(const Trell::VlanTag& t) const noexcept {
      std::uint8_t b[4];
      t.toBytes(b);
      return std::hash<std::uint32_t>()(std::uint32_t(b[0]) << 24 | std::uint32_t(b[1]) << 16 |
                                        std::uint32_t(b[2]) << 8 | b[3]);
   }
};
