#include "Arp/ArpTable.h"

#include "Kor/TypeInfo.h"

#include <fmt/format.h>

namespace Arp::Table {

namespace {

ArpEntryMap::Map anonymousMap(std::uint64_t capacity) {
   return ArpEntryMap::Map(capacity);
}

} // namespace

void ArpEntryMap::doCorruptionDetected(const std::string& message) const {
   corruptions_.report(message);
}

namespace {

// Null, or what no writer puts in a key: lookups never match such a key, but a listing
// would hand it on.
const char* keyProblem(const ArpKey& k) {
   const auto af = k.addr.af();
   if (af != Lumo::AddressFamily::ipv4_ && af != Lumo::AddressFamily::ipv6_) {
      return "address of no known family";
   }
   for (std::size_t i = k.addr.byteLength(); i < 16; ++i) {
      if (k.addr.byte(i) != 0) return "address with bytes past its family's width";
   }
   if (Lumo::GenericIntfId::typeId(k.intfId) == 0 && k.intfId.isValid()) {
      return "interface id of no type";
   }
   for (std::uint8_t b : k.pad) {
      if (b != 0) return "padding set";
   }
   return nullptr;
}

} // namespace

void ArpEntryMap::forEach(const std::function<void(const ArpEntry&)>& fn) const {
   map_.forEach([&](const ArpKey& k, const ArpValue& v) {
      if (const char* problem = keyProblem(k)) {
         doCorruptionDetected(
             fmt::format("table {}: an entry is corrupt: {}", name_, problem));
         return;
      }
      fn(ArpEntry(k, v));
   });
}

Status::Status(const std::string& name) : Status(name, Capacity()) {}

Status::Status(const std::string& name, const Capacity& c)
    : Status(name, anonymousMap(c.arpEntries), anonymousMap(c.neighborEntries)) {}

Status::Status(const std::string& name, ArpEntryMap::Map arp, ArpEntryMap::Map neighbor)
    : name_(name), arp_(name + "/arp", std::move(arp)),
      neighbor_(name + "/neighbor", std::move(neighbor)) {}

Pelin::Ptr<Status> Status::createFiles(const std::string& name, const std::string& base,
                                       const Capacity& c) {
   return Pelin::make<Status>(name, ArpEntryMap::Map::createFile(base + ".arp", c.arpEntries),
                              ArpEntryMap::Map::createFile(base + ".neighbor", c.neighborEntries));
}

Pelin::Ptr<Status> Status::attachFiles(const std::string& name, const std::string& base) {
   return Pelin::make<Status>(name, ArpEntryMap::Map::attachFile(base + ".arp"),
                              ArpEntryMap::Map::attachFile(base + ".neighbor"));
}

ArpEntryMap& Status::mapFor(const Lumo::IpGenAddr& addr) {
   if (addr.af() == Lumo::AddressFamily::ipv4_) return arp_;
   if (addr.af() == Lumo::AddressFamily::ipv6_) return neighbor_;
   throw Pelin::RangeException("a neighbour entry needs an IPv4 or IPv6 address");
}

void Status::entryIs(const ArpEntry& entry) {
   mapFor(entry.key.addr).entryIs(entry);
}

bool Status::entryDel(const ArpKey& key) {
   return mapFor(key.addr).entryDel(key);
}

const Kor::TypeInfo* Status::typeData() const {
   static const Kor::TypeInfo info =
       Kor::TypeBuilder<Status>("Arp::Table::Status")
           .value("name", &Status::name)
           .value("arpEntryCount", &Status::arpEntryCount)
           .value("neighborEntryCount", &Status::neighborEntryCount)
           .build();
   return &info;
}

Pelin::Ptr<Status> statusFactory(const std::string& name) {
   return Pelin::make<Status>(name);
}
Pelin::Ptr<Status> StatusIs(const std::string& name) {
   return statusFactory(name);
}

} // namespace Arp::Table

std::string Kor::ValueText<Arp::Table::ArpKey>::print(const Arp::Table::ArpKey& k) {
   return fmt::format("{{intfId={}, vrfId={}, addr={}}}", Kor::toText(k.intfId),
                      Kor::toText(k.vrfId), Kor::toText(k.addr));
}

std::string Kor::ValueText<Arp::Table::ArpEntry>::print(const Arp::Table::ArpEntry& e) {
   return fmt::format("{{key={}, ethAddr={}, flags={}, extFlags={}}}", Kor::toText(e.key),
                      Kor::toText(e.ethAddr), e.flags, e.extFlags);
}
