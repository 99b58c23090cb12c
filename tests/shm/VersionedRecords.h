// Records whose every field follows from a version number, so that a reader can tell a
// record written wholly in one version from a mix of two: FECs with several vias and
// neighbour entries, plus the table capacities the shared-memory tests use.
#pragma once
#include "Arp/ArpTable.h"
#include "Quarn/ForwardingStatus.h"

#include <cstdint>
#include <optional>

namespace ShmTest {

// Keys every writer keeps present, and keys it erases and re-inserts (tombstones, extent
// reuse) after filling.
constexpr std::uint32_t kStableKeys = 64;
constexpr std::uint32_t kChurnKeys = 16;
constexpr std::uint32_t kAllKeys = kStableKeys + kChurnKeys;

Quarn::FibGen::ForwardingStatus::Capacity forwardingCapacity();
Arp::Table::Status::Capacity neighborCapacity();

Quarn::Fib::FecId fecIdOf(std::uint32_t key);
// Even keys are IPv4 (the ARP map), odd ones IPv6 (the neighbour map).
Arp::Table::ArpKey neighborKeyOf(std::uint32_t key);

// 1 to 8 vias (inline and pooled) and 0 to 2 secondary vias, each via's interface,
// weight, hop and checksum (its tunnel id) derived from the version.
Quarn::FibGen::Fec versionedFec(Quarn::Fib::FecId id, std::uint32_t version);
// The version `fec` was wholly written in, or nothing when its fields mix versions.
std::optional<std::uint32_t> wholeVersionOf(const Quarn::FibGen::Fec& fec);

// The MAC holds the version and a check of key and version.
Arp::Table::ArpEntry versionedEntry(const Arp::Table::ArpKey& key, std::uint32_t version);
std::optional<std::uint32_t> wholeVersionOf(const Arp::Table::ArpEntry& entry);

// The map of `status` that holds `key`.
const Arp::Table::ArpEntryMap& mapOf(const Arp::Table::Status& status,
                                     const Arp::Table::ArpKey& key);

} // namespace ShmTest
