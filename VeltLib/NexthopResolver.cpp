#include "VeltLib/NexthopResolver.h"

#include "Lumo/FecIdIntfId.h"
#include "Packet/PacketTrace.h"
#include "VeltLib/IntfSuitabilityHelper.h"
#include "VeltLib/Traces.h"

#include <cstring>
#include <optional>
#include <span>

namespace Velt {

namespace {

enum DriverAttr : Kor::AttrId {
   kResolvers,
   kVrfRoots,
   kMaxResolutionsInVrf,
   kMaxVrfJumping,
   kMaxNhResolutionRecursionDepth,
   kMaxPreResolutionDepth,
};

constexpr const char* kComponent = "NHResolver";

// The unset address and the default via ("no via"), tested field by field: the ==
// of their std::array bytes is a memcmp call, and these tests run on every pass.
bool isUnset(const Lumo::IpGenAddr& a) {
   std::uint64_t w[2];
   std::memcpy(w, a.bytes(), sizeof w);
   return a.af() == Lumo::AddressFamily::ipunknown_ && (w[0] | w[1]) == 0;
}

bool isNoVia(const Quarn::FibGen::Via& v) {
   return !v.intfId().isValid() && v.weight() == 0 && !v.fecId().isValid() &&
          v.tunnelId() == 0 && isUnset(v.hop());
}

// No trace line, ring record or next-hop dump can be written.
bool nothingTraces() {
   return !Trace::anyLevelOn() && !Ringlog::isOpen() && !(velt_trace_verbose_bitmap & 1u);
}

} // namespace

RoutingNexthopResolver::RoutingNexthopResolver(const Pelin::Ptr<GenericPipelineSteps>& steps,
                                               const Pelin::Ptr<NexthopResolvers>& resolvers,
                                               const Pelin::Ptr<ResolverVrfRoots>& vrfRoots)
    : GenericPipeline(steps), resolvers_(resolvers), vrfRoots_(vrfRoots) {}

void RoutingNexthopResolver::maxResolutionsInVrfIs(std::uint8_t v) {
   Kor::assign(notifier_, maxResolutionsInVrf_, v, kMaxResolutionsInVrf);
}
void RoutingNexthopResolver::maxVrfJumpingIs(std::uint8_t v) {
   Kor::assign(notifier_, maxVrfJumping_, v, kMaxVrfJumping);
}
void RoutingNexthopResolver::maxNhResolutionRecursionDepthIs(std::uint8_t v) {
   Kor::assign(notifier_, maxNhResolutionRecursionDepth_, v, kMaxNhResolutionRecursionDepth);
}

void RoutingNexthopResolver::maxPreResolutionDepthIs(std::uint8_t v) {
   Kor::assign(notifier_, maxPreResolutionDepth_, v, kMaxPreResolutionDepth);
}

void RoutingNexthopResolver::resolve(const Pelin::Ptr<RoutingContext>& ctx,
                                     const Pelin::Ptr<RoutingNexthop>& nexthop) {
   if (nexthop->vrf().empty()) {
      VELT_PKT_TRACE(nhResolverTrace(), 3, *ctx, "Nexthop vrf not set, setting to srcVrf {}",
                     ctx->srcVrf().view());
      nexthop->vrfIs(ctx->srcVrf());
   }
   L3::VrfName lastVrf = nexthop->vrf();
   std::uint8_t jumps = 0;
   if (maxVrfJumping_ != 0) {
      // Success is tested only at the top: a next hop completed by the last permitted
      // call still counts as a failure, deliberately.
      while (!nexthop->drop() && !nexthop->fullyResolved()) {
         resolveInVrf(ctx, nexthop);
         if (!nexthop->vrf().empty()) lastVrf = nexthop->vrf();
         if (++jumps >= maxVrfJumping_) break;
      }
      if (jumps != maxVrfJumping_) {
         nexthop->vrfIs(lastVrf);
         return;
      }
   }
   ctx->count("Drop", kComponent, "Could not resolve after {} iterations across vrfs");
   VELT_PKT_TRACE(nhResolverTrace(), 3, *ctx, "Could not resolve after {} iterations across vrfs",
                  jumps);
   nexthop->dropIs(true);
   nexthop->vrfIs(lastVrf);
}

void RoutingNexthopResolver::resolveInVrf(const Pelin::Ptr<RoutingContext>& ctx,
                                          const Pelin::Ptr<RoutingNexthop>& nexthop) {
   // Read in place and handed straight to the context, which keeps its own count.
   const Pelin::Ptr<ResolverVrfRoot>* found = vrfRoots_->vrfRoot().find(nexthop->vrf());
   if (!found || !*found) {
      VELT_PKT_TRACE(nhResolverTrace(), 3, *ctx, "Could not find resolver vrf root for vrf {}",
                     nexthop->vrf().view());
      ctx->count("Drop", kComponent, "Could not find resolver vrf root for vrf {}");
      nexthop->dropIs(true);
      return;
   }
   VELT_PKT_TRACE(nhResolverTrace(), 3, *ctx, "Resolver in vrf {}",
                  (*found)->vrfName().view());
   Pelin::Ptr<NhrPipelineContext> pctx = nhrPipelineContextFactory(ctx, *found, nexthop);
   const Pelin::Ptr<GenericPipelineContext> passCtx = pctx;
   // While nothing traces, the steps built on NhrPipelineStep run straight through
   // process(): all their call() adds is the trace lines and the checked cast, and the
   // context is known to be ours here.
   const auto direct = [&pctx](GenericPipelineStep& step) -> std::optional<bool> {
      if (step.family() != NhrPipelineStep::mark() || !nothingTraces()) return std::nullopt;
      return static_cast<NhrPipelineStep&>(step).process(pctx);
   };
   nexthop->vrfIs(L3::VrfName());
   const bool hier = nexthop->resolveHierarchical();
   std::uint8_t passes = 0;
   if (maxResolutionsInVrf_ != 0) {
      while (!nexthop->drop() && !nexthop->fullyResolved() && nexthop->vrf().empty()) {
         if (processWith(passCtx, direct)) {
            VELT_PKT_TRACE(nhResolverTrace(), 3, *ctx, "Could not resolve, nexthop is empty");
            ctx->count("Exceptional", kComponent, "Could not resolve, nexthop is empty");
            nexthop->dropIs(true);
            return;
         }
         if (!hier) {
            if (pctx->pipelineStoppedDueToPriority()) {
               VELT_PKT_TRACE(nhResolverTrace(), 3, *ctx,
                              "Stopping resolution because hierarchical is false");
               ctx->count("Action", kComponent,
                          "Stopping resolution because hierarchical is false");
               return;
            }
            pctx->rearm();
         }
         if (++passes >= maxResolutionsInVrf_) break;
      }
   }
   if (passes == maxResolutionsInVrf_) {
      VELT_PKT_TRACE(nhResolverTrace(), 3, *ctx, "Could not resolve after {} iterations", passes);
      ctx->count("Drop", kComponent, "Could not resolve after {} iterations");
      nexthop->dropIs(true);
   }
}

bool RoutingNexthopResolver::nexthopCanBeResolved(const Pelin::Ptr<RoutingNexthop>& nexthop) const {
   return !nexthop->drop() && !nexthop->fullyResolved();
}

Pelin::Ptr<RoutingNexthops>
RoutingNexthopResolver::resolveNexthops(const Pelin::Ptr<RoutingContext>& ctx,
                                        const Pelin::Ptr<RoutingNexthops>& nexthops) {
   Pelin::Ptr<RoutingNexthops> result = routingNexthopsFactory();
   resolveNexthopsWork(ctx, result, nexthops->nexthop().begin(),
                       Pelin::Ptr<RoutingNexthopResolver>(this), maxNhResolutionRecursionDepth_);
   return result;
}

// ---- pipeline steps ----

namespace {

// The common end of the dispatching steps: name the resolver, let it act, end the pass.
// What the resolver did to the next hop is for the driver to judge. The resolver is
// counted while it runs, so that one unregistered by what it sets off still finishes.
bool runResolver(const NhrPipelineContext& nhrCtx, BaseResolver& resolver) {
   const Pelin::Ptr<BaseResolver> hold(&resolver);
   VELT_PKT_TRACE(nhResolverTrace(), 3, *nhrCtx.rCtx(), "Found resolver {}", resolver.name());
   resolver.resolve(nhrCtx.rCtx(), nhrCtx.vrfRoot(), nhrCtx.nexthop());
   return false;
}

} // namespace

NhrInterfaceTypeStep::NhrInterfaceTypeStep(const Pelin::Ptr<NexthopResolvers>& resolvers)
    : NhrPipelineStep("InterfaceType", 10000), resolvers_(resolvers) {
   stopsByPriorityIs(true); // a pass it ends is a priority stop
}

bool NhrInterfaceTypeStep::process(const Pelin::Ptr<NhrPipelineContext>& nhrCtx) {
   const Pelin::Ptr<RoutingNexthop>& inNexthop = nhrCtx->nexthop();
   const Pelin::Ptr<RoutingContext>& rCtx = nhrCtx->rCtx();
   if (inNexthop->outputIntf() == Lumo::IntfId()) return true;
   const std::uint8_t typeId = Lumo::GenericIntfId::typeId(inNexthop->outputIntf());
   VELT_PKT_TRACE(nhResolverTrace(), 3, *rCtx, "Lookup interface resolver for {}({})",
                  inNexthop->outputIntf(), typeId);
   InterfaceResolver* resolver = resolvers_ ? resolvers_->interfaceResolverAt(typeId) : nullptr;
   if (!resolver) {
      // The default lives under 0: a type id of 0 that finds nothing has no fallback.
      VELT_ASSERT_IN(Lumo::GenericIntfId::typeId( inNexthop->outputIntf() ) != 0,
                     "virtual bool Velt::NhrInterfaceTypeStep::process(const Ptr&)");
      VELT_PKT_TRACE(nhResolverTrace(), 3, *rCtx, "No specific resolver found, using default");
      resolver = resolvers_ ? resolvers_->interfaceResolverAt(0) : nullptr;
      if (!resolver) return true;
   }
   return runResolver(*nhrCtx, *resolver);
}

NhrCopyViaNexthopStep::NhrCopyViaNexthopStep(
    const Pelin::Ptr<L3::Intf::StatusDir const>& l3IntfStatusDir)
    : NhrPipelineStep("CopyViaNexthop", 20000), l3IntfStatusDir_(l3IntfStatusDir) {
   stopsByPriorityIs(true);
}

bool NhrCopyViaNexthopStep::process(const Pelin::Ptr<NhrPipelineContext>& nhrCtx) {
   const Pelin::Ptr<RoutingNexthop>& nexthop = nhrCtx->nexthop();
   const Pelin::Ptr<RoutingContext>& rCtx = nhrCtx->rCtx();
   const Quarn::FibGen::Via via = nexthop->via();
   if (isNoVia(via)) return true;
   VELT_PKT_TRACE(nhResolverTrace(), 3, *rCtx, "Resolving via");
   nexthop->outputIntfIs(via.intfId());
   const L3::Intf::Status* status =
       l3IntfStatusDir_ ? l3IntfStatusDir_->intfStatus(via.intfId()) : nullptr;
   const Pelin::Ptr<ResolverVrfRoot const>& root = nhrCtx->vrfRoot();
   // Without a root there is no current VRF to compare with, so no jump is asked for.
   if (status && root && !(status->vrfName == root->vrfName())) nexthop->vrfIs(status->vrfName);
   if (via.fecId().isValid()) nexthop->fecIdIs(via.fecId());
   if (!isUnset(via.hop())) nexthop->dstIpIs(via.hop());
   return false;
}

NhrFecTypeStep::NhrFecTypeStep(const Pelin::Ptr<NexthopResolvers>& resolvers)
    : NhrPipelineStep("FecType", 30000), resolvers_(resolvers) {
   stopsByPriorityIs(true);
}

bool NhrFecTypeStep::process(const Pelin::Ptr<NhrPipelineContext>& nhrCtx) {
   const Pelin::Ptr<RoutingNexthop>& nexthop = nhrCtx->nexthop();
   const Pelin::Ptr<RoutingContext>& rCtx = nhrCtx->rCtx();
   const Quarn::FibGen::Fec& fec = nexthop->fec();
   if (fec.isEmpty()) return true;
   const std::uint8_t fecType = fec.fecType();
   VELT_PKT_TRACE(nhResolverTrace(), 3, *rCtx, "Lookup fecType resolver for {}", fecType);
   FecTypeResolver* resolver = resolvers_ ? resolvers_->fecTypeResolverAt(fecType) : nullptr;
   if (resolver) return runResolver(*nhrCtx, *resolver);
   rCtx->count("Drop", kComponent, "No resolver for fecType");
   VELT_PKT_TRACE(nhResolverTrace(), 5, *rCtx, "No resolver for fecType");
   nexthop->dropIs(true);
   return false;
}

NhrFecIdTypeStep::NhrFecIdTypeStep(const Pelin::Ptr<NexthopResolvers>& resolvers)
    : NhrPipelineStep("FecIdType", 40000), resolvers_(resolvers) {
   stopsByPriorityIs(true);
}

bool NhrFecIdTypeStep::process(const Pelin::Ptr<NhrPipelineContext>& nhrCtx) {
   const Pelin::Ptr<RoutingNexthop>& nexthop = nhrCtx->nexthop();
   const Pelin::Ptr<RoutingContext>& rCtx = nhrCtx->rCtx();
   const Quarn::Fib::FecId fecId = nexthop->fecId();
   if (!fecId.isValid()) return true;
   const Quarn::Fib::AdjType adjType = fecId.adjType();
   VELT_PKT_TRACE(nhResolverTrace(), 3, *rCtx, "Lookup fecId resolver for {}({})", fecId,
                  static_cast<unsigned>(adjType));
   FecIdResolver* resolver = resolvers_ ? resolvers_->fecIdResolverAt(adjType) : nullptr;
   if (resolver) return runResolver(*nhrCtx, *resolver);
   rCtx->count("Drop", kComponent, "No resolver for fecId type");
   VELT_PKT_TRACE(nhResolverTrace(), 5, *rCtx, "No resolver for fecId type");
   nexthop->dropIs(true);
   return false;
}

NhrDstIpTypeStep::NhrDstIpTypeStep(const Pelin::Ptr<NexthopResolvers>& resolvers)
    : NhrPipelineStep("DstIpType", 50000), resolvers_(resolvers) {
   stopsByPriorityIs(true);
}

bool NhrDstIpTypeStep::process(const Pelin::Ptr<NhrPipelineContext>& nhrCtx) {
   const Pelin::Ptr<RoutingNexthop>& nexthop = nhrCtx->nexthop();
   const Pelin::Ptr<RoutingContext>& rCtx = nhrCtx->rCtx();
   const Lumo::IpGenAddr& dstIp = nexthop->dstIp();
   if (isUnset(dstIp)) return true;
   VELT_PKT_TRACE(nhResolverTrace(), 3, *rCtx, "Lookup dstIp resolver for {}", dstIp);
   DstIpResolver* resolver = resolvers_ ? resolvers_->dstIpResolverAt(dstIp.af()) : nullptr;
   // Unlike a FEC or FEC id, a destination nobody resolves goes on to the fallback.
   if (!resolver) return true;
   return runResolver(*nhrCtx, *resolver);
}

NoIpRouteFallbackStep::NoIpRouteFallbackStep(
    const Pelin::Ptr<GenericPipeline>& noIpRouteFallbackPipeline)
    : NhrPipelineStep("NoIpRouteFallbackStep", 60000),
      noIpRouteFallbackPipeline_(noIpRouteFallbackPipeline) {}

bool NoIpRouteFallbackStep::process(const Pelin::Ptr<NhrPipelineContext>& nhrCtx) {
   const Pelin::Ptr<RoutingNexthop>& nexthop = nhrCtx->nexthop();
   const Pelin::Ptr<RoutingContext>& rCtx = nhrCtx->rCtx();
   if (isUnset(nexthop->dstIp())) return true;
   if (!(nexthop->route() == Lumo::IpGenPrefix())) return true;
   rCtx->count("Action", kComponent, "No route, trying fallbacks for {}");
   VELT_PKT_TRACE(nhResolverTrace(), 3, *rCtx, "No route, trying fallbacks for {}",
                  nexthop->dstIp());
   const bool untaken =
       !noIpRouteFallbackPipeline_ || noIpRouteFallbackPipeline_->process(nhrCtx);
   if (untaken) nexthop->setCpuTrapNexthop();
   return true;
}

Pelin::Ptr<NhrInterfaceTypeStep>
nhrInterfaceTypeStepFactory(const Pelin::Ptr<NexthopResolvers>& resolvers) {
   return Pelin::make<NhrInterfaceTypeStep>(resolvers);
}
Pelin::Ptr<NhrInterfaceTypeStep> NhrInterfaceTypeStepIs(const Pelin::Ptr<NexthopResolvers>& resolvers) {
   return nhrInterfaceTypeStepFactory(resolvers);
}
Pelin::Ptr<NhrCopyViaNexthopStep>
nhrCopyViaNexthopStepFactory(const Pelin::Ptr<L3::Intf::StatusDir const>& l3IntfStatusDir) {
   return Pelin::make<NhrCopyViaNexthopStep>(l3IntfStatusDir);
}
Pelin::Ptr<NhrCopyViaNexthopStep>
NhrCopyViaNexthopStepIs(const Pelin::Ptr<L3::Intf::StatusDir const>& l3IntfStatusDir) {
   return nhrCopyViaNexthopStepFactory(l3IntfStatusDir);
}
Pelin::Ptr<NhrFecTypeStep> nhrFecTypeStepFactory(const Pelin::Ptr<NexthopResolvers>& resolvers) {
   return Pelin::make<NhrFecTypeStep>(resolvers);
}
Pelin::Ptr<NhrFecTypeStep> NhrFecTypeStepIs(const Pelin::Ptr<NexthopResolvers>& resolvers) {
   return nhrFecTypeStepFactory(resolvers);
}
Pelin::Ptr<NhrFecIdTypeStep> nhrFecIdTypeStepFactory(const Pelin::Ptr<NexthopResolvers>& resolvers) {
   return Pelin::make<NhrFecIdTypeStep>(resolvers);
}
Pelin::Ptr<NhrFecIdTypeStep> NhrFecIdTypeStepIs(const Pelin::Ptr<NexthopResolvers>& resolvers) {
   return nhrFecIdTypeStepFactory(resolvers);
}
Pelin::Ptr<NhrDstIpTypeStep> nhrDstIpTypeStepFactory(const Pelin::Ptr<NexthopResolvers>& resolvers) {
   return Pelin::make<NhrDstIpTypeStep>(resolvers);
}
Pelin::Ptr<NhrDstIpTypeStep> NhrDstIpTypeStepIs(const Pelin::Ptr<NexthopResolvers>& resolvers) {
   return nhrDstIpTypeStepFactory(resolvers);
}
Pelin::Ptr<NoIpRouteFallbackStep>
noIpRouteFallbackStepFactory(const Pelin::Ptr<GenericPipeline>& noIpRouteFallbackPipeline) {
   return Pelin::make<NoIpRouteFallbackStep>(noIpRouteFallbackPipeline);
}
Pelin::Ptr<NoIpRouteFallbackStep>
NoIpRouteFallbackStepIs(const Pelin::Ptr<GenericPipeline>& noIpRouteFallbackPipeline) {
   return noIpRouteFallbackStepFactory(noIpRouteFallbackPipeline);
}

// ---- end of pipeline steps ----

// ---- terminal resolvers ----

void CpuTrapFecTypeResolver::resolve(const Pelin::Ptr<RoutingContext>&,
                                     const Pelin::Ptr<ResolverVrfRoot const>&,
                                     const Pelin::Ptr<RoutingNexthop>& nexthop) {
   nexthop->setCpuTrapNexthop();
   nexthop->toMeIs(true);
}

void DropFecTypeResolver::resolve(const Pelin::Ptr<RoutingContext>&,
                                  const Pelin::Ptr<ResolverVrfRoot const>&,
                                  const Pelin::Ptr<RoutingNexthop>& nexthop) {
   if (nexthop) nexthop->dropIs(true);
}

void DefaultFecIdResolver::resolve(const Pelin::Ptr<RoutingContext>&,
                                   const Pelin::Ptr<ResolverVrfRoot const>& vrfRoot,
                                   const Pelin::Ptr<RoutingNexthop>& nexthop) {
   if (!vrfRoot) {
      nexthop->dropIs(true);
      return;
   }
   // Usually the next hop has no FEC yet: the table's record is copied into it directly.
   if (Quarn::FibGen::Fec* own = nexthop->fecStorage()) {
      vrfRoot->genFecInto(nexthop->fecId(), *own);
      if (own->isEmpty()) nexthop->dropIs(true);
      return;
   }
   const Quarn::FibGen::Fec fec = vrfRoot->genFec(nexthop->fecId());
   if (fec.isEmpty()) {
      nexthop->dropIs(true);
      return;
   }
   nexthop->fecIs(fec);
}

void FecIdIntfIdHandler::resolve(const Pelin::Ptr<RoutingContext>& rCtx,
                                 const Pelin::Ptr<ResolverVrfRoot const>&,
                                 const Pelin::Ptr<RoutingNexthop>& nexthop) {
   const Quarn::Fib::FecId fecId = Lumo::FecIdIntfId::intfIdToFecId(nexthop->outputIntf());
   const Lumo::IpGenAddr dstIp = nexthop->dstIp();
   nexthop->resetResolverFields(rCtx ? rCtx->pktCtx() : nullptr);
   nexthop->dstIpIs(dstIp);
   nexthop->fecIdIs(fecId);
}

Pelin::Ptr<CpuTrapFecTypeResolver> cpuTrapFecTypeResolverFactory(const Pelin::String& name,
                                                                 std::uint8_t fecType) {
   return Pelin::make<CpuTrapFecTypeResolver>(name, fecType);
}
Pelin::Ptr<CpuTrapFecTypeResolver> CpuTrapFecTypeResolverIs(const Pelin::String& name,
                                                            std::uint8_t fecType) {
   return cpuTrapFecTypeResolverFactory(name, fecType);
}
Pelin::Ptr<ReceiveFecTypeResolver> receiveFecTypeResolverFactory() {
   return Pelin::make<ReceiveFecTypeResolver>();
}
Pelin::Ptr<ReceiveFecTypeResolver> ReceiveFecTypeResolverIs() {
   return receiveFecTypeResolverFactory();
}
Pelin::Ptr<ReceiveBcastFecTypeResolver> receiveBcastFecTypeResolverFactory() {
   return Pelin::make<ReceiveBcastFecTypeResolver>();
}
Pelin::Ptr<ReceiveBcastFecTypeResolver> ReceiveBcastFecTypeResolverIs() {
   return receiveBcastFecTypeResolverFactory();
}
Pelin::Ptr<KernelFecTypeResolver> kernelFecTypeResolverFactory() {
   return Pelin::make<KernelFecTypeResolver>();
}
Pelin::Ptr<KernelFecTypeResolver> KernelFecTypeResolverIs() {
   return kernelFecTypeResolverFactory();
}
Pelin::Ptr<DropFecTypeResolver> dropFecTypeResolverFactory() {
   return Pelin::make<DropFecTypeResolver>();
}
Pelin::Ptr<DropFecTypeResolver> DropFecTypeResolverIs() { return dropFecTypeResolverFactory(); }
Pelin::Ptr<DefaultFecIdResolver> defaultFecIdResolverFactory(const Pelin::String& name,
                                                             Quarn::Fib::AdjType adjType) {
   return Pelin::make<DefaultFecIdResolver>(name, adjType);
}
Pelin::Ptr<DefaultFecIdResolver> DefaultFecIdResolverIs(const Pelin::String& name,
                                                        Quarn::Fib::AdjType adjType) {
   return defaultFecIdResolverFactory(name, adjType);
}
Pelin::Ptr<FibV4AdjFecIdResolver> fibV4AdjFecIdResolverFactory() {
   return Pelin::make<FibV4AdjFecIdResolver>();
}
Pelin::Ptr<FibV4AdjFecIdResolver> FibV4AdjFecIdResolverIs() {
   return fibV4AdjFecIdResolverFactory();
}
Pelin::Ptr<FibV6AdjFecIdResolver> fibV6AdjFecIdResolverFactory() {
   return Pelin::make<FibV6AdjFecIdResolver>();
}
Pelin::Ptr<FibV6AdjFecIdResolver> FibV6AdjFecIdResolverIs() {
   return fibV6AdjFecIdResolverFactory();
}
Pelin::Ptr<FibGenAdjFecIdResolver> fibGenAdjFecIdResolverFactory() {
   return Pelin::make<FibGenAdjFecIdResolver>();
}
Pelin::Ptr<FibGenAdjFecIdResolver> FibGenAdjFecIdResolverIs() {
   return fibGenAdjFecIdResolverFactory();
}
Pelin::Ptr<FecIdIntfIdHandler> fecIdIntfIdHandlerFactory() {
   return Pelin::make<FecIdIntfIdHandler>();
}
Pelin::Ptr<FecIdIntfIdHandler> FecIdIntfIdHandlerIs() { return fecIdIntfIdHandlerFactory(); }

// ---- end of terminal resolvers ----

void resolveNexthopsWork(const Pelin::Ptr<RoutingContext>& ctx,
                         const Pelin::Ptr<RoutingNexthops>& result,
                         RoutingNexthops::Queue::const_iterator it,
                         const Pelin::Ptr<RoutingNexthopResolver>& resolver, int counter) {
   if (counter == 0) {
      VELT_PKT_TRACE(nhResolverTrace(), 3, *ctx, "Could not recurse further, counter={}", counter);
      ctx->count("Exceptional", kComponent, "Could not recurse further, counter={}");
      return;
   }
   for (; it; ++it) {
      const Pelin::Ptr<RoutingNexthop>& nh = *it;
      resolver->resolve(ctx, nh);
      if (nh->fullyResolved()) result->nexthopEnq(nh);
      const Pelin::Ptr<RoutingNexthops>& fanOut = nh->mcastDstNexthops();
      if (fanOut && !fanOut->empty()) {
         resolveNexthopsWork(ctx, result, fanOut->nexthop().begin(), resolver, counter - 1);
      }
   }
}

const Kor::TypeInfo* RoutingNexthopResolver::typeData() const {
   using R = RoutingNexthopResolver;
   static const Kor::TypeInfo info =
       Kor::TypeBuilder<R>("Velt::RoutingNexthopResolver")
           .node("resolvers", &R::resolvers)
           .node("vrfRoots", &R::vrfRoots)
           .value("maxResolutionsInVrf", &R::maxResolutionsInVrf,
                  &R::maxResolutionsInVrfIs)
           .value("maxVrfJumping", &R::maxVrfJumping, &R::maxVrfJumpingIs)
           .value("maxNhResolutionRecursionDepth", &R::maxNhResolutionRecursionDepth,
                  &R::maxNhResolutionRecursionDepthIs)
           .value("maxPreResolutionDepth", &R::maxPreResolutionDepth,
                  &R::maxPreResolutionDepthIs)
           .build();
   return &info;
}

Pelin::Ptr<RoutingNexthopResolver>
routingNexthopResolverFactory(const Pelin::Ptr<GenericPipelineSteps>& steps,
                              const Pelin::Ptr<NexthopResolvers>& resolvers,
                              const Pelin::Ptr<ResolverVrfRoots>& vrfRoots) {
   return Pelin::make<RoutingNexthopResolver>(steps, resolvers, vrfRoots);
}

Pelin::Ptr<RoutingNexthopResolver>
RoutingNexthopResolverIs(const Pelin::Ptr<GenericPipelineSteps>& steps,
                         const Pelin::Ptr<NexthopResolvers>& resolvers,
                         const Pelin::Ptr<ResolverVrfRoots>& vrfRoots) {
   return routingNexthopResolverFactory(steps, resolvers, vrfRoots);
}

// ---- built-in resolvers ----

namespace {

// Primary vias by index. Bounded by the FEC's via capacity, so it lives on the stack and
// never touches the heap, whatever the FEC.
class PrimaryVias {
 public:
   void append(std::uint16_t index) { index_[size_++] = index; }
   void removeAt(std::uint32_t k) {
      std::memmove(&index_[k], &index_[k + 1], (size_ - k - 1) * sizeof(index_[0]));
      --size_;
   }
   void clear() { size_ = 0; }
   std::uint32_t size() const { return size_; }
   bool empty() const { return size_ == 0; }
   std::uint16_t operator[](std::uint32_t k) const { return index_[k]; }

 private:
   std::uint32_t size_ = 0;
   std::uint16_t index_[Quarn::FibGen::Fec::maxVias];
};

bool isConnected(const Quarn::FibGen::Via& via) {
   const Lumo::IpGenAddr& hop = via.hop();
   switch (hop.af()) {
   case Lumo::AddressFamily::ipv4_: return hop.isAnyAddress();
   case Lumo::AddressFamily::ipv6_: return hop.isUnspecified();
   default: return true;
   }
}

} // namespace

ArpLookupHandler::ArpLookupHandler(std::uint8_t interfaceType,
                                   const Pelin::Ptr<ArpHelper>& arpHelper)
    : InterfaceResolver("ArpLookup", interfaceType), arpHelper_(arpHelper) {}

void ArpLookupHandler::resolve(const Pelin::Ptr<RoutingContext>& rCtx,
                               const Pelin::Ptr<ResolverVrfRoot const>& vrfRoot,
                               const Pelin::Ptr<RoutingNexthop>& nexthop) {
   const RoutingContext& ctx = *rCtx;
   RoutingNexthop& nh = *nexthop;
   if (nh.outputIntf() == Lumo::IntfId()) {
      ctx.count("Exceptional", kComponent, "No output interface for arp");
      VELT_PKT_TRACE(nhResolverTrace(), 3, ctx, "No output interface for arp");
      nh.dropIs(true);
      return;
   }
   if (!RoutingNexthop::isZeroMac(nh.dstMac())) {
      // Resolving a next hop that already has its MAC is an inconsistency: dropped, on
      // purpose, rather than passed on.
      VELT_PKT_TRACE(nhResolverTrace(), 3, ctx, "Output mac already set {}", nh.dstMac());
      nh.dropIs(true);
      return;
   }
   if (isUnset(nh.dstIp())) {
      ctx.count("Exceptional", kComponent, "No destination ip for arp");
      VELT_PKT_TRACE(nhResolverTrace(), 3, ctx, "No destination ip for arp");
      nh.dropIs(true);
      return;
   }
   Lumo::EthAddr mac;
   if (arpHelper_->arpLookupMac(nh.outputIntf(), nh.dstIp(), vrfRoot->vrfId(), mac)) {
      nh.dstMacIs(mac);
      VELT_PKT_TRACE(nhResolverTrace(), 3, ctx, "Arp resolved in vrf {} ip {} intf {} to {}",
                     vrfRoot->vrfName().view(), nh.dstIp(), nh.outputIntf(), mac);
      return;
   }
   switch (static_cast<std::uint8_t>(nh.arpLookupFailAction())) {
   case static_cast<std::uint8_t>(ArpLookupFailAction::trapTraceCount):
      VELT_PKT_TRACE(nhResolverTrace(), 3, ctx, "Arp did not resolve in vrf {} ip {} intf {}",
                     vrfRoot->vrfName().view(), nh.dstIp(), nh.outputIntf());
      nh.setCpuTrapNexthop();
      nh.kernelHandlesPacketIs(true);
      break;
   case static_cast<std::uint8_t>(ArpLookupFailAction::dropTraceCount):
      ctx.count("Drop", kComponent,
                "Arp did not resolve, and nexthop is set to drop when this happens");
      VELT_PKT_TRACE(nhResolverTrace(), 3, ctx,
                     "Arp did not resolve, and nexthop is set to drop when this happens");
      nh.dropIs(true);
      break;
   case static_cast<std::uint8_t>(ArpLookupFailAction::silentlyIgnore):
      nh.dropIs(true);
      break;
   default:
      // Unknown actions leave the next hop unresolved for the driver to judge.
      break;
   }
}

const Kor::TypeInfo* ArpLookupHandler::typeData() const {
   using H = ArpLookupHandler;
   using Name = const Pelin::String& (H::*)() const;
   using Key = std::uint8_t (H::*)() const;
   static const Kor::TypeInfo info = Kor::TypeBuilder<H>("Velt::ArpLookupHandler")
                                         .value("name", static_cast<Name>(&H::name))
                                         .value("type", static_cast<Key>(&H::type))
                                         .node("arpHelper", &H::arpHelper)
                                         .build();
   return &info;
}

ForwardFecTypeResolver::ForwardFecTypeResolver(
    RoutingNexthopResolver* nexthopResolver,
    const Pelin::Ptr<IntfSuitabilityHelper>& intfSuitabilityHelper)
    : FecTypeResolver("Forward", Quarn::FibGen::FecType::forward),
      nexthopResolver_(nexthopResolver), intfSuitabilityHelper_(intfSuitabilityHelper) {}

ForwardFecTypeResolver::~ForwardFecTypeResolver() = default;

void ForwardFecTypeResolver::resolve(const Pelin::Ptr<RoutingContext>& rCtx,
                                     const Pelin::Ptr<ResolverVrfRoot const>& vrfRoot,
                                     const Pelin::Ptr<RoutingNexthop>& nexthop) {
   const Quarn::FibGen::Fec& fec = nexthop->fec();
   if (fec.viaCount() != 1) return resolveUcmp(rCtx, vrfRoot, nexthop);
   const Quarn::FibGen::Via& via = fec.vias()[0];
   if (fec.loopbackOnly() && !Lumo::LoopbackIntfId::isLoopbackIntfId(via.intfId())) {
      return resolveUcmp(rCtx, vrfRoot, nexthop);
   }
   if (!isConnected(via) || via.intfId() == Lumo::IntfId() || via.tunnelId() != 0) {
      return resolveUcmp(rCtx, vrfRoot, nexthop);
   }
   // Connected: the packet's own destination is the neighbour; the interface step and
   // the ARP handler finish the next hop from here.
   if (!isUnset(nexthop->dstIp())) {
      nexthop->outputIntfIs(via.intfId());
      return;
   }
   rCtx->count("Drop", kComponent, "No destination ip for connected route with fec {}");
   VELT_PKT_TRACE(nhResolverTrace(), 3, *rCtx, "No destination ip for connected route with fec {}",
                  fec.fecId());
   nexthop->dropIs(true);
}

void ForwardFecTypeResolver::resolveUcmp(const Pelin::Ptr<RoutingContext>& rCtx,
                                         const Pelin::Ptr<ResolverVrfRoot const>&,
                                         const Pelin::Ptr<RoutingNexthop>& nexthop) {
   // The next hop's own FEC is read in place: pre-resolution works on a temporary next
   // hop, so nothing rewrites this one's FEC meanwhile.
   const Quarn::FibGen::Fec& fec = nexthop->fec();
   // Indexed in place: every index below is under the via count.
   const std::span<const Quarn::FibGen::Via> vias = fec.vias();
   const std::uint32_t viaCount = fec.viaCount();
   const std::uint32_t backupIndex = fec.backupViaIndex();
   // The via at a backup index is never a primary; it is a backup only when it is a via.
   const bool backupSlot = backupIndex != 0 && backupIndex < viaCount;
   const Quarn::FibGen::Via backup = backupSlot ? vias[backupIndex] : Quarn::FibGen::Via();

   const std::uint32_t hash = rCtx->pktCtx() ? rCtx->pktCtx()->hash() : 0;
   if (hash == 0) {
      rCtx->count("Exceptional", kComponent, "Hash is 0");
      VELT_PKT_TRACE(nhResolverTrace(), 3, *rCtx, "Hash is 0");
      if (viaCount > 0) nexthop->viaIs(vias[0]);
      return;
   }

   const bool hasBackup = !isNoVia(backup);
   if (!hasBackup) {
      // Without a backup the first pick is final: one walk to weigh the primaries, one to
      // find the picked one, and no list of them.
      std::uint64_t totalWeight = 0;
      for (std::uint32_t i = 0; i < viaCount; ++i) {
         if (!(backupSlot && i == backupIndex)) totalWeight += vias[i].weight();
      }
      // No primaries, or only weight-0 ones: none of them can be picked.
      if (totalWeight == 0) return;
      std::uint64_t pick = hash % totalWeight;
      VELT_PKT_TRACE(nhResolverTrace(), 3, *rCtx, " pktHash/totalWeight is {} / {}", pick,
                     totalWeight);
      std::uint32_t i = 0;
      for (;; ++i) {
         if (backupSlot && i == backupIndex) continue;
         const std::uint32_t w = vias[i].weight();
         if (w > pick) break;
         pick -= w;
      }
      nexthop->viaIs(vias[i]);
      return;
   }

   PrimaryVias primaries;
   std::uint64_t totalWeight = 0;
   for (std::uint32_t i = 0; i < viaCount; ++i) {
      if (backupSlot && i == backupIndex) continue;
      primaries.append(static_cast<std::uint16_t>(i));
      totalWeight += vias[i].weight();
   }

   bool committed = false;
   while (!primaries.empty() && !committed) {
      if (totalWeight == 0) {
         // Only weight-0 vias are left: none of them can be picked.
         primaries.clear();
         break;
      }
      std::uint64_t pick = hash % totalWeight;
      VELT_PKT_TRACE(nhResolverTrace(), 3, *rCtx, " pktHash/totalWeight is {} / {}", pick,
                     totalWeight);
      std::uint32_t k = 0;
      for (;;) {
         const std::uint32_t w = vias[primaries[k]].weight();
         if (w > pick) break;
         pick -= w;
         ++k;
      }
      const Quarn::FibGen::Via& chosen = vias[primaries[k]];
      rCtx->count("Action", kComponent, "Pre-resolving via as there is a backup via");
      VELT_PKT_TRACE(nhResolverTrace(), 3, *rCtx, "Pre-resolving via as there is a backup via");
      const PreResolved outcome = preResolve(rCtx, chosen, nexthop);
      if (outcome == PreResolved::good) {
         committed = true;
         break;
      }
      if (outcome == PreResolved::loop) {
         // The other primaries would only walk into the loop again, each as deep: the
         // backup is the way out.
         primaries.clear();
         break;
      }
      totalWeight -= chosen.weight();
      primaries.removeAt(k);
   }
   if (primaries.empty()) {
      VELT_PKT_TRACE(nhResolverTrace(), 3, *rCtx, "Using backup via");
      nexthop->viaIs(backup);
   }
}

namespace {

// Pre-resolutions nested on this thread, and how often one was refused for depth: a
// pre-resolution that saw the second move knows a loop lay below it.
struct PreResolutionNesting {
   std::uint8_t depth = 0;
   std::uint64_t refusals = 0;
};
thread_local PreResolutionNesting preResolutionNesting;

class NestedPreResolution {
 public:
   NestedPreResolution() { ++preResolutionNesting.depth; }
   ~NestedPreResolution() { --preResolutionNesting.depth; }
   NestedPreResolution(const NestedPreResolution&) = delete;
   NestedPreResolution& operator=(const NestedPreResolution&) = delete;
};

} // namespace

ForwardFecTypeResolver::PreResolved
ForwardFecTypeResolver::preResolve(const Pelin::Ptr<RoutingContext>& rCtx,
                                   const Quarn::FibGen::Via& via,
                                   const Pelin::Ptr<RoutingNexthop>& nexthop) {
   PreResolutionNesting& nesting = preResolutionNesting;
   if (nesting.depth >= nexthopResolver_->maxPreResolutionDepth()) {
      // Primaries that lead back into their own FEC nest without end: the deepest one
      // fails, so that the backups take over on the way out.
      ++nesting.refusals;
      rCtx->count("Exceptional", kComponent,
                  "Could not pre-resolve via, pre-resolution depth {} reached");
      VELT_PKT_TRACE(nhResolverTrace(), 3, *rCtx,
                     "Could not pre-resolve via, pre-resolution depth {} reached",
                     unsigned(nesting.depth));
      return PreResolved::loop;
   }
   const std::uint64_t refusalsBefore = nesting.refusals;
   Pelin::Ptr<RoutingNexthop> temp = routingNexthopFactory(Lumo::IntfId());
   temp->viaIs(via);
   // An unknown neighbour must show as "not resolved", not trap the packet.
   temp->arpLookupFailActionIs(ArpLookupFailAction::silentlyIgnore);
   {
      NestedPreResolution nested;
      nexthopResolver_->resolve(rCtx, temp);
   }
   const PreResolved failed =
       nesting.refusals != refusalsBefore ? PreResolved::loop : PreResolved::failed;
   if (!temp->fullyResolved()) return failed;
   if (intfSuitabilityHelper_ && !intfSuitabilityHelper_->isSuitable(temp->outputIntf())) {
      return failed;
   }
   if (temp->rewrites()) nexthop->rewritesIs()->copyFrom(temp->rewrites());
   nexthop->outputIntfIs(temp->outputIntf());
   nexthop->dstMacIs(temp->dstMac());
   return PreResolved::good;
}

const Kor::TypeInfo* ForwardFecTypeResolver::typeData() const {
   using F = ForwardFecTypeResolver;
   using Name = const Pelin::String& (F::*)() const;
   using Key = std::uint8_t (F::*)() const;
   static const Kor::TypeInfo info = Kor::TypeBuilder<F>("Velt::ForwardFecTypeResolver")
                                         .value("name", static_cast<Name>(&F::name))
                                         .value("fecType", static_cast<Key>(&F::fecType))
                                         .node("intfSuitabilityHelper",
                                               &F::intfSuitabilityHelper)
                                         .build();
   return &info;
}

Pelin::Ptr<ForwardFecTypeResolver>
forwardFecTypeResolverFactory(RoutingNexthopResolver* nexthopResolver,
                              const Pelin::Ptr<IntfSuitabilityHelper>& intfSuitabilityHelper) {
   return Pelin::make<ForwardFecTypeResolver>(nexthopResolver, intfSuitabilityHelper);
}

Pelin::Ptr<ForwardFecTypeResolver>
ForwardFecTypeResolverIs(RoutingNexthopResolver* nexthopResolver,
                         const Pelin::Ptr<IntfSuitabilityHelper>& intfSuitabilityHelper) {
   return forwardFecTypeResolverFactory(nexthopResolver, intfSuitabilityHelper);
}

// ---- end of built-in resolvers ----

} // namespace Velt
