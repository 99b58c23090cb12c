#include "Lumo/IpGenAddr.h"

#include <arpa/inet.h>

#include <algorithm>
#include <cstring>
#include <string_view>

namespace {

struct FamilyName {
   Lumo::AddressFamily af;
   std::string_view name;
};
constexpr FamilyName familyNames[] = {{Lumo::AddressFamily::ipunknown_, "ipunknown_"},
                                      {Lumo::AddressFamily::ipv4_, "ipv4_"},
                                      {Lumo::AddressFamily::ipv6_, "ipv6_"}};

} // namespace

std::string Kor::ValueText<Lumo::AddressFamily>::print(Lumo::AddressFamily af) {
   for (const auto& f : familyNames) {
      if (f.af == af) return std::string(f.name);
   }
   return std::to_string(static_cast<int>(af));
}

Lumo::AddressFamily Kor::ValueText<Lumo::AddressFamily>::parse(std::string_view s) {
   for (const auto& f : familyNames) {
      if (f.name == s) return f.af;
   }
   auto v = parseUnsigned(s, static_cast<int>(Lumo::AddressFamily::ipv6_),
                          "Lumo::AddressFamily");
   return static_cast<Lumo::AddressFamily>(v);
}

namespace Lumo {

IpGenAddr::IpGenAddr(std::string_view text) {
   if (text.empty()) return;
   // inet_pton wants a terminated string; no address text is longer than this buffer.
   char buf[INET6_ADDRSTRLEN + 1];
   if (text.size() < sizeof(buf)) {
      std::memcpy(buf, text.data(), text.size());
      buf[text.size()] = '\0';
      bool v6 = text.find(':') != std::string_view::npos;
      if (inet_pton(v6 ? AF_INET6 : AF_INET, buf, bytes_.data()) == 1) {
         af_ = v6 ? AddressFamily::ipv6_ : AddressFamily::ipv4_;
         return;
      }
   }
   throw Pelin::DeserializationException("Lumo::IpGenAddr", std::string(text));
}

IpGenAddr::IpGenAddr(AddressFamily af, const std::uint8_t* bytes) : af_(af) {
   std::memcpy(bytes_.data(), bytes, byteLength(af));
}

bool IpGenAddr::allZero() const {
   return std::all_of(bytes_.begin(), bytes_.end(), [](std::uint8_t b) { return b == 0; });
}

} // namespace Lumo

std::string Kor::ValueText<Lumo::IpGenAddr>::print(const Lumo::IpGenAddr& a) {
   if (a.af() == Lumo::AddressFamily::ipunknown_) return "";
   char buf[INET6_ADDRSTRLEN];
   inet_ntop(a.af() == Lumo::AddressFamily::ipv4_ ? AF_INET : AF_INET6, a.bytes(), buf,
             sizeof(buf));
   return buf;
}

std::size_t std::hash<Lumo::IpGenAddr>::operator()(const Lumo::IpGenAddr& a) const noexcept {
   std::string_view raw(reinterpret_cast<const char*>(a.bytes()), 16);
   return std::hash<std::string_view>()(raw) ^ static_cast<std::size_t>(a.af());
}
