// How Ringlog arguments become bytes. Integers, bool, double and strings are built in;
// any other value type opts in by specialising Ringlog::Codec<T> (usually by deriving from
// Ringlog::TrivialCodec<T, code>) and registering its decoder with VELT_RINGLOG_CODEC(T)
// in a source file of the library, so that the dumping process can print it.
#pragma once
#include <fmt/format.h>

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>
#include <type_traits>

namespace Ringlog {

// Built-in type codes; codec types use codes from kFirstCodecCode up, stable forever
// because files written by older builds are decoded with them.
enum TypeCode : std::uint16_t {
   kI8 = 1, kI16, kI32, kI64, kU8, kU16, kU32, kU64, kBool, kF64, kStr,
   kFirstCodecCode = 0x100,
};

constexpr std::size_t kMaxStringBytes = 512; // longer strings are cut

// Specialise with: static constexpr std::uint16_t typeCode; static constexpr std::size_t
// size; static void encode(const T&, std::byte* out); static std::string decode(const
// std::byte* in).
template <typename T>
struct Codec;

// A codec for trivially copyable T printed with its fmt formatter.
template <typename T, std::uint16_t Code>
struct TrivialCodec {
   static_assert(std::is_trivially_copyable_v<T>);
   static_assert(Code >= kFirstCodecCode);
   static constexpr std::uint16_t typeCode = Code;
   static constexpr std::size_t size = sizeof(T);
   static void encode(const T& v, std::byte* out) { std::memcpy(out, &v, sizeof(T)); }
   static std::string decode(const std::byte* in) {
      std::array<std::byte, sizeof(T)> raw;
      std::memcpy(raw.data(), in, sizeof(T));
      return fmt::format("{}", std::bit_cast<T>(raw));
   }
};

using DecodeFn = std::string (*)(const std::byte*);
// Makes a codec type printable by this process's dumper; a code taken by another type
// is a programming error.
bool registerDecoder(std::uint16_t code, std::size_t size, const char* typeName,
                     DecodeFn decode);
struct Decoder {
   std::size_t size = 0;
   DecodeFn decode = nullptr;
};
Decoder decoderFor(std::uint16_t code);

template <typename T>
bool registerCodec() {
   return registerDecoder(Codec<T>::typeCode, Codec<T>::size, typeid(T).name(),
                          &Codec<T>::decode);
}

namespace detail {

template <typename T, typename = void>
struct HasCodec : std::false_type {};
template <typename T>
struct HasCodec<T, std::void_t<decltype(Codec<T>::typeCode)>> : std::true_type {};

template <typename T>
constexpr bool isStringLike = std::is_convertible_v<const T&, std::string_view>;

template <typename T>
constexpr std::uint16_t intCode() {
   constexpr std::uint16_t base = std::is_signed_v<T> ? kI8 : kU8;
   return base + (sizeof(T) == 1 ? 0 : sizeof(T) == 2 ? 1 : sizeof(T) == 4 ? 2 : 3);
}

// Per-type encoding; T is already decayed.
template <typename T>
struct Arg {
   static constexpr bool codec = HasCodec<T>::value;
   static_assert(codec || std::is_arithmetic_v<T> || std::is_enum_v<T> || isStringLike<T>,
                 "Ringlog argument type needs a Ringlog::Codec specialisation");

   static constexpr std::uint16_t code() {
      if constexpr (codec) return Codec<T>::typeCode;
      else if constexpr (std::is_same_v<T, bool>) return kBool;
      else if constexpr (std::is_floating_point_v<T>) return kF64;
      else if constexpr (std::is_enum_v<T>) return intCode<std::underlying_type_t<T>>();
      else if constexpr (std::is_integral_v<T>) return intCode<T>();
      else return kStr;
   }
   static constexpr std::size_t maxSize = [] {
      if constexpr (codec) return Codec<T>::size;
      else if constexpr (std::is_floating_point_v<T>) return sizeof(double);
      else if constexpr (std::is_arithmetic_v<T> || std::is_enum_v<T>) return sizeof(T);
      else return 2 + kMaxStringBytes;
   }();
   static std::size_t size(const T& v) {
      if constexpr (codec) return Codec<T>::size;
      else if constexpr (std::is_floating_point_v<T>) return sizeof(double);
      else if constexpr (std::is_arithmetic_v<T> || std::is_enum_v<T>) return sizeof(T);
      else return 2 + clip(v).size();
   }
   // Streams the encoded value into `sink` (see detail::WordSink).
   template <typename Sink>
   [[gnu::always_inline]] static void put(Sink& sink, const T& v) {
      if constexpr (codec) {
         if constexpr (std::is_base_of_v<TrivialCodec<T, Codec<T>::typeCode>, Codec<T>>) {
            sink.putBytes(reinterpret_cast<const std::byte*>(&v), sizeof(T));
         } else {
            std::array<std::byte, Codec<T>::size> raw;
            Codec<T>::encode(v, raw.data());
            sink.putBytes(raw.data(), raw.size());
         }
      } else if constexpr (std::is_floating_point_v<T>) {
         sink.put(std::bit_cast<std::uint64_t>(static_cast<double>(v)), sizeof(double));
      } else if constexpr (std::is_enum_v<T>) {
         sink.put(static_cast<std::make_unsigned_t<std::underlying_type_t<T>>>(v), sizeof(T));
      } else if constexpr (std::is_same_v<T, bool>) {
         sink.put(v ? 1 : 0, 1);
      } else if constexpr (std::is_arithmetic_v<T>) {
         sink.put(static_cast<std::make_unsigned_t<T>>(v), sizeof(T));
      } else {
         std::string_view s = clip(v);
         sink.put(s.size(), 2);
         sink.putBytes(reinterpret_cast<const std::byte*>(s.data()), s.size());
      }
   }
   static std::string_view clip(const T& v) {
      std::string_view s;
      if constexpr (std::is_pointer_v<T>) s = v ? std::string_view(v) : std::string_view();
      else s = std::string_view(v);
      return s.substr(0, kMaxStringBytes);
   }
};

} // namespace detail
} // namespace Ringlog

#define VELT_RINGLOG_CODEC_CAT2(a, b) a##b
#define VELT_RINGLOG_CODEC_CAT(a, b) VELT_RINGLOG_CODEC_CAT2(a, b)
// At namespace scope in one source file of the library: registers T's decoder at load.
#define VELT_RINGLOG_CODEC(T)                                                            \
   [[maybe_unused]] static const bool VELT_RINGLOG_CODEC_CAT(veltRinglogCodec_, __LINE__) = \
      ::Ringlog::registerCodec<T>()
