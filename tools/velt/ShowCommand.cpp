// velt show: the loaded state, the VRF roots, the registered steps and resolvers and the
// counters, read through the generic attribute access.
#include "Agent.h"
#include "Commands.h"
#include "NodeJson.h"

#include <iostream>
#include <memory>

namespace Velt::Tool {

namespace {

// Steps in the order they run: name -> ordering key.
nlohmann::json stepsJson(const GenericPipelineSteps& steps) {
   nlohmann::json out = nlohmann::json::object();
   for (const auto& step : steps) out[step->name()] = step->priority();
   return out;
}

nlohmann::json showJson(const Agent& agent) {
   const auto& root = agent.root();
   nlohmann::json j;
   j["state"] = {{"vrfs", agent.state().vrfs.size()},
                 {"interfaces", agent.state().interfaces.size()},
                 {"neighbours", agent.state().neighbours.size()},
                 {"tables", agent.state().tables.size()},
                 {"unifiedFec", agent.state().unifiedFec}};
   nlohmann::json tables = nlohmann::json::object();
   for (const auto& [name, table] : agent.tables().forwarding) {
      std::size_t fecs = 0, routes = 0;
      table->forEachFec([&](const auto&) { ++fecs; });
      table->forEachRoute([&](const auto&, const auto&) { ++routes; });
      tables[name] = {{"fecs", fecs}, {"routes", routes}};
   }
   j["state"]["forwarding"] = std::move(tables);
   j["root"] = nodeJson(*root, 1);
   j["vrfRoots"] = nodeJson(*root->vrfRoots(), 2);
   j["steps"] = stepsJson(*root->nexthopResolverSteps());
   j["fallbackSteps"] = stepsJson(*root->noIpRouteFallbackSteps());
   j["resolvers"] = nodeJson(*root->resolvers(), 2);
   j["plugins"] = nodeJson(*root->nhrPlugins(), 1);
   return j;
}

void printSection(const std::string& title, const nlohmann::json& j) {
   std::cout << title << "\n";
   for (const auto& [key, value] : j.items()) {
      std::cout << "  " << key << ": " << (value.is_string() ? value.get<std::string>() : value.dump())
                << "\n";
   }
}

} // namespace

void addShowCommand(CLI::App& app, const GlobalOptions& global) {
   auto json = std::make_shared<bool>(false);
   CLI::App* cmd = app.add_subcommand(
       "show", "Print the loaded state, VRF roots, registered steps and resolvers, and plugins.");
   cmd->add_flag("--json", *json, "print JSON");
   cmd->callback([&global, json] {
      Agent agent(loadState(global), readerDirOf(global));
      nlohmann::json j = showJson(agent);
      if (*json) {
         std::cout << j.dump(2) << "\n";
         return;
      }
      for (const auto& [section, value] : j.items()) printSection(section, value);
   });
}

} // namespace Velt::Tool
