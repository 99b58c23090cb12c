// velt-pcapgen: writes a reproducible pcap of mixed TCP/UDP flows towards weighted
// destination prefixes, as traffic for replaying through the forwarding path.
#include "tools/common/PcapWriter.h"
#include "tools/pcapgen/FlowPackets.h"

#include <CLI/CLI.hpp>

#include <cstdio>
#include <string>
#include <vector>

namespace {

// Timestamps start at a fixed second and step by 10 us, so files depend only on options.
constexpr std::uint64_t kStartMicros = 1700000000ull * 1000000;
constexpr std::uint64_t kStepMicros = 10;

} // namespace

int main(int argc, char** argv) {
   CLI::App app{
       "Writes a pcap (Ethernet) of TCP/UDP flows towards the given destinations.\n"
       "Every packet of a flow has the same headers; the same options and seed\n"
       "always give the same file. Exit status: 0 written, 1 cannot write,\n"
       "2 bad arguments.",
       "velt-pcapgen"};
   std::string out;
   std::vector<std::string> dstTexts;
   unsigned packets = 4000;
   VeltTools::FlowMix mix;
   VeltTools::FrameOptions frame;
   app.add_option("-o,--out", out, "pcap file to write")->required();
   app.add_option("-d,--dst", dstTexts,
                  "destination PREFIX or ADDRESS, optionally =WEIGHT (default 1); "
                  "repeat for more, IPv4 and IPv6 mixed")
       ->required();
   app.add_option("-n,--packets", packets, "packets to write")
       ->check(CLI::Range(1u, 100000000u))
       ->capture_default_str();
   app.add_option("-f,--flows", mix.flows,
                  "distinct flows (at most --packets of them appear)")
       ->check(CLI::Range(1u, 10000000u))
       ->capture_default_str();
   app.add_option("--tcp-percent", mix.tcpPercent,
                  "share of flows that are TCP, rest UDP")
       ->check(CLI::Range(0u, 100u))
       ->capture_default_str();
   app.add_option("--payload", frame.payloadBytes,
                  "payload bytes after the TCP/UDP header")
       ->check(CLI::Range(0, 9000))
       ->capture_default_str();
   app.add_option("-s,--seed", mix.seed, "random seed")->capture_default_str();
   try {
      app.parse(argc, argv);
   } catch (const CLI::ParseError& e) {
      return app.exit(e) == 0 ? 0 : 2;
   }

   try {
      for (const auto& text : dstTexts)
         mix.destinations.push_back(VeltTools::parseDestination(text));
   } catch (const VeltTools::BadDestination& e) {
      std::fprintf(stderr, "velt-pcapgen: --dst: %s\n", e.what());
      return 2;
   }
   if (mix.flows > packets) mix.flows = packets;

   std::vector<VeltTools::Flow> flows;
   try {
      flows = VeltTools::makeFlows(mix);
   } catch (const std::invalid_argument& e) {
      std::fprintf(stderr, "velt-pcapgen: --flows: %s\n", e.what());
      return 2;
   }
   std::vector<std::vector<std::uint8_t>> frames;
   frames.reserve(flows.size());
   for (const auto& f : flows)
      frames.push_back(VeltTools::flowPacket(f, frame));

   try {
      VeltTools::PcapWriter writer(out);
      std::uint64_t ts = kStartMicros;
      for (std::size_t i : VeltTools::packetOrder(flows.size(), packets, mix.seed)) {
         writer.write(frames[i], ts);
         ts += kStepMicros;
      }
      writer.close();
   } catch (const VeltTools::PcapError& e) {
      std::fprintf(stderr, "velt-pcapgen: --out: %s\n", e.what());
      return 1;
   }
   return 0;
}
