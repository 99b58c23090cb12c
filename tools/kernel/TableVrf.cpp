#include "kernel/TableVrf.h"

#include "Wexa/Paths.h"

#include <sstream>
#include <stdexcept>

namespace VeltLinux {

namespace {

[[noreturn]] void bad(const std::string& text, const std::string& why) {
   throw std::invalid_argument("VRF table \"" + text + "\": " + why +
                               " (expected NAME=TABLE or NAME=TABLE:IFACE,IFACE, e.g. red=10)");
}

std::uint32_t tableNumber(const std::string& text, const std::string& number) {
   std::size_t used = 0;
   unsigned long v = 0;
   try {
      v = std::stoul(number, &used);
   } catch (const std::exception&) {
      used = 0;
   }
   if (number.empty() || used != number.size() || number[0] == '-' || v == 0 ||
       v > 0xffffffffUL) {
      bad(text, "table \"" + number + "\" is not a number from 1 to 4294967295");
   }
   if (v == 254 || v == 255) bad(text, "tables main (254) and local (255) are VRF default's");
   return static_cast<std::uint32_t>(v);
}

} // namespace

TableVrf parseTableVrf(const std::string& text) {
   const auto eq = text.find('=');
   if (eq == std::string::npos) bad(text, "no '='");
   TableVrf v;
   v.name = text.substr(0, eq);
   if (v.name.empty()) bad(text, "no VRF name");
   if (v.name == "default") bad(text, "VRF default is the main table's");
   if (std::string problem = Wexa::Paths::componentProblem(v.name); !problem.empty()) {
      bad(text, "VRF name " + Wexa::Paths::shownName(v.name) + " cannot name a table: " +
                    problem);
   }
   const std::string rest = text.substr(eq + 1);
   const auto colon = rest.find(':');
   v.table = tableNumber(text, rest.substr(0, colon));
   if (colon != std::string::npos) {
      std::stringstream in(rest.substr(colon + 1));
      for (std::string name; std::getline(in, name, ',');) {
         if (name.empty()) bad(text, "an empty interface name");
         v.interfaces.push_back(name);
      }
      if (v.interfaces.empty()) bad(text, "no interface after ':'");
   }
   return v;
}

} // namespace VeltLinux
