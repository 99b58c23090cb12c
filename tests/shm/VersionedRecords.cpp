// Versioned FECs and neighbour entries for the shared-memory tests.
#include "VersionedRecords.h"

namespace ShmTest {

using Quarn::Fib::FecId;
using Quarn::FibGen::Fec;
using Quarn::FibGen::Via;

namespace {

std::uint64_t mix(std::uint64_t a, std::uint64_t b, std::uint64_t c) {
   std::uint64_t h =
       (a * 0x9e3779b97f4a7c15ull) ^ (b + 0x632be59bd9b4e019ull) ^ (c << 17);
   h ^= h >> 31;
   h *= 0xff51afd7ed558ccdull;
   return h ^ (h >> 29);
}

// Not derived from the FEC id, which is the record's key: writers reuse one FEC per
// version for every key.
Via viaOf(std::uint32_t version, std::uint32_t index) {
   std::uint64_t m = mix(version, version >> 7, index);
   const std::uint8_t hop[4] = {10, std::uint8_t(m >> 8), std::uint8_t(m >> 16),
                                std::uint8_t(m >> 24)};
   auto checksum = static_cast<std::uint32_t>(m >> 32);
   return Via(
       Lumo::IntfId::fromType(Lumo::GenericIntfId::ethernetTypeId, std::uint32_t(m) | 1),
       version, Lumo::IpGenAddr(Lumo::AddressFamily::ipv4_, hop), FecId(), checksum);
}

std::uint16_t checkOf(const Arp::Table::ArpKey& key, std::uint32_t version) {
   return static_cast<std::uint16_t>(mix(::Table::hashKey(key), version, 7));
}

std::uint8_t flagsOf(std::uint32_t version) {
   return std::uint8_t(mix(version, 0, 0xff));
}
std::uint32_t viaCountOf(std::uint32_t version) {
   return 1 + version % 8;
}
std::uint32_t secondaryViaCountOf(std::uint32_t version) {
   return version % 3;
}

} // namespace

Quarn::FibGen::ForwardingStatus::Capacity forwardingCapacity() {
   return {.fecs = 256, .viaPoolBytes = 1 << 20, .routes = 16};
}

Arp::Table::Status::Capacity neighborCapacity() {
   return {.arpEntries = 256, .neighborEntries = 256};
}

FecId fecIdOf(std::uint32_t key) {
   return FecId(Quarn::Fib::AdjType::fibGenAdj, key + 1);
}

Arp::Table::ArpKey neighborKeyOf(std::uint32_t key) {
   std::uint8_t bytes[16] = {0x20, 0x01, 0x0d, 0xb8};
   bytes[14] = std::uint8_t(key >> 8);
   bytes[15] = std::uint8_t(key);
   Lumo::IpGenAddr addr = key % 2 == 0
                              ? Lumo::IpGenAddr(Lumo::AddressFamily::ipv4_, bytes + 12)
                              : Lumo::IpGenAddr(Lumo::AddressFamily::ipv6_, bytes);
   return {Lumo::IntfId::fromValue(0x02000000u + key + 1), Vrf::VrfIdMap::VrfId(1), addr};
}

Fec versionedFec(FecId id, std::uint32_t version) {
   Fec fec(id);
   fec.backupViaIndexIs(version);
   fec.flagsIs(flagsOf(version));
   for (std::uint32_t i = 0; i < viaCountOf(version); ++i) {
      fec.viaAppend(viaOf(version, i));
   }
   for (std::uint32_t i = 0; i < secondaryViaCountOf(version); ++i) {
      fec.secondaryViaAppend(viaOf(version, 100 + i));
   }
   return fec;
}

// Field by field rather than against a whole versionedFec(): readers check every copy,
// and a FEC is large.
std::optional<std::uint32_t> wholeVersionOf(const Fec& fec) {
   const std::uint32_t version = fec.backupViaIndex();
   bool whole = fec.flags() == flagsOf(version) && fec.fecType() == 0 &&
                !fec.loopbackOnly() && fec.viaCount() == viaCountOf(version) &&
                fec.secondaryViaCount() == secondaryViaCountOf(version);
   for (std::uint32_t i = 0; whole && i < fec.viaCount(); ++i) {
      whole = fec.vias()[i] == viaOf(version, i);
   }
   for (std::uint32_t i = 0; whole && i < fec.secondaryViaCount(); ++i) {
      whole = fec.secondaryVias()[i] == viaOf(version, 100 + i);
   }
   if (!whole) return std::nullopt;
   return version;
}

Arp::Table::ArpEntry versionedEntry(const Arp::Table::ArpKey& key,
                                    std::uint32_t version) {
   std::uint16_t check = checkOf(key, version);
   const std::uint8_t mac[6] = {std::uint8_t(version),       std::uint8_t(version >> 8),
                                std::uint8_t(version >> 16), std::uint8_t(version >> 24),
                                std::uint8_t(check),         std::uint8_t(check >> 8)};
   return {key, Lumo::EthAddr(mac), std::uint8_t(version >> 3), std::uint8_t(check >> 3)};
}

std::optional<std::uint32_t> wholeVersionOf(const Arp::Table::ArpEntry& entry) {
   const std::uint8_t* mac = entry.ethAddr.bytes();
   std::uint32_t version =
       mac[0] | mac[1] << 8 | mac[2] << 16 | std::uint32_t(mac[3]) << 24;
   if (!(entry == versionedEntry(entry.key, version))) return std::nullopt;
   return version;
}

const Arp::Table::ArpEntryMap& mapOf(const Arp::Table::Status& status,
                                     const Arp::Table::ArpKey& key) {
   return key.addr.af() == Lumo::AddressFamily::ipv4_ ? status.arpMap()
                                                      : status.neighborMap();
}

} // namespace ShmTest
