// The per-packet context: PacketContextBase carries what every trace line and count needs
// (packet id, counter sink, trace prefix) and the packet; PacketContext adds the input
// interface, the parsed headers and the flow hash. Both live in the global namespace, as
// the routing context derives from the base.
#pragma once
#include "Counters/VeltNamedCounters.h"
#include "Lumo/IntfId.h"
#include "Packet/PacketHasher.h"
#include "Packet/PacketParser.h"
#include "Packet/ParsedPkt.h"
#include "Packet/Pkt.h"
#include "Pelin/Ptr.h"

#include <cstdint>
#include <optional>
#include <string>

class PacketContextBase : public Pelin::Node {
 public:
   explicit PacketContextBase(std::uint64_t id) : id_(id) {}

   std::uint64_t id() const { return id_; }
   // May be null: counting is then skipped.
   const Pelin::Ptr<VeltNamedCounters>& counters() const { return counters_; }
   void countersIs(Pelin::Ptr<VeltNamedCounters> c) { counters_ = std::move(c); }
   // May be empty; when set it leads every binary trace line and raises text levels by 3.
   const std::string& tracePrefix() const { return tracePrefix_; }
   void tracePrefixIs(std::string p) { tracePrefix_ = std::move(p); }
   const Pelin::Ptr<Lumo::Pkt>& pkt() const { return pkt_; }
   void pktIs(Pelin::Ptr<Lumo::Pkt> p) { pkt_ = std::move(p); }

   // Counts on the sink when there is one.
   void count(const char* category, const char* component, const char* text) const {
      if (counters_) counters_->count(category, component, text);
   }

 private:
   std::uint64_t id_;
   Pelin::Ptr<VeltNamedCounters> counters_;
   std::string tracePrefix_;
   Pelin::Ptr<Lumo::Pkt> pkt_;
};

class PacketContext : public PacketContextBase {
 public:
   // Copies the base's fields.
   explicit PacketContext(const PacketContextBase& base) : PacketContextBase(base) {}
   // `hasher` may be null: the hash is then left to hashIs().
   PacketContext(const PacketContextBase& base, Lumo::IntfId inIntf,
                 const Pelin::Ptr<PacketHasher>& hasher)
       : PacketContextBase(base), inIntf_(inIntf), hasher_(hasher) {}

   Lumo::IntfId inIntf() const { return inIntf_; }
   const Pelin::Ptr<PacketHasher>& hasher() const { return hasher_; }

   // Parses the base's packet with `parser` and, with a hasher, sets the hash from it.
   // Without a parser or a packet the context is left unparsed.
   void initializeParsedPkt(const Pelin::Ptr<PacketParser>& parser);
   // Null until initializeParsedPkt() has parsed a packet.
   const Lumo::ParsedPkt* parsedPkt() const { return parsed_ ? &*parsed_ : nullptr; }

   // 0 means the packet has no hash.
   std::uint32_t hash() const { return hash_; }
   void hashIs(std::uint32_t h) { hash_ = h; }

 private:
   Lumo::IntfId inIntf_;
   Pelin::Ptr<PacketHasher> hasher_;
   std::optional<Lumo::ParsedPkt> parsed_;
   std::uint32_t hash_ = 0;
};
