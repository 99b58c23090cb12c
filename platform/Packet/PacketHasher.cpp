#include "Packet/PacketHasher.h"

#include "Lumo/PktBytes.h"

namespace {

constexpr std::uint64_t kMul = 0x9e3779b97f4a7c15ull;

std::uint64_t mix(std::uint64_t h, std::uint64_t word) {
   h = (h ^ word) * kMul;
   return h ^ (h >> 29);
}

// The finaliser of 64-bit MurmurHash3: every input bit reaches every output bit.
std::uint64_t finish(std::uint64_t h) {
   h ^= h >> 33;
   h *= 0xff51afd7ed558ccdull;
   h ^= h >> 33;
   h *= 0xc4ceb9fe1a85ec53ull;
   return h ^ (h >> 33);
}

std::uint64_t load64(const std::uint8_t* p) {
   return std::uint64_t(Lumo::load32(p)) << 32 | Lumo::load32(p + 4);
}

} // namespace

std::uint32_t PacketHasher::hash(const Lumo::ParsedPkt& p) const {
   if (!p.isIp()) return 0;
   std::uint64_t h = mix(seed_, static_cast<std::uint64_t>(p.af()));
   const std::uint8_t* src = p.srcIp().bytes();
   const std::uint8_t* dst = p.dstIp().bytes();
   if (p.af() == Lumo::AddressFamily::ipv4_) {
      h = mix(h, std::uint64_t(Lumo::load32(src)) << 32 | Lumo::load32(dst));
   } else {
      h = mix(h, load64(src));
      h = mix(h, load64(src + 8));
      h = mix(h, load64(dst));
      h = mix(h, load64(dst + 8));
   }
   std::uint64_t ports = 0;
   if (p.has(Lumo::ParsedPkt::portsFound) && !p.has(Lumo::ParsedPkt::fragment))
      ports = std::uint64_t(p.srcPort()) << 16 | p.dstPort();
   h = finish(mix(h, std::uint64_t(p.protocol()) << 32 | ports));
   const auto out = static_cast<std::uint32_t>(h ^ (h >> 32));
   return out != 0 ? out : zeroReplacement;
}
