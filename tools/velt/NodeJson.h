// Any library object as JSON through the generic attribute access: value attributes as their
// value text, node attributes and collections nested up to a depth.
#pragma once
#include "Pelin/Node.h"

#include <nlohmann/json.hpp>

namespace Velt::Tool {

nlohmann::json nodeJson(const Pelin::Node& node, int depth = 3);
// One line: "Type{a=1, b=x}" with nested nodes by type name only.
std::string nodeLine(const Pelin::Node& node);

} // namespace Velt::Tool
