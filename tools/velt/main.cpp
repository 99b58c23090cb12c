// velt: resolve, replay and benchmark next hops from the command line, on a switch state
// read from a YAML file (or the embedded example leaf switch).
#include "Commands.h"
#include "velt/state/State.h"

#include <iostream>

int main(int argc, char** argv) {
   CLI::App app{"velt: next-hop resolution on a switch state from a file"};
   app.require_subcommand(1);
   Velt::Tool::GlobalOptions options;
   app.add_option("--state", options.stateFile,
                  "YAML state file (default: the embedded example leaf switch)")
       ->check(CLI::ExistingFile);
   app.add_flag("--shm", options.shm,
                "read the forwarding and neighbour tables from shared memory, as `velt write` "
                "left them");
   app.add_option("--shm-dir", options.shmDir,
                  "shared-memory table directory (default: $VELT_SHM_DIR, else /dev/shm/velt)");
   // Global options may follow the subcommand too: `velt resolve --shm 10.0.0.1`.
   app.fallthrough();
   Velt::Tool::addResolveCommand(app, options);
   Velt::Tool::addReplayCommand(app, options);
   Velt::Tool::addBenchCommand(app, options);
   Velt::Tool::addShowCommand(app, options);
   Velt::Tool::addRinglogCommand(app);
   Velt::Tool::addWriteCommand(app, options);
   try {
      app.parse(argc, argv);
   } catch (const CLI::CallForHelp& e) {
      return app.exit(e);
   } catch (const CLI::CallForAllHelp& e) {
      return app.exit(e);
   } catch (const CLI::ParseError& e) {
      app.exit(e);
      return 2; // bad usage
   } catch (const VeltState::StateError& e) {
      std::cerr << "velt: " << e.what() << "\n";
      return 1;
   } catch (const std::exception& e) {
      std::cerr << "velt: " << e.what() << "\n";
      return 1;
   }
   return 0;
}
