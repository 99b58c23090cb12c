// The embedding agent the velt tool plays: it places a switch state in the state database,
// starts the resolver root with its plugins, and resolves next hops with the counts and
// packet hash a caller chooses.
#pragma once
#include "Counters/VeltNamedCounters.h"
#include "Ip/VrfStatus.h"
#include "Packet/PacketParserRoot.h"
#include "VeltLib/NexthopResolverRoot.h"
#include "VeltLib/RoutingNexthop.h"
#include "Vrf/NameToIdMap.h"
#include "Wexa/EntityManager.h"
#include "velt/state/State.h"
#include "velt/state/StateTables.h"

#include <cstdint>
#include <string>

namespace Velt::Tool {

// The plugins velt loads when VELT_NHR_PLUGINS is not set.
inline constexpr const char* defaultPlugins = "builtins,routeLookup";

class Agent {
 public:
   // Raises Pelin::Exception (or the plugin loader's error) when start-up fails. With
   // `shmDir`, the forwarding and neighbour tables are not built from `state` but
   // attached read-only from the files a writer made there; `state` is then the layout
   // that writer left (VeltState::loadLayout).
   explicit Agent(VeltState::State state, const std::string& shmDir = {});
   ~Agent();

   const VeltState::State& state() const { return state_; }
   const VeltState::Tables& tables() const { return tables_; }
   const Pelin::Ptr<NexthopResolverRoot>& root() const { return root_; }
   const Pelin::Ptr<Wexa::EntityManager>& entityManager() const { return em_; }
   const Pelin::Ptr<PacketParserRoot>& parserRoot() const { return parserRoot_; }
   bool hasVrf(const std::string& vrf) const;

   // Resolves `nexthop` in `vrf`. The hash picks among weighted vias (0: none); counts go
   // to `counters` when given.
   void resolve(const Pelin::Ptr<RoutingNexthop>& nexthop, const std::string& vrf,
                std::uint32_t hash, const Pelin::Ptr<VeltNamedCounters>& counters,
                const std::string& tracePrefix = {});
   // Resolves with a packet: parsed, and hashed by its flow, as an agent on a switch would.
   void resolveWithPkt(const Pelin::Ptr<RoutingNexthop>& nexthop, const std::string& vrf,
                       const Pelin::Ptr<Lumo::Pkt>& pkt,
                       const Pelin::Ptr<VeltNamedCounters>& counters);

 private:
   void placeState();
   void placeTables(Wexa::EntityManager& shm);
   void attachTables(Wexa::EntityManager& shm);

   VeltState::State state_;
   VeltState::Tables tables_;
   std::string shmDir_;
   Pelin::Ptr<Wexa::EntityManager> em_;
   Pelin::Ptr<Ip::AllVrfStatusGlobal> global_;
   Pelin::Ptr<Ip::AllVrfStatusLocal> local_;
   Pelin::Ptr<Vrf::VrfIdMap::NameToIdMap> ids_;
   Pelin::Ptr<Vrf::VrfIdMap::NameToIdMapWrapper> idsWrapper_;
   Pelin::Ptr<NexthopResolverRoot> root_;
   Pelin::Ptr<PacketParserRoot> parserRoot_;
   std::uint64_t packetId_ = 0;
};

} // namespace Velt::Tool
