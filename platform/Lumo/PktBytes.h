// Network-order loads and stores shared by the packet header types.
#pragma once
#include <cstdint>

namespace Lumo {

inline std::uint16_t load16(const std::uint8_t* p) {
   return static_cast<std::uint16_t>(p[0] << 8 | p[1]);
}
inline std::uint32_t load32(const std::uint8_t* p) {
   return std::uint32_t(load16(p)) << 16 | load16(p + 2);
}
inline void store16(std::uint8_t* p, std::uint16_t v) {
   p[0] = static_cast<std::uint8_t>(v >> 8);
   p[1] = static_cast<std::uint8_t>(v);
}
inline void store32(std::uint8_t* p, std::uint32_t v) {
   store16(p, static_cast<std::uint16_t>(v >> 16));
   store16(p + 2, static_cast<std::uint16_t>(v));
}

} // namespace Lumo
