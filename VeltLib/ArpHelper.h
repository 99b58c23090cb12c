// The neighbour lookup of the resolvers: ArpHelper finds the Ethernet address of an IP
// address on an interface in a VRF, in the platform's neighbour table; ArpResult carries
// the answer.
#pragma once
#include "Arp/ArpTable.h"
#include "Kor/Entity.h"
#include "Kor/TypeInfo.h"
#include "Lumo/EthAddr.h"
#include "Lumo/IntfId.h"
#include "Lumo/IpGenAddr.h"
#include "Pelin/Ptr.h"
#include "Vrf/VrfId.h"

namespace Velt {

class ArpResult : public Pelin::Node {
public:
   using Ptr = Pelin::Ptr<ArpResult>;

   explicit ArpResult(const Lumo::EthAddr& mac) : mac_(mac) {}
   const Lumo::EthAddr& mac() const { return mac_; }

   const Kor::TypeInfo* typeData() const override;

private:
   Lumo::EthAddr mac_;
};

ArpResult::Ptr arpResultFactory(const Lumo::EthAddr& mac);
ArpResult::Ptr ArpResultIs(const Lumo::EthAddr& mac);

class ArpHelper : public Kor::Notifier {
public:
   explicit ArpHelper(const Pelin::Ptr<Arp::Table::Status const>& table);

   const Pelin::Ptr<Arp::Table::Status const>& table() const { return table_; }
   // The entry of `key` in the IPv4 map; the default entry when absent or unbound.
   Arp::Table::ArpEntry arpEntry(const Arp::Table::ArpKey& key) const;
   // The same in the IPv6 map.
   Arp::Table::ArpEntry neighborEntry(const Arp::Table::ArpKey& key) const;
   // The neighbour's address, or null when unknown. `nexthop` must be IPv4 or IPv6.
   ArpResult::Ptr arpLookup(Lumo::IntfId outputIntf, const Lumo::IpGenAddr& nexthop,
                            Vrf::VrfIdMap::VrfId vrfId) const;
   // The same answer without making a result object: true with the address in `mac`,
   // false with `mac` untouched.
   bool arpLookupMac(Lumo::IntfId outputIntf, const Lumo::IpGenAddr& nexthop,
                     Vrf::VrfIdMap::VrfId vrfId, Lumo::EthAddr& mac) const;

   const Kor::TypeInfo* typeData() const override;

private:
   Pelin::Ptr<Arp::Table::Status const> table_;
};

Pelin::Ptr<ArpHelper> arpHelperFactory(const Pelin::Ptr<Arp::Table::Status const>& table);
Pelin::Ptr<ArpHelper> ArpHelperIs(const Pelin::Ptr<Arp::Table::Status const>& table);

} // namespace Velt
