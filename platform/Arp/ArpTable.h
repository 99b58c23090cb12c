// Arp::Table::Status: the neighbour table, an IPv4 ARP map and an IPv6 neighbour map of
// entries keyed by (interface, VRF id, IP address). One writer, lock-free readers; each
// map lives in a table region: process memory, or a shared file mapped read-only by
// readers.
#pragma once
#include "Kor/Entity.h"
#include "Lumo/EthAddr.h"
#include "Lumo/IntfId.h"
#include "Lumo/IpGenAddr.h"
#include "Pelin/CorruptionReport.h"
#include "Pelin/Ptr.h"
#include "Table/FlatMap.h"
#include "Vrf/VrfId.h"

#include <atomic>
#include <cstdint>
#include <functional>
#include <string>
#include <type_traits>

namespace Arp::Table {

// Hashed and compared by its bytes, so the tail pad is part of the key and always zero.
struct ArpKey {
   constexpr ArpKey() = default;
   ArpKey(Lumo::IntfId intf, Vrf::VrfIdMap::VrfId vrf, const Lumo::IpGenAddr& ip)
       : intfId(intf), vrfId(vrf), addr(ip) {}

   friend bool operator==(const ArpKey&, const ArpKey&) = default;

   Lumo::IntfId intfId;
   Vrf::VrfIdMap::VrfId vrfId;
   Lumo::IpGenAddr addr;
   std::uint8_t pad[3] = {};
};
static_assert(std::is_trivially_copyable_v<ArpKey>);
static_assert(std::has_unique_object_representations_v<ArpKey>);

// What a map stores per key: one word.
struct ArpValue {
   Lumo::EthAddr ethAddr;
   std::uint8_t flags = 0;
   std::uint8_t extFlags = 0;
};

struct ArpEntry {
   ArpEntry() = default;
   ArpEntry(const ArpKey& k, const Lumo::EthAddr& mac, std::uint8_t f = 0,
            std::uint8_t ef = 0)
       : key(k), ethAddr(mac), flags(f), extFlags(ef) {}
   ArpEntry(const ArpKey& k, const ArpValue& v)
       : key(k), ethAddr(v.ethAddr), flags(v.flags), extFlags(v.extFlags) {}

   ArpValue value() const { return ArpValue{ethAddr, flags, extFlags}; }

   static bool isEq(const ArpEntry& a, const ArpEntry& b) {
      return a.key == b.key && a.ethAddr == b.ethAddr && a.flags == b.flags &&
             a.extFlags == b.extFlags;
   }
   friend bool operator==(const ArpEntry& a, const ArpEntry& b) { return isEq(a, b); }

   // The default entry, also what a find returns for an absent key: empty interface,
   // no VRF id, unset address, zero MAC, zero flags.
   ArpKey key;
   Lumo::EthAddr ethAddr;
   std::uint8_t flags = 0;
   std::uint8_t extFlags = 0;
};
static_assert(std::is_trivially_copyable_v<ArpEntry>);

// One of the two maps, with its own corruption reports.
class ArpEntryMap {
public:
   using Map = ::Table::FlatMap<ArpKey, ArpValue>;

   ArpEntryMap(std::string name, Map map)
       : name_(std::move(name)), map_(std::move(map)) {}
   ArpEntryMap(ArpEntryMap&& o) noexcept = default;

   const std::string& name() const { return name_; }

   // ---- readers ----
   // The entry of `key`, or the default entry when absent; raises
   // Pelin::CorruptionDetectedException when the record is found damaged.
   ArpEntry find(const ArpKey& key) const {
      auto v = map_.find(key);
      return v ? ArpEntry(key, *v) : ArpEntry();
   }
   // Reports a damaged map: counted, and the last message kept, for operators.
   void doCorruptionDetected(const std::string& message) const;
   // The same for what a find raised, unless it repeats damage reported before.
   void doCorruptionDetected(const Pelin::CorruptionDetectedException& e) const {
      corruptions_.report(e);
   }
   std::uint64_t corruptionCount() const { return corruptions_.count(); }
   std::string lastCorruption() const { return corruptions_.last(); }
   std::uint64_t size() const { return map_.size(); }
   // For tools: entries whose key no writer makes are reported and left out.
   void forEach(const std::function<void(const ArpEntry&)>& fn) const;

   // ---- the writer ----
   void entryIs(const ArpEntry& entry) { map_.insert(entry.key, entry.value()); }
   bool entryDel(const ArpKey& key) { return map_.erase(key); }
   void entryDelAll() { map_.clear(); }
   // Tests only: leaves the record of `key` half-written, as a killed writer would.
   void debugCorrupt(const ArpKey& key) { map_.debugCorrupt(key); }

   const Map& map() const { return map_; }

private:
   std::string name_;
   Map map_;
   mutable Pelin::CorruptionReport corruptions_;
};

class Status : public Kor::Notifier {
public:
   struct Capacity {
      std::uint64_t arpEntries = 1 << 16;
      std::uint64_t neighborEntries = 1 << 16;
   };

   explicit Status(const std::string& name);
   Status(const std::string& name, const Capacity& capacity);
   // Over maps made elsewhere, e.g. ArpEntryMap::Map::createFile / attachFile.
   Status(const std::string& name, ArpEntryMap::Map arp, ArpEntryMap::Map neighbor);
   // The writer's table in two new owner-only files, `<base>.arp` and `<base>.neighbor`.
   static Pelin::Ptr<Status> createFiles(const std::string& name, const std::string& base,
                                         const Capacity& capacity);
   // A reader's mapping of the files createFiles made, without write access: the writer
   // calls fault. A foreign header raises Pelin::Exception naming the file and the field.
   static Pelin::Ptr<Status> attachFiles(const std::string& name,
                                               const std::string& base);

   const std::string& name() const { return name_; }

   // IPv4 entries.
   const ArpEntryMap& arpMap() const { return arp_; }
   ArpEntryMap& arpMap() { return arp_; }
   // IPv6 entries.
   const ArpEntryMap& neighborMap() const { return neighbor_; }
   ArpEntryMap& neighborMap() { return neighbor_; }
   std::uint64_t arpEntryCount() const { return arp_.size(); }
   std::uint64_t neighborEntryCount() const { return neighbor_.size(); }

   // ---- the writer: the map is chosen by the key's address family ----
   void entryIs(const ArpEntry& entry);
   bool entryDel(const ArpKey& key);

   const Kor::TypeInfo* typeData() const override;

private:
   ArpEntryMap& mapFor(const Lumo::IpGenAddr& addr);

   std::string name_;
   ArpEntryMap arp_;
   ArpEntryMap neighbor_;
};

Pelin::Ptr<Status> statusFactory(const std::string& name);
Pelin::Ptr<Status> StatusIs(const std::string& name);

} // namespace Arp::Table

// {intfId=Ethernet1, vrfId=1, addr=10.0.0.2}
template <>
struct Kor::ValueText<Arp::Table::ArpKey> {
   static std::string print(const Arp::Table::ArpKey& k);
};
// {key={...}, ethAddr=02:00:00:00:00:01, flags=0, extFlags=0}
template <>
struct Kor::ValueText<Arp::Table::ArpEntry> {
   static std::string print(const Arp::Table::ArpEntry& e);
};
