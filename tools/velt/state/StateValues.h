// Reading the values of a state file from gathered YAML nodes: each checks its node and
// raises StateError at the node's place, naming what was wrong.
#pragma once
#include "Lumo/EthAddr.h"
#include "Lumo/IntfId.h"
#include "Lumo/IpGenAddr.h"
#include "Lumo/IpGenPrefix.h"
#include "Quarn/FecId.h"
#include "velt/state/State.h"
#include "velt/state/YamlTree.h"

#include <cstdint>
#include <string>
#include <string_view>

namespace VeltState {

// "a scalar", "a sequence", "a mapping" or "nothing".
const char* kindOf(NodeKind k);

class ValueReader {
 public:
   explicit ValueReader(std::string fileName) : fileName_(std::move(fileName)) {}

   [[noreturn]] void fail(Position p, const std::string& problem) const {
      throw StateError(fileName_, p.line, p.column, problem);
   }
   [[noreturn]] void fail(const YamlNode& at, const std::string& problem) const {
      fail(at.pos, problem);
   }

   const std::string& scalar(const YamlNode& n, std::string_view what) const;
   // Null is an empty list, so that "vias:" with nothing after it reads naturally.
   const YamlNode& sequence(const YamlNode& n, std::string_view what) const;
   bool boolean(const YamlNode& n, std::string_view what) const;
   std::uint64_t number(const YamlNode& n, std::string_view what,
                        std::uint64_t max) const;
   Lumo::IntfId intfName(const YamlNode& n, std::string_view what) const;
   // An interface that can hold an address and neighbours: not a FEC's stand-in.
   Lumo::IntfId l3IntfName(const YamlNode& n, std::string_view what) const;
   Lumo::IpGenAddr address(const YamlNode& n, std::string_view what) const;
   Lumo::IpGenPrefix prefix(const YamlNode& n) const;
   Lumo::EthAddr mac(const YamlNode& n) const;
   Quarn::Fib::FecId fecId(const YamlNode& n, std::string_view what) const;
   std::uint8_t fecType(const YamlNode& n) const;
   std::string vrfName(const YamlNode& n) const;

 private:
   std::string fileName_;
};

} // namespace VeltState
