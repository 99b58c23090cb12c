// velt write: the writer process of the shared-memory tables. It makes the tables from the
// first state file, then turns them into each later state by single-record changes while
// readers (`velt resolve --shm`, agents) keep reading.
#include "Commands.h"

#include "Pelin/Exception.h"
#include "Shm/SharedTables.h"
#include "Table/Region.h"
#include "velt/state/SharedState.h"
#include "velt/state/StateDiff.h"

#include <nlohmann/json.hpp>

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <iostream>
#include <memory>
#include <thread>

namespace Velt::Tool {

namespace {

struct WriteOptions {
   std::vector<std::string> files;
   std::uint32_t intervalMs = 1000;
   std::uint32_t cycles = 1;
   bool json = false;
};

std::atomic<bool> stopRequested{false};

void requestStop(int) { stopRequested = true; }

struct Version {
   std::string file;
   VeltState::State state;
};

std::string countsText(const VeltState::ChangeCounts& c) {
   return fmt::format("+{} ~{} -{}", c.added, c.changed, c.removed);
}

nlohmann::json countsJson(const VeltState::ChangeCounts& c) {
   return {{"added", c.added}, {"changed", c.changed}, {"removed", c.removed}};
}

void report(const WriteOptions& o, const std::string& file,
            const VeltState::ChangeSummary& s, double ms) {
   if (o.json) {
      std::cout << nlohmann::json{{"applied", file}, {"fecs", countsJson(s.fecs)},
                                  {"routes", countsJson(s.routes)},
                                  {"neighbours", countsJson(s.neighbours)},
                                  {"notApplied", s.notApplied}, {"ms", ms}}
                       .dump()
                << std::endl;
   } else {
      std::cerr << fmt::format("velt write: applied {}: FECs {}, routes {}, neighbours {} "
                               "in {:.1f} ms\n",
                               file, countsText(s.fecs), countsText(s.routes),
                               countsText(s.neighbours), ms);
   }
   if (!s.notApplied.empty()) {
      std::cerr << fmt::format("velt write: {}: {} differ; readers take them from the layout "
                               "when they start, so they are not applied\n",
                               file, fmt::join(s.notApplied, " and "));
   }
}

// A table file cut short under the writer (by anything but the writer) leaves its
// mapping lost: what the writer applies after that goes nowhere, so it stops.
void stopIfLost() {
   const std::vector<std::string> lost = Table::Region::lostFiles();
   if (lost.empty()) return;
   throw Pelin::Exception(
       fmt::format("table files cut short under the writer: {}", fmt::join(lost, ", ")));
}

VeltState::ChangeSummary apply(VeltState::Tables& tables, const Version& from,
                               const Version& to) {
   try {
      auto summary = VeltState::applyChanges(tables, from.state, to.state, to.file);
      stopIfLost();
      return summary;
   } catch (const std::exception&) {
      stopIfLost(); // the cause of whatever the lost mapping made fail
      throw;
   }
}

// Waits out the interval in short naps, so that a stop request is not kept waiting.
bool pause(std::uint32_t ms) {
   const auto until = std::chrono::steady_clock::now() + std::chrono::milliseconds(ms);
   while (!stopRequested && std::chrono::steady_clock::now() < until) {
      std::this_thread::sleep_for(std::chrono::milliseconds(std::min<std::uint32_t>(ms, 20)));
   }
   return !stopRequested;
}

void run(const GlobalOptions& global, const WriteOptions& o) {
   if (!global.stateFile.empty() || global.shm || global.fromKernel) {
      throw std::invalid_argument(
          "velt write takes its states as arguments, not --state, --shm or --linux (write "
          "the namespace's state with `velt import -o FILE` first)");
   }
   std::vector<Version> versions;
   for (const std::string& f : o.files) versions.push_back({f, VeltState::loadStateFile(f)});
   const std::string dir = tableDirOf(global);
   Shm::WriterLock lock(dir);
   std::signal(SIGINT, requestStop);
   std::signal(SIGTERM, requestStop);
   // A file beyond the size limit is then an error naming it, not a silent death.
   std::signal(SIGXFSZ, SIG_IGN);

   VeltState::Tables tables = VeltState::createSharedTables(
       versions[0].state, dir, VeltState::capacityFor([&] {
          std::vector<VeltState::State> states;
          for (const Version& v : versions) states.push_back(v.state);
          return states;
       }()));
   std::cerr << fmt::format("velt write: made {} forwarding tables and the neighbour table in "
                            "{} from {}\n",
                            tables.forwarding.size(), dir, versions[0].file);
   std::size_t current = 0;
   for (std::uint32_t cycle = 0; o.cycles == 0 || cycle < o.cycles; ++cycle) {
      const bool last = o.cycles != 0 && cycle + 1 == o.cycles;
      // Each cycle walks the versions in order and, unless it is the last, back to the first.
      for (std::size_t step = 1; step <= versions.size(); ++step) {
         const std::size_t next = step % versions.size();
         if (next == 0 && (last || versions.size() == 1)) break;
         if (!pause(o.intervalMs)) return;
         const auto start = std::chrono::steady_clock::now();
         auto summary = apply(tables, versions[current], versions[next]);
         std::chrono::duration<double, std::milli> took = std::chrono::steady_clock::now() - start;
         report(o, versions[next].file, summary, took.count());
         current = next;
      }
      if (versions.size() == 1 && o.cycles == 0 && !pause(o.intervalMs)) return;
   }
}

} // namespace

void addWriteCommand(CLI::App& app, const GlobalOptions& global) {
   auto o = std::make_shared<WriteOptions>();
   CLI::App* cmd = app.add_subcommand(
       "write", "make the shared-memory tables from a state file, then apply later state files "
                "to them as changes while readers run");
   cmd->add_option("states", o->files,
                   "state files: the first makes the tables, each later one is applied as "
                   "the changes from the one before")
       ->required()
       ->check(CLI::ExistingFile);
   cmd->add_option("--interval", o->intervalMs, "milliseconds between two versions")
       ->capture_default_str();
   cmd->add_option("--cycles", o->cycles,
                   "times to walk the versions, back to the first between walks; 0: until "
                   "SIGINT or SIGTERM")
       ->capture_default_str();
   cmd->add_flag("--json", o->json, "report each applied version as a JSON line on stdout");
   cmd->callback([o, &global] { run(global, *o); });
}

} // namespace Velt::Tool
