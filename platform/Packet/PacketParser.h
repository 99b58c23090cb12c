// PacketParser: reads Ethernet, VLAN tags, IPv4/IPv6 and TCP/UDP ports from raw packet
// bytes into a Lumo::ParsedPkt, never past the bytes given, whatever they hold.
#pragma once
#include "Packet/ParsedPkt.h"
#include "Packet/Pkt.h"
#include "Pelin/Ptr.h"

#include <cstddef>
#include <cstdint>

class PacketParser : public Pelin::Node {
 public:
   // IPv6 extension headers walked before giving up on reaching the transport header.
   static constexpr unsigned maxIp6ExtHeaders = 8;

   // `bytes` may be null only when `len` is 0.
   Lumo::ParsedPkt parse(const std::uint8_t* bytes, std::size_t len) const;
   Lumo::ParsedPkt parse(const Lumo::Pkt& pkt) const {
      return parse(pkt.bytes().data(), pkt.size());
   }

 private:
   // Each reads the header at `off`; `end` bounds the bytes it may look at.
   void parseIp4(const std::uint8_t* b, std::size_t off, std::size_t end,
                 Lumo::ParsedPkt& p) const;
   void parseIp6(const std::uint8_t* b, std::size_t off, std::size_t end,
                 Lumo::ParsedPkt& p) const;
   void parsePorts(const std::uint8_t* b, std::size_t off, std::size_t end,
                   Lumo::ParsedPkt& p) const;
};
