#include "KernelOracle.h"

#include "TestNamespaces.h"

#include <fstream>
#include <sstream>
#include <stdexcept>

namespace KernelDiff {

namespace {

KernelAnswer::Kind errorKind(const std::string& out) {
   if (out.find("Invalid argument") != std::string::npos) return KernelAnswer::Kind::blackhole;
   if (out.find("No route to host") != std::string::npos) return KernelAnswer::Kind::unreachable;
   if (out.find("Permission denied") != std::string::npos) return KernelAnswer::Kind::prohibit;
   if (out.find("Network is unreachable") != std::string::npos) return KernelAnswer::Kind::noRoute;
   return KernelAnswer::Kind::other;
}

KernelAnswer answerOf(const nlohmann::json& route, const std::string& text) {
   KernelAnswer a;
   a.text = text;
   const std::string type = route.value("type", "unicast");
   if (type == "local") {
      a.kind = KernelAnswer::Kind::local;
   } else if (type == "broadcast") {
      a.kind = KernelAnswer::Kind::broadcast;
   } else if (type == "unicast") {
      a.kind = KernelAnswer::Kind::forward;
   }
   a.dev = route.value("dev", "");
   a.gateway = route.value("gateway", "");
   return a;
}

} // namespace

KernelAnswer kernelRouteGet(const std::string& ns, const std::string& dst, unsigned mark) {
   const std::string markArg = mark ? " mark " + std::to_string(mark) : "";
   CommandResult r = runCommand("ip -n " + ns + " -j route get " + dst + markArg);
   if (r.status != 0) return {errorKind(r.output), "", "", r.output};
   return answerOf(nlohmann::json::parse(r.output).at(0), r.output);
}

std::map<std::string, std::string> kernelNeighbours(const std::string& ns) {
   CommandResult r = runCommand("ip -n " + ns + " -j neigh show");
   if (r.status != 0) throw std::runtime_error("ip neigh show: " + r.output);
   std::map<std::string, std::string> out;
   for (const auto& n : nlohmann::json::parse(r.output)) {
      if (n.contains("lladdr")) out[n.at("dev").get<std::string>() + " " +
                                    n.at("dst").get<std::string>()] = n.at("lladdr");
   }
   return out;
}

ExpectedDecision expectedFor(const KernelAnswer& a, const std::string& dst,
                             const std::map<std::string, std::string>& neighbours) {
   using Kind = KernelAnswer::Kind;
   switch (a.kind) {
   case Kind::forward: {
      auto n = neighbours.find(a.dev + " " + (a.gateway.empty() ? dst : a.gateway));
      if (n == neighbours.end()) return {"trapped", "", "", true, "forward"};
      return {"forwarded", a.dev, n->second, false, "forward"};
   }
   case Kind::local: return {"received", "", "", false, "receive"};
   case Kind::broadcast: return {"received", "", "", false, "receiveBcast"};
   case Kind::blackhole: return {"dropped", "", "", false, "drop"};
   case Kind::unreachable:
   case Kind::prohibit: return {"received", "", "", false, "kernel"};
   case Kind::noRoute: return {"trapped", "", "", false, ""};
   case Kind::other: break;
   }
   return {"?", "", "", false, "?"};
}

nlohmann::json veltDecisions(const std::string& ns, const std::vector<std::string>& vrfTables,
                             const std::string& vrf, const std::vector<std::string>& dsts) {
   std::string cmd = "ip netns exec " + ns + " " VELT_BIN " --linux";
   for (const std::string& t : vrfTables) cmd += " --vrf-table " + t;
   cmd += " resolve --json --vrf " + vrf;
   for (const std::string& d : dsts) cmd += " " + d;
   CommandResult r = runCommand(cmd);
   if (r.status != 0) throw std::runtime_error(cmd + ": " + r.output);
   return nlohmann::json::parse(r.output).at("decisions");
}

std::map<std::string, unsigned> kernelFlowSplit(const std::string& ns,
                                                const std::vector<std::string>& flowArgs) {
   const char* dir = std::getenv("VELT_TEST_TMP");
   const std::string path = std::string(dir ? dir : "/tmp") + "/" + ns + ".flows";
   {
      std::ofstream out(path);
      for (const std::string& f : flowArgs) out << "route get " << f << "\n";
   }
   CommandResult r = runCommand("ip -n " + ns + " -j -batch " + path);
   std::remove(path.c_str());
   if (r.status != 0) throw std::runtime_error("ip -batch route get: " + r.output);
   std::map<std::string, unsigned> split;
   std::istringstream lines(r.output);
   unsigned answers = 0;
   for (std::string line; std::getline(lines, line);) {
      if (line.empty() || line[0] != '[') continue;
      for (const auto& route : nlohmann::json::parse(line)) {
         ++split[route.value("dev", "?")];
         ++answers;
      }
   }
   if (answers != flowArgs.size()) {
      throw std::runtime_error("ip -batch answered " + std::to_string(answers) + " of " +
                               std::to_string(flowArgs.size()) + " flows");
   }
   return split;
}

} // namespace KernelDiff
