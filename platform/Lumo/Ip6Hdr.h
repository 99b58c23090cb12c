// The fixed 40-byte IPv6 header, as read from a packet or built for a test.
#pragma once
#include "Lumo/Ip6Addr.h"
#include "Pelin/Ptr.h"

#include <array>
#include <cstddef>
#include <cstdint>

namespace Lumo {

class Ip6Hdr : public Pelin::Node {
 public:
   static constexpr std::size_t size = 40;

   Ip6Hdr(const Ip6Addr& src, const Ip6Addr& dst, std::uint8_t nextHeader,
          std::uint8_t hopLimit = 64, std::uint8_t trafficClass = 0);
   // The header at the start of `bytes`; null unless `len` bytes hold a version-6 header.
   static Pelin::Ptr<const Ip6Hdr> fromBytes(const std::uint8_t* bytes, std::size_t len);

   std::uint8_t version() const { return bytes_[0] >> 4; }
   std::uint8_t trafficClass() const;
   std::uint32_t flowLabel() const;
   std::uint16_t payloadLength() const;
   std::uint8_t nextHeader() const { return bytes_[6]; }
   std::uint8_t hopLimit() const { return bytes_[7]; }
   Ip6Addr src() const { return Ip6Addr(&bytes_[8]); }
   Ip6Addr dst() const { return Ip6Addr(&bytes_[24]); }
   const std::uint8_t* bytes() const { return bytes_.data(); }

 private:
   std::array<std::uint8_t, size> bytes_{};
};

} // namespace Lumo
