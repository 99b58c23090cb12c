// An IPv4 header, options included, as read from a packet or built for a test.
#pragma once
#include "Lumo/IpGenAddr.h"
#include "Pelin/Ptr.h"

#include <array>
#include <cstddef>
#include <cstdint>

namespace Lumo {

class IpHdr : public Pelin::Node {
 public:
   static constexpr std::size_t minBytes = 20;
   static constexpr std::size_t maxBytes = 60;

   // A header with `optionWords` 32-bit words of zero options after the fixed part.
   // Addresses other than IPv4 are written as 0.0.0.0.
   IpHdr(const IpGenAddr& src, const IpGenAddr& dst, std::uint8_t protocol,
         std::uint8_t ttl = 64, std::uint8_t optionWords = 0);
   // The header at the start of `bytes`; null unless the `len` bytes hold a version-4
   // header and every option byte its header length announces.
   static Pelin::Ptr<const IpHdr> fromBytes(const std::uint8_t* bytes, std::size_t len);

   std::uint8_t version() const { return bytes_[0] >> 4; }
   // In 32-bit words, as the header-length field says.
   std::uint8_t headerLength() const { return bytes_[0] & 0xf; }
   int headerBytes() const { return headerLength() * 4; }
   std::uint8_t tos() const { return bytes_[1]; }
   std::uint8_t dscp() const { return bytes_[1] >> 2; }
   std::uint16_t totalLength() const;
   std::uint8_t ttl() const { return bytes_[8]; }
   std::uint8_t protocol() const { return bytes_[9]; }
   IpGenAddr src() const { return IpGenAddr(AddressFamily::ipv4_, &bytes_[12]); }
   IpGenAddr dst() const { return IpGenAddr(AddressFamily::ipv4_, &bytes_[16]); }
   // headerBytes() bytes in network order.
   const std::uint8_t* bytes() const { return bytes_.data(); }

 private:
   std::array<std::uint8_t, maxBytes> bytes_{};
};

} // namespace Lumo
