// A string of at most N bytes kept inline (no heap), for names stored in values that are
// copied per packet, such as VRF names.
#pragma once
#include "Kor/ValueText.h"
#include "Pelin/Exception.h"

#include <fmt/format.h>

#include <compare>
#include <cstddef>
#include <cstring>
#include <functional>
#include <string>
#include <string_view>

namespace Kor {

template <std::size_t N>
class BoundedString {
 public:
   constexpr BoundedString() = default;
   // Implicit so that a literal or a std::string can be passed where a name is expected.
   BoundedString(std::string_view s) { assign(s); }
   BoundedString(const char* s) : BoundedString(std::string_view(s)) {}
   BoundedString(const std::string& s) : BoundedString(std::string_view(s)) {}

   BoundedString(const BoundedString& o) { copyFrom(o); }
   BoundedString& operator=(const BoundedString& o) {
      copyFrom(o);
      return *this;
   }

   static constexpr std::size_t maxLength() { return N; }
   std::size_t size() const { return size_; }
   bool empty() const { return size_ == 0; }
   std::string_view view() const { return {data_, size_}; }
   std::string str() const { return std::string(view()); }
   operator std::string_view() const { return view(); }

   friend bool operator==(const BoundedString& a, const BoundedString& b) {
      return a.view() == b.view();
   }
   friend bool operator==(const BoundedString& a, std::string_view b) { return a.view() == b; }
   friend bool operator==(const BoundedString& a, const char* b) {
      return a.view() == std::string_view(b);
   }
   friend std::strong_ordering operator<=>(const BoundedString& a, const BoundedString& b) {
      return a.view() <=> b.view();
   }
   friend bool operator==(const BoundedString& a, const std::string& b) { return a.view() == b; }
   friend std::strong_ordering operator<=>(const BoundedString& a, std::string_view b) {
      return a.view() <=> b;
   }

 private:
   void assign(std::string_view s) {
      if (s.size() > N) {
         throw Pelin::RangeException("Kor::String::bytes > maxLength() not allowed");
      }
      std::memcpy(data_, s.data(), s.size());
      size_ = s.size();
   }
   // Only the used bytes are copied: the rest of the buffer is never read.
   void copyFrom(const BoundedString& o) {
      std::memcpy(data_, o.data_, o.size_);
      size_ = o.size_;
   }

   std::size_t size_ = 0;
   char data_[N];
};

// Prints like a string; a text longer than N raises the range error of the constructor.
template <std::size_t N>
struct ValueText<BoundedString<N>> {
   static std::string print(const BoundedString<N>& v) {
      return ValueText<std::string>::print(v.str());
   }
   static BoundedString<N> parse(std::string_view s) {
      return BoundedString<N>(ValueText<std::string>::parse(s));
   }
};

} // namespace Kor

template <std::size_t N>
struct std::hash<Kor::BoundedString<N>> {
   std::size_t operator()(const Kor::BoundedString<N>& s) const noexcept {
      return std::hash<std::string_view>()(s.view());
   }
};

template <std::size_t N>
struct fmt::formatter<Kor::BoundedString<N>> : fmt::formatter<std::string_view> {
   auto format(const Kor::BoundedString<N>& s, fmt::format_context& ctx) const {
      return fmt::formatter<std::string_view>::format(s.view(), ctx);
   }
};
