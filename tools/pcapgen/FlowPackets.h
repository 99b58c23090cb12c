// VeltTools flow packets: seeded sets of distinct TCP/UDP flows towards weighted
// destination prefixes, and the Ethernet frame that carries each flow.
#pragma once
#include "Lumo/EthAddr.h"
#include "Lumo/IpGenAddr.h"
#include "Lumo/IpGenPrefix.h"

#include <compare>
#include <cstdint>
#include <stdexcept>
#include <string_view>
#include <vector>

namespace VeltTools {

constexpr std::uint8_t kProtoTcp = 6;
constexpr std::uint8_t kProtoUdp = 17;

// A transport flow: what every packet of the flow carries in its headers.
struct Flow {
   Lumo::IpGenAddr src;
   Lumo::IpGenAddr dst;
   std::uint8_t protocol = kProtoUdp; // kProtoTcp or kProtoUdp
   std::uint16_t srcPort = 0;
   std::uint16_t dstPort = 0;

   friend auto operator<=>(const Flow&, const Flow&) = default;
};

// Frame options shared by every packet.
struct FrameOptions {
   Lumo::EthAddr dstMac{"02:00:00:00:00:01"};
   Lumo::EthAddr srcMac{"02:00:00:00:00:02"};
   std::size_t payloadBytes = 0;
   std::uint8_t ttl = 64;
};

// Ethernet + IPv4 or IPv6 + TCP or UDP + zero payload, checksums filled in. The source
// and destination must be of one family.
std::vector<std::uint8_t> flowPacket(const Flow& flow, const FrameOptions& options = {});

// A destination prefix with its share of the flows.
struct Destination {
   Lumo::IpGenPrefix prefix;
   std::uint32_t weight = 1;
};

// Text that is not a destination; the message says what is wrong with it.
class BadDestination : public std::invalid_argument {
 public:
   using std::invalid_argument::invalid_argument;
};

// "10.0.0.0/8", "192.0.2.1" (a host), "2001:db8::/32=3": a prefix or address and an
// optional weight of at least 1. Host bits of a prefix are ignored.
Destination parseDestination(std::string_view text);

struct FlowMix {
   std::vector<Destination> destinations;
   unsigned flows = 500;
   unsigned tcpPercent = 50;
   // Where source addresses are picked, per family.
   Lumo::IpGenPrefix src4{"10.0.0.0/8"};
   Lumo::IpGenPrefix src6{"fd00::/16"};
   std::uint64_t seed = 1;
};

// `mix.flows` distinct flows: each takes a destination by weight, an address inside it,
// a source address of the same family, a random source port and a well-known
// destination port. The same mix always gives the same flows, in the same order.
// Throws std::invalid_argument when there are no destinations or the prefixes are too
// small to hold that many distinct flows.
std::vector<Flow> makeFlows(const FlowMix& mix);

// Which flow each of `packets` packets belongs to: every flow at least once when
// packets >= flows, the rest spread at random, seeded like makeFlows.
std::vector<std::size_t> packetOrder(std::size_t flows, std::size_t packets,
                                     std::uint64_t seed);

} // namespace VeltTools
