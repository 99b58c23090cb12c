// The resolver interfaces and their registry, and the pipeline context and step bases that
// carry one next hop through the passes of a resolution in a VRF.
#pragma once
#include "Kor/Entity.h"
#include "Kor/HashMap.h"
#include "Kor/TypeInfo.h"
#include "Lumo/AddressFamily.h"
#include "Pipeline/GenericPipeline.h"
#include "Quarn/FecId.h"
#include "VeltLib/RoutingContext.h"
#include "VeltLib/RoutingNexthop.h"

#include <array>
#include <cstdint>

namespace Velt {

class ResolverVrfRoot;

// Makes progress on one kind of next hop; acts only by changing the next hop.
class BaseResolver : public Pelin::Node {
 public:
   explicit BaseResolver(const Pelin::String& name) : name_(name) {}
   const Pelin::String& name() const { return name_; }

   virtual void resolve(const Pelin::Ptr<RoutingContext>& rCtx,
                        const Pelin::Ptr<ResolverVrfRoot const>& vrfRoot,
                        const Pelin::Ptr<RoutingNexthop>& nexthop) = 0;

 private:
   Pelin::String name_;
};

// Next hops on one interface type (the type id of their output interface).
class InterfaceResolver : public BaseResolver {
 public:
   InterfaceResolver(const Pelin::String& name, std::uint8_t type)
       : BaseResolver(name), type_(type) {}
   std::uint8_t type() const { return type_; }

 private:
   std::uint8_t type_;
};

// FEC ids of one adjacency type.
class FecIdResolver : public BaseResolver {
 public:
   FecIdResolver(const Pelin::String& name, Quarn::Fib::AdjType adjType)
       : BaseResolver(name), adjType_(adjType) {}
   Quarn::Fib::AdjType adjType() const { return adjType_; }

 private:
   Quarn::Fib::AdjType adjType_;
};

// FECs of one FEC type.
class FecTypeResolver : public BaseResolver {
 public:
   FecTypeResolver(const Pelin::String& name, std::uint8_t fecType)
       : BaseResolver(name), fecType_(fecType) {}
   std::uint8_t fecType() const { return fecType_; }

 private:
   std::uint8_t fecType_;
};

// Destination IPs of one address family.
class DstIpResolver : public BaseResolver {
 public:
   DstIpResolver(const Pelin::String& name, Lumo::AddressFamily af)
       : BaseResolver(name), af_(af) {}
   Lumo::AddressFamily addressFamily() const { return af_; }

 private:
   Lumo::AddressFamily af_;
};

// The registry: one map per resolver kind, keyed by the resolver's own key. The last
// registration for a key wins.
class NexthopResolvers : public Kor::Notifier {
 public:
   template <typename R, auto Key>
   using Map = Kor::HashMap<std::decay_t<decltype((std::declval<R&>().*Key)())>,
                            Pelin::Ptr<R>, Kor::PtrKey<Key>>;
   using InterfaceMap = Map<InterfaceResolver, &InterfaceResolver::type>;
   using FecIdMap = Map<FecIdResolver, &FecIdResolver::adjType>;
   using FecTypeMap = Map<FecTypeResolver, &FecTypeResolver::fecType>;
   using DstIpMap = Map<DstIpResolver, &DstIpResolver::addressFamily>;

   NexthopResolvers() = default;

   void interfaceResolverIs(const Pelin::Ptr<InterfaceResolver>& r);
   Pelin::Ptr<InterfaceResolver> interfaceResolverDel(std::uint8_t type);
   void interfaceResolverDelAll();
   Pelin::Ptr<InterfaceResolver> interfaceResolver(std::uint8_t type) const;

   void fecIdResolverIs(const Pelin::Ptr<FecIdResolver>& r);
   Pelin::Ptr<FecIdResolver> fecIdResolverDel(Quarn::Fib::AdjType adjType);
   void fecIdResolverDelAll();
   Pelin::Ptr<FecIdResolver> fecIdResolver(Quarn::Fib::AdjType adjType) const;

   void fecTypeResolverIs(const Pelin::Ptr<FecTypeResolver>& r);
   Pelin::Ptr<FecTypeResolver> fecTypeResolverDel(std::uint8_t fecType);
   void fecTypeResolverDelAll();
   Pelin::Ptr<FecTypeResolver> fecTypeResolver(std::uint8_t fecType) const;

   void dstIpResolverIs(const Pelin::Ptr<DstIpResolver>& r);
   Pelin::Ptr<DstIpResolver> dstIpResolverDel(Lumo::AddressFamily af);
   void dstIpResolverDelAll();
   Pelin::Ptr<DstIpResolver> dstIpResolver(Lumo::AddressFamily af) const;

   const InterfaceMap& interfaceResolver() const { return interfaceResolver_; }
   const FecIdMap& fecIdResolver() const { return fecIdResolver_; }
   const FecTypeMap& fecTypeResolver() const { return fecTypeResolver_; }
   const DstIpMap& dstIpResolver() const { return dstIpResolver_; }

   // The same lookups for the per-packet steps: one indexed load, no hashing and no
   // reference counting. Every key is one byte wide; a pointer is good while the resolver
   // stays registered.
   InterfaceResolver* interfaceResolverAt(std::uint8_t type) const {
      return interfaceAt_[type];
   }
   FecIdResolver* fecIdResolverAt(Quarn::Fib::AdjType adjType) const {
      return fecIdAt_[static_cast<std::uint8_t>(adjType)];
   }
   FecTypeResolver* fecTypeResolverAt(std::uint8_t fecType) const { return fecTypeAt_[fecType]; }
   DstIpResolver* dstIpResolverAt(Lumo::AddressFamily af) const {
      return dstIpAt_[static_cast<std::uint8_t>(af)];
   }

   const Kor::TypeInfo* typeData() const override;

   template <typename R>
   using Index = std::array<R*, 256>;

 private:
   InterfaceMap interfaceResolver_;
   FecIdMap fecIdResolver_;
   FecTypeMap fecTypeResolver_;
   DstIpMap dstIpResolver_;
   // Mirrors of the maps by key, kept by the mutators above.
   Index<InterfaceResolver> interfaceAt_{};
   Index<FecIdResolver> fecIdAt_{};
   Index<FecTypeResolver> fecTypeAt_{};
   Index<DstIpResolver> dstIpAt_{};
};

Pelin::Ptr<NexthopResolvers> nexthopResolversFactory();
Pelin::Ptr<NexthopResolvers> NexthopResolversIs();

// One next hop's passes through the pipeline within one VRF.
class NhrPipelineContext : public GenericPipelineContext {
 public:
   NhrPipelineContext(const Pelin::Ptr<RoutingContext>& rCtx,
                      const Pelin::Ptr<ResolverVrfRoot const>& vrfRoot,
                      const Pelin::Ptr<RoutingNexthop>& nexthop);
   ~NhrPipelineContext() override;

   const Pelin::Ptr<RoutingContext>& rCtx() const { return rCtx_; }
   const Pelin::Ptr<ResolverVrfRoot const>& vrfRoot() const { return vrfRoot_; }
   const Pelin::Ptr<RoutingNexthop>& nexthop() const { return nexthop_; }

   static Pelin::Ptr<NhrPipelineContext>
   NhrPipelineContextIs(const Pelin::Ptr<RoutingContext>& rCtx,
                        const Pelin::Ptr<ResolverVrfRoot const>& vrfRoot,
                        const Pelin::Ptr<RoutingNexthop>& nexthop);

 private:
   Pelin::Ptr<RoutingContext> rCtx_;
   Pelin::Ptr<ResolverVrfRoot const> vrfRoot_;
   Pelin::Ptr<RoutingNexthop> nexthop_;
};

Pelin::Ptr<NhrPipelineContext>
nhrPipelineContextFactory(const Pelin::Ptr<RoutingContext>& rCtx,
                          const Pelin::Ptr<ResolverVrfRoot const>& vrfRoot,
                          const Pelin::Ptr<RoutingNexthop>& nexthop);

// Base of every step of the main resolution pipeline "NhrPipeline".
class NhrPipelineStep : public GenericPipelineStep {
 public:
   NhrPipelineStep(const Pelin::String& name, unsigned int priority);
   // Final: while nothing traces, the driver runs process() itself, which is the same only
   // as long as call() is this one.
   void call(const Pelin::Ptr<GenericPipelineContext>& ctx) final;
   // True: the step did not apply, the pass goes on. False: it handled the next hop.
   virtual bool process(const Pelin::Ptr<NhrPipelineContext>& nhrCtx) = 0;

   // The family() of every step built on this class.
   static const void* mark() { return &familyMark_; }

 private:
   static const char familyMark_;
};

// Base of every step of the no-IP-route fallback pipeline "NoIpRouteFallbackPipeline".
class NoIpRouteFallbackPipelineStep : public GenericPipelineStep {
 public:
   NoIpRouteFallbackPipelineStep(const Pelin::String& name, unsigned int priority);
   void call(const Pelin::Ptr<GenericPipelineContext>& ctx) override;
   virtual bool process(const Pelin::Ptr<NhrPipelineContext>& nhrCtx) = 0;
};

inline constexpr const char* nhrPipelineName = "NhrPipeline";
inline constexpr const char* noIpRouteFallbackPipelineName = "NoIpRouteFallbackPipeline";

} // namespace Velt
