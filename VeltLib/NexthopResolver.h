// The resolution driver: RoutingNexthopResolver drives a next hop through the pipeline,
// VRF after VRF, until it is fully resolved, dropped, or a limit is reached; and resolves
// queues of next hops, following multicast fan-out.
#pragma once
#include "L3/IntfStatusDir.h"
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
   // How many pre-resolutions of a backup FEC's primaries may nest on one thread: a
   // routing loop through such FECs ends here instead of recursing without bound.
   std::uint8_t maxPreResolutionDepth() const { return maxPreResolutionDepth_; }
   void maxPreResolutionDepthIs(std::uint8_t v);

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
   std::uint8_t maxPreResolutionDepth_ = 4;
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

// Hands a next hop with an output interface to the resolver of the interface's type,
// or to the default one registered under type id 0.
class NhrInterfaceTypeStep : public NhrPipelineStep {
 public:
   explicit NhrInterfaceTypeStep(const Pelin::Ptr<NexthopResolvers>& resolvers);
   const Pelin::Ptr<NexthopResolvers>& resolvers() const { return resolvers_; }
   bool process(const Pelin::Ptr<NhrPipelineContext>& nhrCtx) override;

 private:
   Pelin::Ptr<NexthopResolvers> resolvers_;
};

// Turns the via a FEC resolver chose into the next hop's own interface, FEC id and hop
// address, and asks for a VRF jump when the via's interface is in another VRF.
class NhrCopyViaNexthopStep : public NhrPipelineStep {
 public:
   explicit NhrCopyViaNexthopStep(const Pelin::Ptr<L3::Intf::StatusDir const>& l3IntfStatusDir);
   const Pelin::Ptr<L3::Intf::StatusDir const>& l3IntfStatusDir() const {
      return l3IntfStatusDir_;
   }
   bool process(const Pelin::Ptr<NhrPipelineContext>& nhrCtx) override;

 private:
   Pelin::Ptr<L3::Intf::StatusDir const> l3IntfStatusDir_;
};

// Hands a next hop carrying a FEC to the resolver of the FEC's type; none is a drop.
class NhrFecTypeStep : public NhrPipelineStep {
 public:
   explicit NhrFecTypeStep(const Pelin::Ptr<NexthopResolvers>& resolvers);
   const Pelin::Ptr<NexthopResolvers>& resolvers() const { return resolvers_; }
   bool process(const Pelin::Ptr<NhrPipelineContext>& nhrCtx) override;

 private:
   Pelin::Ptr<NexthopResolvers> resolvers_;
};

// Hands a next hop carrying a FEC id to the resolver of the id's adjacency type; none is
// a drop.
class NhrFecIdTypeStep : public NhrPipelineStep {
 public:
   explicit NhrFecIdTypeStep(const Pelin::Ptr<NexthopResolvers>& resolvers);
   const Pelin::Ptr<NexthopResolvers>& resolvers() const { return resolvers_; }
   bool process(const Pelin::Ptr<NhrPipelineContext>& nhrCtx) override;

 private:
   Pelin::Ptr<NexthopResolvers> resolvers_;
};

// Hands a next hop carrying only a destination IP to the resolver of its address family;
// none lets the pass go on to the fallback.
class NhrDstIpTypeStep : public NhrPipelineStep {
 public:
   explicit NhrDstIpTypeStep(const Pelin::Ptr<NexthopResolvers>& resolvers);
   const Pelin::Ptr<NexthopResolvers>& resolvers() const { return resolvers_; }
   bool process(const Pelin::Ptr<NhrPipelineContext>& nhrCtx) override;

 private:
   Pelin::Ptr<NexthopResolvers> resolvers_;
};

// A destination no route matched: runs the fallback pipeline on the same context and
// traps to the CPU when no fallback step takes the next hop.
class NoIpRouteFallbackStep : public NhrPipelineStep {
 public:
   explicit NoIpRouteFallbackStep(const Pelin::Ptr<GenericPipeline>& noIpRouteFallbackPipeline);
   const Pelin::Ptr<GenericPipeline>& noIpRouteFallbackPipeline() const {
      return noIpRouteFallbackPipeline_;
   }
   bool process(const Pelin::Ptr<NhrPipelineContext>& nhrCtx) override;

 private:
   Pelin::Ptr<GenericPipeline> noIpRouteFallbackPipeline_;
};

Pelin::Ptr<NhrInterfaceTypeStep>
nhrInterfaceTypeStepFactory(const Pelin::Ptr<NexthopResolvers>& resolvers);
Pelin::Ptr<NhrInterfaceTypeStep> NhrInterfaceTypeStepIs(const Pelin::Ptr<NexthopResolvers>& resolvers);
Pelin::Ptr<NhrCopyViaNexthopStep>
nhrCopyViaNexthopStepFactory(const Pelin::Ptr<L3::Intf::StatusDir const>& l3IntfStatusDir);
Pelin::Ptr<NhrCopyViaNexthopStep>
NhrCopyViaNexthopStepIs(const Pelin::Ptr<L3::Intf::StatusDir const>& l3IntfStatusDir);
Pelin::Ptr<NhrFecTypeStep> nhrFecTypeStepFactory(const Pelin::Ptr<NexthopResolvers>& resolvers);
Pelin::Ptr<NhrFecTypeStep> NhrFecTypeStepIs(const Pelin::Ptr<NexthopResolvers>& resolvers);
Pelin::Ptr<NhrFecIdTypeStep> nhrFecIdTypeStepFactory(const Pelin::Ptr<NexthopResolvers>& resolvers);
Pelin::Ptr<NhrFecIdTypeStep> NhrFecIdTypeStepIs(const Pelin::Ptr<NexthopResolvers>& resolvers);
Pelin::Ptr<NhrDstIpTypeStep> nhrDstIpTypeStepFactory(const Pelin::Ptr<NexthopResolvers>& resolvers);
Pelin::Ptr<NhrDstIpTypeStep> NhrDstIpTypeStepIs(const Pelin::Ptr<NexthopResolvers>& resolvers);
Pelin::Ptr<NoIpRouteFallbackStep>
noIpRouteFallbackStepFactory(const Pelin::Ptr<GenericPipeline>& noIpRouteFallbackPipeline);
Pelin::Ptr<NoIpRouteFallbackStep>
NoIpRouteFallbackStepIs(const Pelin::Ptr<GenericPipeline>& noIpRouteFallbackPipeline);

// ---- end of pipeline steps ----

// ---- terminal resolvers ----

// FEC types whose packets go to the CPU for this box: trap and mark the next hop as ours.
class CpuTrapFecTypeResolver : public FecTypeResolver {
 public:
   CpuTrapFecTypeResolver(const Pelin::String& name, std::uint8_t fecType)
       : FecTypeResolver(name, fecType) {}
   void resolve(const Pelin::Ptr<RoutingContext>& rCtx,
                const Pelin::Ptr<ResolverVrfRoot const>& vrfRoot,
                const Pelin::Ptr<RoutingNexthop>& nexthop) override;
};

class ReceiveFecTypeResolver : public CpuTrapFecTypeResolver {
 public:
   ReceiveFecTypeResolver() : CpuTrapFecTypeResolver("Receive", Quarn::FibGen::FecType::receive) {}
};

class ReceiveBcastFecTypeResolver : public CpuTrapFecTypeResolver {
 public:
   ReceiveBcastFecTypeResolver()
       : CpuTrapFecTypeResolver("ReceiveBcast", Quarn::FibGen::FecType::receiveBcast) {}
};

class KernelFecTypeResolver : public CpuTrapFecTypeResolver {
 public:
   KernelFecTypeResolver() : CpuTrapFecTypeResolver("Kernel", Quarn::FibGen::FecType::kernel) {}
};

class DropFecTypeResolver : public FecTypeResolver {
 public:
   DropFecTypeResolver() : FecTypeResolver("Drop", Quarn::FibGen::FecType::drop) {}
   void resolve(const Pelin::Ptr<RoutingContext>& rCtx,
                const Pelin::Ptr<ResolverVrfRoot const>& vrfRoot,
                const Pelin::Ptr<RoutingNexthop>& nexthop) override;
};

// Fetches the FEC of the next hop's FEC id from the VRF's table; an id the VRF does not
// know drops the next hop.
class DefaultFecIdResolver : public FecIdResolver {
 public:
   DefaultFecIdResolver(const Pelin::String& name, Quarn::Fib::AdjType adjType)
       : FecIdResolver(name, adjType) {}
   void resolve(const Pelin::Ptr<RoutingContext>& rCtx,
                const Pelin::Ptr<ResolverVrfRoot const>& vrfRoot,
                const Pelin::Ptr<RoutingNexthop>& nexthop) override;
};

class FibV4AdjFecIdResolver : public DefaultFecIdResolver {
 public:
   FibV4AdjFecIdResolver() : DefaultFecIdResolver("fibV4Adj", Quarn::Fib::AdjType::fibV4Adj) {}
};

class FibV6AdjFecIdResolver : public DefaultFecIdResolver {
 public:
   FibV6AdjFecIdResolver() : DefaultFecIdResolver("fibV6Adj", Quarn::Fib::AdjType::fibV6Adj) {}
};

class FibGenAdjFecIdResolver : public DefaultFecIdResolver {
 public:
   FibGenAdjFecIdResolver()
       : DefaultFecIdResolver("fibGenAdj", Quarn::Fib::AdjType::fibGenAdj) {}
};

// Interfaces that stand for a FEC: the next hop continues from the FEC id, keeping its
// destination IP as the neighbour to find at the end.
class FecIdIntfIdHandler : public InterfaceResolver {
 public:
   FecIdIntfIdHandler() : InterfaceResolver("FecIdIntfId", Lumo::GenericIntfId::fecIdTypeId) {}
   void resolve(const Pelin::Ptr<RoutingContext>& rCtx,
                const Pelin::Ptr<ResolverVrfRoot const>& vrfRoot,
                const Pelin::Ptr<RoutingNexthop>& nexthop) override;
};

Pelin::Ptr<CpuTrapFecTypeResolver> cpuTrapFecTypeResolverFactory(const Pelin::String& name,
                                                                 std::uint8_t fecType);
Pelin::Ptr<CpuTrapFecTypeResolver> CpuTrapFecTypeResolverIs(const Pelin::String& name,
                                                            std::uint8_t fecType);
Pelin::Ptr<ReceiveFecTypeResolver> receiveFecTypeResolverFactory();
Pelin::Ptr<ReceiveFecTypeResolver> ReceiveFecTypeResolverIs();
Pelin::Ptr<ReceiveBcastFecTypeResolver> receiveBcastFecTypeResolverFactory();
Pelin::Ptr<ReceiveBcastFecTypeResolver> ReceiveBcastFecTypeResolverIs();
Pelin::Ptr<KernelFecTypeResolver> kernelFecTypeResolverFactory();
Pelin::Ptr<KernelFecTypeResolver> KernelFecTypeResolverIs();
Pelin::Ptr<DropFecTypeResolver> dropFecTypeResolverFactory();
Pelin::Ptr<DropFecTypeResolver> DropFecTypeResolverIs();
Pelin::Ptr<DefaultFecIdResolver> defaultFecIdResolverFactory(const Pelin::String& name,
                                                             Quarn::Fib::AdjType adjType);
Pelin::Ptr<DefaultFecIdResolver> DefaultFecIdResolverIs(const Pelin::String& name,
                                                        Quarn::Fib::AdjType adjType);
Pelin::Ptr<FibV4AdjFecIdResolver> fibV4AdjFecIdResolverFactory();
Pelin::Ptr<FibV4AdjFecIdResolver> FibV4AdjFecIdResolverIs();
Pelin::Ptr<FibV6AdjFecIdResolver> fibV6AdjFecIdResolverFactory();
Pelin::Ptr<FibV6AdjFecIdResolver> FibV6AdjFecIdResolverIs();
Pelin::Ptr<FibGenAdjFecIdResolver> fibGenAdjFecIdResolverFactory();
Pelin::Ptr<FibGenAdjFecIdResolver> FibGenAdjFecIdResolverIs();
Pelin::Ptr<FecIdIntfIdHandler> fecIdIntfIdHandlerFactory();
Pelin::Ptr<FecIdIntfIdHandler> FecIdIntfIdHandlerIs();

// ---- end of terminal resolvers ----

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
   enum class PreResolved { good, failed, loop };
   // Resolves `via` on a temporary next hop; good when it is usable, with its result
   // copied into `nexthop`; loop when it failed after meeting the pre-resolution depth
   // limit, here or deeper.
   PreResolved preResolve(const Pelin::Ptr<RoutingContext>& rCtx, const Quarn::FibGen::Via& via,
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
