#include "Ringlog/Message.h"

#include "Ringlog/Codec.h"
#include "Ringlog/Layout.h"

#include <fmt/args.h>

#include <algorithm>
#include <cstring>
#include <optional>

namespace Ringlog::reader {

namespace {

using Store = fmt::dynamic_format_arg_store<fmt::format_context>;

// Takes bytes off the front of a span, never past its end.
struct Cursor {
   std::span<const std::byte> rest;
   std::optional<std::span<const std::byte>> take(std::size_t n) {
      if (n > rest.size()) return std::nullopt;
      auto out = rest.first(n);
      rest = rest.subspan(n);
      return out;
   }
   template <typename T>
   std::optional<T> value() {
      auto raw = take(sizeof(T));
      if (!raw) return std::nullopt;
      T v;
      std::memcpy(&v, raw->data(), sizeof v);
      return v;
   }
};

// Formats from a file must not be able to ask for unbounded output: replacement fields
// are few, take no width or precision from an argument, and their numbers are small.
bool boundedFormat(std::string_view f) {
   constexpr std::size_t kMaxFields = 64, kMaxDigits = 3;
   std::size_t fields = 0;
   for (std::size_t i = 0; i < f.size(); ++i) {
      if (f[i] != '{') continue;
      if (i + 1 < f.size() && f[i + 1] == '{') {
         ++i;
         continue;
      }
      if (++fields > kMaxFields) return false;
      std::size_t digits = 0;
      for (++i; i < f.size() && f[i] != '}'; ++i) {
         if (f[i] == '{') return false;
         digits = f[i] >= '0' && f[i] <= '9' ? digits + 1 : 0;
         if (digits > kMaxDigits) return false;
      }
   }
   return true;
}

std::optional<Message> parseEntry(const layout::SiteEntry& e, std::span<const std::byte> body) {
   if (e.index >= layout::kPadSite) return std::nullopt;
   Cursor in{body};
   Message m{{}, {}, e.level, {}};
   for (unsigned i = 0; i < e.argCount; ++i) {
      auto code = in.value<std::uint16_t>();
      if (!code) return std::nullopt;
      m.codes.push_back(*code);
   }
   std::string_view text(reinterpret_cast<const char*>(in.rest.data()), in.rest.size());
   std::size_t handleEnd = text.find('\0');
   std::size_t formatEnd = text.find('\0', handleEnd + 1);
   if (handleEnd == text.npos || formatEnd == text.npos) return std::nullopt;
   m.handle = text.substr(0, handleEnd);
   m.format = text.substr(handleEnd + 1, formatEnd - handleEnd - 1);
   if (!boundedFormat(m.format)) return std::nullopt;
   return m;
}

template <typename T>
bool push(Cursor& in, Store& args) {
   auto v = in.value<T>();
   if (v) args.push_back(*v);
   return v.has_value();
}

// Decodes one argument into the store; false when the bytes run out, the type is unknown
// or the value is not one the type can hold.
bool decodeArg(std::uint16_t code, Cursor& in, Store& args) {
   switch (code) {
      case kI8: return push<std::int8_t>(in, args);
      case kI16: return push<std::int16_t>(in, args);
      case kI32: return push<std::int32_t>(in, args);
      case kI64: return push<std::int64_t>(in, args);
      case kU8: return push<std::uint8_t>(in, args);
      case kU16: return push<std::uint16_t>(in, args);
      case kU32: return push<std::uint32_t>(in, args);
      case kU64: return push<std::uint64_t>(in, args);
      case kF64: return push<double>(in, args);
      case kBool: { // read as a byte: any other value than 0 or 1 is no bool
         auto b = in.value<std::uint8_t>();
         if (!b || *b > 1) return false;
         args.push_back(*b == 1);
         return true;
      }
      case kStr: {
         auto n = in.value<std::uint16_t>();
         auto s = n ? in.take(*n) : std::nullopt;
         if (!s) return false;
         args.push_back(std::string(reinterpret_cast<const char*>(s->data()), s->size()));
         return true;
      }
      default: {
         Decoder d = decoderFor(code);
         auto raw = d.decode ? in.take(d.size) : std::nullopt;
         if (!raw) return false;
         args.push_back(d.decode(raw->data()));
         return true;
      }
   }
}

} // namespace

Messages parseMessages(std::span<const std::byte> table, bool& damaged) {
   Messages out;
   std::size_t at = 0;
   while (table.size() - at >= sizeof(layout::SiteEntry)) {
      layout::SiteEntry e;
      std::memcpy(&e, table.data() + at, sizeof e);
      if (e.bytes < sizeof e || e.bytes % 8 || e.bytes > table.size() - at) {
         damaged = true; // the next entry cannot be found
         break;
      }
      auto m = parseEntry(e, table.subspan(at + sizeof e, e.bytes - sizeof e));
      at += e.bytes;
      if (m) out[static_cast<std::uint16_t>(e.index)] = std::move(*m);
      else damaged = true;
   }
   return out;
}

std::string textOf(const Message& message, std::span<const std::byte> args) {
   try {
      Store store;
      Cursor in{args};
      for (std::uint16_t code : message.codes) {
         if (!decodeArg(code, in, store))
            return fmt::format("{} [undecodable argument of type {}]", message.format, code);
      }
      return fmt::vformat(message.format, store);
   } catch (const std::exception& e) {
      return fmt::format("{} [format error: {}]", message.format, e.what());
   }
}

} // namespace Ringlog::reader
