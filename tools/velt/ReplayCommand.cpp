// velt replay: resolves every IPv4 and IPv6 packet of a pcap by its destination, with the
// packet's own flow hash, and summarises the decisions.
#include "Agent.h"
#include "Commands.h"
#include "ReplaySummary.h"
#include "common/PcapReader.h"

#include <fmt/format.h>

#include <chrono>
#include <iostream>
#include <map>
#include <memory>
#include <unistd.h>

namespace Velt::Tool {

namespace {

struct ReplayOptions {
   std::string file;
   std::string vrf = "default";
   bool json = false;
   bool quiet = false;
};

constexpr std::uint64_t kProgressEvery = 1 << 18;

void run(const GlobalOptions& global, const ReplayOptions& o) {
   VeltTools::PcapReader reader(o.file); // fails early on a bad file, before start-up
   Agent agent(loadState(global), readerDirOf(global));
   if (!agent.hasVrf(o.vrf)) throw std::invalid_argument("--vrf " + o.vrf + ": no such VRF is up");
   const bool progress = !o.quiet && isatty(STDERR_FILENO);
   auto counters = Pelin::make<VeltNamedCounters>();
   auto pkt = Pelin::make<Lumo::Pkt>();
   const auto& parser = *agent.parserRoot()->parser();
   ReplaySummary summary;
   std::map<Lumo::IntfId, std::string> linuxNames;
   for (const auto& i : agent.state().interfaces) {
      if (!i.linuxName.empty()) linuxNames.emplace(i.intf, i.linuxName);
   }
   summary.linuxNamesAre(std::move(linuxNames));
   const auto start = std::chrono::steady_clock::now();
   while (auto packet = reader.next()) {
      Lumo::ParsedPkt parsed = parser.parse(packet->data(), packet->size());
      if (!parsed.isIp()) {
         summary.skipped();
         continue;
      }
      pkt->bytesAssign(packet->data(), packet->size());
      auto nh = routingNexthopFactory(Lumo::IntfId());
      nh->dstIpIs(parsed.dstIp());
      agent.resolveWithPkt(nh, o.vrf, pkt, counters);
      summary.add(*nh);
      if (progress && summary.packets() % kProgressEvery == 0) {
         std::cerr << fmt::format("\rreplayed {} packets", summary.packets()) << std::flush;
      }
   }
   const double seconds =
       std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
   if (progress) std::cerr << "\r\033[K";
   const double pps = seconds > 0 ? summary.packets() / seconds : 0;
   if (o.json) {
      nlohmann::json j = summary.json();
      j["file"] = o.file;
      j["vrf"] = o.vrf;
      j["seconds"] = seconds;
      j["packetsPerSecond"] = pps;
      nlohmann::json counts = nlohmann::json::array();
      for (const auto& c : counters->all()) {
         counts.push_back({{"category", c.category}, {"text", c.text}, {"count", c.count}});
      }
      j["counts"] = counts;
      std::cout << j.dump(2) << "\n";
      return;
   }
   std::cout << fmt::format("{}: {} IP packets resolved in vrf {} ({} others skipped), "
                            "{:.0f} packets/s\n",
                            o.file, summary.packets(), o.vrf, summary.skippedPackets(), pps);
   std::cout << "decisions\n";
   for (const auto& [kind, n] : summary.byKind()) std::cout << fmt::format("  {:<18} {}\n", kind, n);
   std::cout << "forwarded by output interface and neighbour MAC\n";
   for (const auto& [out, n] : summary.byOutput()) std::cout << fmt::format("  {:<32} {}\n", out, n);
   std::cout << "counts\n";
   for (const auto& c : counters->all()) {
      std::cout << fmt::format("  {:<12} \"{}\" {}\n", c.category, c.text, c.count);
   }
   if (!summary.splits().empty()) std::cout << "multipath split\n" << summary.splitChart();
}

} // namespace

void addReplayCommand(CLI::App& app, const GlobalOptions& global) {
   auto o = std::make_shared<ReplayOptions>();
   CLI::App* cmd = app.add_subcommand(
       "replay", "Resolve every IPv4 and IPv6 packet of a pcap file by its destination, with "
                 "its own flow hash, and summarise.");
   cmd->add_option("file", o->file, "pcap file")->required()->check(CLI::ExistingFile);
   cmd->add_option("--vrf", o->vrf, "VRF the packets arrive in")->capture_default_str();
   cmd->add_flag("--json", o->json, "print JSON");
   cmd->add_flag("--quiet", o->quiet, "no progress line");
   cmd->callback([&global, o] { run(global, *o); });
}

} // namespace Velt::Tool
