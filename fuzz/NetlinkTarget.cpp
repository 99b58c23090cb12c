// A netlink dump answer as the kernel would send it: every message walked, handed to every
// parser (each takes the types it knows), and what they make of it imported as a state.
#include "FuzzInput.h"

#include "kernel/ImportState.h"
#include "kernel/KernelParse.h"

#include <cstring>
#include <vector>

namespace Fuzz {

namespace {

template <typename Value, typename Parse>
void keep(const nlmsghdr& msg, Parse parse, std::vector<Value>& out) {
   if (auto v = parse(msg)) out.push_back(std::move(*v));
}

} // namespace

void netlink(Input in) {
   // Received answers start aligned for their headers.
   std::vector<std::uint32_t> words((in.size() + 3) / 4);
   if (!in.empty()) std::memcpy(words.data(), in.data(), in.size());
   const Input buffer(reinterpret_cast<const std::uint8_t*>(words.data()), in.size());
   VeltLinux::KernelState kernel;
   try {
      VeltLinux::forEachMessage(buffer, [&](const nlmsghdr& msg) {
         keep(msg, VeltLinux::parseLink, kernel.links);
         keep(msg, VeltLinux::parseAddress, kernel.addresses);
         keep(msg, VeltLinux::parseRoute, kernel.routes);
         keep(msg, VeltLinux::parseNexthop, kernel.nexthops);
         keep(msg, VeltLinux::parseNeighbour, kernel.neighbours);
         keep(msg, VeltLinux::parseRule, kernel.rules);
      });
   } catch (const VeltLinux::NetlinkError&) {
      return;
   }
   try {
      VeltLinux::importState(kernel);
   } catch (const VeltLinux::ImportError&) {
   }
}

} // namespace Fuzz
