// PacketHasher: the flow hash that spreads packets over multipath members. Packets of one
// flow (addresses, protocol, ports) hash alike; an IP packet never hashes to 0.
#pragma once
#include "Packet/ParsedPkt.h"
#include "Pelin/Ptr.h"

#include <cstdint>

class PacketHasher : public Pelin::Node {
 public:
   // What a flow whose mix comes out as 0 hashes to, as 0 means "no hash".
   static constexpr std::uint32_t zeroReplacement = 0x5bd1e995;

   // Hashers with different seeds spread the same flows differently.
   explicit PacketHasher(std::uint32_t seed = 0) : seed_(seed) {}

   std::uint32_t seed() const { return seed_; }
   // 0 when the packet has no IP header. Fragments hash without ports, so that every
   // fragment of a datagram follows the same path.
   std::uint32_t hash(const Lumo::ParsedPkt& p) const;

 private:
   std::uint32_t seed_;
};
