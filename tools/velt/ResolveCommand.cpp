// velt resolve: one decision per target.
#include "Agent.h"
#include "Commands.h"
#include "Decision.h"
#include "Flow.h"
#include "Target.h"
#include "Ringlog/Ringlog.h"
#include "Trace/Trace.h"

#include <fmt/format.h>

#include <iostream>
#include <map>
#include <memory>

namespace Velt::Tool {

namespace {

struct ResolveOptions {
   std::vector<std::string> targets;
   std::string vrf = "default";
   std::uint32_t hash = 1;
   std::string flow;
   std::string arpMiss = "trap";
   bool nonHierarchical = false;
   std::string trace;
   std::string ringlog;
   bool json = false;
};

const std::map<std::string, ArpLookupFailAction> kArpMiss = {
    {"trap", ArpLookupFailAction::trapTraceCount},
    {"drop", ArpLookupFailAction::dropTraceCount},
    {"ignore", ArpLookupFailAction::silentlyIgnore}};

// Opens the trace outputs the options ask for; closes the ring file when done.
struct TraceSetup {
   explicit TraceSetup(const ResolveOptions& o) {
      if (!o.trace.empty()) {
         std::vector<std::string> errors = Trace::configIs(o.trace);
         if (!errors.empty()) throw std::invalid_argument("--trace: " + errors.front());
      }
      if (!o.ringlog.empty()) {
         std::string error;
         if (!Ringlog::open(o.ringlog, 1 << 20, &error)) {
            throw std::runtime_error("--ringlog " + o.ringlog + ": " + error);
         }
         ringOpen = true;
      }
   }
   ~TraceSetup() {
      if (ringOpen) Ringlog::close();
   }
   bool ringOpen = false;
};

void run(const GlobalOptions& global, const ResolveOptions& o) {
   std::vector<Target> targets;
   for (const std::string& text : o.targets) targets.push_back(parseTarget(text));
   const std::uint32_t hash = o.flow.empty() ? o.hash : flowHash(parseFlow(o.flow));
   Agent agent(loadState(global), readerDirOf(global));
   if (!agent.hasVrf(o.vrf)) {
      std::string known;
      for (const auto& root : agent.root()->vrfRoots()->vrfRoot()) {
         known += (known.empty() ? "" : ", ") + root->vrfName().str();
      }
      throw std::invalid_argument("--vrf " + o.vrf + ": no such VRF is up (up: " + known + ")");
   }
   TraceSetup traces(o);
   const NexthopConfig config(kArpMiss.at(o.arpMiss), !o.nonHierarchical);
   nlohmann::json all = nlohmann::json::array();
   for (const Target& target : targets) {
      auto counters = Pelin::make<VeltNamedCounters>();
      auto nh = target.nexthop(config);
      agent.resolve(nh, o.vrf, hash, counters);
      Decision d = decisionOf(*nh, target.text, o.vrf, counters->all());
      if (target.kind == Target::Kind::dstIp) {
         addFirstLookup(d, agent.tables().forwardingOf(o.vrf).get(), target.ip);
      }
      if (const auto* intf = agent.state().interface(d.outputIntf)) {
         d.outputLinuxName = intf->linuxName;
      }
      if (o.json) {
         all.push_back(decisionJson(d));
      } else {
         std::cout << decisionText(d);
      }
   }
   if (o.json) std::cout << nlohmann::json{{"hash", hash}, {"decisions", all}}.dump(2) << "\n";
}

} // namespace

void addResolveCommand(CLI::App& app, const GlobalOptions& global) {
   auto o = std::make_shared<ResolveOptions>();
   CLI::App* cmd = app.add_subcommand(
       "resolve", "Resolve targets in a VRF and print each decision.\n"
                  "A target is a destination IP (10.1.2.3, 2001:db8::1), a FEC id (fibGenAdj:5 "
                  "or a raw number) or an output interface with an optional neighbour "
                  "(Ethernet1, Ethernet1@10.1.0.2).");
   cmd->add_option("targets", o->targets, "what to resolve")->required();
   cmd->add_option("--vrf", o->vrf, "VRF to resolve in")->capture_default_str();
   auto* hashOpt = cmd->add_option("--hash", o->hash, "flow hash that picks among weighted vias")
                       ->capture_default_str();
   cmd->add_option("--flow", o->flow,
                   "hash of this flow instead: SRC,DST,PROTO,SPORT,DPORT (e.g. "
                   "10.0.0.1,10.100.0.9,udp,1234,53)")
       ->excludes(hashOpt);
   cmd->add_option("--arp-miss", o->arpMiss, "what a missing neighbour does")
       ->check(CLI::IsMember({"trap", "drop", "ignore"}))
       ->capture_default_str();
   cmd->add_flag("--non-hierarchical", o->nonHierarchical,
                 "stop at the first step that resolves a level");
   cmd->add_option("--trace", o->trace,
                   "text trace levels, as the TRACE variable (e.g. Velt::NHResolver/0-9)");
   cmd->add_option("--ringlog", o->ringlog, "also record binary trace lines to this ring file");
   cmd->add_flag("--json", o->json, "print JSON");
   cmd->callback([&global, o] { run(global, *o); });
}

} // namespace Velt::Tool
