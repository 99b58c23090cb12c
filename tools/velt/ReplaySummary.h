// What `velt replay` tallies over a capture: decisions by kind, packets per output interface
// and neighbour, and for each multipath FEC the packets per via beside the via's weight.
#pragma once
#include "Decision.h"
#include "VeltLib/RoutingNexthop.h"

#include <nlohmann/json.hpp>

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace Velt::Tool {

struct ViaSplit {
   std::string via; // "Ethernet49 10.255.0.2"
   std::uint32_t weight = 0;
   bool backup = false; // the FEC's backup via: outside the weighted split
   std::uint64_t packets = 0;
};

class ReplaySummary {
 public:
   // Output interfaces are then shown with these names beside them ("Ethernet4 (eth0)").
   void linuxNamesAre(std::map<Lumo::IntfId, std::string> names) { linuxNames_ = std::move(names); }
   // Tallies one resolved packet.
   void add(const RoutingNexthop& nexthop);
   void skipped() { ++skipped_; }

   std::uint64_t packets() const { return packets_; }
   std::uint64_t skippedPackets() const { return skipped_; }
   const std::map<std::string, std::uint64_t>& byKind() const { return byKind_; }
   const std::map<std::string, std::uint64_t>& byOutput() const { return byOutput_; }
   // By FEC id text: its vias in order with the packets each got.
   const std::map<std::string, std::vector<ViaSplit>>& splits() const { return splits_; }

   // "  Ethernet49 w4 40.0% |#######   | 39.2%" lines per multipath FEC.
   std::string splitChart(int barWidth = 30) const;
   nlohmann::json json() const;

 private:
   std::string outputText(const RoutingNexthop& nh) const;

   std::map<Lumo::IntfId, std::string> linuxNames_;
   std::uint64_t packets_ = 0;
   std::uint64_t skipped_ = 0;
   std::map<std::string, std::uint64_t> byKind_;
   std::map<std::string, std::uint64_t> byOutput_;
   std::map<std::string, std::vector<ViaSplit>> splits_;
   // The FEC last tallied, so a run of packets through one FEC finds its row at once.
   std::string lastFec_;
   std::vector<ViaSplit>* lastSplit_ = nullptr;
};

} // namespace Velt::Tool
