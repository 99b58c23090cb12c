// The resolution driver: RoutingNexthopResolver drives a next hop through the pipeline,
// VRF after VRF, until it is fully resolved, dropped, or a limit is reached; and resolves
// queues of next hops, following multicast fan-out.
#pragma once
#include "Pipeline/GenericPipeline.h"
#include "VeltLib/ArpHelper.h"
#include "VeltLib/NexthopResolverTypes.h"
#include "VeltLib/ResolverVrfRoot.h"

#include <cstdint>

namespace Velt {

class RoutingNexthopResolver : public GenericPipeline {
 public:
   RoutingNexthopResolver(const Pelin::Ptr<GenericPipelineSteps>& steps,
                          const Pelin::Ptr<NexthopResolvers>& resolvers,
                          const Pelin::Ptr<ResolverVrfRoots>& vrfRoots);

   const Pelin::Ptr<NexthopResolvers>& resolvers() const { return resolvers_; }
   const Pelin::Ptr<ResolverVrfRoots>& vrfRoots() const { return vrfRoots_; }
   std::uint8_t maxResolutionsInVrf() const { return maxResolutionsInVrf_; }
   void maxResolutionsInVrfIs(std::uint8_t v);
   std::uint8_t maxVrfJumping() const { return maxVrfJumping_; }
   void maxVrfJumpingIs(std::uint8_t v);
   std::uint8_t maxNhResolutionRecursionDepth() const { return maxNhResolutionRecursionDepth_; }
   void maxNhResolutionRecursionDepthIs(std::uint8_t v);

   void resolve(const Pelin::Ptr<RoutingContext>& ctx, const Pelin::Ptr<RoutingNexthop>& nexthop);
   void resolveInVrf(const Pelin::Ptr<RoutingContext>& ctx,
                     const Pelin::Ptr<RoutingNexthop>& nexthop);
   bool nexthopCanBeResolved(const Pelin::Ptr<RoutingNexthop>& nexthop) const;
   // The input next hops, and their fan-out, that ended fully resolved, in order.
   Pelin::Ptr<RoutingNexthops> resolveNexthops(const Pelin::Ptr<RoutingContext>& ctx,
                                               const Pelin::Ptr<RoutingNexthops>& nexthops);

   Kor::Publisher* publisher() const override { return notifier_.publisher(); }
   const Kor::TypeInfo* typeData() const override;

 private:
   Pelin::Ptr<NexthopResolvers> resolvers_;
   Pelin::Ptr<ResolverVrfRoots> vrfRoots_;
   std::uint8_t maxResolutionsInVrf_ = 20;
   std::uint8_t maxVrfJumping_ = 5;
   std::uint8_t maxNhResolutionRecursionDepth_ = 5;
   Kor::Notifier notifier_; // publishes the limit changes
};

Pelin::Ptr<RoutingNexthopResolver>
routingNexthopResolverFactory(const Pelin::Ptr<GenericPipelineSteps>& steps,
                              const Pelin::Ptr<NexthopResolvers>& resolvers,
                              const Pelin::Ptr<ResolverVrfRoots>& vrfRoots);
Pelin::Ptr<RoutingNexthopResolver>
RoutingNexthopResolverIs(const Pelin::Ptr<GenericPipelineSteps>& steps,
                         const Pelin::Ptr<NexthopResolvers>& resolvers,
                         const Pelin::Ptr<ResolverVrfRoots>& vrfRoots);

// ---- pipeline steps ----

// ---- end of pipeline steps ----

// The recursive worker of resolveNexthops: resolves each next hop from `it` to the end
// of its queue and follows fan-out while `counter` allows.
void resolveNexthopsWork(const Pelin::Ptr<RoutingContext>& ctx,
                         const Pelin::Ptr<RoutingNexthops>& result,
                         RoutingNexthops::Queue::const_iterator it,
                         const Pelin::Ptr<RoutingNexthopResolver>& resolver, int counter);

// ---- built-in resolvers ----

class IntfSuitabilityHelper;

// Finishes a next hop on an interface: writes the neighbour's MAC for (output interface,
// destination IP, VRF), or applies the next hop's ArpLookupFailAction on a miss.
class ArpLookupHandler : public InterfaceResolver {
 public:
   ArpLookupHandler(std::uint8_t interfaceType, const Pelin::Ptr<ArpHelper>& arpHelper);

   const Pelin::Ptr<ArpHelper>& arpHelper() const { return arpHelper_; }

   void resolve(const Pelin::Ptr<RoutingContext>& rCtx,
                const Pelin::Ptr<ResolverVrfRoot const>& vrfRoot,
                const Pelin::Ptr<RoutingNexthop>& nexthop) override;

   const Kor::TypeInfo* typeData() const override;

 private:
   Pelin::Ptr<ArpHelper> arpHelper_;
};

// The default interface resolver, registered under interface type 0.
class EthernetArpResolver : public ArpLookupHandler {
 public:
   explicit EthernetArpResolver(const Pelin::Ptr<ArpHelper>& arpHelper)
       : ArpLookupHandler(0, arpHelper) {}
};

// Forwarding FECs (FEC type 0): finishes connected routes at once, otherwise picks a via
// by packet hash in proportion to the vias' weights. With a backup via, the chosen primary
// is resolved completely first so that a failing one can be replaced.
class ForwardFecTypeResolver : public FecTypeResolver {
 public:
   // `nexthopResolver` is not counted: the driver outlives its resolvers.
   ForwardFecTypeResolver(RoutingNexthopResolver* nexthopResolver,
                          const Pelin::Ptr<IntfSuitabilityHelper>& intfSuitabilityHelper);
   ~ForwardFecTypeResolver() override;

   RoutingNexthopResolver* nexthopResolver() const { return nexthopResolver_; }
   const Pelin::Ptr<IntfSuitabilityHelper>& intfSuitabilityHelper() const {
      return intfSuitabilityHelper_;
   }

   void resolve(const Pelin::Ptr<RoutingContext>& rCtx,
                const Pelin::Ptr<ResolverVrfRoot const>& vrfRoot,
                const Pelin::Ptr<RoutingNexthop>& nexthop) override;
   void resolveUcmp(const Pelin::Ptr<RoutingContext>& rCtx,
                    const Pelin::Ptr<ResolverVrfRoot const>& vrfRoot,
                    const Pelin::Ptr<RoutingNexthop>& nexthop);

   const Kor::TypeInfo* typeData() const override;

 private:
   // Resolves `via` on a temporary next hop; true when it is usable, with its result
   // copied into `nexthop`.
   bool preResolve(const Pelin::Ptr<RoutingContext>& rCtx, const Quarn::FibGen::Via& via,
                   const Pelin::Ptr<RoutingNexthop>& nexthop);

   RoutingNexthopResolver* nexthopResolver_;
   Pelin::Ptr<IntfSuitabilityHelper> intfSuitabilityHelper_;
};

Pelin::Ptr<ForwardFecTypeResolver>
forwardFecTypeResolverFactory(RoutingNexthopResolver* nexthopResolver,
                              const Pelin::Ptr<IntfSuitabilityHelper>& intfSuitabilityHelper);
Pelin::Ptr<ForwardFecTypeResolver>
ForwardFecTypeResolverIs(RoutingNexthopResolver* nexthopResolver,
                         const Pelin::Ptr<IntfSuitabilityHelper>& intfSuitabilityHelper);

// ---- end of built-in resolvers ----

} // namespace Velt
