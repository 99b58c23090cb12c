// velt ringlog: a Ringlog file as text.
#include "Commands.h"
#include "Ringlog/Ringlog.h"

#include <iostream>
#include <memory>

namespace Velt::Tool {

void addRinglogCommand(CLI::App& app) {
   auto file = std::make_shared<std::string>();
   CLI::App* cmd = app.add_subcommand(
       "ringlog", "Print a Ringlog file as text, oldest line first, as "
                  "\"<seq> <handle>/<level> <text>\".");
   cmd->add_option("file", *file, "ring file")->required()->check(CLI::ExistingFile);
   cmd->callback([file] {
      std::string error;
      if (!Ringlog::dump(*file, std::cout, &error)) throw std::runtime_error(*file + ": " + error);
   });
}

} // namespace Velt::Tool
