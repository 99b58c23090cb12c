#include "Lumo/IpGenPrefix.h"

namespace Lumo {

namespace {

// True when the first `length` bits of a and b are equal.
bool samePrefix(const std::uint8_t* a, const std::uint8_t* b, unsigned length) {
   unsigned full = length / 8;
   for (unsigned i = 0; i < full; ++i) {
      if (a[i] != b[i]) return false;
   }
   unsigned rest = length % 8;
   if (rest == 0) return true;
   std::uint8_t mask = static_cast<std::uint8_t>(0xff00u >> rest);
   return (a[full] & mask) == (b[full] & mask);
}

IpGenAddr masked(const IpGenAddr& addr, unsigned length) {
   std::uint8_t bytes[16] = {};
   for (unsigned bit = 0; bit < length; ++bit) {
      bytes[bit / 8] |= addr.byte(bit / 8) & (0x80u >> (bit % 8));
   }
   return IpGenAddr(addr.af(), bytes);
}

// Before any byte is touched: a length from outside (a table, netlink) may be anything.
unsigned checkedLength(const IpGenAddr& addr, std::uint8_t length) {
   if (length > addr.byteLength() * 8) {
      throw Pelin::RangeException("Lumo::IpGenPrefix::length > address width not allowed");
   }
   return length;
}

} // namespace

IpGenPrefix::IpGenPrefix(const IpGenAddr& addr, std::uint8_t length)
    : addr_(masked(addr, checkedLength(addr, length))), length_(length) {}

IpGenPrefix::IpGenPrefix(std::string_view text) {
   if (text.empty()) return;
   auto bad = [&] { return Pelin::DeserializationException("Lumo::IpGenPrefix", std::string(text)); };
   auto slash = text.find('/');
   if (slash == std::string_view::npos) throw bad();
   try {
      IpGenAddr addr(text.substr(0, slash));
      if (addr.af() == AddressFamily::ipunknown_) throw bad();
      auto length = Kor::parseUnsigned(text.substr(slash + 1), addr.byteLength() * 8,
                                       "Lumo::IpGenPrefix");
      *this = IpGenPrefix(addr, static_cast<std::uint8_t>(length));
      if (addr_ != addr) throw bad();
   } catch (const Pelin::DeserializationException&) {
      throw bad();
   }
}

bool IpGenPrefix::contains(const IpGenAddr& a) const {
   if (af() == AddressFamily::ipunknown_ || a.af() != af()) return false;
   return samePrefix(addr_.bytes(), a.bytes(), length_);
}

} // namespace Lumo

std::string Kor::ValueText<Lumo::IpGenPrefix>::print(const Lumo::IpGenPrefix& p) {
   if (p.af() == Lumo::AddressFamily::ipunknown_) return "";
   return toText(p.addr()) + "/" + std::to_string(p.length());
}
