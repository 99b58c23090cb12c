#include "Decision.h"

#include "NodeJson.h"
#include "Quarn/Fec.h"
#include "VeltLib/RoutingRewriteInfoTypes.h"

#include <fmt/format.h>

namespace Velt::Tool {

const char* kindName(DecisionKind kind) {
   switch (kind) {
   case DecisionKind::forwarded: return "forwarded";
   case DecisionKind::received: return "received";
   case DecisionKind::trapped: return "trapped";
   case DecisionKind::dropped: return "dropped";
   }
   return "?";
}

namespace {

DecisionKind kindOf(const RoutingNexthop& nh) {
   if (nh.drop()) return DecisionKind::dropped;
   if (nh.toMe()) return DecisionKind::received;
   if (nh.outputIntf().isCpu()) return DecisionKind::trapped;
   if (nh.fullyResolved()) return DecisionKind::forwarded;
   return DecisionKind::dropped;
}

} // namespace

Decision decisionOf(const RoutingNexthop& nh, std::string target, std::string vrf,
                    std::vector<VeltNamedCounters::Entry> counts) {
   Decision d;
   d.target = std::move(target);
   d.vrf = std::move(vrf);
   d.kind = kindOf(nh);
   d.endVrf = nh.vrf().str();
   d.outputIntf = nh.outputIntf();
   d.dstMac = nh.dstMac();
   d.dstIp = nh.dstIp();
   if (nh.route() != Lumo::IpGenPrefix()) d.route = fmt::format("{}", nh.route());
   if (nh.fec().fecId() != Quarn::Fib::FecId()) d.fec = fmt::format("{}", nh.fec().fecId());
   d.kernelHandlesPacket = nh.kernelHandlesPacket();
   if (nh.rewrites()) {
      for (const auto& r : nh.rewrites()->rewriteInfo()) d.rewrites.push_back(nodeLine(*r));
   }
   d.counts = std::move(counts);
   return d;
}

void addFirstLookup(Decision& d, const Quarn::FibGen::ForwardingStatus* table,
                    const Lumo::IpGenAddr& dst) {
   if (!table || dst == Lumo::IpGenAddr()) return;
   std::optional<Quarn::FibGen::RouteMatch> match;
   try {
      match = table->routeLookup(dst);
   } catch (const std::exception&) {
      return; // a damaged table: the resolution itself reports it
   }
   if (!match) return;
   d.lookupRoute = fmt::format("{}", match->prefix);
   d.lookupFec = fmt::format("{}", match->fecId);
   const std::uint8_t type = table->fec(match->fecId).fecType();
   const std::string_view name = Quarn::FibGen::FecType::name(type);
   d.lookupFecType = name.empty() ? std::to_string(type) : std::string(name);
}

std::string decisionText(const Decision& d) {
   std::string out = fmt::format("{} in {}: {}", d.target, d.vrf, kindName(d.kind));
   if (d.kind == DecisionKind::forwarded) {
      out += fmt::format(" via {}", d.outputIntf);
      if (!d.outputLinuxName.empty()) out += fmt::format(" ({})", d.outputLinuxName);
      out += fmt::format(" to {}", d.dstMac);
   }
   if (d.kind == DecisionKind::trapped) {
      out += d.kernelHandlesPacket ? " (kernel handles it)" : " (kernel does not handle it)";
   }
   out += "\n";
   if (!d.endVrf.empty() && d.endVrf != d.vrf) out += fmt::format("  ended in vrf {}\n", d.endVrf);
   if (!d.lookupRoute.empty()) {
      out += fmt::format("  matched {} (fec {}, {})\n", d.lookupRoute, d.lookupFec,
                         d.lookupFecType);
   }
   if (!d.route.empty()) out += fmt::format("  route {}\n", d.route);
   if (!d.fec.empty()) out += fmt::format("  fec {}\n", d.fec);
   if (d.dstIp != Lumo::IpGenAddr()) out += fmt::format("  next hop {}\n", d.dstIp);
   for (const auto& r : d.rewrites) out += fmt::format("  rewrite {}\n", r);
   for (const auto& c : d.counts) {
      out += fmt::format("  count {} \"{}\" {}\n", c.category, c.text, c.count);
   }
   return out;
}

nlohmann::json decisionJson(const Decision& d) {
   nlohmann::json j;
   j["target"] = d.target;
   j["vrf"] = d.vrf;
   j["decision"] = kindName(d.kind);
   j["endVrf"] = d.endVrf.empty() ? d.vrf : d.endVrf;
   j["outputInterface"] = d.outputIntf.isValid() ? fmt::format("{}", d.outputIntf) : "";
   if (!d.outputLinuxName.empty()) j["outputLinuxName"] = d.outputLinuxName;
   j["dstMac"] = fmt::format("{}", d.dstMac);
   j["nextHop"] = d.dstIp != Lumo::IpGenAddr() ? fmt::format("{}", d.dstIp) : "";
   j["route"] = d.route;
   j["fec"] = d.fec;
   j["kernelHandlesPacket"] = d.kernelHandlesPacket;
   j["lookup"] = d.lookupRoute.empty()
                     ? nlohmann::json(nullptr)
                     : nlohmann::json{{"route", d.lookupRoute},
                                      {"fec", d.lookupFec},
                                      {"fecType", d.lookupFecType}};
   j["rewrites"] = d.rewrites;
   nlohmann::json counts = nlohmann::json::array();
   for (const auto& c : d.counts) {
      counts.push_back({{"category", c.category}, {"component", c.component},
                        {"text", c.text}, {"count", c.count}});
   }
   j["counts"] = std::move(counts);
   return j;
}

} // namespace Velt::Tool
