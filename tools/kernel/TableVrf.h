// A VRF made of a routing table and policy rules, for kernels without VRF devices:
// "red=10" names table 10 VRF red, its interfaces being those that iif/oif rules send to
// table 10; "red=10:e3,e4" names the interfaces instead.
#pragma once
#include <cstdint>
#include <string>
#include <vector>

namespace VeltLinux {

struct TableVrf {
   std::string name;
   std::uint32_t table = 0;
   std::vector<std::string> interfaces; // Linux names; empty: taken from the rules
};

// Raises std::invalid_argument naming the text and the expected form.
TableVrf parseTableVrf(const std::string& text);

} // namespace VeltLinux
