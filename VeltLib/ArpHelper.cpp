#include "VeltLib/ArpHelper.h"

#include "Pelin/Assert.h"
#include "Pelin/Exception.h"

namespace Velt {

namespace {

using Arp::Table::ArpEntry;
using Arp::Table::ArpEntryMap;

// IPv4 first; anything that is not IPv4 must be IPv6. Checked even without a table.
bool isIpv4(const Lumo::IpGenAddr& nexthop) {
   if (nexthop.af() == Lumo::AddressFamily::ipv4_) return true;
   // The assertion stays on line 18 of this file: crash reports are matched by
   // its place.
   VELT_ASSERT(nexthop.af() == Lumo::AddressFamily::ipv6_);
   return false;
}

// A damaged map is reported and read as a miss, so the helper stays usable.
ArpEntry findOrReport(const ArpEntryMap& map, const Arp::Table::ArpKey& key) {
   try {
      return map.find(key);
   } catch (const Pelin::CorruptionDetectedException& e) {
      map.doCorruptionDetected(e);
      return ArpEntry();
   }
}

} // namespace

const Kor::TypeInfo* ArpResult::typeData() const {
   static const Kor::TypeInfo info = Kor::TypeBuilder<ArpResult>("Velt::ArpResult")
                                         .value("mac", &ArpResult::mac)
                                         .build();
   return &info;
}

ArpResult::Ptr arpResultFactory(const Lumo::EthAddr& mac) {
   return Pelin::make<ArpResult>(mac);
}
ArpResult::Ptr ArpResultIs(const Lumo::EthAddr& mac) {
   return arpResultFactory(mac);
}

ArpHelper::ArpHelper(const Pelin::Ptr<Arp::Table::Status const>& table) : table_(table) {}

ArpEntry ArpHelper::arpEntry(const Arp::Table::ArpKey& key) const {
   return table_ ? findOrReport(table_->arpMap(), key) : ArpEntry();
}

ArpEntry ArpHelper::neighborEntry(const Arp::Table::ArpKey& key) const {
   return table_ ? findOrReport(table_->neighborMap(), key) : ArpEntry();
}

ArpResult::Ptr ArpHelper::arpLookup(Lumo::IntfId outputIntf,
                                    const Lumo::IpGenAddr& nexthop,
                                    Vrf::VrfIdMap::VrfId vrfId) const {
   Lumo::EthAddr mac;
   if (!arpLookupMac(outputIntf, nexthop, vrfId, mac)) return nullptr;
   return arpResultFactory(mac);
}

bool ArpHelper::arpLookupMac(Lumo::IntfId outputIntf, const Lumo::IpGenAddr& nexthop,
                             Vrf::VrfIdMap::VrfId vrfId, Lumo::EthAddr& mac) const {
   const bool v4 = isIpv4(nexthop);
   if (!table_) return false;
   const ArpEntryMap& map = v4 ? table_->arpMap() : table_->neighborMap();
   const Arp::Table::ArpKey key(outputIntf, vrfId, nexthop);
   // findOrReport() on the stored value alone, without making entries to compare.
   std::optional<Arp::Table::ArpValue> found;
   try {
      found = map.map().find(key);
   } catch (const Pelin::CorruptionDetectedException& e) {
      map.doCorruptionDetected(e);
      return false;
   }
   if (!found) return false;
   // An entry equal to the default in every field is indistinguishable from a miss.
   if (key == Arp::Table::ArpKey() && found->ethAddr.isZero() && found->flags == 0 &&
       found->extFlags == 0) {
      return false;
   }
   mac = found->ethAddr;
   return true;
}

const Kor::TypeInfo* ArpHelper::typeData() const {
   static const Kor::TypeInfo info = Kor::TypeBuilder<ArpHelper>("Velt::ArpHelper")
                                         .node("table", &ArpHelper::table)
                                         .build();
   return &info;
}

Pelin::Ptr<ArpHelper>
arpHelperFactory(const Pelin::Ptr<Arp::Table::Status const>& table) {
   return Pelin::make<ArpHelper>(table);
}
Pelin::Ptr<ArpHelper> ArpHelperIs(const Pelin::Ptr<Arp::Table::Status const>& table) {
   return arpHelperFactory(table);
}

} // namespace Velt
