#include "Trell/VlanTag.h"

#include <fmt/format.h>

namespace Trell {

VlanTag::VlanTag(std::uint16_t tpid, std::uint8_t pcp, bool dei, std::uint16_t vid)
    : tpid_(tpid), vid_(vid), pcp_(pcp), dei_(dei) {
   if (pcp > maxPcp) throw Pelin::RangeException("Trell::VlanTag::pcp > 7 not allowed");
   if (vid > maxVid) throw Pelin::RangeException("Trell::VlanTag::vid > 4095 not allowed");
}

VlanTag VlanTag::fromBytes(const std::uint8_t* b) {
   auto tci = static_cast<std::uint16_t>(b[2] << 8 | b[3]);
   return VlanTag(static_cast<std::uint16_t>(b[0] << 8 | b[1]),
                  static_cast<std::uint8_t>(tci >> 13), (tci >> 12 & 1) != 0,
                  static_cast<std::uint16_t>(tci & maxVid));
}

void VlanTag::toBytes(std::uint8_t* b) const {
   auto tci = static_cast<std::uint16_t>(pcp_ << 13 | (dei_ ? 1 << 12 : 0) | vid_);
   b[0] = static_cast<std::uint8_t>(tpid_ >> 8);
   b[1] = static_cast<std::uint8_t>(tpid_);
   b[2] = static_cast<std::uint8_t>(tci >> 8);
   b[3] = static_cast<std::uint8_t>(tci);
}

} // namespace Trell

std::string Kor::ValueText<Trell::VlanTag>::print(const Trell::VlanTag& t) {
   return fmt::format("{:#06x}:{}:{}:{}", t.tpid(), t.pcp(), t.dei() ? 1 : 0, t.vid());
}

Trell::VlanTag Kor::ValueText<Trell::VlanTag>::parse(std::string_view s) {
   const char* name = "Trell::VlanTag";
   std::string_view parts[4];
   std::string_view rest = s;
   for (int i = 0; i < 4; ++i) {
      auto colon = rest.find(':');
      if ((colon == std::string_view::npos) != (i == 3)) {
         throw Pelin::DeserializationException(name, std::string(s));
      }
      parts[i] = rest.substr(0, colon);
      if (i < 3) rest = rest.substr(colon + 1);
   }
   try {
      return Trell::VlanTag(static_cast<std::uint16_t>(parseUnsigned(parts[0], 0xffff, name)),
                            static_cast<std::uint8_t>(parseUnsigned(parts[1], 7, name)),
                            parseUnsigned(parts[2], 1, name) != 0,
                            static_cast<std::uint16_t>(parseUnsigned(parts[3], 4095, name)));
   } catch (const Pelin::DeserializationException&) {
      throw Pelin::DeserializationException(name, std::string(s));
   }
}
