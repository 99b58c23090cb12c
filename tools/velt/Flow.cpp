#include "Flow.h"

#include "Kor/ValueText.h"
#include "Packet/PacketHasher.h"
#include "Packet/PacketParser.h"

#include <sstream>
#include <stdexcept>
#include <vector>

namespace Velt::Tool {

namespace {

[[noreturn]] void bad(const std::string& text, const std::string& why) {
   throw std::invalid_argument("flow \"" + text + "\": " + why +
                               " (expected SRC,DST,PROTO,SPORT,DPORT, e.g. "
                               "10.0.0.1,10.100.0.9,udp,1234,53)");
}

std::uint16_t port(const std::string& flow, const std::string& text) {
   try {
      std::size_t used = 0;
      unsigned long v = std::stoul(text, &used);
      if (used == text.size() && v <= 65535) return static_cast<std::uint16_t>(v);
   } catch (const std::exception&) {
   }
   bad(flow, "port \"" + text + "\" is not a number from 0 to 65535");
}

Lumo::IpGenAddr address(const std::string& flow, const std::string& text) {
   try {
      return Kor::fromText<Lumo::IpGenAddr>(text);
   } catch (const std::exception&) {
      bad(flow, "\"" + text + "\" is not an IP address");
   }
}

} // namespace

VeltTools::Flow parseFlow(const std::string& text) {
   std::vector<std::string> parts;
   std::stringstream in(text);
   for (std::string part; std::getline(in, part, ',');) parts.push_back(part);
   if (parts.size() != 5) bad(text, "it has " + std::to_string(parts.size()) + " parts, not 5");
   VeltTools::Flow f;
   f.src = address(text, parts[0]);
   f.dst = address(text, parts[1]);
   if (f.src.af() != f.dst.af()) bad(text, "source and destination are of different families");
   if (parts[2] == "tcp") {
      f.protocol = VeltTools::kProtoTcp;
   } else if (parts[2] == "udp") {
      f.protocol = VeltTools::kProtoUdp;
   } else {
      bad(text, "protocol \"" + parts[2] + "\" is neither tcp nor udp");
   }
   f.srcPort = port(text, parts[3]);
   f.dstPort = port(text, parts[4]);
   return f;
}

std::uint32_t flowHash(const VeltTools::Flow& flow) {
   const std::vector<std::uint8_t> bytes = VeltTools::flowPacket(flow);
   return PacketHasher().hash(PacketParser().parse(bytes.data(), bytes.size()));
}

} // namespace Velt::Tool
