// The framework's single-value hash: a 32-bit hash of one key under the process-wide seed.
// Integers, enums and strings hash here; a value type joins by defining
// `std::uint32_t hash(std::uint32_t seed) const`.
#pragma once
#include <concepts>
#include <cstdint>
#include <string_view>
#include <type_traits>

namespace Kor {

// Fixed for the life of the process, different between processes.
std::uint32_t hashSeed() noexcept;

// Final mix of a 64-bit value into 32 well-spread bits.
inline std::uint32_t mix(std::uint64_t x) noexcept {
   x ^= x >> 33;
   x *= 0xff51afd7ed558ccdULL;
   x ^= x >> 33;
   x *= 0xc4ceb9fe1a85ec53ULL;
   x ^= x >> 33;
   return static_cast<std::uint32_t>(x);
}

// Folds one more field into a running hash; composite keys chain their fields with it.
inline std::uint32_t hashCombine(std::uint32_t h, std::uint64_t field) noexcept {
   return mix((static_cast<std::uint64_t>(h) << 32 | h) ^ (field * 0x9e3779b97f4a7c15ULL));
}

template <typename T>
   requires std::integral<T> || std::is_enum_v<T>
std::uint32_t hash(T v, std::uint32_t seed) noexcept {
   return hashCombine(seed, static_cast<std::uint64_t>(v));
}

std::uint32_t hash(std::string_view s, std::uint32_t seed) noexcept;

template <typename T>
   requires requires(const T& v, std::uint32_t s) {
      { v.hash(s) } -> std::convertible_to<std::uint32_t>;
   }
std::uint32_t hash(const T& v, std::uint32_t seed) noexcept {
   return v.hash(seed);
}

} // namespace Kor
