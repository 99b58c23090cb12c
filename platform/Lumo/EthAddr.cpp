#include "Lumo/EthAddr.h"

#include <charconv>
#include <cstring>

namespace Lumo {

EthAddr::EthAddr(const std::uint8_t* bytes6) { std::memcpy(bytes_.data(), bytes6, 6); }

EthAddr::EthAddr(std::string_view text) {
   // Exactly six two-digit hex groups separated by ':'.
   bool ok = text.size() == 17;
   for (std::size_t i = 0; ok && i < 6; ++i) {
      const char* p = text.data() + i * 3;
      ok = (i == 5 || p[2] == ':') &&
           std::from_chars(p, p + 2, bytes_[i], 16).ptr == p + 2;
   }
   if (!ok) throw Pelin::DeserializationException("Lumo::EthAddr", std::string(text));
}

} // namespace Lumo

std::string Kor::ValueText<Lumo::EthAddr>::print(const Lumo::EthAddr& a) {
   return fmt::format("{:02x}:{:02x}:{:02x}:{:02x}:{:02x}:{:02x}", a.byte(0), a.byte(1),
                      a.byte(2), a.byte(3), a.byte(4), a.byte(5));
}
