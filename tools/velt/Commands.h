// The velt subcommands. Each add*Command registers one subcommand on the app; its callback
// runs when chosen. Failures are exceptions: main reports them and exits non-zero.
#pragma once
#include "velt/state/State.h"

#include <CLI/CLI.hpp>

#include <string>
#include <vector>

namespace Velt::Tool {

struct GlobalOptions {
   std::string stateFile; // empty: the embedded default state
   bool shm = false;      // read the tables a `velt write` left in shared memory
   std::string shmDir;    // empty: Shm::tableDir("velt")
   bool fromKernel = false; // --linux: the current network namespace instead
   std::vector<std::string> vrfTables; // NAME=TABLE[:IFACE,...], for --linux and import
};

// The state to work on: the current network namespace with --linux, the file named by
// --state, else the embedded example leaf switch; with --shm, the layout the writer left
// beside its tables.
VeltState::State loadState(const GlobalOptions& options);
// The current network namespace, read over netlink, with the VRF tables of the options.
VeltState::State importFromKernel(const GlobalOptions& options);
// The shared-memory table directory the options name (whether or not --shm is on).
std::string tableDirOf(const GlobalOptions& options);
// What Agent takes as its table directory: with --shm, the set of tables published in
// tableDirOf(), resolved once per process and paired with loadState's layout; else empty.
std::string readerDirOf(const GlobalOptions& options);
// The embedded default state file's text.
const char* embeddedStateText();

void addResolveCommand(CLI::App& app, const GlobalOptions& options);
void addReplayCommand(CLI::App& app, const GlobalOptions& options);
void addBenchCommand(CLI::App& app, const GlobalOptions& options);
void addShowCommand(CLI::App& app, const GlobalOptions& options);
void addRinglogCommand(CLI::App& app);
void addWriteCommand(CLI::App& app, const GlobalOptions& options);
void addImportCommand(CLI::App& app, GlobalOptions& options);

} // namespace Velt::Tool
