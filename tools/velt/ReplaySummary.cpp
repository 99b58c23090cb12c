#include "ReplaySummary.h"

#include <fmt/format.h>

namespace Velt::Tool {

namespace {

const char* kindOf(const RoutingNexthop& nh) {
   if (nh.drop()) return "dropped";
   if (nh.toMe()) return "received";
   if (nh.outputIntf().isCpu()) return nh.kernelHandlesPacket() ? "trapped (kernel)" : "trapped";
   return nh.fullyResolved() ? "forwarded" : "dropped";
}

std::string viaText(const Quarn::FibGen::Via& v) {
   if (v.hop() == Lumo::IpGenAddr()) return fmt::format("{}", v.intfId());
   return fmt::format("{} {}", v.intfId(), v.hop());
}

std::string bar(double share, int width) {
   int filled = static_cast<int>(share * width + 0.5);
   return std::string(filled, '#') + std::string(width - filled, ' ');
}

} // namespace

std::string ReplaySummary::outputText(const RoutingNexthop& nh) const {
   if (!linuxNames_.empty()) {
      if (auto it = linuxNames_.find(nh.outputIntf()); it != linuxNames_.end()) {
         return fmt::format("{} ({}) {}", nh.outputIntf(), it->second, nh.dstMac());
      }
   }
   return fmt::format("{} {}", nh.outputIntf(), nh.dstMac());
}

void ReplaySummary::add(const RoutingNexthop& nh) {
   ++packets_;
   const char* kind = kindOf(nh);
   ++byKind_[kind];
   if (kind[0] == 'f') ++byOutput_[outputText(nh)];
   const Quarn::FibGen::Fec& fec = nh.fec();
   if (fec.viaCount() < 2) return;
   std::string id = fmt::format("{}", fec.fecId());
   if (!lastSplit_ || id != lastFec_) {
      auto [it, added] = splits_.try_emplace(id);
      if (added) {
         const std::uint32_t backup = fec.backupViaIndex();
         for (const Quarn::FibGen::Via& v : fec.vias()) {
            const bool isBackup = backup != 0 && it->second.size() == backup;
            it->second.push_back({viaText(v), v.weight(), isBackup, 0});
         }
      }
      lastFec_ = id;
      lastSplit_ = &it->second;
   }
   // The chosen via when the next hop kept it; else (a backup FEC resolves its pick on a
   // copy) the first via out of the interface the packet leaves by.
   const auto vias = fec.vias();
   const bool keptVia = nh.via() != Quarn::FibGen::Via();
   for (std::size_t i = 0; i < vias.size() && i < lastSplit_->size(); ++i) {
      if (keptVia ? vias[i] == nh.via() : vias[i].intfId() == nh.outputIntf()) {
         ++(*lastSplit_)[i].packets;
         return;
      }
   }
}

std::string ReplaySummary::splitChart(int barWidth) const {
   std::string out;
   for (const auto& [fec, vias] : splits_) {
      std::uint64_t total = 0, weights = 0;
      for (const ViaSplit& v : vias) {
         total += v.packets;
         if (!v.backup) weights += v.weight;
      }
      out += fmt::format("  {} ({} vias, {} packets): weight share, then packets got\n", fec,
                         vias.size(), total);
      for (const ViaSplit& v : vias) {
         double want = weights && !v.backup ? double(v.weight) / weights : 0;
         double got = total ? double(v.packets) / total : 0;
         std::string share = v.backup ? "backup" : fmt::format("{:5.1f}%", want * 100);
         out += fmt::format("    {:<28} w{:<3} {:>6} |{}| {:5.1f}%\n", v.via, v.weight, share,
                            bar(got, barWidth), got * 100);
      }
   }
   return out;
}

nlohmann::json ReplaySummary::json() const {
   nlohmann::json j;
   j["packets"] = packets_;
   j["skippedNonIp"] = skipped_;
   j["decisions"] = byKind_;
   j["outputs"] = byOutput_;
   nlohmann::json splits = nlohmann::json::object();
   for (const auto& [fec, vias] : splits_) {
      nlohmann::json rows = nlohmann::json::array();
      for (const ViaSplit& v : vias) {
         rows.push_back({{"via", v.via}, {"weight", v.weight}, {"backup", v.backup},
                         {"packets", v.packets}});
      }
      splits[fec] = rows;
   }
   j["multipath"] = splits;
   return j;
}

} // namespace Velt::Tool
