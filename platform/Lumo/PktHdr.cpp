// Packet header types: Ip6Addr, IpHdr, Ip6Hdr and GreHdr.
#include "Lumo/GreHdr.h"
#include "Lumo/Ip6Addr.h"
#include "Lumo/Ip6Hdr.h"
#include "Lumo/IpHdr.h"
#include "Lumo/PktBytes.h"

#include <algorithm>
#include <cstring>

namespace Lumo {

Ip6Addr::Ip6Addr(const std::uint8_t* bytes16) {
   std::memcpy(bytes_.data(), bytes16, 16);
}

Ip6Addr::Ip6Addr(std::string_view text) {
   IpGenAddr a(text);
   if (a.af() != AddressFamily::ipv6_) {
      throw Pelin::DeserializationException("Lumo::Ip6Addr", std::string(text));
   }
   std::memcpy(bytes_.data(), a.bytes(), 16);
}

IpHdr::IpHdr(const IpGenAddr& src, const IpGenAddr& dst, std::uint8_t protocol,
             std::uint8_t ttl, std::uint8_t optionWords) {
   std::uint8_t words = static_cast<std::uint8_t>(std::min(5 + optionWords, 15));
   bytes_[0] = static_cast<std::uint8_t>(0x40 | words);
   store16(&bytes_[2], static_cast<std::uint16_t>(words * 4));
   bytes_[8] = ttl;
   bytes_[9] = protocol;
   if (src.af() == AddressFamily::ipv4_) std::memcpy(&bytes_[12], src.bytes(), 4);
   if (dst.af() == AddressFamily::ipv4_) std::memcpy(&bytes_[16], dst.bytes(), 4);
}

Pelin::Ptr<const IpHdr> IpHdr::fromBytes(const std::uint8_t* bytes, std::size_t len) {
   if (!bytes || len < minBytes || bytes[0] >> 4 != 4) return nullptr;
   std::size_t hdrLen = std::size_t(bytes[0] & 0xf) * 4;
   if (hdrLen < minBytes || hdrLen > len) return nullptr;
   auto hdr = Pelin::make<IpHdr>(IpGenAddr(), IpGenAddr(), 0);
   std::memcpy(hdr->bytes_.data(), bytes, hdrLen);
   return hdr;
}

std::uint16_t IpHdr::totalLength() const {
   return load16(&bytes_[2]);
}

Ip6Hdr::Ip6Hdr(const Ip6Addr& src, const Ip6Addr& dst, std::uint8_t nextHeader,
               std::uint8_t hopLimit, std::uint8_t trafficClass) {
   store32(&bytes_[0], 6u << 28 | std::uint32_t(trafficClass) << 20);
   bytes_[6] = nextHeader;
   bytes_[7] = hopLimit;
   std::memcpy(&bytes_[8], src.bytes(), 16);
   std::memcpy(&bytes_[24], dst.bytes(), 16);
}

Pelin::Ptr<const Ip6Hdr> Ip6Hdr::fromBytes(const std::uint8_t* bytes, std::size_t len) {
   if (!bytes || len < size || bytes[0] >> 4 != 6) return nullptr;
   auto hdr = Pelin::make<Ip6Hdr>(Ip6Addr(), Ip6Addr(), 0);
   std::memcpy(hdr->bytes_.data(), bytes, size);
   return hdr;
}

std::uint8_t Ip6Hdr::trafficClass() const {
   return static_cast<std::uint8_t>(load32(&bytes_[0]) >> 20);
}
std::uint32_t Ip6Hdr::flowLabel() const {
   return load32(&bytes_[0]) & 0xfffff;
}
std::uint16_t Ip6Hdr::payloadLength() const {
   return load16(&bytes_[4]);
}

GreHdr::GreHdr(std::uint16_t protocol, std::uint32_t flags, std::uint32_t key,
               std::uint32_t sequence) {
   store32(&bytes_[0], (flags & 0xffff0000) | protocol);
   if (keyPresent()) store32(&bytes_[keyOffset()], key);
   if (sequencePresent())
      store32(&bytes_[keyOffset() + (keyPresent() ? 4 : 0)], sequence);
}

Pelin::Ptr<const GreHdr> GreHdr::fromBytes(const std::uint8_t* bytes, std::size_t len) {
   if (!bytes || len < 4) return nullptr;
   std::size_t hdrLen = sizeFor(load32(bytes));
   if (hdrLen > len) return nullptr;
   auto hdr = Pelin::make<GreHdr>(0);
   std::memcpy(hdr->bytes_.data(), bytes, hdrLen);
   return hdr;
}

std::uint32_t GreHdr::word0() const {
   return load32(&bytes_[0]);
}

std::uint32_t GreHdr::key() const {
   return keyPresent() ? load32(&bytes_[keyOffset()]) : 0;
}

std::uint32_t GreHdr::sequence() const {
   if (!sequencePresent()) return 0;
   return load32(&bytes_[keyOffset() + (keyPresent() ? 4 : 0)]);
}

int GreHdr::sizeFor(std::uint32_t word0) {
   int size = 4;
   for (std::uint32_t bit : {checksumBit, keyBit, sequenceBit}) {
      if (word0 & bit) size += 4;
   }
   return size;
}

} // namespace Lumo
