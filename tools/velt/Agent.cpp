#include "Agent.h"

#include "Quarn/TableInfo.h"
#include "VeltLib/RoutingContext.h"
#include "Wexa/Paths.h"

#include <cstdlib>

namespace Velt::Tool {

namespace {

constexpr const char* kSysName = "velt";

std::string tablePath(const VeltState::Tables& tables, const std::string& name) {
   if (tables.unifiedFec) return Quarn::Fib::TableInfo::unifiedStatusPath;
   return Quarn::Fib::TableInfo::fecMountPath(Lumo::AddressFamily::ipunknown_, name, "rib");
}

} // namespace

Agent::Agent(const VeltState::State& state)
    : state_(state), tables_(VeltState::buildTables(state)) {
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
   for (const auto& [name, table] : tables_.forwarding) shm->entityIs(tablePath(tables_, name), table);
   shm->entityIs(Wexa::Paths::arpStatus, tables_.arp);
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
