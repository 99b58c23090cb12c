#include "tools/pcapgen/FlowPackets.h"

#include "Lumo/PktBytes.h"
#include "Pelin/Assert.h"
#include "Pelin/Exception.h"

#include <algorithm>
#include <charconv>
#include <set>
#include <string>

namespace VeltTools {

namespace {

// SplitMix64, written out so that a seed gives the same flows with any standard library.
class Rng {
 public:
   explicit Rng(std::uint64_t seed) : state_(seed) {}
   std::uint64_t next() {
      std::uint64_t z = (state_ += 0x9e3779b97f4a7c15ull);
      z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9ull;
      z = (z ^ (z >> 27)) * 0x94d049bb133111ebull;
      return z ^ (z >> 31);
   }
   // Uniform in [0, n), n > 0.
   std::uint64_t below(std::uint64_t n) { return next() % n; }

 private:
   std::uint64_t state_;
};

constexpr std::uint16_t kTcpPorts[] = {80, 443, 22, 8080, 179};
constexpr std::uint16_t kUdpPorts[] = {53, 123, 443, 4789, 514};

Lumo::IpGenAddr randomAddressIn(const Lumo::IpGenPrefix& prefix, Rng& rng) {
   std::uint8_t bytes[16] = {};
   const std::size_t n = prefix.addr().byteLength();
   for (std::size_t i = 0; i < n; ++i) {
      const unsigned fixedBits =
          std::min<unsigned>(8, prefix.length() > i * 8 ? prefix.length() - i * 8 : 0);
      const auto hostMask = static_cast<std::uint8_t>(0xffu >> fixedBits);
      bytes[i] = static_cast<std::uint8_t>((prefix.addr().byte(i) & ~hostMask) |
                                           (rng.next() & hostMask));
   }
   return Lumo::IpGenAddr(prefix.af(), bytes);
}

// The 16-bit one's-complement sum that IP, TCP and UDP checksums are made of.
std::uint32_t sum16(const std::uint8_t* p, std::size_t n, std::uint32_t acc = 0) {
   for (std::size_t i = 0; i + 1 < n; i += 2)
      acc += Lumo::load16(p + i);
   if (n % 2) acc += std::uint32_t(p[n - 1]) << 8;
   return acc;
}

std::uint16_t fold(std::uint32_t acc) {
   while (acc >> 16)
      acc = (acc & 0xffff) + (acc >> 16);
   return static_cast<std::uint16_t>(~acc);
}

std::uint32_t parseNumber(std::string_view text, std::uint32_t max, const char* what,
                          std::string_view whole) {
   std::uint32_t v = 0;
   auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), v);
   if (text.empty() || ec != std::errc() || end != text.data() + text.size() || v > max)
      throw BadDestination("bad " + std::string(what) + " '" + std::string(text) +
                           "' in '" + std::string(whole) + "'");
   return v;
}

} // namespace

std::vector<std::uint8_t> flowPacket(const Flow& flow, const FrameOptions& options) {
   const bool v4 = flow.src.af() == Lumo::AddressFamily::ipv4_;
   VELT_ASSERT(flow.src.af() == flow.dst.af() &&
               flow.src.af() != Lumo::AddressFamily::ipunknown_);
   const bool tcp = flow.protocol == kProtoTcp;
   const std::size_t l3Bytes = v4 ? 20 : 40;
   const std::size_t l4Bytes = (tcp ? 20 : 8) + options.payloadBytes;
   std::vector<std::uint8_t> pkt(14 + l3Bytes + l4Bytes, 0);
   std::uint8_t* p = pkt.data();
   std::copy_n(options.dstMac.bytes(), 6, p);
   std::copy_n(options.srcMac.bytes(), 6, p + 6);
   Lumo::store16(p + 12, v4 ? 0x0800 : 0x86dd);

   std::uint8_t* ip = p + 14;
   const std::size_t addrBytes = flow.src.byteLength();
   if (v4) {
      ip[0] = 0x45;
      Lumo::store16(ip + 2, static_cast<std::uint16_t>(l3Bytes + l4Bytes));
      Lumo::store16(ip + 6, 0x4000); // don't fragment
      ip[8] = options.ttl;
      ip[9] = flow.protocol;
      std::copy_n(flow.src.bytes(), 4, ip + 12);
      std::copy_n(flow.dst.bytes(), 4, ip + 16);
      Lumo::store16(ip + 10, fold(sum16(ip, 20)));
   } else {
      Lumo::store32(ip, 0x60000000);
      Lumo::store16(ip + 4, static_cast<std::uint16_t>(l4Bytes));
      ip[6] = flow.protocol;
      ip[7] = options.ttl;
      std::copy_n(flow.src.bytes(), 16, ip + 8);
      std::copy_n(flow.dst.bytes(), 16, ip + 24);
   }

   std::uint8_t* l4 = ip + l3Bytes;
   Lumo::store16(l4, flow.srcPort);
   Lumo::store16(l4 + 2, flow.dstPort);
   std::size_t checksumAt = 6;
   if (tcp) {
      Lumo::store32(l4 + 4, 1);       // sequence
      Lumo::store16(l4 + 12, 0x5018); // 5 words, ACK + PSH
      Lumo::store16(l4 + 14, 0xffff); // window
      checksumAt = 16;
   } else {
      Lumo::store16(l4 + 4, static_cast<std::uint16_t>(l4Bytes));
   }
   // Pseudo-header: addresses, protocol and transport length.
   std::uint32_t acc = sum16(flow.src.bytes(), addrBytes);
   acc = sum16(flow.dst.bytes(), addrBytes, acc);
   acc += flow.protocol + std::uint32_t(l4Bytes & 0xffff) + std::uint32_t(l4Bytes >> 16);
   std::uint16_t check = fold(sum16(l4, l4Bytes, acc));
   if (!tcp && check == 0) check = 0xffff; // 0 would mean "no checksum" for UDP
   Lumo::store16(l4 + checksumAt, check);
   return pkt;
}

Destination parseDestination(std::string_view text) {
   Destination d;
   std::string_view where = text;
   if (auto eq = text.find('='); eq != std::string_view::npos) {
      where = text.substr(0, eq);
      d.weight = parseNumber(text.substr(eq + 1), 1000000, "weight", text);
      if (d.weight == 0)
         throw BadDestination("weight must be at least 1 in '" + std::string(text) + "'");
   }
   const auto slash = where.find('/');
   Lumo::IpGenAddr addr;
   try {
      addr = Lumo::IpGenAddr(where.substr(0, slash));
   } catch (const Pelin::DeserializationException&) {
   }
   if (addr.af() == Lumo::AddressFamily::ipunknown_)
      throw BadDestination("not an IPv4 or IPv6 address or prefix: '" +
                           std::string(where) + "'");
   const auto width = static_cast<std::uint32_t>(addr.byteLength() * 8);
   std::uint32_t length = width;
   if (slash != std::string_view::npos)
      length = parseNumber(where.substr(slash + 1), width, "prefix length", text);
   d.prefix = Lumo::IpGenPrefix(addr, static_cast<std::uint8_t>(length));
   return d;
}

std::vector<Flow> makeFlows(const FlowMix& mix) {
   if (mix.destinations.empty()) throw std::invalid_argument("no destinations");
   if (mix.tcpPercent > 100) throw std::invalid_argument("TCP share above 100%");
   VELT_ASSERT(mix.src4.af() == Lumo::AddressFamily::ipv4_ &&
               mix.src6.af() == Lumo::AddressFamily::ipv6_);
   std::uint64_t totalWeight = 0;
   for (const auto& d : mix.destinations)
      totalWeight += d.weight;

   Rng rng(mix.seed);
   std::set<Flow> seen;
   std::vector<Flow> flows;
   flows.reserve(mix.flows);
   constexpr std::uint64_t kTriesPerFlow = 1000;
   for (std::uint64_t tries = 0; flows.size() < mix.flows; ++tries) {
      if (tries == kTriesPerFlow * mix.flows)
         throw std::invalid_argument("cannot make " + std::to_string(mix.flows) +
                                     " distinct flows towards these destinations");
      std::uint64_t pick = rng.below(totalWeight);
      const Destination* dst = &mix.destinations.front();
      for (const auto& d : mix.destinations) {
         dst = &d;
         if (pick < d.weight) break;
         pick -= d.weight;
      }
      Flow f;
      f.dst = randomAddressIn(dst->prefix, rng);
      const bool v4 = f.dst.af() == Lumo::AddressFamily::ipv4_;
      f.src = randomAddressIn(v4 ? mix.src4 : mix.src6, rng);
      const bool tcp = rng.below(100) < mix.tcpPercent;
      f.protocol = tcp ? kProtoTcp : kProtoUdp;
      f.srcPort = static_cast<std::uint16_t>(1024 + rng.below(65536 - 1024));
      f.dstPort = tcp ? kTcpPorts[rng.below(std::size(kTcpPorts))]
                      : kUdpPorts[rng.below(std::size(kUdpPorts))];
      if (seen.insert(f).second) flows.push_back(f);
   }
   return flows;
}

std::vector<std::size_t> packetOrder(std::size_t flows, std::size_t packets,
                                     std::uint64_t seed) {
   std::vector<std::size_t> order;
   if (flows == 0) return order;
   order.reserve(std::max(flows, packets));
   for (std::size_t i = 0; i < flows; ++i)
      order.push_back(i);
   Rng rng(seed ^ 0x6a09e667f3bcc909ull); // a stream of its own, apart from makeFlows'
   while (order.size() < packets)
      order.push_back(rng.below(flows));
   for (std::size_t i = order.size() - 1; i > 0; --i)
      std::swap(order[i], order[rng.below(i + 1)]);
   order.resize(packets);
   return order;
}

} // namespace VeltTools
