// The switch state the velt tool works on, as plain values: VRFs, L3 interfaces,
// neighbours and forwarding tables, read from and written to a YAML state file
// (FORMAT.md describes the file). Every element keeps where it was written, so that later
// reports can point back into the file.
#pragma once
#include "Lumo/EthAddr.h"
#include "Lumo/IntfId.h"
#include "Lumo/IpGenAddr.h"
#include "Lumo/IpGenPrefix.h"
#include "Quarn/FecId.h"
#include "Vrf/VrfId.h"

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace VeltState {

// The VRF every state has without declaring it, with id 0.
inline constexpr std::string_view defaultVrfName = "default";
// The name of the one table of a state whose FECs are unified.
inline constexpr std::string_view unifiedTableName = "unified";

// Where an element was written: 1-based line and column, 0 for an element made in code.
// Not part of the element's value: positions always compare equal, so that states
// compare by content only (a state written and read back equals the original).
struct Position {
   int line = 0;
   int column = 0;
   friend bool operator==(const Position&, const Position&) { return true; }
};

struct VrfEntry {
   std::string name;
   Vrf::VrfIdMap::VrfId id;
   bool globalUp = true;
   bool localUp = true;
   Position pos;
   friend bool operator==(const VrfEntry&, const VrfEntry&) = default;
};

enum class OperStatus : std::uint8_t { up, down };

// An L3 interface and the VRF it is in.
struct IntfEntry {
   Lumo::IntfId intf;
   std::string vrf{defaultVrfName};
   OperStatus operStatus = OperStatus::up;
   std::string linuxName; // the Linux interface it was imported from; empty when not
   Position pos;
   friend bool operator==(const IntfEntry&, const IntfEntry&) = default;
};

struct NeighbourEntry {
   std::string vrf{defaultVrfName};
   Lumo::IntfId intf;
   Lumo::IpGenAddr ip;
   Lumo::EthAddr mac;
   Position pos;
   friend bool operator==(const NeighbourEntry&, const NeighbourEntry&) = default;
};

// Unset fields (invalid interface, unset hop, FEC id 0) are absent from the file.
struct ViaEntry {
   Lumo::IntfId intf;
   Lumo::IpGenAddr hop;
   std::uint32_t weight = 1;
   Quarn::Fib::FecId fecId;
   Position pos;
   friend bool operator==(const ViaEntry&, const ViaEntry&) = default;
};

struct FecEntry {
   Quarn::Fib::FecId id;
   std::uint8_t type = 0; // Quarn::FibGen::FecType
   bool loopbackOnly = false;
   std::uint32_t backupVia = 0; // index into vias; 0: no backup via
   std::vector<ViaEntry> vias;
   Position pos;
   friend bool operator==(const FecEntry&, const FecEntry&) = default;
};

struct RouteEntry {
   Lumo::IpGenPrefix prefix;
   Quarn::Fib::FecId fec;
   Position pos;
   friend bool operator==(const RouteEntry&, const RouteEntry&) = default;
};

// One forwarding table: a VRF's, or the unified one.
struct TableEntry {
   std::string name;
   std::vector<FecEntry> fecs;
   std::vector<RouteEntry> routes;
   Position pos;

   const FecEntry* fec(Quarn::Fib::FecId id) const;
   friend bool operator==(const TableEntry&, const TableEntry&) = default;
};

// Elements keep the order of the file.
struct State {
   bool unifiedFec = false;
   std::vector<VrfEntry> vrfs; // "default" only when declared explicitly
   std::vector<IntfEntry> interfaces;
   std::vector<NeighbourEntry> neighbours;
   std::vector<TableEntry> tables;

   // The id of a declared VRF, or of the implicit default VRF.
   std::optional<Vrf::VrfIdMap::VrfId> vrfId(std::string_view vrfName) const;
   const IntfEntry* interface(Lumo::IntfId intf) const;
   const TableEntry* table(std::string_view name) const;
   // The table that VRF `vrfName` resolves in: its own, the unified one, or none.
   const TableEntry* tableOf(std::string_view vrfName) const;

   friend bool operator==(const State&, const State&) = default;
};

// A state file that cannot be loaded. what() is "<file>:<line>:<column>: <problem>";
// line and column are 1-based, and 0 when the file could not be read at all.
class StateError : public std::runtime_error {
 public:
   StateError(const std::string& file, int line, int column, const std::string& problem);

   const std::string& file() const { return file_; }
   int line() const { return line_; }
   int column() const { return column_; }
   const std::string& problem() const { return problem_; }

 private:
   std::string file_;
   int line_;
   int column_;
   std::string problem_;
};

// Reads and checks a whole state file; raises StateError on the first problem found and
// then returns nothing, never part of a state.
State loadStateFile(const std::string& path);
// The same over text already read; `fileName` is what errors name.
State parseState(const std::string& text, const std::string& fileName);
// A state file that parseState reads back to `state` (positions aside).
std::string writeStateFile(const State& state);

} // namespace VeltState
