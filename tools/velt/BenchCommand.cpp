// velt bench: built-in resolution scenarios on a synthetic switch, each reported as the
// median ns per resolution over repetitions, resolutions per second and heap allocations
// per resolution. Traces are off.
#include "Agent.h"
#include "BenchState.h"
#include "Commands.h"
#include "HeapCounter.h"

#include <nlohmann/json.hpp>

#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <functional>
#include <iostream>
#include <memory>

namespace Velt::Tool {

namespace {

struct BenchOptions {
   std::uint32_t routes = 1000000;
   std::uint32_t iterations = 200000;
   std::uint32_t repetitions = 5;
   std::string only;
   bool json = false;
};

struct Scenario {
   std::string name;
   // Makes the i-th next hop to resolve.
   std::function<Pelin::Ptr<RoutingNexthop>(std::uint32_t i)> nexthop;
};

struct Result {
   std::string name;
   double medianNs;
   double perSecond;
   double allocsPerResolution;
};

Pelin::Ptr<RoutingNexthop> fecNexthop(Quarn::Fib::FecId id) {
   auto nh = routingNexthopFactory(Lumo::IntfId());
   nh->fecIdIs(id);
   return nh;
}

// The outer FEC's via names only the inner FEC, so the packet's destination rides along.
Pelin::Ptr<RoutingNexthop> twoLevelNexthop() {
   static const Lumo::IpGenAddr dst("11.0.0.1");
   auto nh = fecNexthop(BenchFecs::twoLevel());
   nh->dstIpIs(dst);
   return nh;
}

Result measure(Agent& agent, const Scenario& s, const BenchOptions& o) {
   auto once = [&](std::uint32_t i) {
      auto nh = s.nexthop(i);
      agent.resolve(nh, "default", (i * 2654435761u) | 1, nullptr);
      return nh;
   };
   for (std::uint32_t i = 0; i < 2000; ++i) {
      auto nh = once(i);
      if (!nh->fullyResolved() || nh->drop()) {
         throw std::runtime_error("bench scenario " + s.name + " did not resolve");
      }
   }
   std::vector<double> ns;
   const std::uint64_t allocsBefore = heapAllocations();
   for (std::uint32_t r = 0; r < o.repetitions; ++r) {
      auto start = std::chrono::steady_clock::now();
      for (std::uint32_t i = 0; i < o.iterations; ++i) once(i);
      std::chrono::duration<double, std::nano> took = std::chrono::steady_clock::now() - start;
      ns.push_back(took.count() / o.iterations);
   }
   const double allocs = double(heapAllocations() - allocsBefore) /
                         (double(o.iterations) * o.repetitions);
   std::sort(ns.begin(), ns.end());
   const double median = ns[ns.size() / 2];
   return {s.name, median, 1e9 / median, allocs};
}

std::vector<Scenario> scenarios(const BenchOptions& o) {
   auto v4 = std::make_shared<std::vector<Lumo::IpGenAddr>>(benchDestinations(o.routes, false, 1 << 16));
   auto v6 = std::make_shared<std::vector<Lumo::IpGenAddr>>(benchDestinations(o.routes, true, 1 << 16));
   auto dst = [](std::shared_ptr<std::vector<Lumo::IpGenAddr>> addrs) {
      return [addrs](std::uint32_t i) {
         auto nh = routingNexthopFactory(Lumo::IntfId());
         nh->dstIpIs((*addrs)[i & 0xffff]);
         return nh;
      };
   };
   return {
       {"fecId-4via", [](std::uint32_t) { return fecNexthop(BenchFecs::fourWay()); }},
       {"fecId-4via-backup", [](std::uint32_t) { return fecNexthop(BenchFecs::fourWayBackup()); }},
       {"fecId-two-level", [](std::uint32_t) { return twoLevelNexthop(); }},
       {"route-lookup-ipv4", dst(v4)},
       {"route-lookup-ipv6", dst(v6)},
       {"fecId-600via", [](std::uint32_t) { return fecNexthop(BenchFecs::wide()); }},
   };
}

void run(const BenchOptions& o) {
   std::cerr << fmt::format("velt bench: building a switch with {} IPv4 and {} IPv6 routes...\n",
                            o.routes, o.routes);
   Agent agent(benchState(o.routes));
   std::vector<Result> results;
   for (const Scenario& s : scenarios(o)) {
      if (!o.only.empty() && s.name.find(o.only) == std::string::npos) continue;
      results.push_back(measure(agent, s, o));
      if (!o.json) {
         const Result& r = results.back();
         std::cout << fmt::format("{:<20} {:>9.1f} ns/resolution {:>12.0f} resolutions/s {:>6.2f} "
                                  "heap allocs/resolution\n",
                                  r.name, r.medianNs, r.perSecond, r.allocsPerResolution);
      }
   }
   if (o.json) {
      nlohmann::json j = nlohmann::json::array();
      for (const Result& r : results) {
         j.push_back({{"scenario", r.name}, {"medianNsPerResolution", r.medianNs},
                      {"resolutionsPerSecond", r.perSecond},
                      {"heapAllocsPerResolution", r.allocsPerResolution}});
      }
      std::cout << nlohmann::json{{"routesPerFamily", o.routes},
                                  {"repetitions", o.repetitions},
                                  {"iterations", o.iterations},
                                  {"scenarios", j}}
                       .dump(2)
                << "\n";
   }
}

} // namespace

void addBenchCommand(CLI::App& app, const GlobalOptions&) {
   auto o = std::make_shared<BenchOptions>();
   CLI::App* cmd = app.add_subcommand(
       "bench", "Measure built-in resolution scenarios on a synthetic switch (medians of "
                "repetitions; traces off).");
   cmd->add_option("--routes", o->routes, "IPv4 and IPv6 routes each")
       ->check(CLI::Range(1u, 4000000u))
       ->capture_default_str();
   cmd->add_option("--iterations", o->iterations, "resolutions per repetition")
       ->check(CLI::Range(1u, 100000000u))
       ->capture_default_str();
   cmd->add_option("--repetitions", o->repetitions, "repetitions; the median is reported")
       ->check(CLI::Range(1u, 1000u))
       ->capture_default_str();
   cmd->add_option("--only", o->only, "run the scenarios whose name contains this");
   cmd->add_flag("--json", o->json, "print JSON");
   cmd->callback([o] { run(*o); });
}

} // namespace Velt::Tool
