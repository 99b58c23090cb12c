// velt import: the current network namespace as a state file, to keep, read and edit.
#include "Commands.h"

#include <fstream>
#include <iostream>
#include <memory>

namespace Velt::Tool {

namespace {

struct ImportCommandOptions {
   std::string out;
};

void run(const GlobalOptions& global, const ImportCommandOptions& o) {
   const std::string text = VeltState::writeStateFile(importFromKernel(global));
   if (o.out.empty() || o.out == "-") {
      std::cout << text;
      return;
   }
   std::ofstream file(o.out);
   file << text;
   file.close();
   if (!file) throw std::runtime_error("-o " + o.out + ": cannot write the file");
}

} // namespace

void addImportCommand(CLI::App& app, GlobalOptions& global) {
   auto o = std::make_shared<ImportCommandOptions>();
   CLI::App* cmd = app.add_subcommand(
       "import",
       "Read the current Linux network namespace over netlink and write it as a state file.\n"
       "Interfaces: the loopback device is Loopback0, every other interface with ifindex N is "
       "Ethernet<N>; the Linux name is kept as linuxName. The main and local tables are VRF "
       "default, a VRF device is a VRF of its name, and --vrf-table names further tables as "
       "VRFs. Each distinct set of next hops becomes a forward FEC; local, broadcast, "
       "blackhole, unreachable and prohibit routes become receive, receiveBcast, drop and "
       "kernel FECs; neighbours with a link-layer address become neighbour entries.");
   cmd->add_option("-o,--out", o->out, "state file to write (default: standard output)");
   cmd->add_option("--vrf-table", global.vrfTables,
                   "routing table TABLE is VRF NAME: NAME=TABLE[:IFACE,IFACE] (its interfaces "
                   "are those that iif/oif rules send to it, or the ones listed)")
       ->type_name("NAME=TABLE[:IFACES]");
   cmd->callback([&global, o] { run(global, *o); });
}

} // namespace Velt::Tool
