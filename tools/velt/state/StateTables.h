// The platform objects a State stands for: the forwarding tables, the neighbour table and
// the interface status directories, ready to be handed to the resolver.
#pragma once
#include "Arp/ArpTable.h"
#include "Interface/EthIntfStatusDir.h"
#include "L3/IntfStatusDir.h"
#include "Pelin/Ptr.h"
#include "Quarn/ForwardingStatus.h"
#include "velt/state/State.h"

#include <map>
#include <string>
#include <string_view>

namespace VeltState {

struct Tables {
   // By table name: the VRF's name, or unifiedTableName when the FECs are unified. Each
   // table is named after its key.
   std::map<std::string, Pelin::Ptr<Quarn::FibGen::ForwardingStatus>, std::less<>>
       forwarding;
   Pelin::Ptr<Arp::Table::Status> arp;
   Pelin::Ptr<L3::Intf::StatusDir> l3IntfStatus;
   Pelin::Ptr<Interface::EthIntfStatusDir> ethIntfStatus;

   bool unifiedFec = false;

   // The table that VRF `vrfName` resolves in (see State::tableOf), or null.
   Pelin::Ptr<Quarn::FibGen::ForwardingStatus>
   forwardingOf(std::string_view vrfName) const;
};

// Builds the tables of a state that parseState accepted (or that satisfies the same
// rules). Each table has room for about as much again as the state holds, so that more
// can be added later.
Tables buildTables(const State& state);

// What buildTables sizes a forwarding table with.
Quarn::FibGen::ForwardingStatus::Capacity capacityFor(const TableEntry& table);
// What buildTables sizes the neighbour table with.
Arp::Table::Status::Capacity neighbourCapacityFor(const State& state);

// The pieces buildTables is made of, for tables made elsewhere (in shared memory, say).
void fillForwarding(Quarn::FibGen::ForwardingStatus& table, const TableEntry& entry);
void fillNeighbours(Arp::Table::Status& arp, const State& state);
void fillInterfaces(Tables& tables, const State& state);
// `fec` made to hold `entry`; `fec` is reused so that no FEC is built per entry.
void fecFrom(const FecEntry& entry, Quarn::FibGen::Fec& fec);
Arp::Table::ArpEntry neighbourFrom(const NeighbourEntry& entry, const State& state);

} // namespace VeltState
