#include "VeltLib/NexthopResolver.h"

#include "Packet/PacketTrace.h"
#include "VeltLib/Traces.h"

namespace Velt {

namespace {

enum DriverAttr : Kor::AttrId {
   kResolvers, kVrfRoots, kMaxResolutionsInVrf, kMaxVrfJumping, kMaxNhResolutionRecursionDepth,
};

constexpr const char* kComponent = "NHResolver";

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
   Pelin::Ptr<ResolverVrfRoot> root = vrfRoots_->vrfRoot(nexthop->vrf());
   if (!root) {
      VELT_PKT_TRACE(nhResolverTrace(), 3, *ctx, "Could not find resolver vrf root for vrf {}",
                     nexthop->vrf().view());
      ctx->count("Drop", kComponent, "Could not find resolver vrf root for vrf {}");
      nexthop->dropIs(true);
      return;
   }
   VELT_PKT_TRACE(nhResolverTrace(), 3, *ctx, "Resolver in vrf {}", root->vrfName().view());
   Pelin::Ptr<NhrPipelineContext> pctx = nhrPipelineContextFactory(ctx, root, nexthop);
   nexthop->vrfIs(L3::VrfName());
   const bool hier = nexthop->resolveHierarchical();
   std::uint8_t passes = 0;
   if (maxResolutionsInVrf_ != 0) {
      while (!nexthop->drop() && !nexthop->fullyResolved() && nexthop->vrf().empty()) {
         if (process(pctx)) {
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

// ---- end of pipeline steps ----

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
           .value("maxResolutionsInVrf", &R::maxResolutionsInVrf, &R::maxResolutionsInVrfIs)
           .value("maxVrfJumping", &R::maxVrfJumping, &R::maxVrfJumpingIs)
           .value("maxNhResolutionRecursionDepth", &R::maxNhResolutionRecursionDepth,
                  &R::maxNhResolutionRecursionDepthIs)
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

// ---- end of built-in resolvers ----

} // namespace Velt
