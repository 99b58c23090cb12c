#include "Agent.h"

#include "Quarn/TableInfo.h"
#include "Shm/SharedTables.h"
#include "VeltLib/RoutingContext.h"
#include "Wexa/Paths.h"
#include "velt/state/SharedState.h"

#include <cstdlib>

namespace Velt::Tool {

namespace {

constexpr const char* kSysName = "velt";

} // namespace

VeltState::Tables tablesFor(const VeltState::State& state, const std::string& shmDir) {
   if (shmDir.empty()) return VeltState::buildTables(state);
   VeltState::Tables tables;
   tables.unifiedFec = state.unifiedFec;
   VeltState::fillInterfaces(tables, state);
   return tables;
}

Agent::Agent(VeltState::State state, const std::string& shmDir)
    : state_(std::move(state)), tables_(tablesFor(state_, shmDir)), shmDir_(shmDir) {
   em_ = Pelin::make<Wexa::EntityManager>(kSysName, false);
   placeState();
   if (!std::getenv("VELT_NHR_PLUGINS")) setenv("VELT_NHR_PLUGINS", defaultPlugins, 1);
   root_ = NexthopResolverRoot::nexthopResolverRoot();
   root_->init(global_, local_, idsWrapper_, state_.unifiedFec, em_);
   // Plugins finish setting up when their mounts complete on the loop.
   em_->loop()->runUntilIdle();
   parserRoot_ = packetParserRootFactory();
}

Agent::~Agent() = default;

void Agent::placeState() {
   Pelin::Ptr<Wexa::EntityManager> shm = Wexa::sharedMemoryEntityManager(kSysName, false);
   if (shmDir_.empty()) {
      placeTables(*shm);
   } else {
      attachTables(*shm);
   }
   em_->entityIs(Wexa::Paths::l3IntfStatus, tables_.l3IntfStatus);
   em_->entityIs(Wexa::Paths::ethIntfStatus, tables_.ethIntfStatus);

   global_ = Pelin::make<Ip::AllVrfStatusGlobal>("allVrfStatusGlobal");
   local_ = Pelin::make<Ip::AllVrfStatusLocal>("allVrfStatusLocal");
   ids_ = Pelin::make<Vrf::VrfIdMap::NameToIdMap>();
   idsWrapper_ = Pelin::make<Vrf::VrfIdMap::NameToIdMapWrapper>("vrfNameToIdMap");
   idsWrapper_->nameToIdMapIs(ids_);
   for (const VeltState::VrfEntry& vrf : state_.vrfs) {
      if (vrf.globalUp) global_->vrfIs(L3::VrfName(vrf.name));
      local_->vrfIs(L3::VrfName(vrf.name), vrf.localUp ? Ip::vrfStateActive : 0);
      ids_->vrfNameToIdIs(vrf.name, vrf.id);
   }
   em_->entityIs(Wexa::Paths::vrfStatusGlobal, global_);
   em_->entityIs(Wexa::Paths::vrfStatusLocal, local_);
   em_->entityIs(Wexa::Paths::vrfNameToIdMap, idsWrapper_);
   // What the builtins plugin mounts before it wires the steps.
   em_->mountFileInfo().profileIs(
       {"Velt-NhrPlugin-builtins",
        {{Wexa::Paths::l3IntfStatus, "L3::Intf::StatusDir", {}},
         {Wexa::Paths::ethIntfStatus, "Interface::EthIntfStatusDir", {}}}});
}

void Agent::placeTables(Wexa::EntityManager& shm) {
   for (const auto& [name, table] : tables_.forwarding) {
      shm.entityIs(VeltState::tablePath(tables_.unifiedFec, name), table);
   }
   shm.entityIs(Wexa::Paths::arpStatus, tables_.arp);
}

// Mounted here rather than first by the VRF roots, so that a missing or foreign file stops
// the tool at start with its name instead of leaving a VRF without a table.
void Agent::attachTables(Wexa::EntityManager& shm) {
   Shm::fileProvidersIs(shm, shmDir_);
   using Quarn::Fib::TableInfo;
   const Wexa::MountInfo info = TableInfo().forwardingInfo(TableInfo::mountTypeSharedTable);
   for (const VeltState::TableEntry& t : state_.tables) {
      const std::string path = VeltState::tablePath(state_.unifiedFec, t.name);
      auto table = Pelin::ptr_cast<Quarn::FibGen::ForwardingStatus>(
          shm.mount(path, Quarn::Fib::TableInfo::forwardingStatusTypeName, info));
      if (!table) {
         throw Pelin::Exception("no shared table " + t.name + " at " +
                                Shm::fileBase(shmDir_, path) + ".fecs");
      }
      tables_.forwarding.emplace(t.name, table);
   }
   tables_.arp = Pelin::ptr_cast<Arp::Table::Status>(
       shm.mount(Wexa::Paths::arpStatus, Shm::arpStatusTypeName, info));
   if (!tables_.arp) {
      throw Pelin::Exception("no shared neighbour table at " +
                             Shm::fileBase(shmDir_, Wexa::Paths::arpStatus) + ".arp");
   }
}

bool Agent::hasVrf(const std::string& vrf) const {
   return root_->vrfRoots()->vrfRoot(vrf) != nullptr;
}

void Agent::resolve(const Pelin::Ptr<RoutingNexthop>& nexthop, const std::string& vrf,
                    std::uint32_t hash, const Pelin::Ptr<VeltNamedCounters>& counters,
                    const std::string& tracePrefix) {
   PacketContextBase base(packetId_++);
   base.countersIs(counters);
   if (!tracePrefix.empty()) base.tracePrefixIs(tracePrefix);
   auto pktCtx = Pelin::make<PacketContext>(base);
   pktCtx->hashIs(hash);
   auto rCtx = routingContextFactory(pktCtx, Lumo::IntfId(), vrf);
   root_->resolver()->resolve(rCtx, nexthop);
}

void Agent::resolveWithPkt(const Pelin::Ptr<RoutingNexthop>& nexthop, const std::string& vrf,
                           const Pelin::Ptr<Lumo::Pkt>& pkt,
                           const Pelin::Ptr<VeltNamedCounters>& counters) {
   PacketContextBase base(packetId_++);
   base.countersIs(counters);
   base.pktIs(pkt);
   auto pktCtx = Pelin::make<PacketContext>(base, Lumo::IntfId(), parserRoot_->hasher());
   pktCtx->initializeParsedPkt(parserRoot_->parser());
   auto rCtx = routingContextFactory(pktCtx, Lumo::IntfId(), vrf);
   root_->resolver()->resolve(rCtx, nexthop);
}

} // namespace Velt::Tool
