// The velt subcommands. Each add*Command registers one subcommand on the app; its callback
// runs when chosen. Failures are exceptions: main reports them and exits non-zero.
#pragma once
#include "velt/state/State.h"

#include <CLI/CLI.hpp>

#include <string>

namespace Velt::Tool {

struct GlobalOptions {
   std::string stateFile; // empty: the embedded default state
};

// The state to work on: the file named by --state, else the embedded example leaf switch.
VeltState::State loadState(const GlobalOptions& options);
// The embedded default state file's text.
const char* embeddedStateText();

void addResolveCommand(CLI::App& app, const GlobalOptions& options);
void addReplayCommand(CLI::App& app, const GlobalOptions& options);
void addBenchCommand(CLI::App& app, const GlobalOptions& options);
void addShowCommand(CLI::App& app, const GlobalOptions& options);
void addRinglogCommand(CLI::App& app);

} // namespace Velt::Tool
