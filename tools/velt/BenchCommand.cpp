// velt bench: built-in resolution scenarios on a synthetic switch, each reported as the
// median ns per resolution over repetitions, resolutions per second and heap allocations
// per resolution. Traces are off.
#include "Agent.h"
#include "BenchState.h"
#include "Commands.h"
#include "HeapCounter.h"
#include "velt/state/SharedState.h"

#include <nlohmann/json.hpp>

#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <functional>
#include <iostream>
#include <filesystem>
#include <memory>
#include <optional>
#include <sys/wait.h>
#include <unistd.h>

namespace Velt::Tool {

namespace {

struct BenchOptions {
   std::string tables = "in-process"; // "shared", or "both" to compare
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

struct Repetition {
   double ns;     // per resolution
   double allocs; // per resolution
};

void warmUp(Agent& agent, const Scenario& s) {
   for (std::uint32_t i = 0; i < 2000; ++i) {
      auto nh = s.nexthop(i);
      agent.resolve(nh, "default", (i * 2654435761u) | 1, nullptr);
      if (!nh->fullyResolved() || nh->drop()) {
         throw std::runtime_error("bench scenario " + s.name + " did not resolve");
      }
   }
}

Repetition repeatOnce(Agent& agent, const Scenario& s, const BenchOptions& o) {
   const std::uint64_t allocsBefore = heapAllocations();
   auto start = std::chrono::steady_clock::now();
   for (std::uint32_t i = 0; i < o.iterations; ++i) {
      agent.resolve(s.nexthop(i), "default", (i * 2654435761u) | 1, nullptr);
   }
   std::chrono::duration<double, std::nano> took = std::chrono::steady_clock::now() - start;
   return {took.count() / o.iterations,
           double(heapAllocations() - allocsBefore) / double(o.iterations)};
}

Result summarise(const std::string& name, std::vector<Repetition> reps) {
   double allocs = 0;
   for (const Repetition& r : reps) allocs += r.allocs;
   std::sort(reps.begin(), reps.end(), [](auto& a, auto& b) { return a.ns < b.ns; });
   const double median = reps[reps.size() / 2].ns;
   return {name, median, 1e9 / median, allocs / double(reps.size())};
}

Result measure(Agent& agent, const Scenario& s, const BenchOptions& o) {
   warmUp(agent, s);
   std::vector<Repetition> reps;
   for (std::uint32_t r = 0; r < o.repetitions; ++r) reps.push_back(repeatOnce(agent, s, o));
   return summarise(s.name, reps);
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

// A private table directory under /dev/shm, removed with the object.
class ScratchTableDir {
 public:
   ScratchTableDir() {
      char name[] = "/dev/shm/velt-bench-XXXXXX";
      if (!::mkdtemp(name)) throw std::runtime_error("cannot make a directory in /dev/shm");
      path_ = name;
   }
   ~ScratchTableDir() { std::filesystem::remove_all(path_); }
   const std::string& path() const { return path_; }

 private:
   std::string path_;
};

// The switch of the options on tables of either source, for one process's measurements.
class BenchSwitch {
 public:
   BenchSwitch(const BenchOptions& o, bool shared) : state_(benchState(o.routes)) {
      if (shared) {
         dir_.emplace();
         writer_ = VeltState::createSharedTables(state_, dir_->path(),
                                                 VeltState::capacityFor({state_}));
      }
      const std::string set =
          shared ? VeltState::publishedTables(dir_->path()) : std::string();
      agent_.emplace(shared ? VeltState::loadLayout(set) : state_, set);
   }
   Agent& agent() { return *agent_; }

 private:
   VeltState::State state_;
   std::optional<ScratchTableDir> dir_;
   std::optional<VeltState::Tables> writer_;
   std::optional<Agent> agent_;
};

std::vector<Scenario> chosenScenarios(const BenchOptions& o) {
   std::vector<Scenario> out;
   for (Scenario& s : scenarios(o)) {
      if (o.only.empty() || s.name.find(o.only) != std::string::npos) out.push_back(std::move(s));
   }
   return out;
}

std::vector<Result> measureAll(const BenchOptions& o, bool shared) {
   BenchSwitch bench(o, shared);
   std::vector<Result> results;
   for (const Scenario& s : chosenScenarios(o)) results.push_back(measure(bench.agent(), s, o));
   return results;
}

nlohmann::json resultJson(const Result& r) {
   return {{"scenario", r.name}, {"medianNsPerResolution", r.medianNs},
           {"resolutionsPerSecond", r.perSecond},
           {"heapAllocsPerResolution", r.allocsPerResolution}};
}

// A child process holding a switch on one table source, which runs one repetition of a
// scenario when asked. Two of them, asked in turn, share whatever load the machine has, so
// that their ratio means something on a busy machine; and each has its own resolver root,
// which is one per process.
class BenchChild {
 public:
   BenchChild(const BenchOptions& o, bool shared) : shared_(shared) {
      int ask[2], answer[2];
      if (::pipe(ask) != 0 || ::pipe(answer) != 0) throw std::runtime_error("bench: pipe failed");
      pid_ = ::fork();
      if (pid_ == 0) {
         ::close(ask[1]);
         ::close(answer[0]);
         ::_exit(serve(o, ask[0], answer[1]));
      }
      ::close(ask[0]);
      ::close(answer[1]);
      ask_ = ask[1];
      answer_ = answer[0];
   }
   ~BenchChild() {
      ::close(ask_);
      ::close(answer_);
      int status = 0;
      ::waitpid(pid_, &status, 0);
   }

   Repetition repeatOnce(std::uint32_t scenario) {
      if (::write(ask_, &scenario, sizeof scenario) != sizeof scenario) fail("");
      Repetition r{};
      std::string reply;
      char buf[512];
      for (ssize_t n; reply.size() < sizeof r && (n = ::read(answer_, buf, sizeof buf)) > 0;) {
         reply.append(buf, static_cast<std::size_t>(n));
      }
      if (reply.size() != sizeof r) fail(reply);
      std::memcpy(&r, reply.data(), sizeof r);
      return r;
   }

 private:
   // The child's loop: a scenario index in, a Repetition out; an error is sent as text.
   int serve(const BenchOptions& o, int ask, int answer) {
      std::string error;
      try {
         BenchSwitch bench(o, shared_);
         std::vector<Scenario> all = chosenScenarios(o);
         std::vector<bool> warm(all.size());
         for (std::uint32_t i; ::read(ask, &i, sizeof i) == sizeof i;) {
            if (!warm.at(i)) warmUp(bench.agent(), all[i]);
            warm[i] = true;
            Repetition r = Velt::Tool::repeatOnce(bench.agent(), all[i], o);
            if (::write(answer, &r, sizeof r) != sizeof r) return 1;
         }
         return 0;
      } catch (const std::exception& e) {
         error = e.what();
      }
      // Longer than a Repetition, so the parent tells it from one.
      error.resize(std::max(error.size(), sizeof(Repetition) + 1), ' ');
      if (::write(answer, error.data(), error.size()) < 0) return 1;
      return 1;
   }

   [[noreturn]] void fail(const std::string& why) {
      throw std::runtime_error(fmt::format("bench with {} tables failed: {}",
                                           shared_ ? "shared" : "in-process",
                                           why.empty() ? "the measuring process died" : why));
   }

   bool shared_;
   pid_t pid_ = -1;
   int ask_ = -1;
   int answer_ = -1;
};

// Every repetition of every scenario on both table sources, taking turns.
std::pair<std::vector<Result>, std::vector<Result>> compareSources(const BenchOptions& o) {
   BenchChild local(o, false);
   BenchChild shared(o, true);
   std::vector<Result> localResults, sharedResults;
   const std::vector<Scenario> all = chosenScenarios(o);
   for (std::uint32_t i = 0; i < all.size(); ++i) {
      std::vector<Repetition> a, b;
      for (std::uint32_t r = 0; r < o.repetitions; ++r) {
         // Alternate who goes first, so neither always runs on the warmer cache.
         if (r % 2) b.push_back(shared.repeatOnce(i));
         a.push_back(local.repeatOnce(i));
         if (r % 2 == 0) b.push_back(shared.repeatOnce(i));
      }
      localResults.push_back(summarise(all[i].name, a));
      sharedResults.push_back(summarise(all[i].name, b));
   }
   return {localResults, sharedResults};
}

void printResults(const std::vector<Result>& results) {
   for (const Result& r : results) {
      std::cout << fmt::format("{:<20} {:>9.1f} ns/resolution {:>12.0f} resolutions/s {:>6.2f} "
                               "heap allocs/resolution\n",
                               r.name, r.medianNs, r.perSecond, r.allocsPerResolution);
   }
}

void printComparison(const std::vector<Result>& local, const std::vector<Result>& shared) {
   std::cout << fmt::format("{:<20} {:>12} {:>12} {:>8}\n", "scenario", "in-process ns",
                            "shared ns", "ratio");
   for (std::size_t i = 0; i < local.size() && i < shared.size(); ++i) {
      std::cout << fmt::format("{:<20} {:>12.1f} {:>12.1f} {:>8.3f}\n", local[i].name,
                               local[i].medianNs, shared[i].medianNs,
                               shared[i].medianNs / local[i].medianNs);
   }
}

void run(const BenchOptions& o) {
   std::cerr << fmt::format("velt bench: building a switch with {} IPv4 and {} IPv6 routes "
                            "({} tables)...\n",
                            o.routes, o.routes, o.tables);
   nlohmann::json out{{"routesPerFamily", o.routes},
                      {"repetitions", o.repetitions},
                      {"iterations", o.iterations},
                      {"tables", o.tables}};
   if (o.tables == "both") {
      const auto [local, shared] = compareSources(o);
      if (!o.json) return printComparison(local, shared);
      nlohmann::json j = nlohmann::json::array();
      for (std::size_t i = 0; i < local.size() && i < shared.size(); ++i) {
         j.push_back({{"scenario", local[i].name},
                      {"inProcess", resultJson(local[i])},
                      {"shared", resultJson(shared[i])},
                      {"sharedOverInProcess", shared[i].medianNs / local[i].medianNs}});
      }
      out["scenarios"] = j;
   } else {
      const std::vector<Result> results = measureAll(o, o.tables == "shared");
      if (!o.json) return printResults(results);
      nlohmann::json j = nlohmann::json::array();
      for (const Result& r : results) j.push_back(resultJson(r));
      out["scenarios"] = j;
   }
   std::cout << out.dump(2) << "\n";
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
   cmd->add_option("--tables", o->tables,
                   "where the tables live: in-process, shared (files in /dev/shm, mapped "
                   "read-only), or both, compared in one run")
       ->check(CLI::IsMember({"in-process", "shared", "both"}))
       ->capture_default_str();
   cmd->add_flag("--json", o->json, "print JSON");
   cmd->callback([o] { run(*o); });
}

} // namespace Velt::Tool
