#include "Kor/Hash.h"

#include <chrono>
#include <cstring>
#include <unistd.h>

namespace Kor {

std::uint32_t hashSeed() noexcept {
   static const std::uint32_t seed = mix(
       static_cast<std::uint64_t>(std::chrono::steady_clock::now().time_since_epoch().count()) ^
       (static_cast<std::uint64_t>(::getpid()) << 40));
   return seed;
}

std::uint32_t hash(std::string_view s, std::uint32_t seed) noexcept {
   std::uint32_t h = hashCombine(seed, s.size());
   std::size_t i = 0;
   for (; i + 8 <= s.size(); i += 8) {
      std::uint64_t word;
      std::memcpy(&word, s.data() + i, 8);
      h = hashCombine(h, word);
   }
   if (i < s.size()) {
      std::uint64_t word = 0;
      std::memcpy(&word, s.data() + i, s.size() - i);
      h = hashCombine(h, word);
   }
   return h;
}

} // namespace Kor
